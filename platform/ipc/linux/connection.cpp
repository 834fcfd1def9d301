#include "platform/ipc/linux/connection.h"

#include <fmt/format.h>
#include <malloc.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "platform/code_signing/code_signing.h"
#include "platform/code_signing/linux/requirement.h"
#include "platform/dispatch/dispatch.h"
#include "platform/system/refusal_log.h"

namespace platform::ipc {

namespace {

// Bytes read in one turn of the loop: at least receiveChunk, and up to largeFrameChunk of a large frame.
constexpr std::size_t receiveChunk = 4'096, largeFrameChunk = 65'536;
constexpr std::size_t largeFrame = 1'048'576;
constexpr std::size_t maximumUnreadReplies = std::size_t{32} * 1024 * 1024;

/// The PID of the process that wrote the data of a recvmsg(); 0 if the kernel did not report it.
pid_t writerOf(msghdr& header) {
  for (auto* control = CMSG_FIRSTHDR(&header); control; control = CMSG_NXTHDR(&header, control)) {
    if (control->cmsg_level == SOL_SOCKET && control->cmsg_type == SCM_CREDENTIALS) {
      ucred credentials;
      std::memcpy(&credentials, CMSG_DATA(control), sizeof credentials);
      return credentials.pid;
    }
  }
  return 0;
}

}  // namespace

Connection::Implementation::Implementation(FileDescriptor socket, std::shared_ptr<const Endpoint> endpoint,
                                           std::function<void()> closed)
    : socket_(std::move(socket)),
      endpoint_(std::move(endpoint)),
      closed_(std::move(closed)),
      sender_(std::make_shared<Sender>(socket_.get())) {}

Connection::Implementation::~Implementation() {
  close();
}

std::string Connection::Implementation::description() const {
  return fmt::format("<connection from PID {}, user {}>", sender_->pid(), sender_->uid());
}

std::int32_t Connection::Implementation::setPeerCodeSigningRequirement(const std::string& requirement) {
  if (!code_signing::CodeRequirement::parse(requirement)) return code_signing::requirementInvalid;
  if (sender_->pid() <= 0) return code_signing::noSuchCode;
  requirement_ = requirement;
  return code_signing::success;
}

void Connection::Implementation::setEventHandler(std::function<void(const Event&)> handler) {
  handler_ = std::make_shared<const std::function<void(const Event&)>>(std::move(handler));
}

void Connection::Implementation::resume() {
  if (!socket_) return;
  if (auto admitted = admitPeer(); !admitted) {
    logRefusal(sender_->uid(), sender_->pid(), admitted.error().what());
    return cancel();
  }
  readiness_ = EventSource::io(socket_.get(), EPOLLIN, [this](std::uint32_t events) {
    auto keep = shared_from_this();
    if (events & EPOLLOUT) flush();
    if (socket_ && events & (EPOLLIN | EPOLLHUP | EPOLLERR)) {
      auto received = receive();
      handleFrames();
      if (received == Received::end || reader_.isMalformed()) cancel();
    }
  });
  peerEnd_ = EventSource::io(sender_->process().handle(), EPOLLIN, [this](std::uint32_t) { drain(); });
  send({.id = 0, .dictionary = endpoint_->greeting});
}

// The order matters: each step establishes what the next one relies on. Nothing sent by the peer is read.
Result<void> Connection::Implementation::admitPeer() {
  if (requirement_.empty() || !sender_->takePidfd(socket_.get())) return Failure(0, "the process has ended");
  // In private namespaces, a process could forge its credentials and the target of /proc/PID/exe.
  if (!sender_->sharesNamespaces()) return Failure(0, "it runs in user or PID namespaces of its own");
  if (endpoint_->requiredGroup && !sender_->wasGivenGroup(*endpoint_->requiredGroup)) {
    return Failure(0, fmt::format("its executable did not give it the client group {}: it connected with the group {}",
                                  *endpoint_->requiredGroup, sender_->gid()));
  }
  if (auto checked = checkSender(*sender_, requirement_); !checked) return checked;
  // Bytes that arrived by now may have been sent before the process executed the checked image.
  int waiting = 0;
  if (ioctl(socket_.get(), FIONREAD, &waiting) != 0) return lastFailure();
  if (waiting != 0) return Failure(0, "it sent data before the greeting");
  return {};
}

/// Reads once: the missing bytes of the current frame, but at least receiveChunk and at most largeFrameChunk.
Connection::Implementation::Received Connection::Implementation::receive() {
  std::array<std::uint8_t, largeFrameChunk> chunk;
  // Room for the credentials only: the kernel then drops descriptors that a peer passes.
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(ucred))> control;
  iovec vector{.iov_base = chunk.data(), .iov_len = std::clamp(reader_.missing(), receiveChunk, largeFrameChunk)};
  msghdr header{};
  header.msg_iov = &vector;
  header.msg_iovlen = 1;
  header.msg_control = control.data();
  header.msg_controllen = control.size();
  auto length = recvmsg(socket_.get(), &header, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
  if (length < 0 && errno == EAGAIN) return Received::nothing;
  if (length <= 0 || writerOf(header) != sender_->pid()) return Received::end;
  reader_.append({chunk.data(), static_cast<std::size_t>(length)});
  return Received::bytes;
}

void Connection::Implementation::handleFrames() {
  while (socket_) {
    auto frame = reader_.next();
    if (!frame) return;
    deliver(messageOf(std::move(*frame)));
    frame.reset();
    // The helper may be idle for days and should not keep the memory of a large message.
    if (reader_.frameLength() > largeFrame) malloc_trim(0);
  }
}

/// The peer has ended. What it sent before is still handled, one chunk per turn.
void Connection::Implementation::drain() {
  auto keep = shared_from_this();
  if (receive() != Received::bytes) return cancel();
  handleFrames();
  if (reader_.isMalformed()) cancel();
}

Message Connection::Implementation::messageOf(Frame frame) {
  Message message{.dictionary = std::move(frame.dictionary), .sender = sender_, .reply = {}};
  if (frame.id != 0) {
    message.reply = [weak = weak_from_this(), id = frame.id](const Dictionary& reply) {
      auto sendReply = [weak, id](const Dictionary& dictionary) {
        if (auto self = weak.lock()) self->send({.id = id, .dictionary = dictionary});
      };
      if (dispatch::isMainThread()) return sendReply(reply);
      dispatch::async(dispatch::mainQueue(), [sendReply, reply] { sendReply(reply); });
    };
  }
  return message;
}

void Connection::Implementation::terminate() {
  // No event follows, so the handler is taken out. The handler may own this connection, so the local variable keeps the
  // handler alive until its call has returned.
  if (auto handler = std::exchange(handler_, nullptr)) {
    (*handler)(Error{.kind = Error::Kind::terminationImminent, .description = "Termination imminent"});
  }
  close();
}

void Connection::Implementation::deliver(const Event& event) {
  if (auto handler = handler_) (*handler)(event);
}

void Connection::Implementation::send(const Frame& frame) {
  if (!socket_) return;
  auto bytes = encodeFrame(frame);
  if (!bytes) return cancel();
  outgoing_.insert(outgoing_.end(), bytes->begin(), bytes->end());
  flush();
  if (outgoing_.size() - sent_ > maximumUnreadReplies) cancel();
}

void Connection::Implementation::flush() {
  while (sent_ < outgoing_.size()) {
    auto length =
        ::send(socket_.get(), outgoing_.data() + sent_, outgoing_.size() - sent_, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (length < 0 && errno == EAGAIN) {
      // Sent bytes are dropped only occasionally, because each time the rest must move.
      if (sent_ > outgoing_.size() / 2) {
        outgoing_.erase(outgoing_.begin(), outgoing_.begin() + static_cast<std::ptrdiff_t>(sent_));
        sent_ = 0;
      }
      return readiness_.setEvents(EPOLLIN | EPOLLOUT);
    }
    // The peer has ended. receive() notices that, too, but only after everything that the peer sent has been handled.
    if (length < 0) break;
    sent_ += static_cast<std::size_t>(length);
  }
  Data().swap(outgoing_);
  sent_ = 0;
  readiness_.setEvents(EPOLLIN);
}

void Connection::Implementation::cancel() {
  if (!socket_) return;
  close();
  if (auto handler = std::exchange(handler_, nullptr)) {
    dispatch::async(dispatch::mainQueue(), [handler] {
      (*handler)(Error{.kind = Error::Kind::connectionInvalid, .description = "Connection invalid"});
    });
  }
}

void Connection::Implementation::close() {
  if (!socket_) return;
  readiness_ = {};
  peerEnd_ = {};
  socket_.reset();
  Data().swap(outgoing_);
  closed_();
}

}  // namespace platform::ipc
