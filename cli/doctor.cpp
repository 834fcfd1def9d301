#include "cli/doctor.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include <boost/json.hpp>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <set>

#include "build_constants.h"
#include "cli/helper_file.h"
#include "cli/installation.h"
#include "platform/base/exact_json.h"
#include "platform/network_settings/proxy_report.h"
#include "platform/process/process.h"

namespace brimo {

namespace fs = std::filesystem;
namespace json = boost::json;

namespace {

struct Finding {
  std::string subject;
  std::string text;
  std::string remedy = {};  ///< empty when the check passed
};

Finding service() {
  if (fs::exists(serviceDefinition)) return {"service", serviceDefinition};
  return {"service", fmt::format("{} is missing", serviceDefinition), "install the helper"};
}

Finding socket() {
  if (fs::is_socket(endpoint)) return {"socket", endpoint};
  return {"socket", fmt::format("{} is missing", endpoint), startCommand};
}

/// The executable, and the roots that it trusts.
void addHelper(std::vector<Finding>& findings) {
  const auto helper = readHelperFile(installedHelper);
  if (!helper) return findings.push_back({"helper", helper.error().what(), "install the helper"});
  const auto& [build, service, identifier, team, group, roots] = *helper;
  bool isOurs = build == BRHBuildNumber && service == HelperServiceName && identifier == ClientBundleIdentifier &&
                team == TeamIdentifier && group == BRHClientGroup;
  findings.push_back({"helper", fmt::format("{}, build {}", installedHelper, build),
                      isOurs ? "" : "it was built for another application: install both from the same build"});
  for (const auto& [subject, sha256] : roots) {
    findings.push_back({"anchor", fmt::format("{}, SHA-256 {}", subject, sha256)});
  }
}

Finding connection(HelperClient& helper) {
  auto build = helper.call(version());
  if (build && *build == BRHBuildNumber) return {"connection", fmt::format("the helper answers, build {}", *build)};
  if (build) {
    return {"connection", fmt::format("the helper is of build {}, this program of build {}", *build, BRHBuildNumber),
            "install both from the same build, and restart the helper"};
  }
  const auto& [code, message] = build.error();
  if (code == ErrorCode::notInstalled) return {"connection", message, startCommand};
  if (code == ErrorCode::refused) return {"connection", message, refusalsCommand};
  return {"connection", message, "read the helper's log, /tmp/BrimoHelper.log"};
}

Finding bundle() {
  fs::path program = platform::executablePath(getpid()).value_or("");
  auto contents = program.parent_path().parent_path();
  for (const char* framework : {"Bugsnag", "Sparkle"}) {
    auto file = contents / "Frameworks" / fmt::format("{}.framework", framework) / framework;
    if (!fs::exists(file)) {
      return {"bundle", file.string() + " is missing",
              fmt::format("run the copy inside the application bundle, not {}", program.string())};
    }
  }
  return {"bundle", contents.parent_path()};
}

/// A file of the store as JSON; absent when it cannot be read or parsed.
std::optional<json::object> stored(const char* name) {
  std::ifstream file(fs::path(storeFolder) / name);
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  auto value = platform::parseExactJSON(text, 512);
  if (!file || !value || !value->is_object()) return std::nullopt;
  return value->get_object();
}

/// The services that the store has proxies for; fails when it cannot be read.
platform::Result<std::vector<std::string>> servicesInStore() {
  std::vector<std::string> found;
  auto preferences = stored("preferences.json");
  const auto* services = preferences ? preferences->if_contains("NetworkServices") : nullptr;
  if (preferences && !services) return found;
  if (!services || !services->is_object()) {
    return platform::Failure(0, fmt::format("{}/preferences.json cannot be read or is not valid", storeFolder));
  }
  for (const auto& [id, entities] : services->get_object()) {
    const auto* proxies = entities.is_object() ? entities.get_object().if_contains("Proxies") : nullptr;
    if (proxies && proxies->is_object() && !proxies->get_object().empty()) found.emplace_back(id);
  }
  return found;
}

// Proxies whose application is gone stay for ever, so this names the command that removes them. An application that is
// still in use sets its proxies again when it connects.
std::string remedyForLeftover(const std::string& service) {
  return fmt::format(
      "no client has set these proxies since the helper last started afresh; to remove them: Brimo set-proxy {} off "
      "--force",
      service);
}

void addStore(std::vector<Finding>& findings, const std::set<std::string>& inUse) {
  std::error_code error;
  bool isThere = fs::exists(fs::path(storeFolder) / "preferences.json", error);
  if (error) return findings.push_back({"store", fmt::format("{}: only root can read it", storeFolder)});
  if (!isThere) return findings.push_back({"store", "nothing has been set yet"});
  auto services = servicesInStore();
  if (!services) return findings.push_back({"store", services.error().what(), "repair or remove it as root"});
  if (services->empty()) findings.push_back({"store", "no service has proxies"});
  for (const auto& service : *services) {
    findings.push_back({"store", fmt::format("service {} has proxies", service),
                        inUse.contains(service) ? "" : remedyForLeftover(service)});
  }
}

/// Reports the proxies of each place, with a remedy for those that no client has set since the helper started afresh.
void addProxies(std::vector<Finding>& findings, const std::set<std::string>& inUse) {
  for (const auto& [name, service, setting, readers] : platform::proxyPlaces(HelperServiceName)) {
    if (!service.empty() && setting == "none") continue;
    bool isLeft = !service.empty() && !inUse.contains(service);
    findings.push_back({"proxies", fmt::format("{}: {}", name, setting), isLeft ? remedyForLeftover(service) : ""});
  }
}

}  // namespace

Answer examine(const CommandContext& context) {
  // All this is examined first, because connecting may start a helper, which withdraws the desktop proxies that a
  // killed one left.
  std::vector<Finding> findings{service()};
  if (*endpoint != '\0') findings.push_back(socket());
  addHelper(findings);
  findings.push_back(bundle());
  const auto inUse = platform::servicesWithProxies(HelperServiceName);
  if (*storeFolder != '\0') addStore(findings, inUse);
  addProxies(findings, inUse);
  findings.push_back(connection(context.helper()));
  Answer answer;
  json::array list;
  for (const auto& [subject, text, remedy] : findings) {
    json::object object{{"subject", subject}, {"finding", text}};
    answer.text += fmt::format("{}{:12}{}", answer.text.empty() ? "" : "\n", subject, text);
    if (!remedy.empty()) {
      object["remedy"] = remedy;
      answer.text += fmt::format("\n{:12}-> {}", "", remedy);
      answer.code = exitRefused;
    }
    list.push_back(std::move(object));
  }
  answer.object = {{"findings", std::move(list)}};
  return answer;
}

}  // namespace brimo
