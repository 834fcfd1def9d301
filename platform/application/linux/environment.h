// The part of its environment that an application keeps when it is launched again.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

namespace platform {

/// Selects the variables for the user, home folder, path, time zone, language, display, session and message bus. None
/// of them controls the dynamic loader or an interpreter. `bytes` is an environment: zero-terminated "NAME=value" texts
/// (proc(5), environ). If a name occurs twice, the first counts, as for getenv(3). At most 64 KiB are kept.
std::vector<std::string> applicationEnvironment(std::string_view bytes);

/// Value of a variable; empty if it is not set.
std::string_view valueOf(const std::vector<std::string>& environment, std::string_view name);

/// Sets HOME, USER, LOGNAME and SHELL if they are missing or empty and the user database has them, and PATH if it is
/// missing or empty.
void completeEnvironment(std::vector<std::string>& environment, uid_t user);

/// Pointers to the texts and a final null pointer, as execve(2) needs them. Valid until the texts change.
std::vector<char*> pointersTo(std::vector<std::string>& texts);

}  // namespace platform
