#include "client/Session.h"

#include <algorithm>
#include <system_error>
#include <vector>

#include "build_constants.h"
#include "platform/base/thread.h"

namespace brimo {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Channel = platform::ipc::ClientChannel;

constexpr seconds shortestPause{1}, longestPause{30};
constexpr milliseconds pauseWhenBusy{100};
constexpr milliseconds longestLimit = std::chrono::hours(24 * 365);

Options withService(Options options) {
  if (options.service.empty()) options.service = HelperServiceName;
  return options;
}

const Request<std::int64_t>& probeRequest() {
  static const auto request = version();
  return request;
}

std::thread startThread(std::function<void()> body) {
  auto thread = platform::startThread(std::move(body));
  if (!thread) throw std::system_error(thread.error().number, std::generic_category(), "a thread");
  return std::move(*thread);
}

Error cancelled() {
  return {ErrorCode::cancelled, "the request was cancelled"};
}

Error forkedOff() {
  return {ErrorCode::invalidArgument, "a forked child process cannot use the connection of its parent"};
}

}  // namespace

Session::Session(Options options) : options_(withService(std::move(options))) {}

std::shared_ptr<Session> Session::start(Options options) {
  auto session = std::make_shared<Session>(std::move(options));
  try {
    session->connectionThread_ = startThread([session] { session->runConnection(); });
    if (session->options_.ownThread) session->handlerThread_ = startThread([session] { session->runHandlers(); });
  } catch (...) {
    session->end();
    throw;
  }
  return session;
}

// A forked child process lacks the threads and may have inherited a locked mutex, so it must leave everything
// unchanged.
bool Session::isForkedOff() const {
  return getpid() != owner_;
}

void Session::end() {
  if (isForkedOff()) return;
  {
    std::lock_guard lock(mutex_);
    isEnding_ = true;
  }
  handlersDue_.notify_all();
  channel_.wake();
  if (connectionThread_.joinable()) connectionThread_.join();
  // A handler may call end(), and a thread cannot join itself.
  if (handlerThread_.get_id() == std::this_thread::get_id()) {
    handlerThread_.detach();
  } else if (handlerThread_.joinable()) {
    handlerThread_.join();
  }
  while (hasHandlersDue()) deliver();
}

// --- Requests -------------------------------------------------------------------------------------------------------

Session::ID Session::begin(Message message, Finish finish, Limit limit) {
  if (isForkedOff()) return 0;
  std::lock_guard lock(mutex_);
  return add({.message = std::move(message), .finish = std::move(finish)}, limit);
}

std::shared_ptr<const detail::Reply> Session::wait(Message message, Limit limit) {
  if (isForkedOff()) return std::make_shared<const detail::Reply>(forkedOff());
  Waiter waiter;
  std::unique_lock lock(mutex_);
  add({.message = std::move(message), .finish = {}, .waiter = &waiter}, limit);
  waiter.replied.wait(lock, [&] { return waiter.reply != nullptr; });
  return waiter.reply;
}

Session::ID Session::add(Pending request, Limit limit) {
  const ID id = ++lastID_;
  const auto& message = *request.message;
  if (message.problem || isEnding_) {
    auto error = message.problem ? Error{ErrorCode::invalidArgument, *message.problem} : cancelled();
    finish(std::move(request), std::move(error));
    return id;
  }
  auto time = limit ? *limit : std::min(options_.timeLimit, longestLimit) + message.ownTime;
  request.deadline = Clock::now() + std::clamp(time, milliseconds(0), longestLimit);
  deadlines_.insert({request.deadline, id});
  bool isEarliest = !waitsUntil_ || request.deadline < *waitsUntil_;
  auto sent = pending_.emplace(id, std::move(request)).first->second.message;
  if (isOpen_) {
    send(id, *sent);
  } else {
    nextAttempt_ = Clock::now();
  }
  if (isEarliest || !isOpen_) channel_.wake();
  return id;
}

void Session::send(ID id, const detail::Message& message) {
  if (!channel_.send(id, message.dictionary)) finish(id, Error{ErrorCode::invalidArgument, "the request is too long"});
}

void Session::cancel(ID request) {
  if (isForkedOff()) return;
  std::lock_guard lock(mutex_);
  if (isOpen_ && pending_.count(request) > 0) channel_.withdraw(request);
  finish(request, cancelled());
}

void Session::finish(ID id, detail::Reply reply) {
  auto node = pending_.extract(id);
  if (node.empty()) return;
  deadlines_.erase({node.mapped().deadline, id});
  finish(std::move(node.mapped()), std::move(reply));
}

void Session::finish(Pending request, detail::Reply reply) {
  if (auto* waiter = request.waiter) {
    waiter->reply = std::make_shared<const detail::Reply>(std::move(reply));
    waiter->replied.notify_one();
  } else {
    makeDue([finish = std::move(request.finish), reply = std::move(reply)] { finish(reply); });
  }
}

void Session::finishOverdue() {
  auto now = Clock::now();
  while (!deadlines_.empty() && deadlines_.begin()->first <= now) {
    auto id = deadlines_.begin()->second;
    if (isOpen_) channel_.withdraw(id);
    finish(id, Error{ErrorCode::timedOut, "the helper has not answered in time"});
  }
}

/// Ends all requests with the error, except that if the helper has ended, those that asked it to end succeed. Returns
/// whether there were any of these.
bool Session::finishAll(const Error& error, bool helperHasEnded) {
  bool wasAskedFor = false;
  for (auto all = std::exchange(pending_, {}); auto& [id, request] : all) {
    bool isAnswer = helperHasEnded && request.message->endsHelper;
    wasAskedFor = wasAskedFor || isAnswer;
    finish(std::move(request), isAnswer ? detail::Reply(platform::ipc::Dictionary()) : detail::Reply(error));
  }
  deadlines_.clear();
  return wasAskedFor;
}

