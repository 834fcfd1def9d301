// The commands of the command line.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "cli/answer.h"

namespace brimo {

using Arguments = std::vector<std::string>;

/// What a command is run with.
struct Surroundings {
  std::function<HelperClient&()> helper;  ///< connects when it is first called
  bool isOnlyCommand;                     ///< the connection ends with the command
};

struct Command {
  std::string arguments;    ///< as usage shows them
  std::string description;  ///< lines for people
  std::size_t least, most;  ///< how many arguments it takes
  std::function<Answer(const Surroundings&, const Arguments&)> run;
};

/// By name.
const std::map<std::string, Command>& commands();

/// Runs a command. Throws CommandFailure, and what the system throws.
Answer runCommand(const std::string& name, const Surroundings& surroundings, const Arguments& arguments);

/// "usage: Brimo NAME ARGUMENTS" and what the command does. Throws UsageError when there is no such command.
std::string commandHelp(const std::string& name);

/// The usage of the program.
std::string programHelp();

}  // namespace brimo
