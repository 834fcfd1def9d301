// Finds the DHCP servers that answer on an interface.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "foundation/HXError.h"
#include "foundation/HXLog.h"

/// Broadcasts one DHCPDISCOVER and listens for offers for two seconds. Never requests a lease.
class BRHDHCPDetector : public HXLogging<BRHDHCPDetector> {
 public:
  /// Receives either an error or the distinct IPv4 addresses of the servers that made offers, in order of arrival.
  using CompletionHandler =
      std::function<void(const std::optional<HXError>&, const std::optional<std::vector<std::string>>&)>;

  /// Starts a probe and returns at once. The handler is called exactly once, on the global queue, after the probe's
  /// sockets are closed. The probe binds UDP port 68: it needs the right to do so, and only one can run at a time.
  void startTestWithInterfaceName(const std::string& interfaceName, CompletionHandler completionHandler) const;
};
