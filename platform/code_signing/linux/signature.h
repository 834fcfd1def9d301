// The code signature that is appended to a file:
//
//     payload ‖ CMS (DER) ‖ CMS length (8 bytes, big-endian) ‖ "BRHCodeSignature"
//
// The CMS (RFC 5652) is a SignedData of one signer that carries the signer's certificates and, as its content, the code
// directory: {"identifier": text, "size": payload length, "sha256": digest of the payload in hexadecimal}.
#pragma once

#include <openssl/x509.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/base/result.h"
#include "platform/code_signing/code_signing.h"

namespace platform::code_signing {

/// The roots, one of which every chain must end at: PEM certificates, compiled in.
extern const char anchorPEM[];

/// Who signed a file, and what.
struct CodeSignature {
  std::string identifier;
  std::uint64_t payloadSize = 0;
  std::string payloadSHA256;                 ///< 64 lower-case hexadecimal digits
  std::vector<std::shared_ptr<X509>> chain;  ///< leaf first, a root last
};

/// The subject of a certificate, for people: "CN = Example, OU = TEAM".
std::string subjectOf(X509& certificate);

/// Reads the code directory from a CMS and verifies its signature and chain. Certificate dates do not count. Fails
/// with the Status signatureFailed for whatever is not in order. The sentence lacks its subject, the file.
Result<CodeSignature> readSignature(std::span<const std::uint8_t> cms, const std::string& anchor);

/// Reads and verifies the signature at the end of a file, but not yet the payload's digest. Fails with a Status:
/// unsignedCode when there is none.
Result<CodeSignature> readSignatureOfFile(int descriptor, const std::string& anchor);

/// Whether the payload of the file has the digest that was signed.
bool payloadMatches(int descriptor, const CodeSignature& signature);

}  // namespace platform::code_signing
