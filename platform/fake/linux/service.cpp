#include "platform/fake/service.h"

#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <stdexcept>

#include "platform/base/file_descriptor.h"
#include "platform/ipc/linux/endpoint.h"
#include "platform/ipc/linux/frames.h"

namespace platform::fake {

void waitReadable(int descriptor) {
  constexpr int deadline = 30'000;  // milliseconds
  pollfd poll{descriptor, POLLIN, 0};
  if (::poll(&poll, 1, deadline) != 1) throw std::runtime_error("timed out waiting for data");
}

class Peer::Implementation {
 public:
  FileDescriptor socket;
  ipc::FrameReader reader = {};
};

Peer::Peer(std::unique_ptr<Implementation> implementation) : implementation_(std::move(implementation)) {}
Peer::Peer(Peer&&) noexcept = default;
Peer::~Peer() = default;

void Peer::greet(const std::string& service) {
  send({.id = 0, .dictionary = {{"service", service}, {"build", std::int64_t{618}}}});
}

void Peer::send(const Frame& frame) {
  sendBytes(*ipc::encodeFrame({.id = frame.id, .dictionary = frame.dictionary}));
}

void Peer::sendBytes(const ipc::Data& bytes) {
  auto length = ::send(implementation_->socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
  if (length != static_cast<ssize_t>(bytes.size())) throw std::runtime_error("the client does not read");
}

Frame Peer::receive() {
  auto& [socket, reader] = *implementation_;
  while (true) {
    if (auto frame = reader.next()) return {.id = frame->id, .dictionary = std::move(frame->dictionary)};
    waitReadable(socket.get());
    std::array<std::uint8_t, 65'536> chunk;
    auto length = recv(socket.get(), chunk.data(), chunk.size(), 0);
    if (length <= 0) throw std::runtime_error("the client has left");
    reader.append({chunk.data(), static_cast<std::size_t>(length)});
  }
}

bool Peer::hasHeardNothing() {
  char byte;
  return recv(implementation_->socket.get(), &byte, 1, MSG_DONTWAIT | MSG_PEEK) < 0 && errno == EAGAIN;
}

void Peer::stopReading() {
  shutdown(implementation_->socket.get(), SHUT_RD);
}

void Peer::close() {
  implementation_->socket.reset();
}

class Service::Implementation {
 public:
  Implementation(const std::string& name, int backlog)
      : path_(ipc::endpointPath(name)), listener_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    unlink(path_.c_str());
    auto address = ipc::endpointAddress(path_);
    if (bind(listener_.get(), reinterpret_cast<const sockaddr*>(&*address), sizeof *address) != 0 ||
        listen(listener_.get(), backlog) != 0) {
      throw std::runtime_error("cannot listen on " + path_);
    }
  }
  ~Implementation() { unlink(path_.c_str()); }
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  FileDescriptor accept() {
    waitReadable(listener_.get());
    return FileDescriptor(::accept(listener_.get(), nullptr, nullptr));
  }
  int descriptor() const { return listener_.get(); }
  void leave() { listener_.reset(); }

 private:
  std::string path_;
  FileDescriptor listener_;
};

Service::Service(int backlog)
    : name("brimo-test-" + std::to_string(getpid())),
      implementation_(std::make_unique<Implementation>(name, backlog)) {}
Service::~Service() = default;

Peer Service::accept() {
  return Peer(std::make_unique<Peer::Implementation>(Peer::Implementation{implementation_->accept()}));
}
int Service::descriptor() const {
  return implementation_->descriptor();
}
void Service::leave() {
  implementation_->leave();
}

}  // namespace platform::fake
