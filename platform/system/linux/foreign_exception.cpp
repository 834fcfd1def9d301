#include "platform/system/foreign_exception.h"

namespace platform {

// No library that is linked here throws any.
std::optional<std::string> foreignExceptionDescription() {
  return std::nullopt;
}

}  // namespace platform
