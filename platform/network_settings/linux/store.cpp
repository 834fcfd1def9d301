#include "platform/network_settings/linux/store.h"

#include <fmt/format.h>
#include <sys/file.h>

#include <boost/json.hpp>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "platform/base/exact_json.h"

namespace platform {

namespace json = boost::json;

namespace {

constexpr char storeName[] = "preferences.json", lockName[] = "preferences.lock", projectedName[] = "projected.json";

// A value of a request is at most 512 deep, so all can be read again.
constexpr std::size_t maximumPathDepth = 64, maximumDepth = 1024;

std::vector<std::string_view> keysOf(std::string_view path) {
  std::vector<std::string_view> keys;
  while (path.starts_with('/') && keys.size() < maximumPathDepth) {
    path.remove_prefix(1);
    keys.push_back(path.substr(0, path.find('/')));
    path.remove_prefix(keys.back().size());
  }
  if (keys.empty() || !path.empty()) throw std::invalid_argument("Not a path of the network preferences");
  return keys;
}

json::value parse(const std::string& text, const char* name) {
  boost::system::error_code error;
  auto value = parseExactJSON(text, maximumDepth, error);
  if (error) throw std::runtime_error(fmt::format("{} is not JSON: {}", name, error.message()));
  if (!isFiniteJSON(value)) throw std::runtime_error(fmt::format("{} holds a number that is too large", name));
  return value;
}

bool isSameState(const std::optional<struct stat>& one, const std::optional<struct stat>& other) {
  if (!one || !other) return !one && !other;
  auto same = [](const timespec& a, const timespec& b) { return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec; };
  return one->st_dev == other->st_dev && one->st_ino == other->st_ino && one->st_size == other->st_size &&
         same(one->st_mtim, other->st_mtim) && same(one->st_ctim, other->st_ctim);
}

}  // namespace

PreferencesStore::PreferencesStore(const std::string& folder)
    : folder_(folder), lockFile_(folder_.openLockFile(lockName)) {}

void PreferencesStore::lock(bool wait) {
  if (locked_) return;
  while (flock(lockFile_.get(), wait ? LOCK_EX : LOCK_EX | LOCK_NB) != 0) {
    if (errno != EINTR) throw std::system_error(errno, std::generic_category(), lockName);
  }
  locked_ = true;
  try {
    read();
    auto projected = folder_.read(projectedName);
    projected_.clear();
    if (projected) projected_ = json::value_to<std::set<std::string>>(parse(projected->text, projectedName));
  } catch (...) {
    unlock();
    throw;
  }
}

void PreferencesStore::unlock() {
  if (locked_) flock(lockFile_.get(), LOCK_UN);
  locked_ = false;
}

// The first time the values, from then on only whether they still are those.
void PreferencesStore::read() {
  auto content = folder_.read(storeName);
  auto state = content ? std::make_optional(content->status) : std::nullopt;
  if (values_) {
    if (!isSameState(state, state_)) throw std::runtime_error("The network preferences have changed meanwhile");
    return;
  }
  auto value = content ? parse(content->text, storeName) : json::object();
  if (!value.is_object()) throw std::runtime_error(fmt::format("{} is not a JSON object", storeName));
  values_ = std::move(value.get_object());
  state_ = state;
}

json::object& PreferencesStore::values() {
  if (!values_) read();
  return *values_;
}

void PreferencesStore::set(const std::string& path, const json::value& value) {
  // It would keep everything else from being written as well.
  if (!isFiniteJSON(value)) throw std::invalid_argument(fmt::format("{} would hold a number that is too large", path));
  auto keys = keysOf(path);
  auto* object = &values();
  for (auto key = keys.begin(); key != keys.end() - 1; ++key) {
    auto& next = object->emplace(*key, json::object()).first->value();
    if (!next.is_object()) throw std::invalid_argument(fmt::format("\"{}\" of {} is no object", *key, path));
    object = &next.get_object();
  }
  object->insert_or_assign(keys.back(), value);
  changed_ = true;
}

void PreferencesStore::commit() {
  if (!locked_) throw std::logic_error("The network preferences are not locked");
  if (!changed_) return;
  auto text = serializeExactJSON(*values_);
  parse(text, "What was set");  // a store that could not be read again would be lost
  state_ = folder_.replace(storeName, text);
  changed_ = false;
}

void PreferencesStore::forget() {
  values_.reset();
  state_.reset();
  changed_ = false;
}

const json::value* PreferencesStore::find(const std::string& path) {
  const json::value* value = nullptr;
  const auto* object = &values();
  for (auto key : keysOf(path)) {
    value = object ? object->if_contains(key) : nullptr;
    if (!value) return nullptr;
    object = value->if_object();
  }
  return value;
}

void PreferencesStore::setProjectedServices(std::set<std::string> services) {
  folder_.replace(projectedName, json::serialize(json::value_from(services)));
  projected_ = std::move(services);
}

}  // namespace platform
