#include "platform/ipc/linux/frames.h"

#include <cbor.h>

#include <algorithm>
#include <array>
#include <limits>
#include <set>

#include "platform/base/utf8.h"

namespace platform::ipc {

namespace {

constexpr std::size_t lengthSize = 4;
constexpr int maximumDepth = 8;

/// The head of a CBOR item; for a string of definite length, with its content.
struct Token {
  enum class Type { integer, negative, data, text, boolean, array, map, tag, end, other };
  Type type = Type::other;
  bool isIndefinite = false;  // a string, array or map that ends with an `end`
  std::uint64_t number = 0;
  std::span<const std::uint8_t> bytes;

  std::string_view view() const { return {reinterpret_cast<const char*>(bytes.data()), bytes.size()}; }
};

template <Token::Type type, class Number>
void onNumber(void* token, Number number) {
  *static_cast<Token*>(token) = {.type = type, .isIndefinite = false, .number = number, .bytes = {}};
}

template <Token::Type type>
void onString(void* token, cbor_data bytes, std::size_t length) {
  *static_cast<Token*>(token) = {.type = type, .isIndefinite = false, .number = length, .bytes = {bytes, length}};
}

template <Token::Type type>
void onIndefinite(void* token) {
  *static_cast<Token*>(token) = {.type = type, .isIndefinite = true, .number = 0, .bytes = {}};
}

cbor_callbacks tokenCallbacks() {
  using Type = Token::Type;
  cbor_callbacks callbacks = cbor_empty_callbacks;  // for all items without a callback, the token stays Type::other
  callbacks.uint8 = onNumber<Type::integer, std::uint8_t>;
  callbacks.uint16 = onNumber<Type::integer, std::uint16_t>;
  callbacks.uint32 = onNumber<Type::integer, std::uint32_t>;
  callbacks.uint64 = onNumber<Type::integer, std::uint64_t>;
  callbacks.negint8 = onNumber<Type::negative, std::uint8_t>;
  callbacks.negint16 = onNumber<Type::negative, std::uint16_t>;
  callbacks.negint32 = onNumber<Type::negative, std::uint32_t>;
  callbacks.negint64 = onNumber<Type::negative, std::uint64_t>;
  callbacks.boolean = onNumber<Type::boolean, bool>;
  callbacks.tag = onNumber<Type::tag, std::uint64_t>;
  callbacks.array_start = onNumber<Type::array, std::size_t>;
  callbacks.map_start = onNumber<Type::map, std::size_t>;
  callbacks.byte_string = onString<Type::data>;
  callbacks.string = onString<Type::text>;
  callbacks.byte_string_start = onIndefinite<Type::data>;
  callbacks.string_start = onIndefinite<Type::text>;
  callbacks.indef_array_start = onIndefinite<Type::array>;
  callbacks.indef_map_start = onIndefinite<Type::map>;
  callbacks.indef_break = onIndefinite<Type::end>;
  return callbacks;
}

/// Thrown for malformed input; never leaves decodeFrame().
struct Malformed {};

class Decoder {
 public:
  explicit Decoder(std::span<const std::uint8_t> bytes) : rest_(bytes) {}

  Frame frame() {
    Frame result;
    Token outer = next();
    if (outer.type != Token::Type::array || (!outer.isIndefinite && outer.number != 2)) throw Malformed();
    Token id = next();
    if (id.type != Token::Type::integer) throw Malformed();
    result.id = id.number;
    result.dictionary = dictionary(next());
    if (outer.isIndefinite && next().type != Token::Type::end) throw Malformed();
    if (!rest_.empty()) throw Malformed();
    return result;
  }

 private:
  Token next() {
    Token token;
    if (std::size_t length = unassignedSimpleValue(); length > 0) {
      rest_ = rest_.subspan(length);
      return token;
    }
    static const cbor_callbacks callbacks = tokenCallbacks();
    auto result = cbor_stream_decode(rest_.data(), rest_.size(), &callbacks, &token);
    if (result.status != CBOR_DECODER_FINISHED) throw Malformed();
    rest_ = rest_.subspan(result.read);
    return token;
  }

  /// Length of the next item if it is an unassigned simple value (RFC 8949, section 3.3), otherwise 0. Such values are
  /// well-formed, but libcbor rejects them.
  std::size_t unassignedSimpleValue() const {
    if (!rest_.empty() && rest_[0] >= 0xE0 && rest_[0] <= 0xF3) return 1;
    return rest_.size() >= 2 && rest_[0] == 0xF8 && rest_[1] >= 32 ? 2 : 0;
  }

  Dictionary dictionary(const Token& head) {
    if (head.type != Token::Type::map) throw Malformed();
    Dictionary result;
    std::set<std::string> keysLeftOut;
    forEach(head, [&](const Token& keyHead) {
      if (keyHead.type != Token::Type::text) throw Malformed();
      std::string key = text(keyHead);
      if (result.contains(key) || keysLeftOut.contains(key)) throw Malformed();
      if (auto read = value(next())) {
        result.set(std::move(key), std::move(*read));
      } else {
        keysLeftOut.insert(std::move(key));
      }
    });
    return result;
  }

  /// Calls `element` with the head of each element of an array or each key of a map. `element` must read what follows
  /// the head: the rest of the element, or of the key and its value.
  template <class Element>
  void forEach(const Token& head, Element element) {
    for (std::uint64_t count = 0; head.isIndefinite || count < head.number; ++count) {
      Token token = next();
      if (head.isIndefinite && token.type == Token::Type::end) return;
      element(token);
    }
  }

