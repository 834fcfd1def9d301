#include "platform/base/thread.h"

#include <signal.h>

namespace platform {

namespace {

/// Blocks all signals for the calling thread until destroyed. Threads started meanwhile inherit the mask.
class BlockedSignals {
 public:
  BlockedSignals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  BlockedSignals(const BlockedSignals&) = delete;
  BlockedSignals& operator=(const BlockedSignals&) = delete;

 private:
  sigset_t before_;
};

}  // namespace

Result<std::thread> startThread(std::function<void()> body) {
  BlockedSignals blocked;
  try {
    return std::thread(std::move(body));
  } catch (const std::system_error& error) {
    // in_place_error is necessary because a std::thread could be constructed from a Failure, too.
    return {boost::system::in_place_error, failureOf(error.code().value())};
  }
}

}  // namespace platform
