// Which DHCP servers answer on an interface.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "foundation/HXError.h"
#include "foundation/HXLog.h"

/// Broadcasts one DHCPDISCOVER and listens for offers for two seconds. Never asks for a lease.
class BRHDHCPDetector : public HXLogging<BRHDHCPDetector> {
 public:
  /// Gets either an error or the distinct IPv4 addresses that offers came from, in order of arrival.
  using CompletionHandler =
      std::function<void(const std::optional<HXError>&, const std::optional<std::vector<std::string>>&)>;

  /// Starts a probe and returns at once. The handler is called exactly once, on the global queue, when the probe's
  /// sockets have been closed. Needs the right to bind UDP port 68, which one probe at a time can have.
  void startTestWithInterfaceName(const std::string& interfaceName, CompletionHandler completionHandler) const;
};
