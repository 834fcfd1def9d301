// Exceptions of other languages.
#pragma once

#include <optional>
#include <string>

namespace platform {

/// The description of the exception being handled, if it is not a C++ one but, on macOS, an Objective-C one; absent
/// otherwise. Call it inside `catch (...)`.
std::optional<std::string> foreignExceptionDescription();

}  // namespace platform
