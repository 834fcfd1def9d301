// What an application that is launched again keeps of its environment.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace platform {

/// Picks out of an environment, zero-terminated "NAME=value" texts one after the other (proc(5), environ), the
/// variables that say whose session, display, message bus and language the application belongs to. Nothing that has
/// code loaded is among them. Of two variables of one name the first counts, as for getenv(3); 64 KiB are kept at most.
std::vector<std::string> applicationEnvironment(std::string_view bytes);

}  // namespace platform
