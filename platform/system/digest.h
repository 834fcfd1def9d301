// Message digests.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <span>

namespace platform {

using MD5Digest = std::array<std::uint8_t, 16>;
using SHA256Digest = std::array<std::uint8_t, 32>;

/// The MD5 digest (RFC 1321) of the bytes.
MD5Digest md5(std::span<const std::uint8_t> bytes);

/// Computes a SHA-256 digest (FIPS 180-4) piece by piece.
class SHA256 {
 public:
  SHA256();
  ~SHA256();
  SHA256(const SHA256&) = delete;
  SHA256& operator=(const SHA256&) = delete;

  void update(std::span<const std::uint8_t> bytes);

  /// The digest of all bytes so far. The object must not be used afterwards.
  SHA256Digest finish();

 private:
  void* context_;
};

}  // namespace platform
