#include "platform/base/linux/system_bus.h"

#include <algorithm>
#include <cerrno>

namespace platform {

namespace {

constexpr std::chrono::seconds patience(2);

/// In microseconds; 0 when it has passed.
std::uint64_t timeUntil(BusDeadline deadline) {
  auto left = std::chrono::ceil<std::chrono::microseconds>(deadline - std::chrono::steady_clock::now());
  return static_cast<std::uint64_t>(std::max(left, std::chrono::microseconds(0)).count());
}

}  // namespace

// By itself the first call would wait for a minute and a half to be let in, whatever its own time limit.
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

Result<void> callSystemBus(const BusMethod& method, const std::function<int(sd_bus_message*)>& writeArguments,
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

}  // namespace platform
