#include "platform/ipc/darwin/values.h"

#include <cstdlib>

#include "platform/base/utf8.h"

namespace platform::ipc {

namespace {

std::optional<Value> valueOf(xpc_object_t object) {
  auto type = xpc_get_type(object);
  if (type == XPC_TYPE_STRING) {
    std::string text(xpc_string_get_string_ptr(object), xpc_string_get_length(object));
    return isUTF8(text) ? std::make_optional<Value>(std::move(text)) : std::nullopt;
  }
  if (type == XPC_TYPE_DATA) {
    const auto* bytes = static_cast<const std::uint8_t*>(xpc_data_get_bytes_ptr(object));
    return Data(bytes, bytes + xpc_data_get_length(object));
  }
  if (type == XPC_TYPE_BOOL) return xpc_bool_get_value(object);
  if (type == XPC_TYPE_INT64) return xpc_int64_get_value(object);
  return std::nullopt;
}

/// Sets a value of any type.
struct Setter {
  xpc_object_t message;
  const char* key;
  void operator()(const std::string& text) const { xpc_dictionary_set_string(message, key, text.c_str()); }
  void operator()(const Data& data) const {
    // Null pointers are not accepted, even for empty data.
    xpc_dictionary_set_data(message, key, data.empty() ? "" : static_cast<const void*>(data.data()), data.size());
  }
  void operator()(bool value) const { xpc_dictionary_set_bool(message, key, value); }
  void operator()(std::int64_t value) const { xpc_dictionary_set_int64(message, key, value); }
};

}  // namespace

Dictionary dictionaryOf(xpc_object_t message) {
  Dictionary dictionary;
  auto* result = &dictionary;
  xpc_dictionary_apply(message, ^bool(const char* key, xpc_object_t object) {
    if (auto value = valueOf(object); value && isUTF8(key)) result->set(key, std::move(*value));
    return true;
  });
  return dictionary;
}

void setValues(xpc_object_t message, const Dictionary& dictionary) {
  for (const auto& [key, value] : dictionary) std::visit(Setter{message, key.c_str()}, value);
}

std::string descriptionOf(xpc_object_t object) {
  std::unique_ptr<char, decltype(&std::free)> text(xpc_copy_description(object), &std::free);
  return text.get();
}

}  // namespace platform::ipc
