// Calls over the system bus that do not wait for long.
#pragma once

#include <systemd/sd-bus.h>

#include <chrono>
#include <functional>
#include <memory>

#include "platform/base/result.h"

namespace platform {

struct BusRelease {
  void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }  // nothing is sent without being waited for
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
  void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
};
using SystemBus = std::unique_ptr<sd_bus, BusRelease>;
using BusMessage = std::unique_ptr<sd_bus_message, BusRelease>;
using BusSlot = std::unique_ptr<sd_bus_slot, BusRelease>;
using BusDeadline = std::chrono::steady_clock::time_point;

/// Opens a connection of its own and waits to be let in. Fails with ETIMEDOUT at the deadline.
Result<SystemBus> openSystemBus(BusDeadline deadline);

/// sd_bus_call(3) over an open connection; returns the reply. Fails with ETIMEDOUT at the deadline. `error`, which may
/// be null, says what the other side answered in place of a reply.
Result<BusMessage> callUntil(BusDeadline deadline, sd_bus* bus, sd_bus_message* request, sd_bus_error* error);

/// Reads one message from an open connection and handles it; waits for it as long. Fails with ETIMEDOUT at the
/// deadline.
Result<void> serveUntil(BusDeadline deadline, sd_bus* bus);

struct BusMethod {
  const char* service;
  const char* object;
  const char* interface;
  const char* name;
};

/// Calls a method over a connection of its own. `writeArguments` and `readReply` are called with the message and return
/// a negative errno when they fail. Fails with ETIMEDOUT when bus and service took longer than two seconds in all, and
/// for five seconds from then on, in which that service is not asked. Any thread.
Result<void> callSystemBus(const BusMethod& method, const std::function<int(sd_bus_message*)>& writeArguments,
                           const std::function<int(sd_bus_message*)>& readReply);

}  // namespace platform
