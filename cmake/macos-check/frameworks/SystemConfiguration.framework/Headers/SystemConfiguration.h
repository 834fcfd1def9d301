// The parts of <SystemConfiguration/SystemConfiguration.h> that the helper uses; see cmake/macos-check/README.md.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#pragma clang assume_nonnull begin
__BEGIN_DECLS

enum : int { kSCStatusOK = 0, kSCStatusFailed = 1001, kSCStatusInvalidArgument = 1002 };
int SCError(void);
const char* SCErrorString(int status);

typedef const struct __attribute__((objc_bridge(id))) __SCPreferences* SCPreferencesRef;
extern const CFStringRef _Nonnull kSCPrefNetworkServices;
extern const CFStringRef _Nonnull kSCEntNetProxies;
extern const CFStringRef _Nonnull kSCEntNetIPv4;
SCPreferencesRef _Nullable SCPreferencesCreate(CFAllocatorRef _Nullable allocator, CFStringRef name,
                                               CFStringRef _Nullable preferencesID);
Boolean SCPreferencesLock(SCPreferencesRef preferences, Boolean wait);
Boolean SCPreferencesUnlock(SCPreferencesRef preferences);
Boolean SCPreferencesCommitChanges(SCPreferencesRef preferences);
Boolean SCPreferencesApplyChanges(SCPreferencesRef preferences);
void SCPreferencesSynchronize(SCPreferencesRef preferences);
Boolean SCPreferencesPathSetValue(SCPreferencesRef preferences, CFStringRef path, CFDictionaryRef value);
CFDictionaryRef _Nullable SCPreferencesPathGetValue(SCPreferencesRef preferences, CFStringRef path);

typedef const struct __attribute__((objc_bridge(id))) __SCNetworkInterface* SCNetworkInterfaceRef;
typedef const struct __attribute__((objc_bridge(id))) __SCNetworkService* SCNetworkServiceRef;
CFArrayRef _Nullable SCNetworkServiceCopyAll(SCPreferencesRef preferences);
CFStringRef _Nullable SCNetworkServiceGetServiceID(SCNetworkServiceRef service);
CFStringRef _Nullable SCNetworkServiceGetName(SCNetworkServiceRef service);
SCNetworkInterfaceRef _Nullable SCNetworkServiceGetInterface(SCNetworkServiceRef service);
CFStringRef _Nullable SCNetworkInterfaceGetBSDName(SCNetworkInterfaceRef interface);

typedef const struct __attribute__((objc_bridge(id))) __SCDynamicStore* SCDynamicStoreRef;
CFPropertyListRef _Nullable SCDynamicStoreCopyValue(SCDynamicStoreRef _Nullable store, CFStringRef key);

__END_DECLS
#pragma clang assume_nonnull end
