// A helper under socket activation, started as systemd starts it.
#pragma once

#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <stdexcept>
#include <string>

#include "build_constants.h"
#include "platform/base/file_descriptor.h"
#include "platform/ipc/linux/endpoint.h"

namespace bench {

/// The constructor starts the helper and the destructor ends it. A number in place of an executable is the PID of a
/// running helper, for example one in its unit's sandbox; this object then only measures it.
class Helper {
 public:
  explicit Helper(const char* executable) : pid_(std::atoi(executable)), isOurs_(pid_ == 0) {
    if (!isOurs_) return;
    auto path = platform::ipc::endpointPath(HelperServiceName);
    auto address = platform::ipc::endpointAddress(path);
    platform::FileDescriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    unlink(path.c_str());
    if (!address || bind(listener.get(), reinterpret_cast<const sockaddr*>(&*address), sizeof *address) != 0 ||
        listen(listener.get(), SOMAXCONN) != 0) {
      throw std::runtime_error("cannot listen on " + path);
    }
    pid_ = fork();
    if (pid_ < 0) throw std::runtime_error("cannot fork");
    if (pid_ > 0) return;
    constexpr int firstActivated = 3;  // sd_listen_fds(3)
    if (listener.get() == firstActivated) {
      fcntl(firstActivated, F_SETFD, 0);
    } else {
      dup2(listener.get(), firstActivated);
    }
    setenv("LISTEN_FDS", "1", 1);
    setenv("LISTEN_PID", fmt::format("{}", getpid()).c_str(), 1);
    execl(executable, executable, nullptr);
    _exit(127);
  }
  ~Helper() {
    if (!isOurs_) return;
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
  }
  Helper(const Helper&) = delete;
  Helper& operator=(const Helper&) = delete;

  /// The sum in KiB of the lines with the given name in a file under /proc/PID.
  double memory(const char* file, std::string_view name) const {
    std::ifstream lines(fmt::format("/proc/{}/{}", pid_, file));
    double sum = 0;
    for (std::string line; std::getline(lines, line);) {
      if (line.starts_with(name)) sum += std::stod(line.substr(line.find(':') + 1));
    }
    return sum;
  }

  /// The processor time of all threads since the start, in microseconds.
  double processorTime() const {
    clockid_t clock = 0;
    timespec time{};
    clock_getcpuclockid(pid_, &clock);
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
  }

 private:
  pid_t pid_;
  bool isOurs_;
};

}  // namespace bench
