// Network preferences through SCPreferences.
#include "platform/network_settings/preferences.h"

#include <SystemConfiguration/SystemConfiguration.h>

#include "platform/network_settings/darwin/property_list.h"

namespace platform::preferences {

namespace {

Failure failureWith(int status) {
  return {status, SCErrorString(status)};
}

Result<void> result(Boolean success) {
  if (!success) return failureWith(SCError());
  return {};
}

}  // namespace

class Session::Implementation {
 public:
  explicit Implementation(CFOwner<SCPreferencesRef> preferences) : preferences_(std::move(preferences)) {}
  ~Implementation() { unlock(); }
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  SCPreferencesRef get() const { return preferences_.get(); }

  Result<void> lock(bool wait) {
    isLocked_ = SCPreferencesLock(get(), wait) != 0;
    return result(isLocked_);
  }

  void unlock() {
    if (isLocked_) SCPreferencesUnlock(get());
    isLocked_ = false;
  }

 private:
  CFOwner<SCPreferencesRef> preferences_;
  bool isLocked_ = false;
};

Result<std::unique_ptr<Session>> Session::create(const std::string& name, const std::string&) {
  const auto text = makeString(name);
  if (!text) return failureWith(kSCStatusInvalidArgument);
  CFOwner<SCPreferencesRef> preferences(SCPreferencesCreate(kCFAllocatorDefault, text.get(), nullptr));
  if (!preferences) return failureWith(SCError());
  return std::make_unique<Session>(std::make_unique<Implementation>(std::move(preferences)));
}

Session::Session(std::unique_ptr<Implementation> implementation) : implementation_(std::move(implementation)) {}

Session::~Session() = default;

Result<void> Session::lock(bool wait) {
  return implementation_->lock(wait);
}

Result<void> Session::setValue(const std::string& path, const boost::json::value& value) {
  const auto pathText = makeString(path);
  const auto object = propertyList(value);
  if (!pathText || !object || !value.is_object()) return failureWith(kSCStatusInvalidArgument);
  return result(
      SCPreferencesPathSetValue(implementation_->get(), pathText.get(), static_cast<CFDictionaryRef>(object.get())));
}

Result<void> Session::commit() {
  return result(SCPreferencesCommitChanges(implementation_->get()));
}

Result<void> Session::apply() {
  return result(SCPreferencesApplyChanges(implementation_->get()));
}

void Session::synchronize() {
  SCPreferencesSynchronize(implementation_->get());
}

void Session::unlock() {
  implementation_->unlock();
}

void keepApplied(const std::string&) {}

bool withdraw(const std::string&) {
  return true;
}

}  // namespace platform::preferences
