#include "platform/network_settings/darwin/property_list.h"

#include <boost/json.hpp>
#include <cmath>
#include <utility>
#include <vector>

namespace platform {

namespace json = boost::json;

namespace {

CFOwner<CFTypeRef> number(std::int64_t value) {
  return CFOwner<CFTypeRef>(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &value));
}

CFOwner<CFTypeRef> number(double value) {
  return CFOwner<CFTypeRef>(CFNumberCreate(kCFAllocatorDefault, kCFNumberFloat64Type, &value));
}

CFOwner<CFTypeRef> listOf(const json::array& array) {
  CFOwner<CFMutableArrayRef> list(CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks));
  for (const auto& element : array) {
    const auto object = propertyList(element);
    if (!object) return nullptr;
    CFArrayAppendValue(list.get(), object.get());
  }
  return list;
}

CFOwner<CFTypeRef> dictionaryOf(const json::object& members) {
  CFOwner<CFMutableDictionaryRef> dictionary(CFDictionaryCreateMutable(
      kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  for (const auto& member : members) {
    const auto key = makeString(member.key());
    const auto object = propertyList(member.value());
    if (!key || !object) return nullptr;
    CFDictionarySetValue(dictionary.get(), key.get(), object.get());
  }
  return dictionary;
}

std::optional<json::value> valueOf(CFNumberRef number) {
  if (CFNumberIsFloatType(number)) {
    double value;
    if (CFNumberGetValue(number, kCFNumberFloat64Type, &value)) return value;
  } else {
    std::int64_t value;
    if (CFNumberGetValue(number, kCFNumberSInt64Type, &value)) return value;
  }
  return std::nullopt;
}

std::optional<json::value> arrayOf(CFArrayRef list) {
  json::array array;
  for (CFIndex index = 0; index < CFArrayGetCount(list); ++index) {
    auto element = jsonValue(CFArrayGetValueAtIndex(list, index));
    if (!element) return std::nullopt;
    array.push_back(std::move(*element));
  }
  return array;
}

std::optional<json::value> objectOf(CFDictionaryRef dictionary) {
  const auto count = static_cast<std::size_t>(CFDictionaryGetCount(dictionary));
  std::vector<const void*> keys(count), values(count);
  CFDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());
  json::object object;
  for (std::size_t index = 0; index < count; ++index) {
    auto value = jsonValue(values[index]);
    if (!value || CFGetTypeID(keys[index]) != CFStringGetTypeID()) return std::nullopt;
    object.emplace(textOf(static_cast<CFStringRef>(keys[index])), std::move(*value));
  }
  return object;
}

}  // namespace

CFOwner<CFTypeRef> propertyList(const json::value& value) {
  switch (value.kind()) {
    case json::kind::null:
      return nullptr;
    case json::kind::bool_:
      return CFOwner<CFTypeRef>(CFRetain(value.get_bool() ? kCFBooleanTrue : kCFBooleanFalse));
    case json::kind::int64:
      return number(value.get_int64());
    case json::kind::uint64:
      if (value.get_uint64() > INT64_MAX) return nullptr;
      return number(static_cast<std::int64_t>(value.get_uint64()));
    case json::kind::double_:
      return std::isfinite(value.get_double()) ? number(value.get_double()) : nullptr;
    case json::kind::string:
      return makeString(value.get_string());
    case json::kind::array:
      return listOf(value.get_array());
    case json::kind::object:
      return dictionaryOf(value.get_object());
  }
  return nullptr;
}

std::optional<json::value> jsonValue(CFTypeRef object) {
  const auto type = CFGetTypeID(object);
  if (type == CFBooleanGetTypeID()) return json::value(CFBooleanGetValue(static_cast<CFBooleanRef>(object)) != 0);
  if (type == CFNumberGetTypeID()) return valueOf(static_cast<CFNumberRef>(object));
  if (type == CFStringGetTypeID()) return json::value(textOf(static_cast<CFStringRef>(object)));
  if (type == CFArrayGetTypeID()) return arrayOf(static_cast<CFArrayRef>(object));
  if (type == CFDictionaryGetTypeID()) return objectOf(static_cast<CFDictionaryRef>(object));
  return std::nullopt;
}

}  // namespace platform
