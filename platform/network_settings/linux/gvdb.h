// GVDB, the file format of dconf's databases: a hash table of serialised GVariants (gvdb-format.h in GLib's sources,
// "GVariant Specification" in its documentation).
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <variant>
#include <vector>

namespace platform {

/// A value of the GVariant type "b", "i", "s" or "as". Texts are UTF-8 without zero bytes.
using GVDBValue = std::variant<bool, std::int32_t, std::string, std::vector<std::string>>;

/// The bytes of a database with values by path ("/system/proxy/mode") and a lock for each of them. Without values it is
/// a valid, empty database.
std::string gvdbFile(const std::map<std::string, GVDBValue>& values);

}  // namespace platform
