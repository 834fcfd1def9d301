// What an application that is launched again keeps of its environment.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

namespace platform {

/// Picks out of an environment, zero-terminated "NAME=value" texts one after the other (proc(5), environ), the
/// variables that say whose session, display, message bus and language the application belongs to. Nothing that has
/// code loaded is among them. Of two variables of one name the first counts, as for getenv(3); 64 KiB are kept at most.
std::vector<std::string> applicationEnvironment(std::string_view bytes);

/// Value of a variable; empty when the environment lacks it.
std::string_view valueOf(const std::vector<std::string>& environment, std::string_view name);

/// Fills in what is missing of HOME, USER, LOGNAME, SHELL, as far as the user database knows the user, and of PATH.
void completeEnvironment(std::vector<std::string>& environment, uid_t user);

/// Pointers to the texts and a null pointer, as execve(2) takes them; good as long as the texts stay as they are.
std::vector<char*> pointersTo(std::vector<std::string>& texts);

}  // namespace platform
