// The application's connection to its helper.
#pragma once

#include <brimo/requests.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace brimo {
inline namespace v1 {

/// The argument of Options::onConnection.
struct ConnectionChange {
  std::optional<std::int64_t> build;  ///< of the helper; absent while there is no connection
  std::optional<Error> error;         ///< why there is no connection
};

struct Options {
  /// Name of the service; if empty, the one that the library was built for.
  std::string service;

  /// Whether handlers run on a thread of the client's own. If false, they run in deliver(), for programs with a main
  /// loop.
  bool ownThread = true;

  /// Whether the client reconnects by itself after it has lost the connection: at once, then after one second and after
  /// growing pauses of at most 30 seconds, until it succeeds. The pauses start anew only after a connection that lasted
  /// more than 30 seconds. If false, and after stop(), the next request connects again. No request is ever sent twice.
  bool reconnects = true;

  /// How long a request waits for its answer. dhcpDiscover() and raDetect() take long by design; the seconds that they
  /// need are added.
  std::chrono::milliseconds timeLimit{10'000};

  /// Called like a handler when the client has connected, has failed to connect or has lost its connection. The same
  /// error several times in a row is reported once. After a new connection, set temporary proxies and the watchdog
  /// again: the helper has undone or forgotten them.
  std::function<void(const ConnectionChange&)> onConnection;
};

/// The application's connection to its helper. Keep exactly one per application, for as long as its settings must stay:
/// when any client's connection ends, the helper undoes the work of all clients.
///
/// - All functions may be called on any thread at any time, also by handlers; deliver() on one thread at a time.
/// - The destructor must not run at the same time as a call on another thread. A handler may run it.
/// - Several requests can be pending at a time; all use the same connection.
/// - In a forked child process, call() fails and handlers are never called. The child may only destroy the client; that
///   leaves the parent's connection alone.
class BRIMO_CLIENT_API HelperClient {
 public:
  /// Identifies a request; never reused. 0 only in a forked child process, where nothing is sent.
  using ID = std::uint64_t;

  /// The first request connects. Throws std::system_error when no thread or descriptor is available.
  explicit HelperClient(Options options = {});

  /// Cancels all pending requests. Their handlers run on this thread before the destructor returns. Requests that they
  /// send are cancelled, too: a handler that repeats its request after every error would keep the destructor from
  /// returning.
  ~HelperClient();
  HelperClient(const HelperClient&) = delete;
  HelperClient& operator=(const HelperClient&) = delete;

  /// Sends a request. The handler is called exactly once, whatever happens, but never within this call. It must not
  /// throw. `limit` replaces the client's time limit, including the additional time of slow requests.
  template <class Value>
  ID send(const Request<Value>& request, typename Request<Value>::Handler handler,
          std::optional<std::chrono::milliseconds> limit = {}) {
    return begin(
        request.message(),
        [request, handler = std::move(handler)](const detail::Reply& reply) { handler(request.read(reply)); }, limit);
  }

  /// Sends a request and waits for its result, but no longer than the time limit.
  template <class Value>
  Result<Value> call(const Request<Value>& request, std::optional<std::chrono::milliseconds> limit = {}) {
    return request.read(*wait(request.message(), limit));
  }

  /// Completes a request with ErrorCode::cancelled unless it already has a result. The helper still carries out a
  /// request that has been sent.
  void cancel(ID request);

  /// Connects, if there is no connection, without sending a request.
  void connect();

  /// A descriptor that is readable when deliver() has work to do, for poll(), GLib, Qt or Asio. -1 if
  /// Options::ownThread is true. It belongs to this object: do not read from it or close it.
  int descriptor() const;

  /// Calls the handlers that are due, on this thread. Must not run on two threads at once.
  void deliver();

 private:
  ID begin(std::shared_ptr<const detail::Message> message, std::function<void(const detail::Reply&)> finish,
           std::optional<std::chrono::milliseconds> limit);
  std::shared_ptr<const detail::Reply> wait(std::shared_ptr<const detail::Message> message,
                                            std::optional<std::chrono::milliseconds> limit);

  class Implementation;
  std::unique_ptr<Implementation> implementation_;
};

/// The version of the library at run time: 1,000,000 * major + 1,000 * minor + patch. BRIMO_CLIENT_VERSION is the
/// version of the headers.
BRIMO_CLIENT_API int clientVersion();
#define BRIMO_CLIENT_VERSION 1000000

}  // namespace v1
}  // namespace brimo
