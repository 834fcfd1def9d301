#include "platform/system/foreign_exception.h"

namespace platform {

// No library linked on Linux throws foreign exceptions.
std::optional<std::string> foreignExceptionDescription() {
  return std::nullopt;
}

}  // namespace platform
