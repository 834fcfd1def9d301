#include "platform/code_signing.h"

#include <Security/Security.h>

#include "platform/darwin/core_foundation.h"
#include "platform/darwin/ipc_values.h"

namespace platform::code_signing {

static_assert(success == errSecSuccess && requirementFailed == errSecCSReqFailed &&
              requirementInvalid == errSecCSReqInvalid && signatureFailed == errSecCSSignatureFailed &&
              unsignedCode == errSecCSUnsigned && noSuchCode == errSecCSNoSuchCode &&
              noSuchFile == errSecCSStaticCodeNotFound);

namespace {

using Requirement = darwin::CFReference<SecRequirementRef>;

/// Reads a requirement; on failure it stays empty.
Status parse(const std::string& text, Requirement& requirement) {
  auto string = darwin::makeCFString(text);
  if (!string) return requirementInvalid;
  return SecRequirementCreateWithString(string.get(), kSecCSDefaultFlags, requirement.out());
}

}  // namespace

Status checkSender(const ipc::Sender& sender, const std::string& requirementText) {
  darwin::CFReference<SecCodeRef> code;
  if (auto status = SecCodeCreateWithXPCMessage(sender.message(), kSecCSDefaultFlags, code.out())) return status;
  Requirement requirement;
  if (auto status = parse(requirementText, requirement)) return status;
  return SecCodeCheckValidity(code.get(), kSecCSDefaultFlags, requirement.get());
}

Status checkFile(const std::string& path, const std::string& requirementText) {
  auto url = darwin::CFReference<CFURLRef>::adopt(CFURLCreateFromFileSystemRepresentation(
      kCFAllocatorDefault, reinterpret_cast<const UInt8*>(path.data()), static_cast<CFIndex>(path.size()), false));
  if (!url) return noSuchFile;
  darwin::CFReference<SecStaticCodeRef> code;
  if (auto status = SecStaticCodeCreateWithPath(url.get(), kSecCSDefaultFlags, code.out())) return status;
  Requirement requirement;
  if (auto status = parse(requirementText, requirement)) return status;
  return SecStaticCodeCheckValidity(code.get(), kSecCSDoNotValidateResources, requirement.get());
}

}  // namespace platform::code_signing
