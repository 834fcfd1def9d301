#include "foundation/HXJSON.h"

#include <boost/json.hpp>
#include <stdexcept>

#include "foundation/HXLog.h"
#include "platform/base/exact_json.h"
#include "platform/base/utf8.h"

namespace json = boost::json;

namespace {

constexpr char moduleName[] = "JSONHelper";

}  // namespace

std::shared_ptr<const json::value> HX_JSONObject(const HXData& data) {
  if (auto cached = data.cachedJSON()) return cached;
  auto parsed = HX_JSONObjectWithMutableContainers(data);
  if (!parsed) return nullptr;
  return data.cacheJSON(std::make_shared<const json::value>(std::move(*parsed)));
}

std::shared_ptr<const json::value> HX_JSONObject(std::string_view text) {
  return HX_JSONObject(HXData(text));
}

std::optional<json::value> HX_JSONObjectWithMutableContainers(const HXData& data) {
  return HX_JSONObjectWithMutableContainers(data.view());
}

std::optional<json::value> HX_JSONObjectWithMutableContainers(std::string_view text) {
  auto parsed = platform::parseExactJSON(text, HXJSONMaximumDepth);
  if (!parsed || !(parsed->is_object() || parsed->is_array())) return std::nullopt;
  return std::move(*parsed);
}

std::optional<std::string> HX_JSONData(const json::value& value) {
  if (!(value.is_object() || value.is_array()) || !platform::isFiniteJSON(value)) {
    auto kind = json::to_string(value.kind());
    HXLog(moduleName, "Not a valid JSON object: {}", std::string_view(kind.data(), kind.size()));
    return std::nullopt;
  }
  try {
    auto text = platform::serializeExactJSON(value);
    if (!platform::isUTF8(text)) throw std::invalid_argument("a text is not UTF-8");
    return text;
  } catch (const std::exception& error) {
    HXLog(moduleName, "Error occered when JSON serializate object to NSData: {}", error.what());
    return std::nullopt;
  }
}

std::optional<std::string> HX_JSONString(const json::value& value) {
  return HX_JSONData(value);
}
