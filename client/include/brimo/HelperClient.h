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

/// What Options::onConnection is told.
struct ConnectionChange {
  std::optional<std::int64_t> build;  ///< of the helper that has admitted this program; absent: there is no connection
  std::optional<Error> error;         ///< why there is none
};

struct Options {
  /// Name of the service; empty: the one that the library was built for.
  std::string service;

  /// Handlers run on a thread of the client's own. Otherwise they wait for deliver(), for programs with a main loop.
  bool ownThread = true;

  /// A lost connection is made again after one second, then after two, four … at most 30 seconds, until there is one or
  /// the helper refuses. Where this is false, and after stop(), the next request makes it. No request is ever sent
  /// twice.
  bool reconnects = true;

  /// How long an answer is waited for. Requests that take their time by nature have that time in addition.
  std::chrono::milliseconds timeLimit{10'000};

  /// Called like a handler whenever a connection has come up, could not be made or has been lost. This is the moment to
  /// set proxies and the watchdog again: the helper has undone, or forgotten, what an earlier connection set.
  std::function<void(const ConnectionChange&)> onConnection;
};

/// The application's connection to its helper. Keep ONE in a process, for as long as its settings are to stay: when any
/// client's connection ends, the helper undoes the work of all.
///
/// Any thread may call anything at any time, handlers included; only the destructor must not meet other calls, and may
/// itself be called by a handler. Requests are under way together, over one connection. A process that was forked off
/// cannot use it.
class BRIMO_CLIENT_API HelperClient {
 public:
  /// Of a request; never 0, and never used twice.
  using ID = std::uint64_t;

  /// Connects with the first request. Throws std::system_error when the system has no thread or descriptor left.
  explicit HelperClient(Options options = {});

  /// What is under way ends with ErrorCode::cancelled: those handlers run on this thread, before this returns.
  ~HelperClient();
  HelperClient(const HelperClient&) = delete;
  HelperClient& operator=(const HelperClient&) = delete;

  /// Sends a request. The handler is called exactly once, whatever happens, and never by this call itself; it must not
  /// throw. A limit stands in place of the client's own.
  template <class Value>
  ID send(const Request<Value>& request, typename Request<Value>::Handler handler,
          std::optional<std::chrono::milliseconds> limit = {}) {
    return begin(
        request.message(),
        [request, handler = std::move(handler)](const detail::Reply& reply) { handler(request.read(reply)); }, limit);
  }

  /// Sends a request and waits for its result, at most for the time limit.
  template <class Value>
  Result<Value> call(const Request<Value>& request, std::optional<std::chrono::milliseconds> limit = {}) {
    return request.read(*wait(request.message(), limit));
  }

  /// Has the request's handler called with ErrorCode::cancelled, unless its result is there already. What has been sent
  /// the helper does all the same.
  void cancel(ID request);

  /// Makes a connection, if there is none, without asking for anything.
  void connect();

  /// Readable when deliver() has something to do; for poll(), GLib, Qt or Asio. -1 with a thread of the client's own.
  int descriptor() const;

  /// Calls the handlers that are due, on this thread. One at a time in the process.
  void deliver();

 private:
  ID begin(std::shared_ptr<const detail::Message> message, std::function<void(const detail::Reply&)> finish,
           std::optional<std::chrono::milliseconds> limit);
  std::shared_ptr<const detail::Reply> wait(std::shared_ptr<const detail::Message> message,
                                            std::optional<std::chrono::milliseconds> limit);

  class Implementation;
  std::unique_ptr<Implementation> implementation_;
};

/// The library's version, as 1,000,000 times the major one, 1,000 times the minor one and the patch: of the one that
/// runs, where BRIMO_CLIENT_VERSION is the one that was compiled with.
BRIMO_CLIENT_API int clientVersion();
#define BRIMO_CLIENT_VERSION 1000000

}  // namespace v1
}  // namespace brimo
