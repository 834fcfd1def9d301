#include "platform/ipc/darwin/sender.h"

#include <Security/Security.h>

#include "platform/code_signing/darwin/requirement.h"

namespace platform::ipc {

code_signing::Status checkSender(const Sender& sender, const std::string& requirementText) {
  CFOwner<SecCodeRef> code;
  CFOwner<SecRequirementRef> requirement;
  auto status = code_signing::make<SecCodeRef>(
      code, [&](auto* result) { return SecCodeCreateWithXPCMessage(sender.message(), kSecCSDefaultFlags, result); });
  if (status == code_signing::success) status = code_signing::parse(requirementText, requirement);
  return status == code_signing::success ? SecCodeCheckValidity(code.get(), kSecCSDefaultFlags, requirement.get())
                                         : status;
}

}  // namespace platform::ipc
