#include "foundation/HXOrderedDictionary.h"

#include <algorithm>
#include <boost/json/array.hpp>

#include "foundation/HXEnumerationMutation.h"
#include "foundation/HXEquationLine.h"
#include "foundation/HXJSON.h"
#include "foundation/detail/HXUnicode.h"
#include "platform/base/exact_json.h"

namespace json = boost::json;

namespace {

std::string text(const json::value& value) {
  const auto* string = value.if_string();
  return string ? std::string(string->data(), string->size()) : platform::serializeExactJSON(value);
}

std::string quotedIf(bool quoted, const std::string& text) {
  return quoted ? '"' + text + '"' : text;
}

}  // namespace

HXOrderedDictionary HXOrderedDictionary::initWithObjects(const std::vector<json::value>& objects,
                                                         std::vector<std::string> keys) {
  json::object dictionary;
  for (std::size_t index = 0; index < std::min(objects.size(), keys.size()); ++index) {
    dictionary.insert_or_assign(keys[index], objects[index]);
  }
  return {std::move(keys), std::move(dictionary)};
}

HXOrderedDictionary HXOrderedDictionary::initWithDictionary(const json::object& dictionary) {
  std::vector<std::string> keys;
  for (const auto& member : dictionary) keys.emplace_back(member.key());
  return {std::move(keys), dictionary};
}

std::optional<HXOrderedDictionary> HXOrderedDictionary::initWithSerializationData(std::string_view data) {
  auto parsed = HX_JSONObjectWithMutableContainers(data);
  auto* pair = parsed ? parsed->if_array() : nullptr;
  if (!pair || pair->size() != 2 || !(*pair)[0].is_array() || !(*pair)[1].is_object()) return std::nullopt;
  std::vector<std::string> keys;
  for (const auto& key : (*pair)[0].get_array()) {
    if (!key.is_string()) return std::nullopt;
    keys.push_back(text(key));
  }
  return HXOrderedDictionary(std::move(keys), std::move((*pair)[1].get_object()));
}

HXMutableOrderedDictionary HXOrderedDictionary::mutableCopyWithZone() const {
  return HXMutableOrderedDictionary(*this);
}

const json::value& HXOrderedDictionary::objectOrNull(const std::string& key) const {
  static const json::value null;
  const auto* object = objectForKey(key);
  return object ? *object : null;
}

std::vector<json::value> HXOrderedDictionary::sortedValues() const {
  std::vector<json::value> values;
  values.reserve(_array.size());
  for (const auto& key : _array) values.push_back(objectOrNull(key));
  return values;
}

std::function<const std::string*()> HXOrderedDictionary::keyEnumerator() const {
  return [this, index = std::size_t{0}]() mutable { return index < _array.size() ? &_array[index++] : nullptr; };
}

std::function<const json::value*()> HXOrderedDictionary::objectEnumerator() const {
  return [this, index = std::size_t{0}]() mutable {
    return index < _dictionary.size() ? &(_dictionary.begin() + index++)->value() : nullptr;
  };
}

std::string HXOrderedDictionary::description() const {
  std::string lines = "{\n";
  for (const auto& key : _array) lines += "    " + key + " = " + text(objectOrNull(key)) + '\n';
  return lines + '}';
}

HXOrderedDictionary::HXOrderedDictionary(std::vector<std::string> keys, json::object dictionary)
    : _array(std::move(keys)), _dictionary(std::move(dictionary)) {
  mayLackEntries_ =
      _array.size() != _dictionary.size() ||
      !std::all_of(_array.begin(), _array.end(), [this](const auto& key) { return _dictionary.contains(key); });
}

std::optional<std::string> HXOrderedDictionary::serializationData() const {
  return HX_JSONData(json::array{json::array(_array.begin(), _array.end()), _dictionary});
}

std::string HXOrderedDictionary::equationLinesWithSeparator(std::string_view separator) const {
  auto mark = hx::detail::trimmed(separator);
  auto isMarked = [mark](std::string_view text) { return !mark.empty() && text.find(mark) != std::string_view::npos; };
  std::string lines;
  bool isFirst = true;
  for (const auto& key : _array) {
    const auto& object = objectOrNull(key);
    auto objectText = text(object);
    if (!std::exchange(isFirst, false)) lines += separator;
    lines += quotedIf(isMarked(key), key) + '=' + quotedIf(object.is_string() && isMarked(objectText), objectText);
  }
  return lines;
}

void HXOrderedDictionary::enumerateKeysAndObjectsUsingBlock(const EnumerationBlock& block, bool reverse) const {
  if (!block) return;
  const auto size = _array.size();
  const auto changes = orderChanges_.count();
  bool stop = false;
  for (std::size_t index = 0; index < size && !stop; ++index) {
    if (orderChanges_.count() != changes) throw HXEnumerationMutation();
    const auto& key = _array[reverse ? size - 1 - index : index];
    block(key, index, objectOrNull(key), stop);
  }
}

