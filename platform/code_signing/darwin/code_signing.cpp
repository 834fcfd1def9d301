#include "platform/code_signing/code_signing.h"

#include <Security/Security.h>

#include "platform/base/darwin/core_foundation.h"
#include "platform/code_signing/darwin/requirement.h"

namespace platform::code_signing {

static_assert(success == errSecSuccess && requirementFailed == errSecCSReqFailed &&
              requirementInvalid == errSecCSReqInvalid && signatureFailed == errSecCSSignatureFailed &&
              unsignedCode == errSecCSUnsigned && noSuchCode == errSecCSNoSuchCode &&
              noSuchFile == errSecCSStaticCodeNotFound);

Result<CFOwner<SecRequirementRef>> parse(const std::string& text) {
  auto string = makeString(text);
  if (!string) return Failure(requirementInvalid, "the requirement is not UTF-8");
  return make<SecRequirementRef>(
      [&](auto* result) { return SecRequirementCreateWithString(string.get(), kSecCSDefaultFlags, result); });
}

Result<void> checkFile(const std::string& path, const std::string& requirementText) {
  CFOwner<CFURLRef> url(CFURLCreateFromFileSystemRepresentation(
      kCFAllocatorDefault, reinterpret_cast<const UInt8*>(path.data()), static_cast<CFIndex>(path.size()), false));
  if (!url) return Failure(noSuchFile, path + " is not a path");
  auto code = make<SecStaticCodeRef>(
      [&](auto* result) { return SecStaticCodeCreateWithPath(url.get(), kSecCSDefaultFlags, result); });
  if (!code) return code.error();
  auto requirement = parse(requirementText);
  if (!requirement) return requirement.error();
  return resultOf(SecStaticCodeCheckValidity(code->get(), kSecCSDoNotValidateResources, requirement->get()), path);
}

}  // namespace platform::code_signing
