#include "cli/commands.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include <bit>
#include <boost/json.hpp>
#include <filesystem>

#include "cli/doctor.h"
#include "cli/proxy_arguments.h"
#include "cli/router_advertisement_text.h"
#include "cli/services.h"
#include "platform/base/exact_json.h"
#include "platform/process/process.h"

namespace brimo {

namespace json = boost::json;

namespace {

using Run = std::function<Answer(const CommandContext&, const Arguments&)>;

Answer runVersion(const CommandContext& context, const Arguments&) {
  auto build = ask(context.helper(), brimo::version());
  return {.object = {{"version", build}}, .text = fmt::format("helper build {}", build)};
}

/// Parses the address of a local socket or of its remote end. Throws UsageError if the text is not a socket address.
SocketAddress requireSocketAddress(const std::string& text) {
  constexpr std::string_view localhost = "localhost:";
  auto address = parseSocketAddress(text.starts_with(localhost) ? "127.0.0.1:" + text.substr(localhost.size()) : text);
  if (!address) {
    throw UsageError(fmt::format(
        "\"{}\" is not an address with a port: write 127.0.0.1:80, [::1]:80, [fe80::1%eth0]:80, with an interface "
        "of this machine, or localhost:80",
        text));
  }
  return *address;
}

Answer runProcessLookup(const CommandContext& context, const Arguments& arguments) {
  if (arguments[0] != "tcp" && arguments[0] != "udp") {
    throw UsageError(fmt::format("\"{}\" is neither tcp nor udp", arguments[0]));
  }
  auto local = requireSocketAddress(arguments[1]);
  std::optional<SocketAddress> remote;
  if (arguments.size() > 2) remote = requireSocketAddress(arguments[2]);
  if (remote && remote->isIPv6 != local.isIPv6) throw UsageError("both ends must be IPv4, or both IPv6");
  auto transport = arguments[0] == "udp" ? Transport::udp : Transport::tcp;
  auto owner = ask(context.helper(), brimo::processLookup(transport, local, remote));
  if (!owner) return {.object = {}, .text = fmt::format("no process owns {}", arguments[1]), .code = exitNotFound};
  json::object object{{"pid", owner->pid}};
  if (owner->path) object["path"] = *owner->path;
  return {.object = object, .text = fmt::format("PID {} {}", owner->pid, owner->path.value_or("(unknown path)"))};
}

Answer runDHCPDiscover(const CommandContext& context, const Arguments& arguments) {
  auto servers = ask(context.helper(), brimo::dhcpDiscover(arguments[0]));
  json::object object{{"serverAddresses", json::value_from(servers)}};
  if (servers.empty()) {
    auto text = fmt::format("no DHCP server answers on {}", arguments[0]);
    return {.object = std::move(object), .text = std::move(text), .code = exitNotFound};
  }
  return {.object = std::move(object), .text = fmt::format("{}", fmt::join(servers, "\n"))};
}

Answer runRADetect(const CommandContext& context, const Arguments& arguments) {
  auto advertisement = ask(context.helper(), brimo::raDetect(arguments[0]));
  if (!advertisement) {
    return {.object = {}, .text = fmt::format("no IPv6 router answers on {}", arguments[0]), .code = exitNotFound};
  }
  return {.object = routerObject(*advertisement), .text = routerText(*advertisement)};
}

/// Removes "--force" from the arguments and returns whether it was there.
bool takeForce(Arguments& arguments) {
  return std::erase(arguments, "--force") > 0;
}

Answer setProxy(const CommandContext& context, const Arguments& given) {
  auto arguments = given;
  bool isForced = takeForce(arguments);
  if (arguments.size() < 2) throw UsageError("set-proxy takes a service and settings, or \"off\"");
  auto [proxies, lifetime] = parseProxyArguments({arguments.begin() + 1, arguments.end()});
  auto service = findService(arguments[0], isForced);
  ask(context.helper(), brimo::setProxies({{service, proxies}}, lifetime));
  auto answer = done();
  answer.lastsWhileConnected = lifetime == ProxyLifetime::untilAClientLeaves;
  return answer;
}

std::uint32_t requireIPv4(const std::string& text, const char* what) {
  in_addr address;
  if (inet_pton(AF_INET, text.c_str(), &address) != 1) {
    throw UsageError(fmt::format("\"{}\" is not a valid {}: write it like 192.0.2.1", text, what));
  }
  return ntohl(address.s_addr);
}

Answer runSetStaticIP(const CommandContext& context, const Arguments& given) {
  auto arguments = given;
  bool isForced = takeForce(arguments);
  if (arguments.size() != 4) throw UsageError("set-static-ip takes a service, an address, a mask and a router");
  if (requireIPv4(arguments[1], "address") == 0) throw UsageError("0.0.0.0 is not the address of a machine");
  auto mask = requireIPv4(arguments[2], "mask");
  if (mask == 0 || std::countl_one(mask) + std::countr_zero(mask) != 32) {
    throw UsageError(fmt::format("\"{}\" is not a mask: its ones must come first, as in 255.255.255.0", arguments[2]));
  }
  requireIPv4(arguments[3], "router");
  auto service = findService(arguments[0], isForced);
  ask(context.helper(), brimo::setStaticIP(service, arguments[1], arguments[2], arguments[3]));
  return done();
}

/// Makes a path absolute, because the helper has another working folder. Keeps an empty path empty.
std::string absolute(const std::string& path) {
  std::error_code error;
  return std::filesystem::absolute(path, error);
}

Answer runStartWatchdog(const CommandContext& context, const Arguments&) {
  if (context.isOnlyCommand) {
    throw UsageError(
        "start-watchdog as the only command would make the helper relaunch this program as soon as it ends; use it "
        "where "
        "Brimo reads commands, because the connection stays open there");
  }
  return ask(context.helper(), brimo::startWatchdog()), done();
}

Answer runStartDHCPServer(const CommandContext& context, const Arguments& arguments) {
  auto executable = std::filesystem::path(platform::executablePath(getpid()).value_or(""));
  auto request =
      brimo::startDHCPServer({.executable = executable.parent_path().parent_path() / "Applications/brimo-dhcpd",
                              .interface = arguments[0],
                              .configuration = absolute(arguments[1]),
                              .leases = absolute(arguments[2]),
                              .output = absolute(arguments[3]),
                              .pidFile = absolute(arguments[4])});
  auto pid = ask(context.helper(), request);
  return {.object = {{"result", "success"}, {"pid", pid}},
          .text = fmt::format("DHCP server runs as PID {}", pid),
          .lastsWhileConnected = true};
}

/// Returns the reply unchanged, or an object with only the text of its error.
Answer sendJSON(const CommandContext& context, const Arguments& arguments) {
  auto result = context.helper().call(jsonCommand(arguments[0]));
  if (!result && result.error().code == ErrorCode::rejected) {
    json::object object{{"error", result.error().message}};
    auto text = platform::serializeExactJSON(object);
    return {.object = std::move(object), .text = std::move(text), .code = exitRefused};
  }
  auto text = valueOf(std::move(result));
  auto reply = platform::parseExactJSON(text, 512);
  if (!reply || !reply->is_object()) throw CommandFailure(exitRefused, "the helper's reply is not a JSON object");
  return {.object = std::move(reply->get_object()), .text = std::move(text)};
}

/// Makes a command from a request that only succeeds or fails.
Run simple(Request<Done> (*request)()) {
  return [request](const CommandContext& context, const Arguments&) {
    ask(context.helper(), request());
    return done();
  };
}

Answer runSpindump(const CommandContext& context, const Arguments& arguments) {
  ask(context.helper(), brimo::spindump(absolute(arguments[0])));
  return done();
}

}  // namespace

const std::map<std::string, Command>& commands() {
  constexpr std::size_t any = 1'000;
  static const std::map<std::string, Command> table{
      {"version", {"", "Shows the build number of the helper.", 0, 0, runVersion}},
      {"doctor",
       {"",
        "Checks the installation and the current settings, and prints a remedy for each problem. As root, it also\n"
        "checks the store.",
        0, 0, [](const CommandContext& context, const Arguments&) { return examine(context); }}},
      {"process-lookup",
       {"tcp|udp ADDRESS:PORT [REMOTE:PORT]",
        "Shows the owner of a local socket: 127.0.0.1:80, [::1]:80, [fe80::1%eth0]:80, localhost:80. With REMOTE, the\n"
        "socket that is connected to REMOTE is preferred.",
        2, 3, runProcessLookup}},
      {"dhcp-discover",
       {"INTERFACE", "Lists the DHCP servers that answer on an interface, after two seconds.", 1, 1, runDHCPDiscover}},
      {"ra-detect",
       {"INTERFACE", "Shows the first IPv6 router that answers on an interface, within five seconds.", 1, 1,
        runRADetect}},
      {"services",
       {"", "Lists the network services of this machine: ID, interface, name; the primary one is marked.", 0, 0,
        [](const CommandContext&, const Arguments&) { return listServices(); }}},
      {"proxies",
       {"", "Shows which proxies are set, where, and which programs use them.", 0, 0,
        [](const CommandContext&, const Arguments&) { return listProxies(); }}},
      {"set-proxy",
       {"SERVICE off|SETTING… [--force]",
        "Replaces the proxies of a service; \"off\" removes them. SERVICE is an ID, else the interface on which the\n"
        "service is active, else its name; \"primary\" is the service with the default route. With --force, it\n"
        "is an ID, even one that this machine does not know.\n"
        "  http=HOST:PORT https=HOST:PORT socks=HOST:PORT, or pac=URL\n"
        "  except=HOST,*.DOMAIN,ADDRESS/BITS…   no proxy for these\n"
        "  except-simple                        no proxy for names without a dot\n"
        "  temporary                            until any client disconnects; a single run waits until it is\n"
        "                                       interrupted. Otherwise the settings stay",
        2, any, setProxy}},
      {"set-static-ip",
       {"SERVICE ADDRESS MASK ROUTER [--force]", "Gives a service a manual IPv4 configuration, which stays.", 4, 5,
        runSetStaticIP}},
      {"start-watchdog",
       {"", "Makes the helper relaunch this program after any client disconnects. Cannot be the only command.", 0, 0,
        runStartWatchdog}},
      {"stop-watchdog", {"", "Cancels start-watchdog.", 0, 0, simple(brimo::stopWatchdog)}},
      {"defunct-restart", {"", "Kills this program and launches it again.", 0, 0, simple(brimo::defunctRestart)}},
      {"prevent-sleep-temp",
       {"", "Keeps the idle machine awake for 30 seconds.", 0, 0, simple(brimo::preventSleepTemporarily)}},
      {"start-dhcpd",
       {"INTERFACE CONFIG LEASES OUTPUT PIDFILE",
        "Starts the DHCP server of this bundle (Contents/Applications/brimo-dhcpd) until any client disconnects; a\n"
        "single run waits until it is interrupted. LEASES and OUTPUT must exist.",
        5, 5, runStartDHCPServer}},
      {"stop-dhcpd",
       {"", "Stops the DHCP server and kills every process named brimo-dhcpd or brimo-ra.", 0, 0,
        simple(brimo::stopDHCPServer)}},
      {"spindump", {"FILE", "Samples this program with spindump and writes the result to FILE.", 1, 1, runSpindump}},
      {"stop", {"", "Ends the helper process without any clean-up.", 0, 0, simple(brimo::stop)}},
      {"json", {"OBJECT", "Sends a JSON command unchanged.", 1, 1, sendJSON}},
  };
  return table;
}

Answer runCommand(const std::string& name, const CommandContext& context, const Arguments& arguments) {
  auto found = commands().find(name);
  if (found == commands().end()) throw UsageError(fmt::format("there is no command \"{}\"; \"help\" lists them", name));
  const auto& command = found->second;
  if (arguments.size() < command.least || arguments.size() > command.most) {
    throw UsageError(fmt::format("usage: Brimo {}{}{}", name, command.arguments.empty() ? "" : " ", command.arguments));
  }
  return command.run(context, arguments);
}

}  // namespace brimo
