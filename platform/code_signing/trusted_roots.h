// The roots that an executable trusts.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace platform::code_signing {

struct TrustedRoot {
  std::string subject;  ///< for people
  std::string sha256;   ///< of the certificate, 64 lower-case hexadecimal digits
};

/// The certificates that lie as PEM in the bytes of an executable. None on macOS, where it is Apple's that are trusted.
std::vector<TrustedRoot> trustedRootsIn(std::string_view executable);

}  // namespace platform::code_signing
