// Immutable data that remembers what it was parsed to; digests and hexadecimal text of data.
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

/// Holds bytes that never change, and a slot for the JSON value that they were found to be; see HX_JSONObject(). Any
/// thread.
class HXData {
 public:
  explicit HXData(std::vector<std::uint8_t> bytes)
      : HXData(std::make_shared<const std::vector<std::uint8_t>>(std::move(bytes))) {}
  explicit HXData(std::string_view text) : HXData(std::vector<std::uint8_t>(text.begin(), text.end())) {}

  /// Refers to bytes of somebody else, which live at least as long as `owner`.
  HXData(std::span<const std::uint8_t> bytes, std::shared_ptr<const void> owner)
      : owner_(std::move(owner)), bytes_(bytes) {}

  std::span<const std::uint8_t> bytes() const { return bytes_; }
  std::string_view view() const { return {reinterpret_cast<const char*>(bytes_.data()), bytes_.size()}; }

  std::shared_ptr<const boost::json::value> cachedJSON() const {
    std::lock_guard lock(mutex_);
    return json_;
  }
  /// Keeps the value, unless one is kept already; returns the one that is kept.
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

/// Wraps the caller's buffer without a copy; it must not change while the data lives. With freeWhenDone the buffer is
/// from malloc(), and the data frees it when it is destroyed. A null pointer gives empty data.
HXData BR_dataWithBytesNoCopy(void* bytes, std::size_t length, bool freeWhenDone);

/// Two lower-case digits a byte, nothing between them.
std::string hexadecimalString(std::span<const std::uint8_t> data);

/// Reads pairs of hexadecimal digits of either case. What stands before a pair's first digit is passed over; a digit
/// that something else than a digit follows is dropped together with what follows it, as is one at the very end:
/// "0A:1b:zz:3" gives the bytes 0x0A and 0x1B.
std::vector<std::uint8_t> dataWithHEXString(std::string_view text);

/// The MD5 digest (RFC 1321) as 32 lower-case hexadecimal digits. No protection against forgery.
std::string HX_MD5(std::span<const std::uint8_t> data);

/// The SHA-256 digest, raw.
platform::SHA256Digest HX_SHA256(std::span<const std::uint8_t> data);
