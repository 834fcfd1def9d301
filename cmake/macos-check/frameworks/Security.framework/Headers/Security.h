// The parts of <Security/Security.h> that the helper uses; see cmake/macos-check/README.md.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <xpc/xpc.h>

#pragma clang assume_nonnull begin
__BEGIN_DECLS

typedef struct __attribute__((objc_bridge(id))) __SecCode* SecCodeRef;
typedef const struct __attribute__((objc_bridge(id))) __SecCode* SecStaticCodeRef;
typedef struct __attribute__((objc_bridge(id))) __SecRequirement* SecRequirementRef;

typedef uint32_t SecCSFlags;
enum : SecCSFlags { kSecCSDefaultFlags = 0, kSecCSDoNotValidateResources = 1 << 2 };

enum : OSStatus {
  errSecSuccess = 0,
  errSecCSReqFailed = -67050,
  errSecCSReqInvalid = -67052,
  errSecCSSignatureFailed = -67061,
  errSecCSUnsigned = -67062,
  errSecCSNoSuchCode = -67065,
  errSecCSStaticCodeNotFound = -67068,
};

OSStatus SecCodeCreateWithXPCMessage(xpc_object_t message, SecCSFlags flags,
                                     SecCodeRef _Nullable* _Nonnull CF_RETURNS_RETAINED target) API_AVAILABLE(macos(11.0));
OSStatus SecCodeCheckValidity(SecCodeRef code, SecCSFlags flags, SecRequirementRef _Nullable requirement);
OSStatus SecStaticCodeCreateWithPath(CFURLRef path, SecCSFlags flags,
                                     SecStaticCodeRef _Nullable* _Nonnull CF_RETURNS_RETAINED staticCode);
OSStatus SecStaticCodeCheckValidity(SecStaticCodeRef staticCode, SecCSFlags flags, SecRequirementRef _Nullable requirement);
OSStatus SecRequirementCreateWithString(CFStringRef text, SecCSFlags flags,
                                        SecRequirementRef _Nullable* _Nonnull CF_RETURNS_RETAINED requirement);

__END_DECLS
#pragma clang assume_nonnull end
