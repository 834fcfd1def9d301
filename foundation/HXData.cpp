#include "foundation/HXData.h"

#include <boost/algorithm/hex.hpp>
#include <cstdlib>
#include <iterator>
#include <optional>

namespace {

std::optional<int> digitValue(char character) {
  if (character >= '0' && character <= '9') return character - '0';
  if (character >= 'a' && character <= 'f') return character - 'a' + 10;
  if (character >= 'A' && character <= 'F') return character - 'A' + 10;
  return std::nullopt;
}

}  // namespace

HXData BR_dataWithBytesNoCopy(void* bytes, std::size_t length, bool freeWhenDone) {
  std::shared_ptr<const void> owner;
  if (freeWhenDone) owner = std::shared_ptr<void>(bytes, std::free);
  return HXData({static_cast<const std::uint8_t*>(bytes), bytes ? length : 0}, std::move(owner));
}

std::string hexadecimalString(std::span<const std::uint8_t> data) {
  std::string text;
  text.reserve(data.size() * 2);
  boost::algorithm::hex_lower(data.begin(), data.end(), std::back_inserter(text));
  return text;
}

std::vector<std::uint8_t> dataWithHEXString(std::string_view text) {
  std::vector<std::uint8_t> data;
  for (std::size_t index = 0; index + 1 < text.size();) {
    auto high = digitValue(text[index++]);
    if (!high) continue;
    if (auto low = digitValue(text[index++])) data.push_back(static_cast<std::uint8_t>(*high * 16 + *low));
  }
  return data;
}

std::string HX_MD5(std::span<const std::uint8_t> data) {
  return hexadecimalString(platform::md5(data));
}

platform::SHA256Digest HX_SHA256(std::span<const std::uint8_t> data) {
  platform::SHA256 digest;
  digest.update(data);
  return digest.finish();
}
