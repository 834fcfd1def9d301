// Brimo: the main application in the small, a command line for everything that the helper does.
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include <algorithm>
#include <boost/json.hpp>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <iomanip>
#include <iostream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "build_constants.h"
#include "cli/proxy_arguments.h"
#include "client/HelperClient.h"
#include "platform/base/exact_json.h"
#include "platform/network_settings/network_services.h"
#include "platform/network_settings/proxy_report.h"
#include "platform/process/process.h"

namespace json = boost::json;

namespace {

enum ExitCode { exitSuccess = 0, exitRefused = 1, exitUsage = 2, exitUnreachable = 3, exitNotFound = 4 };

constexpr char usage[] = R"(usage: Brimo [--json] [COMMAND [ARGUMENT…]]

  version                             build number of the helper
  process-lookup tcp|udp ADDRESS      owner of a local socket: 127.0.0.1:80, [::1]:80
  dhcp-discover INTERFACE             DHCP servers that answer, after two seconds
  ra-detect INTERFACE                 first IPv6 router that answers, within five seconds
  services                            network services of this machine: ID, interface, name; the primary one is marked
  proxies                             which proxies are set, where, and who obeys them
  set-proxy SERVICE SETTING…          give a service these proxies, and no others:
                                        http=HOST:PORT https=HOST:PORT socks=HOST:PORT, or pac=URL
                                        except=HOST,*.DOMAIN,ADDRESS/BITS…   go there directly
                                        except-simple                        to names without a dot, too
                                        temporary      only until this client leaves; else they stay
  set-proxy SERVICE off               take its proxies off
  set-static-ip SERVICE ADDRESS MASK ROUTER
                                      give a service a manual IPv4 configuration, which stays
  start-watchdog                      have the helper watch this application
  stop-watchdog                       no longer
  defunct-restart                     kill this application and launch it again
  prevent-sleep-temp                  keep the idle machine awake for 30 seconds
  start-dhcpd INTERFACE CONFIG LEASES OUTPUT PIDFILE
                                      start the DHCP server of this bundle (Contents/Applications/brimo-dhcpd) for as
                                      long as this application runs; LEASES and OUTPUT must exist
  stop-dhcpd                          stop it
  spindump FILE                       sample this application into FILE
  stop                                end the helper process
  json OBJECT                         send a JSON command, byte by byte as it is

Without a command, reads one a line from standard input, where "double quotes" keep blanks together, and keeps its
connection open, since the helper undoes what a client did when the client leaves. With --json, prints one JSON object a
command. A SERVICE is told by its ID, else the interface that it is active on, else its name; one that several have is
refused. "primary" is the service that leads to the network at large.

The helper launches a watched application that died with the argument -crashWatchDog, and one that asked for its restart
with -crashDefunctRestart. Brimo then says so, and to the helper that it is back, and goes on as without a command.

Exit status: 0 done; 1 the helper, or the system, answered with an error; 2 wrong usage; 3 no connection to the helper;
4 not found. Of several commands, the last one's that failed.
)";

struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// What a command found: an object for --json, a line for people.
struct Answer {
  json::object object;
  std::string text;
  ExitCode code = exitSuccess;
};

using Arguments = std::vector<std::string>;

struct Command {
  std::size_t arguments = 0;
  std::function<Answer(brimo::HelperClient&, const Arguments&)> run = {};
  bool takesMore = false;              ///< arguments
  std::function<Answer()> local = {};  ///< in place of `run`: for what needs no helper
};

Answer done() {
  return {.object = {{"result", "success"}}, .text = "done"};
}

Answer version(brimo::HelperClient& helper, const Arguments&) {
  auto build = helper.version();
  return {.object = {{"version", build}}, .text = fmt::format("helper build {}", build)};
}

Answer processLookup(brimo::HelperClient& helper, const Arguments& arguments) {
  if (arguments[0] != "tcp" && arguments[0] != "udp") {
    throw UsageError(fmt::format("\"{}\" is neither tcp nor udp", arguments[0]));
  }
  auto owner = helper.processLookup(arguments[0] == "udp", arguments[1]);
  if (!owner) return {.object = {}, .text = fmt::format("no process owns {}", arguments[1]), .code = exitNotFound};
  json::object object{{"pid", owner->pid}};
  if (owner->path) object["path"] = *owner->path;
  return {.object = object, .text = fmt::format("PID {} {}", owner->pid, owner->path.value_or("(unknown path)"))};
}

Answer dhcpDiscover(brimo::HelperClient& helper, const Arguments& arguments) {
  auto servers = helper.dhcpDiscover(arguments[0]);
  json::object object{{"serverAddresses", json::value_from(servers)}};
  if (servers.empty()) {
    auto text = fmt::format("no DHCP server answers on {}", arguments[0]);
    return {.object = std::move(object), .text = std::move(text), .code = exitNotFound};
  }
  return {.object = std::move(object), .text = fmt::format("{}", fmt::join(servers, "\n"))};
}

