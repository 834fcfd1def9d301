#include "platform/base/readiness.h"

#include <fcntl.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace platform {

Readiness::Readiness() {
  std::array<int, 2> ends;
  auto fail = [] { throw std::system_error(errno, std::generic_category(), "pipe"); };
  if (pipe(ends.data()) != 0) fail();
  reading_.reset(ends[0]);
  writing_.reset(ends[1]);
  for (int end : ends) {
    if (fcntl(end, F_SETFD, FD_CLOEXEC) != 0 || fcntl(end, F_SETFL, O_NONBLOCK) != 0) fail();
  }
}

void Readiness::set() {
  // If the pipe is full, the write fails, but the pipe is readable already.
  [[maybe_unused]] auto written = write(writing_.get(), "", 1);
}

void Readiness::clear() {
  std::array<char, 4096> bytes;
  while (read(reading_.get(), bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size())) {
  }
}

}  // namespace platform
