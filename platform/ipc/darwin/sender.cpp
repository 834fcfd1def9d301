#include "platform/ipc/darwin/sender.h"

#include <Security/Security.h>

#include "platform/code_signing/darwin/requirement.h"

namespace platform::ipc {

code_signing::Status checkSender(const Sender& sender, const std::string& requirementText) {
  auto code = code_signing::make<SecCodeRef>(
      [&](auto* result) { return SecCodeCreateWithXPCMessage(sender.message(), kSecCSDefaultFlags, result); });
  if (!code) return code.error().number;
  auto requirement = code_signing::parse(requirementText);
  if (!requirement) return requirement.error().number;
  return SecCodeCheckValidity(code->get(), kSecCSDefaultFlags, requirement->get());
}

}  // namespace platform::ipc
