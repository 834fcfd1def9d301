#include "platform/code_signing/code_signing.h"

#include <Security/Security.h>

#include "platform/base/darwin/core_foundation.h"
#include "platform/code_signing/darwin/requirement.h"

namespace platform::code_signing {

static_assert(success == errSecSuccess && requirementFailed == errSecCSReqFailed &&
              requirementInvalid == errSecCSReqInvalid && signatureFailed == errSecCSSignatureFailed &&
              unsignedCode == errSecCSUnsigned && noSuchCode == errSecCSNoSuchCode &&
              noSuchFile == errSecCSStaticCodeNotFound);

Status parse(const std::string& text, CFOwner<SecRequirementRef>& requirement) {
  auto string = makeString(text);
  if (!string) return requirementInvalid;
  return make<SecRequirementRef>(requirement, [&](auto* result) {
    return SecRequirementCreateWithString(string.get(), kSecCSDefaultFlags, result);
  });
}

Status checkFile(const std::string& path, const std::string& requirementText) {
  CFOwner<CFURLRef> url(CFURLCreateFromFileSystemRepresentation(
      kCFAllocatorDefault, reinterpret_cast<const UInt8*>(path.data()), static_cast<CFIndex>(path.size()), false));
  if (!url) return noSuchFile;
  CFOwner<SecStaticCodeRef> code;
  CFOwner<SecRequirementRef> requirement;
  auto status = make<SecStaticCodeRef>(
      code, [&](auto* result) { return SecStaticCodeCreateWithPath(url.get(), kSecCSDefaultFlags, result); });
  if (status == success) status = parse(requirementText, requirement);
  return status == success ? SecStaticCodeCheckValidity(code.get(), kSecCSDoNotValidateResources, requirement.get())
                           : status;
}

}  // namespace platform::code_signing
