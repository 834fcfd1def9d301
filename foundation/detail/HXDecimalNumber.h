// Decimal numbers in texts.
#pragma once

#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>

namespace hx::detail {

/// The value of a text of decimal digits; absent if the text is empty or contains anything but digits, or if the value
/// is 2^32 or more.
inline std::optional<std::uint32_t> decimalNumber(std::string_view text) {
  std::uint32_t number = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

}  // namespace hx::detail
