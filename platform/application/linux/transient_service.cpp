#include "platform/application/linux/transient_service.h"

#include <fmt/format.h>
#include <systemd/sd-id128.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "platform/application/linux/environment.h"
#include "platform/base/linux/system_bus.h"
#include "platform/base/utf8.h"
#include "platform/process/process.h"

namespace platform {

namespace {

constexpr char systemd[] = "org.freedesktop.systemd1";
constexpr char unitInterface[] = "org.freedesktop.systemd1.Unit";
constexpr char serviceInterface[] = "org.freedesktop.systemd1.Service";

constexpr std::chrono::seconds patience(30);  // PAM modules may query the network
// Each check reads five properties from systemd. If a home folder does not answer, checks continue until the deadline.
constexpr std::chrono::milliseconds firstPause(20), longestPause(1000);

/// A D-Bus error that releases itself.
struct BusError : sd_bus_error {
  BusError() : sd_bus_error{} {}
  BusError(const BusError&) = delete;
  BusError& operator=(const BusError&) = delete;
  ~BusError() { sd_bus_error_free(this); }

  /// The given failure, with the peer's message instead of its own if there is one.
  Failure orElse(const Failure& failure) const { return message ? Failure(failure.number, message) : failure; }
};

void appendTexts(sd_bus_message* call, std::vector<std::string> texts) {
  check(sd_bus_message_append_strv(call, pointersTo(texts).data()));
}

/// Appends a property; `write` appends its value.
void addProperty(sd_bus_message* call, const char* name, const char* type, const std::function<void()>& write) {
  check(sd_bus_message_open_container(call, 'r', "sv"));
  check(sd_bus_message_append(call, "s", name));
  check(sd_bus_message_open_container(call, 'v', type));
  write();
  check(sd_bus_message_close_container(call));
  check(sd_bus_message_close_container(call));
}

void addText(sd_bus_message* call, const char* name, const std::string& text) {
  addProperty(call, name, "s", [&] { check(sd_bus_message_append(call, "s", text.c_str())); });
}

void addFlag(sd_bus_message* call, const char* name, bool flag) {
  addProperty(call, name, "b", [&] { check(sd_bus_message_append(call, "b", flag ? 1 : 0)); });
}

void addTexts(sd_bus_message* call, const char* name, const std::vector<std::string>& texts) {
  addProperty(call, name, "as", [&] { appendTexts(call, texts); });
}

/// Appends the command. no-env-expand keeps "$" literal; systemd itself escapes "%".
void addCommand(sd_bus_message* call, const std::vector<std::string>& arguments) {
  addProperty(call, "ExecStartEx", "a(sasas)", [&] {
    check(sd_bus_message_open_container(call, 'a', "(sasas)"));
    check(sd_bus_message_open_container(call, 'r', "sasas"));
    check(sd_bus_message_append(call, "s", arguments[0].c_str()));
    appendTexts(call, arguments);
    appendTexts(call, {"no-env-expand"});
    check(sd_bus_message_close_container(call));
    check(sd_bus_message_close_container(call));
  });
}

/// The environment, completed, without the variables that are not UTF-8: D-Bus cannot carry these.
std::vector<std::string> sendableEnvironment(const ApplicationIdentity& identity) {
  auto environment = identity.environment;
  std::erase_if(environment, [](const auto& variable) { return !isUTF8(variable); });
  completeEnvironment(environment, identity.user);
  return environment;
}

void addIdentity(sd_bus_message* call, const ApplicationIdentity& identity) {
  auto environment = sendableEnvironment(identity);
  std::filesystem::path home(valueOf(environment, "HOME"));
  std::vector<std::string> groups;
  for (auto group : identity.groups) groups.push_back(std::to_string(group));
  addText(call, "User", std::to_string(identity.user));
  addText(call, "Group", std::to_string(identity.group));
  addTexts(call, "SupplementaryGroups", groups);
  addText(call, "PAMName", "systemd-user");
  // "-": falls back to "/" if the folder cannot be entered.
  if (home.is_absolute()) addText(call, "WorkingDirectory", "-" + home.lexically_normal().string());
  addTexts(call, "Environment", environment);
  // Variables that systemd adds for services are not part of the application's environment.
  std::vector<std::string> foreign{"INVOCATION_ID", "SYSTEMD_EXEC_PID"};
  if (valueOf(environment, "LANG").empty()) foreign.emplace_back("LANG");
  addTexts(call, "UnsetEnvironment", foreign);
}

void writeService(sd_bus_message* call, const std::string& unit, const std::vector<std::string>& arguments,
                  const ApplicationIdentity& identity) {
  const auto userManager = fmt::format("user@{}.service", identity.user);
  check(sd_bus_message_append(call, "ss", unit.c_str(), "fail"));
  check(sd_bus_message_open_container(call, 'a', "(sv)"));
  addText(call, "Description", "Main application, launched again");
  // Not "exec": with PAMName, systemd 252 would wait in vain.
  addText(call, "Type", "simple");
  // Programs that the application started continue after its end, as they do if a user started the application.
  addText(call, "ExitType", "cgroup");
  addText(call, "CollectMode", "inactive-or-failed");
  // Keeps the service, as long as this bus connection is open, so that outcomeOfStart() can find its result.
  addFlag(call, "AddRef", true);
  addText(call, "Slice", fmt::format("user-{}.slice", identity.user));
  addTexts(call, "PartOf", {userManager});
  addTexts(call, "After", {userManager});
  addIdentity(call, identity);
  addFlag(call, "IgnoreSIGPIPE", false);
  // The application shares its user's keyring.
  addText(call, "KeyringMode", "shared");
  addProperty(call, "UMask", "u", [&] { check(sd_bus_message_append(call, "u", std::uint32_t{022})); });
  for (const char* stream : {"StandardInput", "StandardOutput", "StandardError"}) addText(call, stream, "null");
  addCommand(call, arguments);
  check(sd_bus_message_close_container(call));
  check(sd_bus_message_append(call, "a(sa(sv))", 0));
}

/// A service, examined over the connection that started it.
class Service {
 public:
  Service(sd_bus* bus, const std::string& unit) : bus_(bus) {
    char* path = nullptr;
    check(sd_bus_path_encode("/org/freedesktop/systemd1/unit", unit.c_str(), &path));
    path_ = path;
    std::free(path);
  }

