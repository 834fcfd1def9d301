// Brimo, a command-line tool for everything that the helper does.
#include <fmt/format.h>
#include <poll.h>
#include <signal.h>

#include <array>
#include <boost/json.hpp>
#include <iostream>
#include <optional>

#include "build_constants.h"
#include "cli/commands.h"
#include "cli/line_reader.h"
#include "cli/words.h"
#include "platform/base/exact_json.h"
#include "platform/base/readiness.h"

namespace {

using namespace brimo;
namespace json = boost::json;

constexpr std::string_view blanks = " \t";

/// Runs commands over one connection. The first command that needs the connection opens it.
class CommandLine {
 public:
  explicit CommandLine(bool printsJSON) : printsJSON_(printsJSON) {}

  ExitCode runAlone(const std::string& name, const Arguments& arguments) {
    bool mustStay = false;
    auto code = run(name, arguments, true, &mustStay);
    return mustStay && code == exitSuccess ? stay() : code;
  }

  /// Runs commands from standard input until it ends.
  ExitCode runLines() {
    std::vector<std::string> names{"help", "quit"};
    for (const auto& [name, command] : commands()) names.push_back(name);
    LineReader reader(std::move(names));
    auto result = exitSuccess;
    while (auto line = reader.next()) {
      auto words = wordsOf(*line);
      if (words && words->empty()) continue;
      if (words && ((*words)[0] == "quit" || (*words)[0] == "exit")) break;
      auto code = exitUsage;
      if (words) {
        auto name = words->front();
        words->erase(words->begin());
        code = name == "help" ? help(*words) : run(name, *words, false, nullptr);
      }
      if (code != exitSuccess) result = code;
    }
    return result;
  }

  ExitCode help(const Arguments& arguments) {
    try {
      return print(arguments.empty() ? programHelp() : commandHelp(arguments[0]));
    } catch (const CommandFailure& failure) {
      return fail(failure.code, failure.what());
    }
  }

  ExitCode print(const std::string& text) {
    std::cout << text << std::flush;
    if (std::cout) return exitSuccess;
    std::cerr << "Brimo: cannot write the answer" << std::endl;
    return exitRefused;
  }

  ExitCode fail(ExitCode code, const std::string& text) {
    if (!printsJSON_) {
      std::cerr << "Brimo: " << text << std::endl;
    } else if (print(json::serialize(json::object{{"error", text}}) + "\n") != exitSuccess) {
      return exitRefused;
    }
    return code;
  }

 private:
  ExitCode run(const std::string& name, const Arguments& arguments, bool isOnlyCommand, bool* mustStay) {
    CommandContext context{.helper = [this]() -> HelperClient& { return helper(); }, .isOnlyCommand = isOnlyCommand};
    try {
      auto answer = runCommand(name, context, arguments);
      if (mustStay) *mustStay = answer.lastsWhileConnected;
      auto code = print((printsJSON_ ? platform::serializeExactJSON(answer.object) : answer.text) + "\n");
      return code == exitSuccess ? answer.code : code;
    } catch (const CommandFailure& failure) {
      return fail(failure.code, failure.what());
    } catch (const std::invalid_argument& error) {
      return fail(exitUsage, error.what());
    } catch (const std::runtime_error& error) {  // from the system
      return fail(exitRefused, error.what());
    }
  }

  /// Splits a line into words. Unquoted text after "json" is a single argument, including its blanks.
  std::optional<Arguments> wordsOf(const std::string& line) {
    auto start = line.find_first_not_of(blanks);
    constexpr std::string_view name = "json";
    if (start != line.npos && line.compare(start, name.size(), name) == 0) {
      auto rest = line.find_first_not_of(blanks, start + name.size());
      if (rest != line.npos && rest > start + name.size() && line[rest] != '\'' && line[rest] != '"')
        return Arguments{"json", line.substr(rest)};
    }
    try {
      return splitWords(line);
    } catch (const std::invalid_argument& error) {
      fail(exitUsage, error.what());
      return std::nullopt;
    }
  }

  HelperClient& helper() {
    if (helper_) return *helper_;
    Options options;
    options.ownThread = false;  // this program waits for every answer
    options.reconnects = false;
    options.onConnection = [this](const ConnectionChange& change) { problem_ = change.error; };
    return helper_.emplace(std::move(options));
  }

  /// Keeps the connection open until a signal interrupts this program or the helper closes it.
  ExitCode stay() {
    static platform::Readiness interrupted;
    struct sigaction action {};
    action.sa_handler = [](int) { interrupted.set(); };
    for (int signal : {SIGINT, SIGTERM, SIGHUP}) sigaction(signal, &action, nullptr);
    if (!printsJSON_) std::cerr << "in effect until this program is interrupted (Ctrl-C)" << std::endl;
    while (true) {
      helper_->deliver();
      if (problem_) return fail(exitUnreachable, problem_->message);
      std::array<pollfd, 2> descriptors{pollfd{interrupted.descriptor(), POLLIN, 0},
                                        pollfd{helper_->descriptor(), POLLIN, 0}};
      poll(descriptors.data(), descriptors.size(), -1);
      if (descriptors[0].revents) return exitSuccess;
    }
  }

  bool printsJSON_;
  std::optional<Error> problem_;  // why there is no connection
  std::optional<HelperClient> helper_;
};

}  // namespace

int main(int count, char** values) {
  Arguments arguments(values + 1, values + count);
  bool printsJSON = !arguments.empty() && arguments[0] == "--json";
  if (printsJSON) arguments.erase(arguments.begin());
  CommandLine commandLine(printsJSON);
  if (arguments.empty()) return commandLine.runLines();
  std::string name = arguments[0];
  arguments.erase(arguments.begin());
  if (name == "help" || name == "--help" || name == "-h") return commandLine.help(arguments);
  if (name == "--version") {
    auto object = json::serialize(json::object{{"version", BRHBuildNumber}});
    return commandLine.print((printsJSON ? object : fmt::format("Brimo {}", BRHBuildNumber)) + "\n");
  }
  if (name == "-crashWatchDog" || name == "-crashDefunctRestart") {
    commandLine.print(fmt::format("launched again by the helper ({})\n", name));
    commandLine.runAlone("version", {});
    return commandLine.runLines();
  }
  if (name.starts_with('-')) return commandLine.fail(exitUsage, fmt::format("there is no option {}; see --help", name));
  return commandLine.runAlone(name, arguments);
}
