#include "platform/code_signing/trusted_roots.h"

#include <fmt/format.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include <array>
#include <memory>

#include "platform/code_signing/linux/signature.h"

namespace platform::code_signing {

std::vector<TrustedRoot> trustedRootsIn(std::string_view executable) {
  constexpr std::string_view begin = "-----BEGIN CERTIFICATE-----\nMII", end = "-----END CERTIFICATE-----";
  std::vector<TrustedRoot> roots;
  for (auto at = executable.find(begin); at != executable.npos; at = executable.find(begin, at + 1)) {
    auto text = executable.substr(at, executable.find(end, at) + end.size() - at);
    std::unique_ptr<BIO, decltype(&BIO_free)> pem(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())),
                                                  BIO_free);
    std::unique_ptr<X509, decltype(&X509_free)> root(PEM_read_bio_X509(pem.get(), nullptr, nullptr, nullptr),
                                                     X509_free);
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest;
    unsigned length = 0;
    if (!root || X509_digest(root.get(), EVP_sha256(), digest.data(), &length) != 1) continue;
    TrustedRoot found{.subject = subjectOf(*root), .sha256 = {}};
    for (unsigned index = 0; index < length; ++index) found.sha256 += fmt::format("{:02x}", digest[index]);
    roots.push_back(std::move(found));
  }
  ERR_clear_error();
  return roots;
}

}  // namespace platform::code_signing
