// The frames of the Linux endpoint: a length of four bytes, big-endian, then one CBOR item (RFC 8949), the array [id,
// dictionary]. docs/protocol.md describes them for clients.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "platform/ipc/dictionary.h"

namespace platform::ipc {

inline constexpr std::size_t maximumFrameLength = 16'777'216;  // bytes, without the four of the length

struct Frame {
  std::uint64_t id = 0;  ///< 0 if no reply is wanted
  Dictionary dictionary;
};

/// The bytes of a frame, including its length; absent if it would be too long.
std::optional<Data> encodeFrame(const Frame& frame);

/// Decodes a frame without its length. Absent unless the bytes are exactly one well-formed item of the documented form,
/// nested at most 8 deep, with texts in UTF-8 and no repeated key. Values of types that a dictionary cannot hold are
/// left out.
std::optional<Frame> decodeFrame(std::span<const std::uint8_t> bytes);

/// Splits a stream of bytes into frames.
class FrameReader {
 public:
  void append(std::span<const std::uint8_t> bytes);

  /// The next complete frame. Absent if more bytes are needed, and always after a malformed frame.
  std::optional<Frame> next();

  /// Number of bytes still missing from the current frame; 0 before its length is complete.
  std::size_t missing() const;

  /// Length of the last frame that next() returned, in bytes.
  std::size_t frameLength() const { return frameLength_; }

  /// Whether a malformed frame was found.
  bool isMalformed() const { return isMalformed_; }

 private:
  Data buffer_;
  std::size_t consumed_ = 0;
  std::size_t frameLength_ = 0;
  bool isMalformed_ = false;
};

}  // namespace platform::ipc
