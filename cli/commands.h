// The commands of Brimo.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "cli/answer.h"

namespace brimo {

using Arguments = std::vector<std::string>;

/// The environment of a command.
struct CommandContext {
  std::function<HelperClient&()> helper;  ///< makes the client on its first call
  bool isOnlyCommand;                     ///< the connection ends with the command
};

struct Command {
  std::string arguments;    ///< as the usage shows them
  std::string description;  ///< for people; may have several lines
  std::size_t least, most;  ///< number of arguments
  std::function<Answer(const CommandContext&, const Arguments&)> run;
};

const std::map<std::string, Command>& commands();

/// Runs a command. Throws CommandFailure and other exceptions derived from std::runtime_error or std::invalid_argument.
Answer runCommand(const std::string& name, const CommandContext& context, const Arguments& arguments);

/// The usage and the description of a command. Throws UsageError when there is no such command.
std::string commandHelp(const std::string& name);

/// All commands with their descriptions, the rules for connections, and the exit status.
std::string programHelp();

}  // namespace brimo
