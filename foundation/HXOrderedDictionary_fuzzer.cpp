// Serialised dictionaries and JSON texts of anybody: both ways of parsing agree, and what is read can be written and
// reads back the same.
#include <cstdlib>

#include "foundation/HXJSON.h"
#include "foundation/HXLog.h"
#include "foundation/HXOrderedDictionary.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  HXSetLogEnabled(false);
  std::string_view text(reinterpret_cast<const char*>(bytes), size);
  auto fixed = HX_JSONObject(text);
  auto own = HX_JSONObjectWithMutableContainers(text);
  if (static_cast<bool>(fixed) != own.has_value()) std::abort();
  // Compared as texts: a number too large for a double has none, and does not matter.
  if (own && HX_JSONString(*own) != HX_JSONString(*fixed)) std::abort();

  auto dictionary = HXMutableOrderedDictionary::initWithSerializationData(text);
  if (!dictionary) return 0;
  for (std::size_t index = 0; index < dictionary->count(); ++index) {
    if (dictionary->objectAtIndex(index) != dictionary->objectForKey(dictionary->keyAtIndex(index))) std::abort();
  }
  if (dictionary->sortedValues().size() != dictionary->count()) std::abort();
  dictionary->description();
  dictionary->equationLinesWithSeparator(", ");
  if (auto data = dictionary->serializationData()) {
    auto again = HXOrderedDictionary::initWithSerializationData(*data);
    if (!again || again->serializationData() != data) std::abort();
  }
  auto keys = dictionary->sortedKeys();
  dictionary->reverseAllKeys();
  for (const auto& key : keys) dictionary->removeObjectForKey(key);
  if (dictionary->count() != 0) std::abort();
  return 0;
}
