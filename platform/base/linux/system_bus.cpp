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
int openSystemBus(SystemBus& bus, BusDeadline deadline) {
  sd_bus* opened = nullptr;
  int result = sd_bus_open_system(&opened);
  bus.reset(opened);
  while (result >= 0 || result == -EINTR) {
    if (int ready = sd_bus_is_ready(opened); ready != 0) return std::min(ready, 0);
    auto left = timeUntil(deadline);
    if (left == 0) return -ETIMEDOUT;
    result = sd_bus_process(opened, nullptr);
    if (result == 0) result = sd_bus_wait(opened, left);
  }
  return result;
}

int callUntil(BusDeadline deadline, sd_bus* bus, sd_bus_message* request, sd_bus_error* error, BusMessage& reply) {
  auto left = timeUntil(deadline);
  if (left == 0) return -ETIMEDOUT;
  sd_bus_message* received = nullptr;
  int result = sd_bus_call(bus, request, left, error, &received);
  reply.reset(received);
  return result;
}

int callSystemBus(const BusMethod& method, const std::function<int(sd_bus_message*)>& writeArguments,
                  const std::function<int(sd_bus_message*)>& readReply) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  SystemBus bus;
  if (int result = openSystemBus(bus, deadline); result < 0) return -result;
  sd_bus_message* made = nullptr;
  int result =
      sd_bus_message_new_method_call(bus.get(), &made, method.service, method.object, method.interface, method.name);
  BusMessage request(made), reply;
  if (result >= 0) result = writeArguments(request.get());
  if (result >= 0) result = callUntil(deadline, bus.get(), request.get(), nullptr, reply);
  if (result >= 0) result = readReply(reply.get());
  return result < 0 ? -result : 0;
}

}  // namespace platform
