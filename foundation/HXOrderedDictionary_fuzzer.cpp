// Serialised dictionaries and JSON texts of anybody: both ways of parsing agree, and what is read can be written and
// keeps its keys.
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
  auto keys = dictionary->sortedKeys();
  if (auto data = dictionary->serializationData()) {
    // Not the objects: numbers may lose their last digit on the way.
    auto again = HXOrderedDictionary::initWithSerializationData(*data);
    if (!again || again->sortedKeys() != keys || again->dictionary().size() != dictionary->dictionary().size())
      std::abort();
  }
  dictionary->reverseAllKeys();
  for (const auto& key : keys) dictionary->removeObjectForKey(key);
  if (dictionary->count() != 0) std::abort();
  return 0;
}
