#include "platform/system/digest.h"

#include <openssl/evp.h>

#include <stdexcept>

namespace platform {

namespace {

EVP_MD_CTX* context(void* pointer) {
  return static_cast<EVP_MD_CTX*>(pointer);
}

void require(int result) {
  if (result != 1) throw std::runtime_error("a message digest is not available");
}

}  // namespace

MD5Digest md5(std::span<const std::uint8_t> bytes) {
  MD5Digest digest;
  require(EVP_Digest(bytes.data(), bytes.size(), digest.data(), nullptr, EVP_md5(), nullptr));
  return digest;
}

SHA256::SHA256() : context_(EVP_MD_CTX_new()) {
  require(EVP_DigestInit_ex(context(context_), EVP_sha256(), nullptr));
}

SHA256::~SHA256() {
  EVP_MD_CTX_free(context(context_));
}

void SHA256::update(std::span<const std::uint8_t> bytes) {
  require(EVP_DigestUpdate(context(context_), bytes.data(), bytes.size()));
}

SHA256Digest SHA256::finish() {
  SHA256Digest digest;
  require(EVP_DigestFinal_ex(context(context_), digest.data(), nullptr));
  return digest;
}

}  // namespace platform
