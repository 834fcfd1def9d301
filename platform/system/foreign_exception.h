// Exceptions of other languages.
#pragma once

#include <optional>
#include <string>

namespace platform {

/// The description of the Objective-C exception being handled; absent for any other exception, and on Linux. Call it
/// inside `catch (...)`.
std::optional<std::string> foreignExceptionDescription();

}  // namespace platform
