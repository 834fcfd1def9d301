// The messages of NetworkManager (nm-dbus-interface) with the settings of a connection: a{sa{sv}}, a dictionary of
// settings by name, each with its keys and values. All functions throw a Failure if they do not succeed.
#pragma once

#include <systemd/sd-bus.h>

#include <functional>

#include "platform/network_settings/linux/network_manager.h"

namespace platform {

/// Reads a text of the D-Bus type 's' or 'o'. It belongs to the message.
const char* readString(sd_bus_message* message, char type);

/// Skips the value that comes next.
void skip(sd_bus_message* message, const char* type);

/// Iterates over the dictionary that comes next, whose entries have the type `entry`. `visit` gets each key and must
/// read or skip the value.
void forEachEntry(sd_bus_message* message, const char* entry, const std::function<void(const char* key)>& visit);

/// Whether a change would leave the settings that come next as they are. Rewinds the message. Only proxies are
/// compared, because other settings seldom change.
bool isDone(sd_bus_message* settings, const NetworkManager::Change& change);

/// Copies the settings that come next in `from`, applying a change.
void writeChanged(sd_bus_message* to, sd_bus_message* from, const NetworkManager::Change& change);

}  // namespace platform
