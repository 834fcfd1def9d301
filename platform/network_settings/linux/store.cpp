#include "platform/network_settings/linux/store.h"

#include <fmt/format.h>
#include <sys/file.h>

#include <boost/json.hpp>
#include <cerrno>
#include <vector>

#include "platform/base/exact_json.h"
#include "platform/network_settings/preferences.h"

namespace platform {

namespace json = boost::json;

namespace {

constexpr char storeName[] = "preferences.json", lockName[] = "preferences.lock", projectedName[] = "projected.json";

// A request's value is at most 512 deep, so every stored value can be read again.
constexpr std::size_t maximumPathDepth = 64, maximumDepth = 1024;

std::vector<std::string_view> keysOf(std::string_view path) {
  std::vector<std::string_view> keys;
  while (path.starts_with('/') && keys.size() < maximumPathDepth) {
    path.remove_prefix(1);
    keys.push_back(path.substr(0, path.find('/')));
    path.remove_prefix(keys.back().size());
  }
  if (keys.empty() || !path.empty()) throw Failure(0, "Not a path of the network preferences");
  return keys;
}

json::value parse(const std::string& text, const char* name) {
  auto value = parseExactJSON(text, maximumDepth);
  if (!value) throw Failure(0, fmt::format("{} is not JSON: {}", name, value.error().what()));
  if (!isFiniteJSON(*value)) throw Failure(0, fmt::format("{} holds a number that is too large", name));
  return std::move(*value);
}

/// Removes empty entities, and objects that hold nothing else.
void removeEmpty(json::object& object) {
  for (auto member = object.begin(); member != object.end();) {
    auto* inner = member->value().if_object();
    const bool isEntity = member->key() == preferences::proxiesEntity || member->key() == preferences::ipv4Entity;
    if (inner && !isEntity) removeEmpty(*inner);
    member = inner && inner->empty() ? object.erase(member) : std::next(member);
  }
}

}  // namespace

Result<PreferencesStore> PreferencesStore::open(const std::string& path) {
  return attempt([&] {
    auto folder = PrivateFolder::open(path).value();
    auto lockFile = folder.openLockFile(lockName).value();
    return PreferencesStore(std::move(folder), std::move(lockFile));
  });
}

Result<void> PreferencesStore::lock(bool wait) {
  if (isLocked_) return {};
  while (flock(lockFile_.get(), wait ? LOCK_EX : LOCK_EX | LOCK_NB) != 0) {
    if (errno != EINTR) return lastFailure(lockName);
  }
  isLocked_ = true;
  auto loaded = attempt([this] {
    read();
    readProjected();
  });
  if (!loaded) unlock();
  return loaded;
}

void PreferencesStore::unlock() {
  if (isLocked_) flock(lockFile_.get(), LOCK_UN);
  isLocked_ = false;
}

// Reads the values the first time; later only checks that the file is unchanged.
void PreferencesStore::read() {
  auto content = folder_.read(storeName).value();
  auto state = content ? std::make_optional(content->state) : std::nullopt;
  if (values_) {
    if (state != state_) throw Failure(0, "The network preferences have changed since they were read");
    return;
  }
  auto value = content ? parse(content->text, storeName) : json::object();
  if (!value.is_object()) throw Failure(0, fmt::format("{} is not a JSON object", storeName));
  values_ = std::move(value.get_object());
  state_ = state;
}

void PreferencesStore::readProjected() {
  auto content = folder_.read(projectedName).value();
  auto list = content ? parse(content->text, projectedName) : json::array();
  auto services = json::try_value_to<std::set<std::string>>(list);
  if (!services) throw Failure(0, fmt::format("{} is not a list of texts", projectedName));
  projected_ = std::move(*services);
}

json::object& PreferencesStore::values() {
  if (!values_) read();
  return *values_;
}

Result<void> PreferencesStore::set(const std::string& path, const json::value& value) {
  // A stored infinity would prevent every later write.
  if (!isFiniteJSON(value)) return Failure(0, fmt::format("{} would hold a number that is too large", path));
  return attempt([&] {
    auto keys = keysOf(path);
    auto* object = &values();
    for (auto key = keys.begin(); key != keys.end() - 1; ++key) {
      auto& next = object->emplace(*key, json::object()).first->value();
      if (!next.is_object()) throw Failure(0, fmt::format("\"{}\" of {} is not an object", *key, path));
      object = &next.get_object();
    }
    object->insert_or_assign(keys.back(), value);
    isChanged_ = true;
  });
}

Result<void> PreferencesStore::commit() {
  if (!isLocked_) return Failure(0, "The network preferences are not locked");
  if (!isChanged_) return {};
  return attempt([this] {
    auto text = serializeExactJSON(*values_);
    if (text.size() > PrivateFolder::maximumSize) {
      removeEmpty(*values_);
      text = serializeExactJSON(*values_);
    }
    parse(text, "The new content");  // throws before a store that cannot be read would replace the old one
    state_ = folder_.replace(storeName, text).value();
    isChanged_ = false;
  });
}

void PreferencesStore::forget() {
  values_.reset();
  isChanged_ = false;
}

Result<const json::value*> PreferencesStore::find(const std::string& path) {
  return attempt([&]() -> const json::value* {
    const json::value* value = nullptr;
    const auto* object = &values();
    for (auto key : keysOf(path)) {
      value = object ? object->if_contains(key) : nullptr;
      if (!value) return nullptr;
      object = value->if_object();
    }
    return value;
  });
}

Result<void> PreferencesStore::setProjectedServices(std::set<std::string> services) {
  auto replaced = folder_.replace(projectedName, json::serialize(json::value_from(services)));
  if (!replaced) return replaced.error();
  projected_ = std::move(services);
  return {};
}

}  // namespace platform
