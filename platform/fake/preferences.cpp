#include "platform/fake/preferences.h"

namespace platform {

namespace {

bool call(const std::string& name) {
  fake::preferences().calls.push_back(name);
  return !fake::preferences().failing.contains(name);
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
  ~Implementation() { call("release"); }
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;
};

std::unique_ptr<Session> Session::create(const std::string& name, const std::string&) {
  if (!call("create " + name)) return nullptr;
  return std::make_unique<Session>(std::make_unique<Implementation>());
}

Session::Session(std::unique_ptr<Implementation> implementation) : implementation_(std::move(implementation)) {}
Session::~Session() = default;

bool Session::lock(bool wait) {
  return call(wait ? "lock waiting" : "lock");
}
bool Session::setValue(const std::string& path, const boost::json::value& value) {
  fake::preferences().values.emplace_back(path, value);
  return call("set " + path);
}
bool Session::commit() {
  return call("commit");
}
bool Session::apply() {
  return call("apply");
}
void Session::synchronize() {
  call("synchronize");
}
void Session::unlock() {
  call("unlock");
}

std::string lastErrorText() {
  return fake::preferences().errorText;
}

}  // namespace preferences

}  // namespace platform
