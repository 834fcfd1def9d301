#include "platform/system/digest.h"

#include <CommonCrypto/CommonDigest.h>

namespace platform {

static_assert(MD5Digest().size() == CC_MD5_DIGEST_LENGTH && SHA256Digest().size() == CC_SHA256_DIGEST_LENGTH);

namespace {

// CommonCrypto takes 32-bit lengths.
constexpr std::size_t maximumPiece = 1 << 30;

/// Passes the bytes on in pieces short enough for CommonCrypto.
template <class Update, class Context>
void updateWith(Update update, Context* context, std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    auto piece = bytes.first(std::min(bytes.size(), maximumPiece));
    update(context, piece.data(), static_cast<CC_LONG>(piece.size()));
    bytes = bytes.subspan(piece.size());
  }
}

CC_SHA256_CTX* context(void* pointer) {
  return static_cast<CC_SHA256_CTX*>(pointer);
}

}  // namespace

// MD5 only serves as a checksum here, so its deprecation does not matter.
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdeprecated-declarations"
MD5Digest md5(std::span<const std::uint8_t> bytes) {
  CC_MD5_CTX state;
  MD5Digest digest;
  CC_MD5_Init(&state);
  updateWith(CC_MD5_Update, &state, bytes);
  CC_MD5_Final(digest.data(), &state);
  return digest;
}
#pragma clang diagnostic pop

SHA256::SHA256() : context_(new CC_SHA256_CTX) {
  CC_SHA256_Init(context(context_));
}

SHA256::~SHA256() {
  delete context(context_);
}

void SHA256::update(std::span<const std::uint8_t> bytes) {
  updateWith(CC_SHA256_Update, context(context_), bytes);
}

SHA256Digest SHA256::finish() {
  SHA256Digest digest;
  CC_SHA256_Final(digest.data(), context(context_));
  return digest;
}

}  // namespace platform
