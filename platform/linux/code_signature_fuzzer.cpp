// Signatures of hostile files. The seed is signed under a root of its own, whose keys are gone.
#include <cstdlib>
#include <fstream>
#include <iterator>

#include "platform/linux/code_signature.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  using namespace platform::code_signing;
  static const std::string anchor = [] {
    std::ifstream file(ANCHOR_FILE);
    return std::string(std::istreambuf_iterator<char>(file), {});
  }();
  CodeSignature signature;
  // Whatever verifies is what was signed.
  if (readSignature({bytes, size}, anchor, signature) == success &&
      (signature.identifier != "com.example.brimo" || signature.payloadSize != 3)) {
    std::abort();
  }
  return 0;
}
