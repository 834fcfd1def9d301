#include "foundation/HXByteCount.h"

#include <fmt/format.h>

std::string stringFromByteCount(std::uint64_t byteCount) {
  auto number = static_cast<double>(byteCount);
  if (byteCount < 1000) return fmt::format("{:.0f} B", number);
  if ((number /= 1000) < 1000) return fmt::format("{:.0f} KB", number);
  if ((number /= 1000) < 1000) return fmt::format("{:.1f} MB", number);
  if ((number /= 1000) < 1000) return fmt::format("{:.2f} GB", number);
  return fmt::format("{:.2f} TB", number / 1000);
}

std::string stringFromByteCount(std::uint64_t byteCount, std::size_t maxNumberCharacterCount) {
  auto number = static_cast<double>(byteCount) / 1000;
  if (number < 1000) return fmt::format("{:.0f} KB", number);
  if ((number /= 1000) < 1000) return stringWithDouble(number, maxNumberCharacterCount) + " MB";
  if ((number /= 1000) < 1000) return stringWithDouble(number, maxNumberCharacterCount) + " GB";
  return stringWithDouble(number / 1000, maxNumberCharacterCount) + " TB";
}

std::string stringWithDouble(double number, std::size_t maxCharacter) {
  if (auto text = fmt::format("{:.2f}", number); text.size() <= maxCharacter) return text;
  if (auto text = fmt::format("{:.1f}", number); text.size() <= maxCharacter) return text;
  return fmt::format("{:.0f}", number);
}

std::string speedStringFromByteCount(std::uint64_t byteCount) {
  return stringFromByteCount(byteCount) + "/s";
}