Answer raDetect(brimo::HelperClient& helper, const Arguments& arguments) {
  auto advertisement = helper.raDetect(arguments[0]);
  if (!advertisement) {
    return {.object = {}, .text = fmt::format("no IPv6 router answers on {}", arguments[0]), .code = exitNotFound};
  }
  return {.object = advertisement->json(), .text = advertisement->text()};
}

Answer services() {
  json::array list;
  std::string text;
  for (const auto& [id, name, interface, isPrimary] : platform::networkServices().value()) {
    list.push_back({{"id", id}, {"interface", interface}, {"name", name}, {"primary", isPrimary}});
    text += fmt::format("{}{}  {:15}  {}{}", text.empty() ? "" : "\n", id, interface.empty() ? "-" : interface, name,
                        isPrimary ? "  (primary)" : "");
  }
  if (list.empty()) return {.object = {{"services", list}}, .text = "no network services", .code = exitNotFound};
  return {.object = {{"services", list}}, .text = std::move(text)};
}

Answer proxies() {
  json::array list;
  std::string text;
  for (const auto& [name, setting, readers] : platform::proxyPlaces(HelperServiceName)) {
    list.push_back({{"place", name}, {"setting", setting}, {"readers", readers}});
    text += fmt::format("{}{}: {}\n  obeyed by {}", text.empty() ? "" : "\n", name, setting, readers);
  }
  return {.object = {{"places", list}}, .text = std::move(text)};
}

/// What a person called a service, as its ID, and what to say when it was changed.
struct Service {
  std::string id;
  Answer outcome;
};

Service findService(const std::string& text) {
  auto known = platform::networkServices();
  if (!known && text == "primary") throw known.error();
  if (!known) return {text, done()};  // the system does not tell its services: the helper may know better
  const auto& services = *known;
  using platform::NetworkService;
  if (text == "primary") {
    auto found = std::find_if(services.begin(), services.end(), [](const auto& service) { return service.isPrimary; });
    if (found == services.end()) throw std::runtime_error("no service leads to the network at large");
    return {found->id, done()};
  }
  for (auto member : {&NetworkService::id, &NetworkService::interface, &NetworkService::name}) {
    auto isCalled = [&](const NetworkService& service) { return !text.empty() && service.*member == text; };
    auto found = std::find_if(services.begin(), services.end(), isCalled);
    if (found == services.end()) continue;
    if (std::any_of(found + 1, services.end(), isCalled)) {
      throw UsageError(fmt::format("more than one service is called {}; \"services\" lists their IDs", text));
    }
    return {found->id, done()};
  }
  auto warning = fmt::format("no service of this machine is called {}, so this is only stored", text);
  return {text, {.object = {{"result", "success"}, {"warning", warning}}, .text = "done; but " + warning}};
}

Answer setProxy(brimo::HelperClient& helper, const Arguments& arguments) {
  auto [proxies, cleanup] = brimo::parseProxyArguments({arguments.begin() + 1, arguments.end()});
  auto [id, outcome] = findService(arguments[0]);
  helper.setProxies({{id, proxies}}, cleanup);
  return outcome;
}

Answer setStaticIP(brimo::HelperClient& helper, const Arguments& arguments) {
  auto [id, outcome] = findService(arguments[0]);
  helper.setStaticIP(id, arguments[1], arguments[2], arguments[3]);
  return outcome;
}

/// The helper has a working folder of its own. Empty stays empty.
std::string absolute(const std::string& path) {
  std::error_code error;
  return std::filesystem::absolute(path, error);
}

Answer startDHCPServer(brimo::HelperClient& helper, const Arguments& arguments) {
  auto executable = std::filesystem::path(platform::executablePath(getpid()).value_or(""));
  auto pid = helper.startDHCPServer({.executable = executable.parent_path().parent_path() / "Applications/brimo-dhcpd",
                                     .interface = arguments[0],
                                     .configuration = absolute(arguments[1]),
                                     .leases = absolute(arguments[2]),
                                     .output = absolute(arguments[3]),
                                     .pidFile = absolute(arguments[4])});
  return {.object = {{"result", "success"}, {"pid", pid}}, .text = fmt::format("DHCP server runs as PID {}", pid)};
}

Answer sendJSON(brimo::HelperClient& helper, const Arguments& arguments) {
  auto reply = helper.json(arguments[0]);
  auto code = reply.contains("error") ? exitRefused : exitSuccess;
  auto text = platform::serializeExactJSON(reply);
  return {.object = std::move(reply), .text = std::move(text), .code = code};
}