// --- Connection -----------------------------------------------------------------------------------------------------

void Session::connect() {
  if (isForkedOff()) return;
  std::lock_guard lock(mutex_);
  if (isOpen_) return;
  nextAttempt_ = Clock::now();
  channel_.wake();
}

void Session::runConnection() {
  std::unique_lock lock(mutex_);
  while (!isEnding_) {
    if (!isOpen_ && nextAttempt_ && *nextAttempt_ <= Clock::now()) open();
    while (auto event = channel_.next()) {
      if (auto* reply = std::get_if<Channel::Reply>(&*event)) {
        handleReply(std::move(*reply));
      } else {
        handleEnd(std::get<Channel::End>(*event));
      }
    }
    finishOverdue();
    // If no deadline is left, the last one stays until it passes. Without it, add() would have to wake this thread for
    // each request; one needless wake-up costs less.
    if (auto next = nextDeadline()) {
      waitsUntil_ = next;
    } else if (waitsUntil_ && *waitsUntil_ <= Clock::now()) {
      waitsUntil_.reset();
    }
    channel_.wait(lock, waitsUntil_);
  }
  channel_.close();
  isOpen_ = false;
  finishAll(cancelled(), false);
}

std::optional<Session::Clock::time_point> Session::nextDeadline() const {
  std::optional<Clock::time_point> next;
  if (!deadlines_.empty()) next = deadlines_.begin()->first;
  if (!isOpen_ && nextAttempt_ && (!next || *nextAttempt_ < *next)) next = nextAttempt_;
  return next;
}

void Session::open() {
  nextAttempt_.reset();
  if (!channel_.open(options_.service)) {
    nextAttempt_ = Clock::now() + pauseWhenBusy;
    return;
  }
  isOpen_ = true;
  isAdmitted_ = false;
  probe_ = ++lastID_;
  send(probe_, *probeRequest().message());
  std::vector<std::pair<ID, Message>> waiting;
  for (const auto& [id, request] : pending_) waiting.emplace_back(id, request.message);
  for (const auto& [id, message] : waiting) send(id, *message);
}

void Session::handleReply(Channel::Reply reply) {
  if (reply.id == 0) return;  // requests never have this ID
  isAdmitted_ = true;
  if (reply.id != probe_) return finish(reply.id, std::move(reply.dictionary));
  probe_ = 0;
  admittedAt_ = Clock::now();
  isReconnecting_ = false;
  auto build = probeRequest().read(std::move(reply.dictionary));
  announce({.build = build ? *build : 0, .error = {}});
}

void Session::handleEnd(const Channel::End& end) {
  isOpen_ = false;
  Error error{ErrorCode::lost, end.reason};
  if (!isAdmitted_ && !end.wasReached) error.code = ErrorCode::notInstalled;
  // The helper checks the application's files only when it receives the first request, so it may still refuse after it
  // has accepted the connection.
  if (!isAdmitted_ && end.wasReached) {
    error = {ErrorCode::refused,
             "the helper does not admit this program; the system log says why (" + end.reason + ")"};
  }
  bool wasAskedFor = finishAll(error, isAdmitted_);
  announce({.build = {}, .error = error});

  if (isAdmitted_ && Clock::now() - admittedAt_ > longestPause) pause_ = seconds(0);
  // While reconnecting, a refusal may just mean that the helper has ended again, so the attempts continue.
  isReconnecting_ = options_.reconnects && !wasAskedFor && (isReconnecting_ || error.code == ErrorCode::lost);
  if (!isReconnecting_) return;
  nextAttempt_ = Clock::now() + pause_;
  pause_ = std::clamp(2 * pause_, shortestPause, longestPause);
}

// --- Handlers -------------------------------------------------------------------------------------------------------

/// Announces a repeated error only once.
void Session::announce(ConnectionChange change) {
  auto code = change.error ? std::make_optional(change.error->code) : std::nullopt;
  bool isNew = !code || code != announcedError_;
  announcedError_ = code;
  if (isNew && options_.onConnection) {
    makeDue([this, change = std::move(change)] { options_.onConnection(change); });
  }
}

void Session::makeDue(std::function<void()> handler) {
  due_.push_back(std::move(handler));
  if (options_.ownThread) {
    handlersDue_.notify_one();
  } else if (due_.size() == 1) {
    isDue_.set();
  }
}

bool Session::hasHandlersDue() const {
  std::lock_guard lock(mutex_);
  return !due_.empty();
}

void Session::deliver() {
  if (isForkedOff()) return;
  std::unique_lock lock(mutex_);
  // Handlers that become due meanwhile wait for the next call, so that the user's loop can do other work in between.
  for (auto count = due_.size(); count > 0 && !due_.empty(); --count) {
    auto handler = std::move(due_.front());
    due_.pop_front();
    lock.unlock();
    handler();
    handler = nullptr;  // unlocked: destroying what it captured may call the client
    lock.lock();
  }
  if (due_.empty()) isDue_.clear();
}

void Session::runHandlers() {
  std::unique_lock lock(mutex_);
  while (true) {
    handlersDue_.wait(lock, [this] { return !due_.empty() || isEnding_; });
    if (isEnding_) return;
    auto handler = std::move(due_.front());
    due_.pop_front();
    lock.unlock();
    handler();
    handler = nullptr;
    lock.lock();
  }
}

}  // namespace brimo
