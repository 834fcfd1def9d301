// Code signatures of files. platform/ipc/service.h checks the senders of messages.
//
// A requirement is a text in Apple's code signing requirement language; linux/requirement.h describes the subset that
// Linux supports. On every platform, status values are those of Security.framework's CSCommon.h.
#pragma once

#include <cstdint>
#include <string>

#include "platform/base/result.h"

namespace platform::code_signing {

using Status = std::int32_t;
inline constexpr Status success = 0;
inline constexpr Status requirementFailed = -67050;   // errSecCSReqFailed
inline constexpr Status requirementInvalid = -67052;  // errSecCSReqInvalid
inline constexpr Status signatureFailed = -67061;     // errSecCSSignatureFailed
inline constexpr Status unsignedCode = -67062;        // errSecCSUnsigned
inline constexpr Status noSuchCode = -67065;          // errSecCSNoSuchCode
inline constexpr Status noSuchFile = -67068;          // errSecCSStaticCodeNotFound

/// Checks the signature of the executable file itself, not of the resources of its bundle. The number of a failure is a
/// Status; its sentence tells the administrator what is wrong. No other function of this header may run meanwhile.
Result<void> checkFile(const std::string& path, const std::string& requirement);

}  // namespace platform::code_signing
