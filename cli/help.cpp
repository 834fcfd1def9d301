// The usage of Brimo.
#include <fmt/format.h>

#include <sstream>

#include "cli/commands.h"

namespace brimo {

namespace {

constexpr char connections[] = R"(
Without a command, Brimo reads commands from standard input, one per line, and runs them over one connection. Words may be
quoted, # begins a comment, and "json" takes the rest of its line unchanged. "help" and "quit" work there, too.

When ANY client disconnects, the helper undoes what was set "temporary", stops the DHCP server and, with the watchdog on,
launches the program that was admitted last. Each run of Brimo is such a client, so its end disturbs a running application.
Only "services", "proxies", "help" and "--version" do not connect.

The helper passes -crashWatchDog to a watched program that it launches again, and -crashDefunctRestart to a program that
asked for its restart. Brimo then says so and reads commands from standard input.

With --json, each command prints one JSON object on standard output, errors included: {"error": TEXT}.

Exit status: 0 done; 1 the helper, or the system, answered with an error; 2 wrong usage; 3 no connection to the helper, or
no answer; 4 not found. After several commands: the status of the last one that failed.
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
