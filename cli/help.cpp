// The usage of the command line.
#include <fmt/format.h>

#include <sstream>

#include "cli/commands.h"

namespace brimo {

namespace {

constexpr char connections[] = R"(
Without a command, reads one a line from standard input over one connection: words may be quoted, # begins a comment, and
"json" takes the rest of its line as it is. "help" and "quit" are known there, too.

When ANY client's connection ends, the helper undoes what was set "temporary", stops the DHCP server and, with the watchdog
on, launches the program that was admitted last. Each run of Brimo is such a connection: beside a running application it
disturbs that application.

The helper launches a watched program that died with the argument -crashWatchDog, and one that asked for its restart with
-crashDefunctRestart. Brimo then says so, and goes on as without a command.

With --json, each command prints one JSON object on standard output, errors included: {"error": TEXT}.

Exit status: 0 done; 1 the helper, or the system, answered with an error; 2 wrong usage; 3 no connection to the helper, or
no answer; 4 not found. Of several commands, the last one's that failed.
)";

}  // namespace

std::string programHelp() {
  std::string text =
      "usage: Brimo [--json] [COMMAND [ARGUMENT…]]\n       Brimo help [COMMAND]\n       Brimo --version\n\n";
  for (const auto& [name, command] : commands()) {
    text += fmt::format("  {} {}\n", name, command.arguments);
    std::istringstream lines(command.description);
    for (std::string line; std::getline(lines, line);) text += "      " + line + "\n";
  }
  return text + connections;
}

std::string commandHelp(const std::string& name) {
  auto found = commands().find(name);
  if (found == commands().end()) throw UsageError(fmt::format("there is no command \"{}\"; \"help\" lists them", name));
  return fmt::format("usage: Brimo {} {}\n\n{}\n", name, found->second.arguments, found->second.description);
}

}  // namespace brimo
