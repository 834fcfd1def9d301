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

/// The PEM certificates in the bytes of an executable. None on macOS, which trusts Apple's roots.
std::vector<TrustedRoot> trustedRootsIn(std::string_view executable);

}  // namespace platform::code_signing
