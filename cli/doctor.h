// Checks the installation of the helper on this machine.
#pragma once

#include "cli/commands.h"

namespace brimo {

/// Returns the findings, one per line, each followed by a remedy if something is wrong. The exit code is exitRefused if
/// any has a remedy. Like every command that asks the helper, it opens a connection, whose end makes the helper clean
/// up.
Answer examine(const CommandContext& context);

}  // namespace brimo
