// The typed dictionary that IPC messages carry.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace platform::ipc {

using Data = std::vector<std::uint8_t>;

/// A value of a message. Text is valid UTF-8.
using Value = std::variant<std::string, Data, bool, std::int64_t>;

/// Maps keys to typed values.
class Dictionary {
 public:
  Dictionary() = default;
  Dictionary(std::initializer_list<std::pair<const std::string, Value>> values) : values_(values) {}

  /// The value of a key; null if there is none or it has another type. Valid until the dictionary changes.
  template <class Type>
  const Type* get(std::string_view key) const {
    auto found = values_.find(key);
    return found == values_.end() ? nullptr : std::get_if<Type>(&found->second);
  }

  void set(std::string key, Value value) { values_.insert_or_assign(std::move(key), std::move(value)); }

  bool contains(std::string_view key) const { return values_.find(key) != values_.end(); }
  std::size_t size() const { return values_.size(); }
  auto begin() const { return values_.begin(); }
  auto end() const { return values_.end(); }
  bool operator==(const Dictionary&) const = default;

 private:
  std::map<std::string, Value, std::less<>> values_;
};

}  // namespace platform::ipc
