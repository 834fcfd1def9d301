// Exceptions of other languages.
#pragma once

#include <optional>
#include <string>

namespace platform {

/// What the exception that is being handled says of itself, when C++ has no type for it: Objective-C's on macOS. Absent
/// for others. To be called from within a handler, `catch (...)`.
std::optional<std::string> foreignExceptionDescription();

}  // namespace platform
