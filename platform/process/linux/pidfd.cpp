#include "platform/process/linux/pidfd.h"

#include <poll.h>

#include <algorithm>

namespace platform {

bool waitForEnd(int pidfd, std::chrono::milliseconds limit) {
  using std::chrono::steady_clock;
  const auto deadline = steady_clock::now() + limit;
  pollfd state{.fd = pidfd, .events = POLLIN, .revents = 0};
  while (true) {
    // A signal may interrupt the call. The last call, after the deadline, does not wait.
    auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - steady_clock::now());
    if (poll(&state, 1, std::max(0, static_cast<int>(left.count()))) == 1) return true;
    if (left.count() <= 0) return false;
  }
}

}  // namespace platform
