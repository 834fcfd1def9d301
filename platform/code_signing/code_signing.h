// Code signatures of files. Who sent a message is asked of platform/ipc/service.h.
//
// A requirement is a text in Apple's code signing requirement language; linux/requirement.h says which part of it
// Linux understands. Status values are those of Security.framework's CSCommon.h on every platform.
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

/// Checks the executable file at a path: its own signature, not the resources of a bundle that it may belong to. Fails
/// with a Status, and with what is wrong as an administrator wants to read it.
Result<void> checkFile(const std::string& path, const std::string& requirement);

}  // namespace platform::code_signing
