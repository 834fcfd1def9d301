// Fuzzes files and signatures. The seeds were signed under a test root whose keys have been deleted.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>

#include "platform/base/file_descriptor.h"
#include "platform/code_signing/linux/signature.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  using namespace platform::code_signing;
  static const std::string anchor = [] {
    std::ifstream file(ANCHOR_FILE);
    return std::string(std::istreambuf_iterator<char>(file), {});
  }();
  // A signature that verifies has the signed content.
  auto check = [](const platform::Result<CodeSignature>& signature) {
    if (signature && (signature->identifier != "com.example.brimo" || signature->payloadSize != 3)) std::abort();
  };
  check(readSignature({bytes, size}, anchor));

  platform::FileDescriptor file(memfd_create("fuzzed", MFD_CLOEXEC));
  if (write(file.get(), bytes, size) != static_cast<ssize_t>(size)) std::abort();
  auto ofFile = readSignatureOfFile(file.get(), anchor);
  check(ofFile);
  if (ofFile) payloadMatches(file.get(), *ofFile);
  return 0;
}
