// What is in order with the helper on this machine, and what is not.
#pragma once

#include "cli/commands.h"

namespace brimo {

/// A line for each thing that was looked at, with a remedy after each that is not in order; exitRefused when there is
/// one. Its connection ends as any other.
Answer examine(const Surroundings& surroundings);

}  // namespace brimo
