#include "platform/network_settings/linux/primary_connection.h"

#include <fmt/format.h>

#include <string_view>

namespace platform {

namespace {

constexpr char service[] = "org.freedesktop.NetworkManager";
constexpr char path[] = "/org/freedesktop/NetworkManager";
constexpr char activeInterface[] = "org.freedesktop.NetworkManager.Connection.Active";
constexpr char properties[] = "org.freedesktop.DBus.Properties";
constexpr std::uint64_t retryAfter = 5'000'000;  // microseconds

/// The text in a reply to Properties.Get(); absent if the reply is an error or holds another type.
std::optional<std::string> textIn(sd_bus_message* reply, const char* type) {
  const char* text = nullptr;
  if (sd_bus_message_is_method_error(reply, nullptr) > 0 || sd_bus_message_read(reply, "v", type, &text) < 0) {
    return std::nullopt;
  }
  return text;
}

}  // namespace

PrimaryConnection::PrimaryConnection(Handler handler) : handler_(std::move(handler)) {
  retry_ = EventSource::timer([this] { connect(); });
  connect();
}

sd_bus* PrimaryConnection::bus() {
  if (isLost_) connect();
  return isLost_ ? nullptr : bus_.get();
}

void PrimaryConnection::connect() {
  if (!isLost_) return;
  question_.reset();
  mustAskAgain_ = false;
  sd_bus* opened = nullptr;
  int result = sd_bus_open_system(&opened);
  bus_.reset(opened);
  auto asks = [](sd_bus_message*, void* self, sd_bus_error*) {
    static_cast<PrimaryConnection*>(self)->ask();
    return 0;
  };
  auto loses = [](sd_bus_message*, void* self, sd_bus_error*) {
    static_cast<PrimaryConnection*>(self)->lose();
    return 0;
  };
  const auto owner =
      fmt::format("type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',arg0='{}'", service);
  const auto change =
      fmt::format("type='signal',sender='{0}',path='{1}',interface='{2}',member='PropertiesChanged',arg0='{0}'",
                  service, path, properties);
  // Closing on exit is switched off: it would wait until a bus that does not answer has accepted this connection and
  // read everything, 90 seconds or for ever.
  if (result >= 0) result = sd_bus_set_close_on_exit(opened, 0);
  if (result >= 0) result = sd_bus_attach_event(opened, mainEventLoop(), SD_EVENT_PRIORITY_NORMAL);
  if (result >= 0) {
    result = sd_bus_match_signal(opened, nullptr, nullptr, "/org/freedesktop/DBus/Local", "org.freedesktop.DBus.Local",
                                 "Disconnected", loses, this);
  }
  if (result >= 0) result = sd_bus_add_match_async(opened, nullptr, owner.c_str(), asks, nullptr, this);
  if (result >= 0) result = sd_bus_add_match_async(opened, nullptr, change.c_str(), asks, nullptr, this);
  isLost_ = false;
  if (result < 0) return lose();
  ask();
}

// connect() releases the bus later, because the bus may be calling this function.
void PrimaryConnection::lose() {
  isLost_ = true;
  retry_.startTimer(retryAfter);
  handler_(std::nullopt);
}

// Any user can send this connection a signal that looks like NetworkManager's. If signals cancelled the pending call,
// users could prevent it from ever completing.
void PrimaryConnection::ask() {
  mustAskAgain_ = question_ != nullptr;
  if (!mustAskAgain_) get(path, service, "PrimaryConnection", &PrimaryConnection::takeConnection);
}

void PrimaryConnection::get(const char* object, const char* interface, const char* name, ReplyHandler handler) {
  sd_bus_message* made = nullptr;
  int result = sd_bus_message_new_method_call(bus_.get(), &made, service, object, properties, "Get");
  BusMessage request(made);
  if (result >= 0) result = sd_bus_message_set_auto_start(made, 0);
  if (result >= 0) result = sd_bus_message_append(made, "ss", interface, name);
  replyHandler_ = handler;
  auto reply = [](sd_bus_message* message, void* self, sd_bus_error*) {
    auto& connection = *static_cast<PrimaryConnection*>(self);
    connection.question_.reset();
    (connection.*connection.replyHandler_)(message);
    if (!connection.question_ && connection.mustAskAgain_) connection.ask();
    return 0;
  };
  sd_bus_slot* slot = nullptr;
  if (result >= 0) sd_bus_call_async(bus_.get(), &slot, made, reply, this, 0);
  question_.reset(slot);
}

void PrimaryConnection::takeConnection(sd_bus_message* reply) {
  const auto* error = sd_bus_message_get_error(reply);
  if (sd_bus_error_has_names(error, SD_BUS_ERROR_SERVICE_UNKNOWN, SD_BUS_ERROR_NAME_HAS_NO_OWNER)) {
    return handler_(std::nullopt);
  }
  auto active = textIn(reply, "o");
  if (active == "/") return handler_(std::nullopt);
  if (active) get(active->c_str(), activeInterface, "Uuid", &PrimaryConnection::takeUUID);
}

// If the connection is already gone, NetworkManager soon reports another one.
void PrimaryConnection::takeUUID(sd_bus_message* reply) {
  if (auto uuid = textIn(reply, "s")) handler_(uuid);
}

}  // namespace platform
