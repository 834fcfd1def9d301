#include "platform/code_signing/linux/signature.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509_vfy.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <boost/json.hpp>
#include <cstring>

#include "platform/base/file_io.h"
#include "platform/system/digest.h"

namespace platform::code_signing {

namespace {

constexpr std::string_view magic = "BRHCodeSignature";
constexpr std::size_t trailerSize = 8 + magic.size();
constexpr std::uint64_t maximumCMSLength = 65'536;

template <auto release>
struct Release {
  template <class Type>
  void operator()(Type* object) const {
    release(object);
  }
};
using BIOPointer = std::unique_ptr<BIO, Release<BIO_free>>;
using CMSPointer = std::unique_ptr<CMS_ContentInfo, Release<CMS_ContentInfo_free>>;
using X509Pointer = std::unique_ptr<X509, Release<X509_free>>;
using StorePointer = std::unique_ptr<X509_STORE, Release<X509_STORE_free>>;
using StoreContextPointer = std::unique_ptr<X509_STORE_CTX, Release<X509_STORE_CTX_free>>;

void freeCertificates(STACK_OF(X509) * certificates) {
  sk_X509_pop_free(certificates, X509_free);
}
using CertificatesPointer = std::unique_ptr<STACK_OF(X509), Release<freeCertificates>>;

BIOPointer bioOf(const void* bytes, std::size_t size) {
  return BIOPointer(BIO_new_mem_buf(bytes, static_cast<int>(size)));
}

/// The certificates of the trusted roots; null if one of them cannot be read.
StorePointer trustedRoots(const std::string& anchorText) {
  auto text = bioOf(anchorText.data(), anchorText.size());
  StorePointer store(X509_STORE_new());
  while (X509Pointer root{PEM_read_bio_X509(text.get(), nullptr, nullptr, nullptr)}) {
    if (!store || X509_STORE_add_cert(store.get(), root.get()) != 1) return nullptr;
  }
  bool isComplete = ERR_GET_REASON(ERR_peek_last_error()) == PEM_R_NO_START_LINE;
  return isComplete ? std::move(store) : nullptr;
}

/// The chain from the leaf to one of the roots; empty if there is none.
std::vector<std::shared_ptr<X509>> verifiedChain(X509* leaf, STACK_OF(X509) * untrusted,
                                                 const std::string& anchorText) {
  auto store = trustedRoots(anchorText);
  StoreContextPointer context(X509_STORE_CTX_new());
  if (!store || !context || X509_STORE_CTX_init(context.get(), store.get(), leaf, untrusted) != 1) return {};
  // Signatures have no trusted time stamp, and an installed application must not stop working on a certain date.
  X509_STORE_CTX_set_flags(context.get(), X509_V_FLAG_NO_CHECK_TIME);
  if (X509_verify_cert(context.get()) != 1) return {};

  CertificatesPointer certificates(X509_STORE_CTX_get1_chain(context.get()));
  std::vector<std::shared_ptr<X509>> chain;
  while (sk_X509_num(certificates.get()) > 0) chain.emplace_back(sk_X509_shift(certificates.get()), X509_free);
  return chain;
}

const Failure damaged(signatureFailed, "has a damaged signature");

/// Reads the code directory into the signature; false unless it has exactly the documented form.
bool readCodeDirectory(std::string_view text, CodeSignature& signature) {
  try {
    const auto directory = boost::json::parse({text.data(), text.size()});
    signature.identifier = directory.at("identifier").as_string();
    signature.payloadSize = static_cast<std::uint64_t>(directory.at("size").as_int64());
    signature.payloadSHA256 = directory.at("sha256").as_string();
    return directory.as_object().size() == 3 && signature.payloadSHA256.size() == 64 &&
           signature.payloadSHA256.find_first_not_of("0123456789abcdef") == std::string::npos;
  } catch (const std::exception&) {
    return false;
  }
}

Result<CodeSignature> verifySignature(std::span<const std::uint8_t> bytes, const std::string& anchor) {
  const auto* position = bytes.data();
  CMSPointer cms(d2i_CMS_ContentInfo(nullptr, &position, static_cast<long>(bytes.size())));
  if (!cms || position != bytes.data() + bytes.size()) return damaged;
  if (OBJ_obj2nid(CMS_get0_type(cms.get())) != NID_pkcs7_signed) return damaged;

  auto* signers = CMS_get0_SignerInfos(cms.get());
  if (sk_CMS_SignerInfo_num(signers) != 1) return damaged;
  BIOPointer content(BIO_new(BIO_s_mem()));
  // The chain is verified below, where it can be kept.
  constexpr unsigned flags = CMS_BINARY | CMS_NO_SIGNER_CERT_VERIFY;
  if (!content || CMS_verify(cms.get(), nullptr, nullptr, nullptr, content.get(), flags) != 1) return damaged;
  X509* leaf = nullptr;  // CMS_verify() has found it
  X509_ALGOR* digest = nullptr;
  CMS_SignerInfo_get0_algs(sk_CMS_SignerInfo_value(signers, 0), nullptr, &leaf, &digest, nullptr);
  if (OBJ_obj2nid(digest->algorithm) != NID_sha256) return damaged;

  CertificatesPointer carried(CMS_get1_certs(cms.get()));
  CodeSignature signature;
  signature.chain = verifiedChain(leaf, carried.get(), anchor);
  if (signature.chain.empty()) {
    return Failure(signatureFailed,
                   "is signed by \"" + subjectOf(*leaf) + "\", under another root than the one trusted here");
  }

  char* text = nullptr;
  auto length = BIO_get_mem_data(content.get(), &text);
  if (!readCodeDirectory({text, static_cast<std::size_t>(length)}, signature)) return damaged;
  return signature;
}

bool readAt(int descriptor, std::span<std::uint8_t> bytes, std::uint64_t offset) {
  if (lseek(descriptor, static_cast<off_t>(offset), SEEK_SET) < 0) return false;
  auto length = readInto(descriptor, {reinterpret_cast<char*>(bytes.data()), bytes.size()});
  return length && *length == bytes.size();
}

}  // namespace

std::string subjectOf(X509& certificate) {
  BIOPointer text(BIO_new(BIO_s_mem()));
  char* bytes = nullptr;
  if (!text || X509_NAME_print_ex(text.get(), X509_get_subject_name(&certificate), 0, XN_FLAG_ONELINE) < 0) return {};
  auto length = BIO_get_mem_data(text.get(), &bytes);
  return {bytes, static_cast<std::size_t>(length)};
}

Result<CodeSignature> readSignature(std::span<const std::uint8_t> cms, const std::string& anchor) {
  auto signature = verifySignature(cms, anchor);
  ERR_clear_error();
  return signature;
}

Result<CodeSignature> readSignatureOfFile(int descriptor, const std::string& anchor) {
  struct stat status;
  std::array<std::uint8_t, trailerSize> trailer;
  if (fstat(descriptor, &status) != 0) return Failure(noSuchFile, "cannot be examined");
  auto size = static_cast<std::uint64_t>(status.st_size);
  if (size < trailerSize || !readAt(descriptor, trailer, size - trailerSize) ||
      std::memcmp(trailer.data() + 8, magic.data(), magic.size()) != 0) {
    return Failure(unsignedCode, "has no signature");
  }
  std::uint64_t length = 0;
  for (std::size_t index = 0; index < 8; ++index) length = length << 8 | trailer[index];
  if (length > maximumCMSLength || length > size - trailerSize) return damaged;

  std::vector<std::uint8_t> cms(length);
  std::uint64_t payloadSize = size - trailerSize - length;
  if (!readAt(descriptor, cms, payloadSize)) return damaged;
  auto signature = readSignature(cms, anchor);
  if (signature && signature->payloadSize != payloadSize) return damaged;
  return signature;
}

bool payloadMatches(int descriptor, const CodeSignature& signature) {
  SHA256 digest;
  std::vector<std::uint8_t> buffer(std::size_t{1} << 18);
  for (std::uint64_t offset = 0; offset < signature.payloadSize;) {
    auto piece = std::span(buffer).first(std::min<std::uint64_t>(buffer.size(), signature.payloadSize - offset));
    if (!readAt(descriptor, piece, offset)) return false;
    digest.update(piece);
    offset += piece.size();
  }
  return fmt::format("{:02x}", fmt::join(digest.finish(), "")) == signature.payloadSHA256;
}

}  // namespace platform::code_signing
