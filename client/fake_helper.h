// A helper's endpoint that a test speaks for, one step at a time.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>

#include "platform/base/file_descriptor.h"
#include "platform/ipc/linux/endpoint.h"
#include "platform/ipc/linux/frames.h"

namespace brimo {

using platform::FileDescriptor;
using platform::ipc::Data;
using platform::ipc::Dictionary;
using platform::ipc::Frame;

/// Waits until a descriptor can be read from; throws when it takes too long.
inline void waitReadable(int descriptor) {
  constexpr int deadline = 30'000;  // milliseconds
  pollfd poll{descriptor, POLLIN, 0};
  if (::poll(&poll, 1, deadline) != 1) throw std::runtime_error("nothing came");
}

inline Dictionary jsonReply(const std::string& text) {
  return {{"json", Data(text.begin(), text.end())}};
}

/// The helper's end of a connection.
class Peer {
 public:
  explicit Peer(FileDescriptor socket, std::string service)
      : socket_(std::move(socket)), service_(std::move(service)) {}

  void send(const Frame& frame) {
    auto bytes = *platform::ipc::encodeFrame(frame);
    ASSERT_EQ(::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
  }

  /// The next frame; throws when the client has left.
  Frame receive() {
    while (true) {
      if (auto frame = reader_.next()) return *frame;
      waitReadable(socket_.get());
      std::array<std::uint8_t, 65'536> chunk;
      auto length = recv(socket_.get(), chunk.data(), chunk.size(), 0);
      if (length <= 0) throw std::runtime_error("the client has left");
      reader_.append({chunk.data(), static_cast<std::size_t>(length)});
    }
  }

  bool hasHeardNothing() {
    char byte;
    return recv(socket_.get(), &byte, 1, MSG_DONTWAIT | MSG_PEEK) < 0 && errno == EAGAIN;
  }

  void greet() { send({.id = 0, .dictionary = {{"service", service_}, {"build", std::int64_t{618}}}}); }

  /// Greets, and answers the request that a client begins with.
  void admit() {
    greet();
    send({.id = receive().id, .dictionary = jsonReply(R"({"version":618})")});
  }

  void close() { socket_.reset(); }

 private:
  FileDescriptor socket_;
  std::string service_;
  platform::ipc::FrameReader reader_;
};

class FakeHelper {
 public:
  const std::string service = "brimo-client-test-" + std::to_string(getpid());

  FakeHelper() : listener_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    unlink(path_.c_str());
    auto address = platform::ipc::endpointAddress(path_);
    if (bind(listener_.get(), reinterpret_cast<const sockaddr*>(&*address), sizeof *address) != 0 ||
        listen(listener_.get(), 16) != 0) {
      throw std::runtime_error("cannot listen on " + path_);
    }
  }
  ~FakeHelper() { unlink(path_.c_str()); }
  FakeHelper(const FakeHelper&) = delete;
  FakeHelper& operator=(const FakeHelper&) = delete;

  Peer accept() {
    waitReadable(listener_.get());
    return Peer(FileDescriptor(::accept(listener_.get(), nullptr, nullptr)), service);
  }
  Peer admit() {
    auto peer = accept();
    peer.admit();
    return peer;
  }
  /// From here on nobody can connect.
  void leave() { listener_.reset(); }

 private:
  const std::string path_ = platform::ipc::endpointPath(service);
  FileDescriptor listener_;
};

}  // namespace brimo
