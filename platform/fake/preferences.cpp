#include "platform/fake/preferences.h"

namespace platform {

namespace {

Result<void> call(const std::string& name) {
  fake::preferences().calls.push_back(name);
  if (fake::preferences().failing.contains(name)) return Failure(0, fake::preferences().errorText);
  return {};
}

}  // namespace

fake::Preferences& fake::preferences() {
  static Preferences preferences;
  return preferences;
}

namespace preferences {

class Session::Implementation {
 public:
  Implementation() = default;
  ~Implementation() { fake::preferences().calls.push_back("release"); }
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;
};

Result<std::unique_ptr<Session>> Session::create(const std::string& name, const std::string&) {
  if (auto created = call("create " + name); !created) return created.error();
  return std::make_unique<Session>(std::make_unique<Implementation>());
}

Session::Session(std::unique_ptr<Implementation> implementation) : implementation_(std::move(implementation)) {}
Session::~Session() = default;

Result<void> Session::lock(bool wait) {
  return call(wait ? "lock waiting" : "lock");
}
Result<void> Session::setValue(const std::string& path, const boost::json::value& value) {
  fake::preferences().values.emplace_back(path, value);
  return call("set " + path);
}
Result<void> Session::commit() {
  return call("commit");
}
Result<void> Session::apply() {
  return call("apply");
}
void Session::synchronize() {
  fake::preferences().calls.push_back("synchronize");
}
void Session::unlock() {
  fake::preferences().calls.push_back("unlock");
}

}  // namespace preferences

}  // namespace platform
