#include <fcntl.h>
#include <fmt/format.h>
#include <grp.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <systemd/sd-daemon.h>

#include <cerrno>
#include <chrono>
#include <list>
#include <map>

#include "platform/dispatch/dispatch.h"
#include "platform/ipc/linux/connection.h"
#include "platform/ipc/linux/connection_budget.h"
#include "platform/ipc/linux/endpoint.h"
#include "platform/system/refusal_log.h"
#include "platform/system/system_log.h"

namespace platform::ipc {

namespace {

constexpr std::size_t maximumConnections = 256;
constexpr std::size_t maximumConnectionsPerUser = 64;
constexpr std::uint64_t pauseAfterFailedAccept = 100'000;  // microseconds

/// The listening socket that the service manager passed, if its path is `path`; empty otherwise.
FileDescriptor activatedSocket(const std::string& path) {
  int count = sd_listen_fds(1);
  for (int descriptor = SD_LISTEN_FDS_START; descriptor < SD_LISTEN_FDS_START + count; ++descriptor) {
    if (sd_is_socket_unix(descriptor, SOCK_STREAM, 1, path.c_str(), 0) > 0) return FileDescriptor(descriptor);
  }
  return {};
}

/// Binds and listens, for use without a service manager.
Result<FileDescriptor> boundSocket(const std::string& path) {
  auto address = endpointAddress(path);
  if (!address) return failureOf(ENAMETOOLONG, path);
  FileDescriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!listener) return lastFailure("socket");
  auto bindListener = [&] {
    return bind(listener.get(), reinterpret_cast<const sockaddr*>(&*address), sizeof *address);
  };
  if (bindListener() != 0) {
    auto failure = lastFailure(path);
    // A killed helper leaves its socket file behind. It is replaced only if nobody is listening on it.
    FileDescriptor probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const bool isAbandoned = failure.number == EADDRINUSE && probe &&
                             connect(probe.get(), reinterpret_cast<const sockaddr*>(&*address), sizeof *address) != 0 &&
                             errno == ECONNREFUSED;
    if (!isAbandoned) return failure;
    if (unlink(path.c_str()) != 0 || bindListener() != 0) return lastFailure(path);
  }
  if (chmod(path.c_str(), 0666) != 0 || listen(listener.get(), SOMAXCONN) != 0) return lastFailure(path);
  return listener;
}

/// Makes every recvmsg() report who wrote the data.
bool passCredentials(int socket) {
  int on = 1;
  return setsockopt(socket, SOL_SOCKET, SO_PASSCRED, &on, sizeof on) == 0;
}

/// The ID of a group; absent if the name is empty. For a group that does not exist, an ID that no process has.
std::optional<gid_t> groupNamed(const std::string& name) {
  if (name.empty()) return std::nullopt;
  if (const auto* entry = getgrnam(name.c_str())) return entry->gr_gid;
  systemLog(fmt::format("There is no group {}: every client will be refused", name));
  return static_cast<gid_t>(-1);
}

}  // namespace

class Listener::Implementation final : public Listener {
 public:
  /// `ownPath` is the path of a socket that this process bound, to be removed on SIGTERM; empty under socket
  /// activation.
  Implementation(FileDescriptor socket, std::string ownPath, Endpoint endpoint)
      : socket_(std::move(socket)),
        ownPath_(std::move(ownPath)),
        endpoint_(std::make_shared<Endpoint>(std::move(endpoint))) {}

  void setEventHandler(std::function<void(const ListenerEvent&)> handler) override { handler_ = std::move(handler); }

  void resume() override {
    pause_ = EventSource::timer([this] { readiness_.setEvents(EPOLLIN); });
    readiness_ = EventSource::io(socket_.get(), EPOLLIN, [this](std::uint32_t) { accept(); });
    termination_ = EventSource::signal(SIGTERM, [this] { terminate(); });
  }

 private:
  void accept() {
    FileDescriptor socket(accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!socket) {
      if (errno == EAGAIN || errno == EINTR || errno == ECONNABORTED) return;
      // Out of descriptors or memory. The client stays in the queue; retrying at once would not help.
      const std::string problem = lastFailure("accept").what();
      readiness_.setEvents(0);
      pause_.startTimer(pauseAfterFailedAccept);
      return handler_(Error{.kind = Error::Kind::other, .description = problem});
    }
    // Connections made before this process started did not inherit the option from the listening socket.
    if (!passCredentials(socket.get())) return;
    const Sender sender(socket.get());
    const auto user = sender.uid();
    if (!budget_.spend(user, std::chrono::steady_clock::now())) {
      return logRefusal(user, sender.pid(), "this user connects too often");
    }
    if (connections_.size() >= maximumConnections || perUser_[user] >= maximumConnectionsPerUser) {
      return logRefusal(user, sender.pid(),
                        fmt::format("there are too many connections: {} of this user, {} in all", perUser_[user],
                                    connections_.size()));
    }
    ++perUser_[user];
    auto entry = connections_.insert(connections_.end(), std::weak_ptr<Connection::Implementation>());
    auto connection = std::make_shared<Connection::Implementation>(std::move(socket), endpoint_, [this, user, entry] {
      connections_.erase(entry);
      if (--perUser_[user] == 0) perUser_.erase(user);
    });
    *entry = connection;
    handler_(std::move(connection));
  }

  void terminate() {
    if (!ownPath_.empty()) unlink(ownPath_.c_str());
    pause_ = {};
    readiness_ = {};
    // A copy, because a handler may close any of the connections.
    auto connections = connections_;
    for (const auto& weak : connections) {
      if (auto connection = weak.lock()) connection->terminate();
    }
    // Events that are already on the main queue, such as the end of a connection, are still delivered.
    dispatch::async(dispatch::mainQueue(), [] { sd_event_exit(mainEventLoop(), 0); });
  }

  FileDescriptor socket_;
  std::string ownPath_;
  std::shared_ptr<const Endpoint> endpoint_;
  std::function<void(const ListenerEvent&)> handler_;
  EventSource readiness_;
  EventSource termination_;
  EventSource pause_;
  std::list<std::weak_ptr<Connection::Implementation>> connections_;
  std::map<uid_t, std::size_t> perUser_;
  ConnectionBudget budget_;
};

Result<std::unique_ptr<Listener>> Listener::create(const ServiceSettings& settings) {
  auto path = endpointPath(settings.name);
  auto socket = activatedSocket(path);
  const bool isActivated = static_cast<bool>(socket);
  if (!isActivated) {
    auto bound = boundSocket(path);
    if (!bound) return bound.error();
    socket = std::move(*bound);
  }
  int flags = fcntl(socket.get(), F_GETFL);
  if (!passCredentials(socket.get()) || flags < 0 || fcntl(socket.get(), F_SETFL, flags | O_NONBLOCK) != 0) {
    return lastFailure(path);
  }
  Endpoint endpoint{.greeting = {{"service", settings.name}, {"build", settings.build}},
                    .requiredGroup = groupNamed(settings.clientGroup)};
  return std::make_unique<Implementation>(std::move(socket), isActivated ? "" : path, std::move(endpoint));
}

}  // namespace platform::ipc
