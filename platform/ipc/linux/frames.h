// The frames of the Linux endpoint: four bytes of length, big-endian, then one CBOR item (RFC 8949), the array
// [id, dictionary]. docs/protocol.md describes them for clients.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "platform/ipc/dictionary.h"

namespace platform::ipc {

inline constexpr std::size_t maximumFrameLength = 16'777'216;  // less the four bytes of length

struct Frame {
  std::uint64_t id = 0;  ///< 0: accepts no reply
  Dictionary dictionary;
};

/// The bytes of a frame, its length included; absent when it would be too long.
std::optional<Data> encodeFrame(const Frame& frame);

/// Reads what follows the length of a frame. Absent unless it is exactly one well-formed item of the form, nested at
/// most 8 deep, its texts UTF-8 and no key in it twice. Values that a dictionary does not hold are left out.
std::optional<Frame> decodeFrame(std::span<const std::uint8_t> bytes);

/// Cuts a stream of bytes into frames.
class FrameReader {
 public:
  void append(std::span<const std::uint8_t> bytes);

  /// The next frame that is whole. Absent when more bytes are needed, and from the first malformed frame on.
  std::optional<Frame> next();

  /// How many bytes the frame that has begun still lacks; 0 before one has.
  std::size_t missing() const;

  /// Length of the frame that next() gave last.
  std::size_t frameLength() const { return frameLength_; }

  /// Whether a malformed frame was met.
  bool malformed() const { return malformed_; }

 private:
  Data buffer_;
  std::size_t consumed_ = 0;
  std::size_t frameLength_ = 0;
  bool malformed_ = false;
};

}  // namespace platform::ipc
