// An immutable piece of data that remembers what it was parsed to.
#pragma once

#include <boost/json/value.hpp>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string_view>
#include <vector>

/// Holds bytes that never change, and a slot for the JSON value that they were found to be; see HX_JSONObject(). Any
/// thread.
class HXData {
 public:
  explicit HXData(std::vector<std::uint8_t> bytes) : bytes_(std::move(bytes)) {}
  explicit HXData(std::string_view text) : bytes_(text.begin(), text.end()) {}

  std::span<const std::uint8_t> bytes() const { return bytes_; }
  std::string_view view() const { return {reinterpret_cast<const char*>(bytes_.data()), bytes_.size()}; }

  std::shared_ptr<const boost::json::value> cachedJSON() const {
    std::lock_guard lock(mutex_);
    return json_;
  }
  void cacheJSON(std::shared_ptr<const boost::json::value> value) const {
    std::lock_guard lock(mutex_);
    json_ = std::move(value);
  }

 private:
  const std::vector<std::uint8_t> bytes_;
  mutable std::mutex mutex_;
  mutable std::shared_ptr<const boost::json::value> json_;
};