HXMutableOrderedDictionary HXMutableOrderedDictionary::initWithCapacity(std::size_t capacity) {
  HXMutableOrderedDictionary dictionary;
  // The capacity is only a hint; a huge one must not exhaust memory.
  capacity = std::min<std::size_t>(capacity, 65'536);
  dictionary._array.reserve(capacity);
  dictionary._dictionary.reserve(capacity);
  return dictionary;
}

HXMutableOrderedDictionary HXMutableOrderedDictionary::initWithObjects(const std::vector<json::value>& objects,
                                                                       std::vector<std::string> keys) {
  return HXMutableOrderedDictionary(HXOrderedDictionary::initWithObjects(objects, std::move(keys)));
}

HXMutableOrderedDictionary HXMutableOrderedDictionary::initWithDictionary(const json::object& dictionary) {
  return HXMutableOrderedDictionary(HXOrderedDictionary::initWithDictionary(dictionary));
}

std::optional<HXMutableOrderedDictionary> HXMutableOrderedDictionary::initWithSerializationData(std::string_view data) {
  auto read = HXOrderedDictionary::initWithSerializationData(data);
  if (!read) return std::nullopt;
  return HXMutableOrderedDictionary(std::move(*read));
}

bool HXMutableOrderedDictionary::isEqual(const HXOrderedDictionary& other) const {
  return dynamic_cast<const HXMutableOrderedDictionary*>(&other) && isEqualToDictionary(other);
}

void HXMutableOrderedDictionary::setObject(std::optional<json::value> object, std::string_view key) {
  if (!object) return removeObjectForKey(key);
  if (_dictionary.insert_or_assign(key, std::move(*object)).second) {
    if (mayLackEntries_ && std::find(_array.begin(), _array.end(), key) != _array.end()) return;
    _array.emplace_back(key);
    ++orderChanges_;
  }
}

void HXMutableOrderedDictionary::addEntriesFromDictionary(const json::object& dictionary) {
  for (const auto& member : dictionary) setObject(member.value(), member.key());
}

void HXMutableOrderedDictionary::removeObjectForKey(std::string_view key) {
  // A copy, because `key` may refer to an element of _array.
  const std::string removed(key);
  _dictionary.erase(removed);
  if (std::erase(_array, removed) != 0) ++orderChanges_;
}

void HXMutableOrderedDictionary::removeObjectAtIndex(std::size_t index) {
  _dictionary.erase(_array.at(index));
  _array.erase(_array.begin() + static_cast<std::ptrdiff_t>(index));
  ++orderChanges_;
}

void HXMutableOrderedDictionary::replaceObjectAtIndex(std::size_t index, json::value object, std::string_view key) {
  auto& place = _array.at(index);
  if (std::string newKey(key); newKey != place) {
    // _array is searched only if the key can be in it, so that the usual case takes constant time.
    auto earlier = mayLackEntries_ || _dictionary.contains(newKey) ? std::find(_array.begin(), _array.end(), newKey)
                                                                   : _array.end();
    _dictionary.erase(place);
    _dictionary.insert_or_assign(newKey, std::move(object));
    place = std::move(newKey);
    if (earlier != _array.end()) _array.erase(earlier);
    ++orderChanges_;
  } else {
    _dictionary.insert_or_assign(newKey, std::move(object));
  }
}

void HXMutableOrderedDictionary::sortUsingSelector(
    const std::function<std::weak_ordering(const std::string&, const std::string&)>& comparator) {
  if (!comparator) return;
  // Sorts a copy, because a comparison may throw or read this dictionary.
  auto sorted = _array;
  std::stable_sort(sorted.begin(), sorted.end(),
                   [&](const auto& key1, const auto& key2) { return comparator(key1, key2) < 0; });
  _array = std::move(sorted);
  ++orderChanges_;
}

void HXMutableOrderedDictionary::sortWithOptions(
    HXSortOptions, const std::function<std::weak_ordering(const std::string&, const std::string&, const json::value&,
                                                          const json::value&)>& comparator) {
  if (!comparator) return;
  sortUsingSelector([&](const std::string& key1, const std::string& key2) {
    return comparator(key1, key2, objectOrNull(key1), objectOrNull(key2));
  });
}

void HXMutableOrderedDictionary::reverseAllKeys() {
  std::reverse(_array.begin(), _array.end());
  ++orderChanges_;
}

void HXMutableOrderedDictionary::importEquationLines(const std::vector<std::string>& lines) {
  for (const auto& line : lines) {
    if (auto equation = hx::splitEquationLine(line)) setObject(json::value(equation->value), equation->key);
  }
}
