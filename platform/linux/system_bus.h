// Calls over the system bus that do not wait for long.
#pragma once

#include <systemd/sd-bus.h>

#include <functional>
#include <string>

namespace platform {

struct BusMethod {
  const char* service;
  const char* object;
  const char* interface;
  const char* name;
};

/// Calls a method over a connection of its own. `writeArguments` and `readReply` are called with the message and return
/// a negative errno when they fail. Returns 0, or the errno of what failed: ETIMEDOUT when bus and service took longer
/// than two seconds in all. Any thread.
int callSystemBus(const BusMethod& method, const std::function<int(sd_bus_message*)>& writeArguments,
                  const std::function<int(sd_bus_message*)>& readReply);

}  // namespace platform
