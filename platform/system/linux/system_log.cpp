#include "platform/system/system_log.h"

#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <mutex>

#include "platform/base/file_descriptor.h"

namespace platform {

namespace {

using std::chrono::steady_clock;

/// The socket of the system log. syslog(3) is not used because it blocks while the socket's queue is full, for example
/// if the journal is stopped or nobody reads /dev/log.
class LogSocket {
 public:
  void write(const std::string& line) {
    std::lock_guard lock(mutex_);
    if (steady_clock::now() < restingUntil_ || (missed_ > 0 && !sendMissed()) || !send(line)) ++missed_;
  }

 private:
  bool sendMissed() {
    if (!send(fmt::format("Lines dropped before this one: {}", missed_))) return false;
    missed_ = 0;
    return true;
  }

  bool send(const std::string& line) {
    // The format of RFC 3164, without the host name, which the receiver knows.
    std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char time[32] = "";
    std::strftime(time, sizeof time, "%b %e %T", &local);
    auto text =
        fmt::format("<{}>{} {}[{}]: {}", LOG_DAEMON | LOG_NOTICE, time, program_invocation_short_name, getpid(), line);
    if (socket_ && sendText(text)) return true;
    if (socket_ && errno == EAGAIN) return false;
    // The log daemon may have been restarted.
    return connectSocket() && sendText(text);
  }

  bool sendText(const std::string& text) const {
    return ::send(socket_.get(), text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL) >= 0;
  }

  bool connectSocket() {
    socket_.reset(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const sockaddr_un address{.sun_family = AF_UNIX, .sun_path = "/dev/log"};
    if (socket_ && connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
      return true;
    // Without a system log, do not try to connect for every line.
    socket_.reset();
    restingUntil_ = steady_clock::now() + std::chrono::seconds(1);
    return false;
  }

  std::mutex mutex_;
  FileDescriptor socket_;
  std::size_t missed_ = 0;
  steady_clock::time_point restingUntil_;
};

}  // namespace

// /dev/log belongs to the journal or to a syslog daemon. Both understand this format.
void systemLog(const std::string& line) {
  // Never destroyed, because other threads may log while the process ends.
  static auto* socket = new LogSocket;
  // A zero byte would truncate the line.
  std::string text = line;
  std::replace(text.begin(), text.end(), '\0', ' ');
  socket->write(text);
}

}  // namespace platform
