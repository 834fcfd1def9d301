#include "platform/linux/system_bus.h"

#include <cerrno>
#include <chrono>
#include <memory>

namespace platform {

namespace {

using std::chrono::steady_clock;

constexpr std::chrono::seconds patience(2);

struct Release {
  void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};

struct Answer {
  const std::function<int(sd_bus_message*)>& read;
  bool arrived = false;
  int result = 0;  // errno
};

int handleAnswer(sd_bus_message* message, void* userdata, sd_bus_error*) {
  auto& answer = *static_cast<Answer*>(userdata);
  answer.arrived = true;
  if (sd_bus_message_is_method_error(message, nullptr) > 0) {
    answer.result = sd_bus_message_get_errno(message);
  } else if (int result = answer.read(message); result < 0) {
    answer.result = -result;
  }
  return 1;
}

}  // namespace

// Not with sd_bus_call(): its time limit does not hold for a bus that accepts the connection and then says nothing.
int callSystemBus(const BusMethod& method, const std::function<int(sd_bus_message*)>& writeArguments,
                  const std::function<int(sd_bus_message*)>& readReply) {
  const auto deadline = steady_clock::now() + patience;
  Answer answer{.read = readReply};

  sd_bus* opened = nullptr;
  int result = sd_bus_open_system(&opened);
  std::unique_ptr<sd_bus, Release> bus(opened);
  if (result < 0) return -result;

  sd_bus_message* made = nullptr;
  result =
      sd_bus_message_new_method_call(bus.get(), &made, method.service, method.object, method.interface, method.name);
  std::unique_ptr<sd_bus_message, Release> call(made);
  if (result >= 0) result = writeArguments(call.get());
  if (result >= 0) result = sd_bus_call_async(bus.get(), nullptr, call.get(), handleAnswer, &answer, 0);

  while ((result >= 0 || result == -EINTR) && !answer.arrived) {
    result = sd_bus_process(bus.get(), nullptr);
    if (result != 0) continue;
    auto left = std::chrono::ceil<std::chrono::microseconds>(deadline - steady_clock::now());
    if (left.count() <= 0) return ETIMEDOUT;
    result = sd_bus_wait(bus.get(), static_cast<std::uint64_t>(left.count()));
  }
  return answer.arrived ? answer.result : -result;
}

}  // namespace platform
