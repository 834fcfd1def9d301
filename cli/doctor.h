// Checks the installation of the helper on this machine.
#pragma once

#include "cli/commands.h"

namespace brimo {

/// Returns one line per check, followed by a remedy if the check failed. The exit code is exitRefused if any check
/// failed. It opens a connection, whose end makes the helper clean up.
Answer examine(const CommandContext& context);

}  // namespace brimo
