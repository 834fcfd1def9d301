// The image that a process runs.
#pragma once

#include <cstdint>
#include <string>

#include "platform/code_signing/code_signing.h"

namespace platform::code_signing {

/// Checks the image that a process runs, as checkFile() does a file. What is found is true of the process only if it
/// has not ended meanwhile.
Result<void> checkRunningImage(std::int32_t pid, const std::string& requirement);

}  // namespace platform::code_signing
