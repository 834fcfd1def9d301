#include "platform/base/linux/system_bus.h"

#include <algorithm>
#include <cerrno>
#include <map>
#include <mutex>
#include <string>

namespace platform {

namespace {

constexpr std::chrono::seconds patience(2), rest(5);

/// Services that timed out, and until when they are not asked again. Without this record, each of many requests would
/// wait for the full timeout.
class SilentServices {
 public:
  bool contains(const char* service) {
    std::lock_guard lock(mutex_);
    auto found = until_.find(service);
    return found != until_.end() && std::chrono::steady_clock::now() < found->second;
  }
  void add(const char* service) {
    std::lock_guard lock(mutex_);
    until_[service] = std::chrono::steady_clock::now() + rest;
  }

 private:
  std::mutex mutex_;
  std::map<std::string, std::chrono::steady_clock::time_point> until_;
};

/// In microseconds; 0 if the deadline has passed.
std::uint64_t timeUntil(BusDeadline deadline) {
  auto left = std::chrono::ceil<std::chrono::microseconds>(deadline - std::chrono::steady_clock::now());
  return static_cast<std::uint64_t>(std::max(left, std::chrono::microseconds(0)).count());
}

}  // namespace

// Waits until the bus accepts the connection. Otherwise, the first call would block for up to 90 seconds, regardless of
// its own timeout.
Result<SystemBus> openSystemBus(BusDeadline deadline) {
  sd_bus* opened = nullptr;
  int result = sd_bus_open_system(&opened);
  SystemBus bus(opened);
  while (result >= 0 || result == -EINTR) {
    int ready = sd_bus_is_ready(opened);
    if (ready > 0) return bus;
    if (ready < 0) return failureOf(-ready);
    auto left = timeUntil(deadline);
    if (left == 0) return failureOf(ETIMEDOUT);
    result = sd_bus_process(opened, nullptr);
    if (result == 0) result = sd_bus_wait(opened, left);
  }
  return failureOf(-result);
}

Result<BusMessage> callUntil(BusDeadline deadline, sd_bus* bus, sd_bus_message* request, sd_bus_error* error) {
  auto left = timeUntil(deadline);
  if (left == 0) return failureOf(ETIMEDOUT);
  sd_bus_message* received = nullptr;
  int result = sd_bus_call(bus, request, left, error, &received);
  if (result < 0) return failureOf(-result);
  return BusMessage(received);
}

Result<void> serveUntil(BusDeadline deadline, sd_bus* bus) {
  while (true) {
    int result = sd_bus_process(bus, nullptr);
    if (result > 0) return {};
    auto left = timeUntil(deadline);
    if (left == 0) return failureOf(ETIMEDOUT);
    if (result == 0) result = sd_bus_wait(bus, left);
    if (result < 0 && result != -EINTR) return failureOf(-result);
  }
}

namespace {

Result<void> ask(const BusMethod& method, const std::function<int(sd_bus_message*)>& writeArguments,
                 const std::function<int(sd_bus_message*)>& readReply) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  return attempt([&] {
    auto bus = openSystemBus(deadline).value();
    sd_bus_message* made = nullptr;
    check(
        sd_bus_message_new_method_call(bus.get(), &made, method.service, method.object, method.interface, method.name));
    BusMessage request(made);
    check(writeArguments(request.get()));
    auto reply = callUntil(deadline, bus.get(), request.get(), nullptr).value();
    check(readReply(reply.get()));
  });
}

}  // namespace

Result<void> callSystemBus(const BusMethod& method, const std::function<int(sd_bus_message*)>& writeArguments,
                           const std::function<int(sd_bus_message*)>& readReply) {
  static SilentServices silent;
  if (silent.contains(method.service)) return failureOf(ETIMEDOUT);
  auto result = ask(method, writeArguments, readReply);
  if (!result && result.error().number == ETIMEDOUT) silent.add(method.service);
  return result;
}

}  // namespace platform
