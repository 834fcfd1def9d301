// Power assertions as inhibitors of logind (org.freedesktop.login1(5)).
#include "platform/power.h"

#include <fcntl.h>
#include <systemd/sd-bus.h>

#include <cerrno>
#include <chrono>
#include <map>
#include <memory>

#include "platform/file_descriptor.h"

namespace platform::power {

namespace {

using std::chrono::steady_clock;

constexpr std::size_t maximumAssertions = 256;  // each takes a descriptor
constexpr std::chrono::seconds patience(2);  // with the bus and with logind, since the main queue waits

struct CloseBus {
  void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
};
using Bus = std::unique_ptr<sd_bus, CloseBus>;

/// What became of the call of Inhibit(). Negative: not answered yet.
struct Answer {
  Status status = -1;
  FileDescriptor inhibitor;
};

int handleAnswer(sd_bus_message* message, void* userdata, sd_bus_error*) {
  auto& answer = *static_cast<Answer*>(userdata);
  int descriptor;  // the message's
  if (sd_bus_message_is_method_error(message, nullptr) > 0) {
    answer.status = sd_bus_message_get_errno(message);
  } else if (int result = sd_bus_message_read(message, "h", &descriptor); result < 0) {
    answer.status = -result;
  } else {
    answer.inhibitor.reset(fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
    answer.status = answer.inhibitor ? 0 : errno;
  }
  return 1;
}

/// Asks logind for an inhibitor, over a connection of its own. The blocking call of sd-bus would not do: it waits for a
/// bus that does not answer as long as that pleases.
Status inhibitIdle(const std::string& who, FileDescriptor& inhibitor) {
  const auto deadline = steady_clock::now() + patience;
  Answer answer;
  sd_bus* opened = nullptr;
  int result = sd_bus_open_system(&opened);
  Bus bus(opened);
  if (result >= 0) {
    result = sd_bus_call_method_async(bus.get(), nullptr, "org.freedesktop.login1", "/org/freedesktop/login1",
                                      "org.freedesktop.login1.Manager", "Inhibit", handleAnswer, &answer, "ssss",
                                      "idle", who.c_str(), "The application asks the machine to stay awake", "block");
  }
  while (result >= 0 && answer.status < 0) {
    result = sd_bus_process(bus.get(), nullptr);
    if (result != 0) continue;
    auto left = std::chrono::ceil<std::chrono::microseconds>(deadline - steady_clock::now());
    if (left.count() <= 0) return ETIMEDOUT;
    result = sd_bus_wait(bus.get(), static_cast<std::uint64_t>(left.count()));
  }
  if (result < 0) return -result;
  inhibitor = std::move(answer.inhibitor);
  return answer.status;
}

/// The assertions that are held, on the main thread.
std::map<AssertionID, FileDescriptor>& inhibitors() {
  static std::map<AssertionID, FileDescriptor> held;
  return held;
}

}  // namespace

// Both types come to the same here: what would sleep is the idle machine, its network connections with it.
Status createAssertion(const std::string&, const std::string& name, AssertionID& assertion) {
  if (inhibitors().size() >= maximumAssertions) return EMFILE;
  FileDescriptor inhibitor;
  if (auto status = inhibitIdle(name, inhibitor); status != 0) return status;
  static AssertionID last = 0;
  assertion = ++last;
  inhibitors()[assertion] = std::move(inhibitor);
  return 0;
}

// logind lets go of an inhibitor when its descriptor is closed.
Status releaseAssertion(AssertionID assertion) {
  return inhibitors().erase(assertion) > 0 ? 0 : EINVAL;
}

}  // namespace platform::power
