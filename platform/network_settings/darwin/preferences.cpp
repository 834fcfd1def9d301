// Network preferences by SCPreferences.
#include "platform/network_settings/preferences.h"

#include <SystemConfiguration/SystemConfiguration.h>

#include "platform/network_settings/darwin/property_list.h"

namespace platform::preferences {

namespace {

/// Whether the last step on this thread failed by our own judgement, of which the system knows nothing.
thread_local bool wasRefused = false;

bool result(Boolean success) {
  wasRefused = false;
  return success != 0;
}

}  // namespace

class Session::Implementation {
 public:
  explicit Implementation(CFOwner<SCPreferencesRef> preferences) : preferences_(std::move(preferences)) {}
  ~Implementation() { unlock(); }
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  SCPreferencesRef get() const { return preferences_.get(); }

  bool lock(bool wait) { return isLocked_ = result(SCPreferencesLock(get(), wait)); }

  void unlock() {
    if (isLocked_) SCPreferencesUnlock(get());
    isLocked_ = false;
  }

 private:
  CFOwner<SCPreferencesRef> preferences_;
  bool isLocked_ = false;
};

std::unique_ptr<Session> Session::create(const std::string& name) {
  const auto text = makeString(name);
  if (!text) return nullptr;
  CFOwner<SCPreferencesRef> preferences(SCPreferencesCreate(kCFAllocatorDefault, text.get(), nullptr));
  if (!result(preferences != nullptr)) return nullptr;
  return std::make_unique<Session>(std::make_unique<Implementation>(std::move(preferences)));
}

Session::Session(std::unique_ptr<Implementation> implementation) : implementation_(std::move(implementation)) {}

Session::~Session() = default;

bool Session::lock(bool wait) {
  return implementation_->lock(wait);
}

bool Session::setValue(const std::string& path, const boost::json::value& value) {
  const auto pathText = makeString(path);
  const auto object = propertyList(value);
  if (!pathText || !object || !value.is_object()) {
    wasRefused = true;
    return false;
  }
  return result(
      SCPreferencesPathSetValue(implementation_->get(), pathText.get(), static_cast<CFDictionaryRef>(object.get())));
}

bool Session::commit() {
  return result(SCPreferencesCommitChanges(implementation_->get()));
}

bool Session::apply() {
  return result(SCPreferencesApplyChanges(implementation_->get()));
}

void Session::synchronize() {
  SCPreferencesSynchronize(implementation_->get());
}

void Session::unlock() {
  implementation_->unlock();
}

void keepApplied(const std::string&) {}

std::string lastErrorText() {
  return SCErrorString(wasRefused ? static_cast<int>(kSCStatusInvalidArgument) : SCError());
}

}  // namespace platform::preferences
