// The answers of commands.
#pragma once

#include <brimo/HelperClient.h>

#include <boost/json/object.hpp>
#include <stdexcept>
#include <string>

namespace brimo {

enum ExitCode { exitSuccess = 0, exitRefused = 1, exitUsage = 2, exitUnreachable = 3, exitNotFound = 4 };

/// The answer to a command: an object for --json and text for people.
struct Answer {
  boost::json::object object;
  std::string text;
  ExitCode code = exitSuccess;
  bool lastsWhileConnected = false;  ///< the helper undoes the command when the connection ends
};

/// The reason why a command failed, as a sentence.
struct CommandFailure : std::runtime_error {
  CommandFailure(ExitCode exitCode, const std::string& sentence) : std::runtime_error(sentence), code(exitCode) {}
  ExitCode code;
};

struct UsageError : CommandFailure {
  explicit UsageError(const std::string& sentence) : CommandFailure(exitUsage, sentence) {}
};

inline Answer done() {
  return {.object = {{"result", "success"}}, .text = "done"};
}

/// The value of a result. Throws CommandFailure if it is an error.
template <class Value>
Value valueOf(Result<Value> result) {
  if (result) return *result;
  const auto& [code, message] = result.error();
  if (code == ErrorCode::invalidArgument) throw UsageError(message);
  throw CommandFailure(code == ErrorCode::rejected ? exitRefused : exitUnreachable, message);
}

/// Sends a request and returns its answer. Throws CommandFailure.
template <class Value>
Value ask(HelperClient& helper, const Request<Value>& request) {
  return valueOf(helper.call(request));
}

}  // namespace brimo
