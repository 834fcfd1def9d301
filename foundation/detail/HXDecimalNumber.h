// Decimal numbers in texts.
#pragma once

#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>

namespace hx::detail {

/// The value of one or more decimal digits and nothing else; absent for other texts and from 2^32 on.
inline std::optional<std::uint32_t> decimalNumber(std::string_view text) {
  std::uint32_t number = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

}  // namespace hx::detail
