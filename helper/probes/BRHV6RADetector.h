// Finds the IPv6 router that answers on an interface.
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

/// Solicits routers once a second until a default router sends an advertisement, for five seconds at most. Use each
/// object once: set it up, call start(), and keep it until it completes. Needs the right to open raw sockets.
class BRHV6RADetector : public HXLogging<BRHV6RADetector>, public std::enable_shared_from_this<BRHV6RADetector> {
 public:
  using Data = std::vector<std::uint8_t>;
  /// Receives the ICMPv6 message and the sender's socket address in the BSD layout, or neither.
  using CompletionHandler = std::function<void(const std::optional<Data>& data, const std::optional<Data>& address)>;

  ~BRHV6RADetector();

  const std::string& interface() const { return _interface; }
  void setInterface(std::string interface) { _interface = std::move(interface); }

  /// The handler is called exactly once, on the thread that completes the probe, and then released. It may therefore
  /// own the detector.
  void setCompletionHandler(CompletionHandler handler) { _completionHandler = std::move(handler); }

  /// Starts the probe and returns at once. If the interface does not exist, the probe completes before start() returns.
  void start();

  /// Completes the probe unless it is already complete. Any thread.
  void completeWithData(const std::optional<Data>& data, const std::optional<Data>& address);

  /// Whether the probe is complete. Its threads end within about a second after that.
  bool stopped() const { return _stopped; }

 private:
  void timeout();
  int sendRS();
  int recvRA();
  platform::FileDescriptor openReceiver() const;

  std::promise<void> listening_;  // set when the receiver listens or has failed
  std::thread _sendThread;
  std::thread _recvThread;
  std::shared_ptr<HXGCDTimer> _timeoutTimer;
  std::atomic<bool> _stopped = false;
  std::string _interface;
  CompletionHandler _completionHandler;
  std::mutex lock_;  // guards the members that completeWithData() changes
};
