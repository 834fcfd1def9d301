#include "platform/ipc/client.h"

#include <fmt/format.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <stdexcept>

#include "platform/base/file_descriptor.h"
#include "platform/ipc/linux/endpoint.h"
#include "platform/ipc/linux/frames.h"

namespace platform::ipc {

class ClientConnection::Implementation {
 public:
  explicit Implementation(FileDescriptor socket) : socket_(std::move(socket)) {}

  bool send(const Frame& frame) {
    auto bytes = encodeFrame(frame);
    if (!bytes) throw std::invalid_argument("the message is too long");
    for (std::size_t sent = 0; sent < bytes->size();) {
      auto length = ::send(socket_.get(), bytes->data() + sent, bytes->size() - sent, MSG_NOSIGNAL);
      if (length < 0 && errno == EINTR) continue;
      if (length < 0) return false;
      sent += static_cast<std::size_t>(length);
    }
    return true;
  }

  /// The next frame; absent when the connection ended.
  std::optional<Frame> receive() {
    while (true) {
      if (auto frame = reader_.next()) return frame;
      if (reader_.malformed()) return std::nullopt;
      std::array<std::uint8_t, 65'536> chunk;
      auto length = recv(socket_.get(), chunk.data(), chunk.size(), 0);
      if (length < 0 && errno == EINTR) continue;
      if (length <= 0) return std::nullopt;
      reader_.append({chunk.data(), static_cast<std::size_t>(length)});
    }
  }

  std::optional<Dictionary> sendWithReply(const Dictionary& request) {
    std::uint64_t id = ++lastID_;
    if (!send({.id = id, .dictionary = request})) return std::nullopt;
    while (auto frame = receive()) {
      if (frame->id == id) return std::move(frame->dictionary);
    }
    return std::nullopt;
  }

 private:
  FileDescriptor socket_;
  FrameReader reader_;
  std::uint64_t lastID_ = 0;
};

Result<std::unique_ptr<ClientConnection>> ClientConnection::connect(const std::string& serviceName) {
  auto path = endpointPath(serviceName);
  auto address = endpointAddress(path);
  FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!address || !socket ||
      ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&*address), sizeof *address) != 0) {
    const int number = address ? errno : ENAMETOOLONG;
    return failureOf(number, fmt::format("cannot reach the helper at {}", path));
  }
  auto implementation = std::make_unique<Implementation>(std::move(socket));
  // The service speaks first: what is said before its greeting would make it hang up.
  auto greeting = implementation->receive();
  if (!greeting) {
    return Failure(0,
                   "the helper refused this application: it must be signed, and installed where only root can write");
  }
  const auto* service = greeting->dictionary.get<std::string>("service");
  if (greeting->id != 0 || !service || *service != serviceName) {
    return Failure(0, fmt::format("{} is not the endpoint of {}", path, serviceName));
  }
  return std::make_unique<ClientConnection>(std::move(implementation));
}

ClientConnection::ClientConnection(std::unique_ptr<Implementation> implementation)
    : implementation_(std::move(implementation)) {}
ClientConnection::~ClientConnection() = default;
std::optional<Dictionary> ClientConnection::sendWithReply(const Dictionary& request) {
  return implementation_->sendWithReply(request);
}
bool ClientConnection::send(const Dictionary& message) {
  return implementation_->send({.id = 0, .dictionary = message});
}

}  // namespace platform::ipc
