// Which IPv6 router answers on an interface.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "foundation/HXGCDTimer.h"
#include "foundation/HXLog.h"
#include "platform/base/file_descriptor.h"

/// Solicits routers once a second until the first advertisement of a default router, for five seconds at most. Used
/// once: set up, then start(). Keep it until it has completed. Needs the right to raw sockets.
class BRHV6RADetector : public HXLogging<BRHV6RADetector>, public std::enable_shared_from_this<BRHV6RADetector> {
 public:
  using Data = std::vector<std::uint8_t>;
  /// Gets the ICMPv6 message and its sender's socket address in the BSD layout, or neither.
  using CompletionHandler = std::function<void(const std::optional<Data>& data, const std::optional<Data>& address)>;

  ~BRHV6RADetector();

  const std::string& interface() const { return _interface; }
  void setInterface(std::string interface) { _interface = std::move(interface); }

  /// Called exactly once, on whichever thread completes the probe, and then let go: it may keep the detector.
  void setCompletionHandler(CompletionHandler handler) { _completionHandler = std::move(handler); }

  /// Starts the probe and returns at once. Without such an interface the probe completes before that.
  void start();

  /// Completes the probe, unless it has completed already. Any thread.
  void completeWithData(const std::optional<Data>& data, const std::optional<Data>& address);

  /// Whether the probe has completed. Its threads end within about a second from then.
  bool stopped() const { return _stopped; }

 private:
  void timeout();
  int sendRS();
  int recvRA();
  platform::FileDescriptor openReceiver() const;

  std::promise<void> listening_;  // kept when the receiver listens, or never will
  std::thread _sendThread;
  std::thread _recvThread;
  std::shared_ptr<HXGCDTimer> _timeoutTimer;
  std::atomic<bool> _stopped = false;
  std::string _interface;
  CompletionHandler _completionHandler;
  std::mutex lock_;  // of what completing changes
};