  ServiceState state() const {
    // In this order: after the job is done, the other properties belong to the started unit.
    bool hasJob = number(unitInterface, "Job", "(uo)") != 0;
    auto activeState = text(unitInterface, "ActiveState");
    const bool isRunning = runsApplication(static_cast<std::int32_t>(number(serviceInterface, "MainPID", "u")));
    return {hasJob, activeState, isRunning, text(serviceInterface, "Result"),
            static_cast<std::int32_t>(number(serviceInterface, "ExecMainStatus", "i"))};
  }

 private:
  BusMessage property(const char* interface, const char* name, const char* type) const {
    BusError error;
    sd_bus_message* reply = nullptr;
    int result = sd_bus_get_property(bus_, systemd, path_.c_str(), interface, name, &error, &reply, type);
    if (result < 0) throw error.orElse(failureOf(-result));
    return BusMessage(reply);
  }

  std::string text(const char* interface, const char* name) const {
    auto reply = property(interface, name, "s");
    const char* value = nullptr;
    check(sd_bus_message_read(reply.get(), "s", &value));
    return value;
  }

  /// A property's value, or the first number of its structure.
  std::uint32_t number(const char* interface, const char* name, const char* type) const {
    auto reply = property(interface, name, type);
    std::uint32_t value = 0;
    if (*type == '(') check(sd_bus_message_enter_container(reply.get(), 'r', "uo"));
    check(sd_bus_message_read_basic(reply.get(), *type == 'i' ? 'i' : 'u', &value));
    return value;
  }

  /// Whether a process runs the application. Before that it runs a program of systemd; which one depends on the
  /// version.
  static bool runsApplication(std::int32_t pid) {
    auto image = pid > 0 ? executablePath(pid) : std::nullopt, manager = executablePath(1);
    auto folder = [](const std::string& path) { return path.substr(0, path.rfind('/')); };
    return image && manager && folder(*image) != folder(*manager);
  }

  sd_bus* bus_;
  std::string path_;
};

void start(const std::string& unit, const std::vector<std::string>& command, const ApplicationIdentity& identity) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  auto bus = openSystemBus(deadline).value();
  check(sd_bus_set_method_call_timeout(bus.get(), std::chrono::microseconds(patience).count()));
  sd_bus_message* made = nullptr;
  check(sd_bus_message_new_method_call(bus.get(), &made, systemd, "/org/freedesktop/systemd1",
                                       "org.freedesktop.systemd1.Manager", "StartTransientUnit"));
  BusMessage request(made);
  writeService(request.get(), unit, command, identity);
  BusError error;
  auto reply = callUntil(deadline, bus.get(), request.get(), &error);
  if (!reply) throw error.orElse(reply.error());

  const Service service(bus.get(), unit);
  for (auto pause = firstPause; std::chrono::steady_clock::now() < deadline;
       pause = std::min(2 * pause, longestPause)) {
    if (auto outcome = outcomeOfStart(service.state())) return outcome->value();
    std::this_thread::sleep_for(pause);
  }
  throw Failure(0, fmt::format("has not started in {} seconds", patience.count()));
}

}  // namespace

std::optional<Result<void>> outcomeOfStart(const ServiceState& state) {
  if (state.hasJob) return std::nullopt;
  bool hasEnded = state.activeState == "failed" || state.activeState == "inactive";
  if (hasEnded && state.result != "success") {
    return Failure(0, fmt::format("{}, status {}", state.result, state.exitStatus));
  }
  if (hasEnded || state.runsApplication) return Result<void>();
  return std::nullopt;
}

Result<void> startTransientService(const std::string& identifier, const std::string& path,
                                   const std::vector<std::string>& arguments, const ApplicationIdentity& identity) {
  if (!isUTF8(path)) return Failure(0, "its path is not UTF-8");
  sd_id128_t random;
  if (int result = sd_id128_randomize(&random); result < 0) return failureOf(-result);
  auto unit = fmt::format("app-{}-{:016x}.service", identifier, random.qwords[0]);
  auto command = arguments;
  command.insert(command.begin(), path);
  auto started = attempt([&] { start(unit, command, identity); });
  if (!started) return Failure(started.error().number, fmt::format("{}: {}", unit, started.error().what()));
  return {};
}

}  // namespace platform
