// What tests ask of the machine that they run on.
#pragma once

#include <net/if.h>
#include <signal.h>
#include <sys/resource.h>

#include <array>
#include <cstddef>
#include <filesystem>
#include <string>

/// Name of the loopback interface, which comes first everywhere.
inline std::string loopbackInterface() {
  std::array<char, IF_NAMESIZE> name{};
  return if_indextoname(1, name.data()) ? name.data() : "";
}

/// How many descriptors this process has open, the one that looks included.
inline std::ptrdiff_t openDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/dev/fd"), {});
}

/// How many threads this process has. In platform/<system>/thread_count.cpp.
std::ptrdiff_t threadCount();

/// While it lives, no file of this process takes a byte more: as on a full disk, but the error is EFBIG.
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
