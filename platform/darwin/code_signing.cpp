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

/// Has `create` make an object of Security's. Returns its status; `object` is owned from here on, null on failure.
template <class Reference, class Create>
Status make(CFOwner<Reference>& object, Create create) {
  Reference reference = nullptr;
  Status status = create(&reference);
  object.reset(reference);
  return status;
}

Status parse(const std::string& text, CFOwner<SecRequirementRef>& requirement) {
  auto string = makeString(text);
  if (!string) return requirementInvalid;
  return make<SecRequirementRef>(requirement, [&](auto* result) {
    return SecRequirementCreateWithString(string.get(), kSecCSDefaultFlags, result);
  });
}

}  // namespace

Status checkSender(const ipc::Sender& sender, const std::string& requirementText) {
  CFOwner<SecCodeRef> code;
  CFOwner<SecRequirementRef> requirement;
  auto status = make<SecCodeRef>(
      code, [&](auto* result) { return SecCodeCreateWithXPCMessage(sender.message(), kSecCSDefaultFlags, result); });
  if (status == success) status = parse(requirementText, requirement);
  return status == success ? SecCodeCheckValidity(code.get(), kSecCSDefaultFlags, requirement.get()) : status;
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
