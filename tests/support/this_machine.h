// Facts about the machine and the process that run the tests.
#pragma once

#include <net/if.h>
#include <signal.h>
#include <sys/resource.h>

#include <array>
#include <cstddef>
#include <filesystem>
#include <string>

/// Name of the loopback interface, which is the first on every system.
inline std::string loopbackInterface() {
  std::array<char, IF_NAMESIZE> name{};
  return if_indextoname(1, name.data()) ? name.data() : "";
}

/// The number of open descriptors of this process, including the one used for counting.
inline std::ptrdiff_t openDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/dev/fd"), {});
}

/// During its lifetime, no file of this process can grow: writes fail as on a full disk, but with EFBIG.
class FullDisk {
 public:
  FullDisk() : handler_(signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &limit_);
    rlimit none{.rlim_cur = 0, .rlim_max = limit_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &none);
  }
  ~FullDisk() {
    setrlimit(RLIMIT_FSIZE, &limit_);
    signal(SIGXFSZ, handler_);
  }
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;

 private:
  rlimit limit_;
  void (*handler_)(int);
};
