// Calls over the system bus with a deadline.
#pragma once

#include <systemd/sd-bus.h>

#include <chrono>
#include <functional>
#include <memory>

#include "platform/base/result.h"

namespace platform {

struct BusRelease {
  // Does not flush: for every message that matters, the caller waits for a reply.
  void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
  void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
};
using SystemBus = std::unique_ptr<sd_bus, BusRelease>;
using BusMessage = std::unique_ptr<sd_bus_message, BusRelease>;
using BusSlot = std::unique_ptr<sd_bus_slot, BusRelease>;
using BusDeadline = std::chrono::steady_clock::time_point;

/// Opens a private connection and waits until the bus accepts it. Fails with ETIMEDOUT at the deadline.
Result<SystemBus> openSystemBus(BusDeadline deadline);

/// Like sd_bus_call(3): sends a request and returns the reply. Fails with ETIMEDOUT at the deadline. If the peer
/// replies with an error, the call fails and `error`, which may be null, receives it.
Result<BusMessage> callUntil(BusDeadline deadline, sd_bus* bus, sd_bus_message* request, sd_bus_error* error);

/// Waits for one message on an open connection and dispatches it. Fails with ETIMEDOUT at the deadline.
Result<void> serveUntil(BusDeadline deadline, sd_bus* bus);

struct BusMethod {
  const char* service;
  const char* object;
  const char* interface;
  const char* name;
};

/// Calls a method over a private connection. `writeArguments` gets the request and `readReply` the reply; both return a
/// negative errno on failure. Any thread.
///
/// Fails with ETIMEDOUT if the bus and the service together take longer than two seconds. For the next five seconds,
/// calls to that service then fail with ETIMEDOUT at once.
Result<void> callSystemBus(const BusMethod& method, const std::function<int(sd_bus_message*)>& writeArguments,
                           const std::function<int(sd_bus_message*)>& readReply);

}  // namespace platform
