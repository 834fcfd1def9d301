// The code signature at the end of a file:
//
//     payload ‖ CMS (DER) ‖ CMS length (8 bytes, big-endian) ‖ "BRHCodeSignature"
//
// The CMS (RFC 5652) is a SignedData with one signer. It carries the signer's certificates and, as its content, the
// code directory: {"identifier": text, "size": payload length, "sha256": digest of the payload in hexadecimal}.
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

/// The trusted roots, PEM certificates that are compiled in. Every chain must end at one of them.
extern const char anchorPEM[];

/// The signer and the content of a signature.
struct CodeSignature {
  std::string identifier;
  std::uint64_t payloadSize = 0;
  std::string payloadSHA256;                 ///< 64 lower-case hexadecimal digits
  std::vector<std::shared_ptr<X509>> chain;  ///< leaf first, a root last
};

/// The subject of a certificate for people: "CN = Example, OU = TEAM".
std::string subjectOf(X509& certificate);

/// Reads the code directory from a CMS and verifies signature and chain, ignoring the dates of certificates. Every
/// failure has the Status signatureFailed. Its sentence lacks a subject; the caller puts the file's path before it.
Result<CodeSignature> readSignature(std::span<const std::uint8_t> cms, const std::string& anchor);

/// Reads and verifies the signature at the end of a file, without verifying the payload's digest. The number of a
/// failure is a Status: unsignedCode if there is no signature.
Result<CodeSignature> readSignatureOfFile(int descriptor, const std::string& anchor);

/// Whether the file's payload has the signed digest.
bool payloadMatches(int descriptor, const CodeSignature& signature);

}  // namespace platform::code_signing
