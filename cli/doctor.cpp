#include "cli/doctor.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include <boost/json.hpp>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>

#include "build_constants.h"
#include "cli/installation.h"
#include "platform/base/exact_json.h"
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

Finding executable() {
  if (fs::exists(installedHelper)) return {"helper", installedHelper};
  return {"helper", fmt::format("{} is missing", installedHelper), "install the helper"};
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
  return {"connection", message, "look into the helper's log, /tmp/BrimoHelper.log"};
}

Finding bundle() {
  fs::path program = platform::executablePath(getpid()).value_or("");
  auto contents = program.parent_path().parent_path();
  for (const char* framework : {"Bugsnag", "Sparkle"}) {
    auto file = contents / "Frameworks" / fmt::format("{}.framework", framework) / framework;
    if (!fs::exists(file)) {
      return {"bundle", file.string() + " is missing",
              fmt::format("run the program inside of its bundle, not {}", program.string())};
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

Finding store() {
  std::error_code error;
  bool isThere = fs::exists(fs::path(storeFolder) / "preferences.json", error);
  if (error) return {"store", fmt::format("{}: only root can look into it", storeFolder)};
  if (!isThere) return {"store", "nothing has been set yet"};
  auto preferences = stored("preferences.json");
  const auto* services = preferences ? preferences->if_contains("NetworkServices") : nullptr;
  if (!services || !services->is_object()) {
    return {"store", fmt::format("{}/preferences.json is not in order", storeFolder), "mend or remove it, as root"};
  }
  std::vector<std::string> withProxies;
  for (const auto& [id, entities] : services->get_object()) {
    const auto* proxies = entities.is_object() ? entities.get_object().if_contains("Proxies") : nullptr;
    if (proxies && proxies->is_object() && !proxies->get_object().empty()) withProxies.emplace_back(id);
  }
  if (withProxies.empty()) return {"store", "no service has proxies"};
  // An application sets its proxies again when it connects, but proxies without an application stay for ever.
  return {"store", fmt::format("services with proxies: {}", fmt::join(withProxies, ", ")),
          fmt::format("if no running application has set them: Brimo set-proxy {} off --force", withProxies.front())};
}

}  // namespace

Answer examine(const Surroundings& surroundings) {
  std::vector<Finding> findings{service(), executable(), connection(surroundings.helper()), bundle()};
  if (*storeFolder != '\0') findings.push_back(store());
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
