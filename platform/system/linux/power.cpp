// Power assertions as inhibitors of logind (org.freedesktop.login1(5)).
#include "platform/system/power.h"

#include <fcntl.h>

#include <cerrno>
#include <map>

#include "platform/base/file_descriptor.h"
#include "platform/base/linux/system_bus.h"

namespace platform::power {

namespace {

constexpr std::size_t maximumAssertions = 256;  // each takes a descriptor
constexpr BusMethod inhibit{"org.freedesktop.login1", "/org/freedesktop/login1", "org.freedesktop.login1.Manager",
                            "Inhibit"};

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
  auto writeArguments = [&](sd_bus_message* call) {
    return sd_bus_message_append(call, "ssss", "idle", name.c_str(), "The application wants the machine to stay awake",
                                 "block");
  };
  auto readReply = [&](sd_bus_message* reply) {
    int descriptor;  // the reply's
    if (int result = sd_bus_message_read(reply, "h", &descriptor); result < 0) return result;
    inhibitor.reset(fcntl(descriptor, F_DUPFD_CLOEXEC, 0));
    return inhibitor ? 0 : -errno;
  };
  if (int status = callSystemBus(inhibit, writeArguments, readReply); status != 0) return status;
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
