#include "platform/ipc/darwin/sender.h"

#include <Security/Security.h>

#include "platform/code_signing/darwin/requirement.h"

namespace platform::ipc {

Result<void> checkSender(const Sender& sender, const std::string& requirementText) {
  auto code = code_signing::make<SecCodeRef>(
      [&](auto* result) { return SecCodeCreateWithXPCMessage(sender.message(), kSecCSDefaultFlags, result); });
  if (!code) return code.error();
  auto requirement = code_signing::parse(requirementText);
  if (!requirement) return requirement.error();
  auto status = SecCodeCheckValidity(code->get(), kSecCSDefaultFlags, requirement->get());
  return code_signing::resultOf(status, "the sender");
}

}  // namespace platform::ipc
