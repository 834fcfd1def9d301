// The pending requests, the connection that carries them, and the handlers that are due.
#pragma once

#include <brimo/HelperClient.h>
#include <unistd.h>

#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <set>
#include <thread>

#include "client/message.h"
#include "platform/base/readiness.h"
#include "platform/ipc/client.h"

namespace brimo {

/// One thread owns the connection and enforces the time limits. Handlers run on a second thread or, in deliver(), on
/// one of the application's threads. A slow handler therefore does not delay the replies that wait() waits for. All
/// functions may be called on any thread.
class Session {
 public:
  using ID = HelperClient::ID;
  using Message = std::shared_ptr<const detail::Message>;
  using Finish = std::function<void(const detail::Reply&)>;
  using Limit = std::optional<std::chrono::milliseconds>;

  /// Throws std::system_error when no descriptor is available.
  explicit Session(Options options);
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  /// Starts the session's threads, which keep it alive until end(). Throws std::system_error when no thread can be
  /// started.
  static std::shared_ptr<Session> start(Options options);
  /// Cancels all requests, ends the threads and runs the remaining handlers. Called once.
  void end();

  /// Sends a request. `finish` runs like the other handlers. Returns 0 in a forked child process, where `finish` never
  /// runs.
  ID begin(Message message, Finish finish, Limit limit);
  /// Sends a request and waits for its reply.
  std::shared_ptr<const detail::Reply> wait(Message message, Limit limit);
  void cancel(ID request);
  void connect();
  int descriptor() const { return options_.ownThread ? -1 : isDue_.descriptor(); }
  void deliver();

 private:
  using Clock = platform::ipc::ClientChannel::Clock;

  /// A thread that waits for a reply.
  struct Waiter {
    std::condition_variable replied;
    std::shared_ptr<const detail::Reply> reply;
  };
  struct Pending {
    Message message;
    Finish finish;
    Waiter* waiter = nullptr;  ///< set instead of `finish`
    Clock::time_point deadline = {};
  };

  bool isForkedOff() const;
  void runConnection();
  void runHandlers();
  ID add(Pending request, Limit limit);
  void send(ID id, const detail::Message& message);
  void open();
  void handleReply(platform::ipc::ClientChannel::Reply reply);
  void handleEnd(const platform::ipc::ClientChannel::End& end);
  bool finishAll(const Error& error, bool helperHasEnded);
  void finish(ID id, detail::Reply reply);
  void finish(Pending request, detail::Reply reply);
  void finishOverdue();
  void announce(ConnectionChange change);
  bool hasHandlersDue() const;
  void makeDue(std::function<void()> handler);
  std::optional<Clock::time_point> nextDeadline() const;

  const Options options_;
  const pid_t owner_ = getpid();
  mutable std::mutex mutex_;
  platform::ipc::ClientChannel channel_;
  std::map<ID, Pending> pending_;
  std::set<std::pair<Clock::time_point, ID>> deadlines_;
  std::optional<Clock::time_point> waitsUntil_;
  ID lastID_ = 0;
  bool isEnding_ = false;

  bool isOpen_ = false;
  bool isAdmitted_ = false;
  ID probe_ = 0;  // request whose reply shows that the helper admits this program
  std::optional<Clock::time_point> nextAttempt_;
  bool isReconnecting_ = false;
  std::chrono::seconds pause_{0};  // before the next attempt to reconnect
  Clock::time_point admittedAt_{};
  std::optional<ErrorCode> announcedError_;

  std::deque<std::function<void()>> due_;
  std::condition_variable handlersDue_;
  platform::Readiness isDue_;
  std::thread connectionThread_;
  std::thread handlerThread_;
};

}  // namespace brimo
