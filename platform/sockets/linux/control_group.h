// The processes of a control group (cgroups(7), version 2).
#pragma once

#include <cstdint>
#include <vector>

namespace platform {

/// The process IDs, newest first, of the control group that sock_diag has this ID for. Empty for the root, for a group
/// of more than 64 processes and when they cannot be told (CAP_DAC_READ_SEARCH is missing, for one). Any thread.
std::vector<std::int32_t> processesOfControlGroup(std::uint64_t group);

}  // namespace platform
