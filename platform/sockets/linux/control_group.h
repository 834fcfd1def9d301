// The processes of a control group (cgroups(7), version 2).
#pragma once

#include <cstdint>
#include <vector>

namespace platform {

/// The process IDs, newest first, of the control group with this ID of sock_diag(7). Empty for the root group, for a
/// group of more than 64 processes, and if they cannot be read, for example without CAP_DAC_READ_SEARCH. Any thread.
std::vector<std::int32_t> processesOfControlGroup(std::uint64_t group);

}  // namespace platform
