// The image that a process runs.
#pragma once

#include <cstdint>
#include <string>

#include "platform/code_signing/code_signing.h"

namespace platform::code_signing {

/// Checks the image that a process runs, as checkFile() checks a file. The result belongs to the process only if it is
/// still alive afterwards. Main thread.
Result<void> checkRunningImage(std::int32_t pid, const std::string& requirement);

}  // namespace platform::code_signing