  std::optional<Value> value(const Token& head) {
    constexpr auto largest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    switch (head.type) {
      case Token::Type::text:
        return text(head);
      case Token::Type::data: {
        Data result;
        forEachChunk(head,
                     [&](const Token& chunk) { result.insert(result.end(), chunk.bytes.begin(), chunk.bytes.end()); });
        return result;
      }
      case Token::Type::boolean:
        return head.number != 0;
      case Token::Type::integer:
        if (head.number > largest) return std::nullopt;
        return static_cast<std::int64_t>(head.number);
      case Token::Type::negative:
        if (head.number > largest) return std::nullopt;
        return -1 - static_cast<std::int64_t>(head.number);
      default:
        skip(head, 3);
        return std::nullopt;
    }
  }

  std::string text(const Token& head) {
    std::string result;
    forEachChunk(head, [&](const Token& chunk) {
      if (!isUTF8(chunk.view())) throw Malformed();
      result += chunk.view();
    });
    return result;
  }

  /// Calls `chunk` for each part of a string. A string of indefinite length consists of strings of definite length and
  /// the same type (RFC 8949, section 3.2.3); any other string is its only part.
  template <class Chunk>
  void forEachChunk(const Token& head, Chunk chunk) {
    if (!head.isIndefinite) return chunk(head);
    forEach(head, [&](const Token& token) {
      if (token.type != head.type || token.isIndefinite) throw Malformed();
      chunk(token);
    });
  }

  /// Skips an item at nesting level `depth`.
  void skip(const Token& head, int depth) {
    switch (head.type) {
      case Token::Type::text:
        text(head);
        break;
      case Token::Type::data:
        forEachChunk(head, [](const Token&) {});
        break;
      case Token::Type::array:
      case Token::Type::map:
      case Token::Type::tag:
        if (depth > maximumDepth) throw Malformed();
        if (head.type == Token::Type::tag) return skip(next(), depth + 1);
        forEach(head, [&](const Token& token) {
          skip(token, depth + 1);
          if (head.type == Token::Type::map) skip(next(), depth + 1);
        });
        break;
      case Token::Type::end:
        throw Malformed();
      default:
        break;
    }
  }

  std::span<const std::uint8_t> rest_;
};

/// Collects the bytes of a frame, after space reserved for its length. The call operator appends a key or a value.
class Encoder {
 public:
  Data bytes = Data(lengthSize);

  /// Appends the head written by one of libcbor's cbor_encode_… functions.
  template <class Argument>
  void head(std::size_t (*encode)(Argument, unsigned char*, std::size_t), std::type_identity_t<Argument> argument) {
    std::array<unsigned char, 9> buffer;
    auto length = static_cast<std::ptrdiff_t>(encode(argument, buffer.data(), buffer.size()));
    bytes.insert(bytes.end(), buffer.begin(), buffer.begin() + length);
  }

  void operator()(const std::string& text) {
    head(cbor_encode_string_start, text.size());
    bytes.insert(bytes.end(), text.begin(), text.end());
  }
  void operator()(const Data& data) {
    head(cbor_encode_bytestring_start, data.size());
    bytes.insert(bytes.end(), data.begin(), data.end());
  }
  void operator()(bool value) { head(cbor_encode_bool, value); }
  void operator()(std::int64_t value) {
    if (value >= 0) return head(cbor_encode_uint, static_cast<std::uint64_t>(value));
    head(cbor_encode_negint, static_cast<std::uint64_t>(-1 - value));
  }
};

std::size_t readLength(const std::uint8_t* bytes) {
  return std::size_t{bytes[0]} << 24 | std::size_t{bytes[1]} << 16 | std::size_t{bytes[2]} << 8 | bytes[3];
}

}  // namespace

std::optional<Data> encodeFrame(const Frame& frame) {
  Encoder encoder;
  encoder.head(cbor_encode_array_start, 2);
  encoder.head(cbor_encode_uint, frame.id);
  encoder.head(cbor_encode_map_start, frame.dictionary.size());
  for (const auto& [key, value] : frame.dictionary) {
    encoder(key);
    std::visit(encoder, value);
  }
  auto& bytes = encoder.bytes;
  std::size_t length = bytes.size() - lengthSize;
  if (length > maximumFrameLength) return std::nullopt;
  for (std::size_t index = 0; index < lengthSize; ++index)
    bytes[index] = static_cast<std::uint8_t>(length >> (24 - 8 * index));
  return std::move(bytes);
}

std::optional<Frame> decodeFrame(std::span<const std::uint8_t> bytes) {
  try {
    return Decoder(bytes).frame();
  } catch (Malformed) {
    return std::nullopt;
  }
}

void FrameReader::append(std::span<const std::uint8_t> bytes) {
  buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(consumed_));
  consumed_ = 0;
  buffer_.insert(buffer_.end(), bytes.begin(), bytes.end());
}

std::size_t FrameReader::missing() const {
  auto available = std::span(buffer_).subspan(consumed_);
  if (isMalformed_ || available.size() < lengthSize) return 0;
  auto whole = lengthSize + readLength(available.data());
  return whole - std::min(whole, available.size());
}

std::optional<Frame> FrameReader::next() {
  auto available = std::span(buffer_).subspan(consumed_);
  if (isMalformed_ || available.size() < lengthSize) return std::nullopt;
  std::size_t length = readLength(available.data());
  isMalformed_ = length > maximumFrameLength;
  if (isMalformed_ || available.size() - lengthSize < length) return std::nullopt;

  auto frame = decodeFrame(available.subspan(lengthSize, length));
  isMalformed_ = !frame;
  frameLength_ = length;
  consumed_ += lengthSize + length;
  if (consumed_ == buffer_.size()) {
    // Frees the memory of a large frame at once, because connections may be idle for days.
    Data().swap(buffer_);
    consumed_ = 0;
  }
  return frame;
}

}  // namespace platform::ipc
