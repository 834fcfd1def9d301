// The processes of a control group (cgroups(7), version 2).
#pragma once

#include <cstdint>
#include <vector>

namespace platform {

/// The IDs of the processes in a control group, highest first. `group` is an ID from sock_diag(7). Empty for the root
/// group, for a group of more than 64 processes, and if the list cannot be read, for example without
/// CAP_DAC_READ_SEARCH. Any thread.
std::vector<std::int32_t> processesOfControlGroup(std::uint64_t group);

}  // namespace platform
