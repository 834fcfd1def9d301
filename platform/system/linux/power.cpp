// Power assertions as inhibitors of logind (org.freedesktop.login1(5)).
#include "platform/system/power.h"

#include <fcntl.h>

#include <cerrno>
#include <map>

#include "platform/base/file_descriptor.h"
#include "platform/base/linux/system_bus.h"

namespace platform::power {

namespace {

constexpr std::size_t maximumAssertions = 256;  // each one holds a descriptor
constexpr BusMethod inhibit{"org.freedesktop.login1", "/org/freedesktop/login1", "org.freedesktop.login1.Manager",
                            "Inhibit"};

/// The assertions held at present. Main thread.
std::map<AssertionID, FileDescriptor>& inhibitors() {
  static std::map<AssertionID, FileDescriptor> held;
  return held;
}

}  // namespace

// The type makes no difference: with each one, the idle machine stays awake and keeps its network connections.
Result<AssertionID> createAssertion(const std::string&, const std::string& name) {
  if (inhibitors().size() >= maximumAssertions) return failureOf(EMFILE);
  FileDescriptor inhibitor;
  auto writeArguments = [&](sd_bus_message* call) {
    return sd_bus_message_append(call, "ssss", "idle", name.c_str(), "The application wants the machine to stay awake",
                                 "block");
  };
  auto readReply = [&](sd_bus_message* reply) {
    int descriptor;  // owned by the reply
    if (int result = sd_bus_message_read(reply, "h", &descriptor); result < 0) return result;
    inhibitor.reset(fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
    return inhibitor ? 0 : -errno;
  };
  if (auto called = callSystemBus(inhibit, writeArguments, readReply); !called) return called.error();
  static AssertionID last = 0;
  inhibitors()[++last] = std::move(inhibitor);
  return last;
}

// logind removes an inhibitor when its descriptor is closed.
Result<void> releaseAssertion(AssertionID assertion) {
  if (inhibitors().erase(assertion) == 0) return failureOf(EINVAL);
  return {};
}

}  // namespace platform::power
