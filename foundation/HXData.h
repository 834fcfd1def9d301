// Immutable data with a cached JSON value, and digests and hexadecimal text of data.
#pragma once

#include <boost/json/value.hpp>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/system/digest.h"

/// Immutable bytes, with a slot for the JSON value parsed from them (see HX_JSONObject()). Any thread.
class HXData {
 public:
  explicit HXData(std::vector<std::uint8_t> bytes)
      : HXData(std::make_shared<const std::vector<std::uint8_t>>(std::move(bytes))) {}
  explicit HXData(std::string_view text) : HXData(std::vector<std::uint8_t>(text.begin(), text.end())) {}

  /// Refers to bytes without copying them, and keeps `owner`, which may be null, alive. The bytes must stay valid and
  /// unchanged as long as this object lives.
  HXData(std::span<const std::uint8_t> bytes, std::shared_ptr<const void> owner)
      : owner_(std::move(owner)), bytes_(bytes) {}

  std::span<const std::uint8_t> bytes() const { return bytes_; }
  std::string_view view() const { return {reinterpret_cast<const char*>(bytes_.data()), bytes_.size()}; }

  std::shared_ptr<const boost::json::value> cachedJSON() const {
    std::lock_guard lock(mutex_);
    return json_;
  }
  /// Stores the value unless one is already stored; returns the stored one.
  std::shared_ptr<const boost::json::value> cacheJSON(std::shared_ptr<const boost::json::value> value) const {
    std::lock_guard lock(mutex_);
    if (!json_) json_ = std::move(value);
    return json_;
  }

 private:
  explicit HXData(const std::shared_ptr<const std::vector<std::uint8_t>>& bytes) : HXData(std::span(*bytes), bytes) {}

  const std::shared_ptr<const void> owner_;
  const std::span<const std::uint8_t> bytes_;
  mutable std::mutex mutex_;
  mutable std::shared_ptr<const boost::json::value> json_;
};

/// Wraps a buffer without copying it. The buffer must not change while the data lives. With `freeWhenDone` the buffer
/// must come from malloc(), and the data frees it when destroyed. A null pointer gives empty data.
HXData BR_dataWithBytesNoCopy(void* bytes, std::size_t length, bool freeWhenDone);

/// Two lower-case hexadecimal digits for each byte, without separators.
std::string hexadecimalString(std::span<const std::uint8_t> data);

/// Reads pairs of hexadecimal digits of either case. Characters before the first digit of a pair are skipped. A digit
/// followed by anything but a digit is dropped together with that character, and so is a lone digit at the end:
/// "0A:1b:zz:3" gives the bytes 0x0A and 0x1B.
std::vector<std::uint8_t> dataWithHEXString(std::string_view text);

/// The MD5 digest (RFC 1321) as 32 lower-case hexadecimal digits. It is no protection against forgery.
std::string HX_MD5(std::span<const std::uint8_t> data);

/// The SHA-256 digest (FIPS 180-4), as bytes.
platform::SHA256Digest HX_SHA256(std::span<const std::uint8_t> data);