const std::map<std::string, Command> commands{
    {"version", {0, version}},
    {"process-lookup", {2, processLookup}},
    {"dhcp-discover", {1, dhcpDiscover}},
    {"ra-detect", {1, raDetect}},
    {"services", {.local = services}},
    {"proxies", {.local = proxies}},
    {"set-proxy", {2, setProxy, true}},
    {"set-static-ip", {4, setStaticIP}},
    {"start-watchdog", {0, [](auto& helper, auto&) { return helper.startWatchdog(), done(); }}},
    {"stop-watchdog", {0, [](auto& helper, auto&) { return helper.stopWatchdog(), done(); }}},
    {"defunct-restart", {0, [](auto& helper, auto&) { return helper.defunctRestart(), done(); }}},
    {"prevent-sleep-temp", {0, [](auto& helper, auto&) { return helper.preventSleepTemporarily(), done(); }}},
    {"start-dhcpd", {5, startDHCPServer}},
    {"stop-dhcpd", {0, [](auto& helper, auto&) { return helper.stopDHCPServer(), done(); }}},
    {"spindump", {1, [](auto& helper, auto& arguments) { return helper.spindump(absolute(arguments[0])), done(); }}},
    {"stop", {0, [](auto& helper, auto&) { return helper.stop(), done(); }}},
    {"json", {1, sendJSON}},
};

/// Runs commands over one connection, made when the first needs it.
class Session {
 public:
  explicit Session(bool printJSON) : printJSON_(printJSON) {}

  ExitCode run(const std::string& name, const Arguments& arguments) {
    try {
      auto command = commands.find(name);
      if (command == commands.end()) throw UsageError(fmt::format("unknown command \"{}\"", name));
      const auto& [count, work, takesMore, local] = command->second;
      if (arguments.size() < count || (arguments.size() > count && !takesMore)) {
        throw UsageError(fmt::format("{} takes {} argument(s){}", name, count, takesMore ? " or more" : ""));
      }
      if (!local && !helper_) helper_.emplace();
      auto answer = local ? local() : work(*helper_, arguments);
      if (name == "stop") helper_.reset();  // it has ended, and the next command finds the one that is started after it
      std::cout << (printJSON_ ? platform::serializeExactJSON(answer.object) : answer.text) << std::endl;
      return answer.code;
    } catch (const UsageError& error) {
      return fail(exitUsage, error.what());
    } catch (const std::invalid_argument& error) {
      return fail(exitUsage, error.what());
    } catch (const brimo::HelperUnreachable& error) {
      helper_.reset();
      return fail(exitUnreachable, error.what());
    } catch (const std::runtime_error& error) {  // brimo::HelperError, or the system's
      return fail(exitRefused, error.what());
    }
  }

  /// Reads commands from standard input, to its end.
  ExitCode runLines() {
    auto result = exitSuccess;
    bool prompt = isatty(STDIN_FILENO) == 1;
    std::string line;
    while ((prompt && std::cout << "brimo> " << std::flush, std::getline(std::cin, line))) {
      std::istringstream words(line);
      std::string name;
      if (!(words >> name)) continue;
      if (name == "quit" || name == "exit") break;
      if (name == "help") {
        std::cout << usage << std::flush;
        continue;
      }
      Arguments arguments;
      std::string word;
      // What follows "json" is one argument, blanks and all; others that hold a blank stand in double quotes.
      if (name == "json") {
        if (std::getline(words >> std::ws, word)) arguments.push_back(word);
      } else {
        while (words >> std::quoted(word)) arguments.push_back(word);
      }
      if (auto code = run(name, arguments); code != exitSuccess) result = code;
    }
    return result;
  }

 private:
  ExitCode fail(ExitCode code, const std::string& text) {
    if (printJSON_) std::cout << json::serialize(json::object{{"error", text}}) << std::endl;
    std::cerr << "Brimo: " << text << std::endl;
    return code;
  }

  bool printJSON_;
  std::optional<brimo::HelperClient> helper_;
};

}  // namespace

int main(int count, char** values) {
  Arguments arguments(values + 1, values + count);
  bool printJSON = std::erase(arguments, "--json") > 0;
  if (!arguments.empty() && (arguments[0] == "--help" || arguments[0] == "-h" || arguments[0] == "help")) {
    std::cout << usage;
    return exitSuccess;
  }
  Session session(printJSON);
  if (!arguments.empty() && (arguments[0] == "-crashWatchDog" || arguments[0] == "-crashDefunctRestart")) {
    std::cout << "launched again by the helper (" << arguments[0] << ")" << std::endl;
    session.run("version", {});
    return session.runLines();
  }
  if (arguments.empty()) return session.runLines();
  std::string name = arguments[0];
  arguments.erase(arguments.begin());
  return session.run(name, arguments);
}
