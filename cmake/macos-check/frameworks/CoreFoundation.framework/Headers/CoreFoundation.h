// The parts of <CoreFoundation/CoreFoundation.h> that the helper uses; see cmake/macos-check/README.md.
#pragma once

#include <MacTypes.h>
#include <TargetConditionals.h>
#include <os/availability.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/cdefs.h>

#pragma clang assume_nonnull begin
__BEGIN_DECLS

#define CF_RETURNS_RETAINED __attribute__((cf_returns_retained))
#define CF_ENUM(type, name) \
  enum name : type name;    \
  enum name : type

typedef long CFIndex;
typedef unsigned long CFTypeID;
typedef const void* CFTypeRef;
typedef CFTypeRef CFPropertyListRef;
typedef const struct __CFAllocator* CFAllocatorRef;
typedef const struct __attribute__((objc_bridge(NSString))) __CFString* CFStringRef;
typedef const struct __attribute__((objc_bridge(NSData))) __CFData* CFDataRef;
typedef const struct __attribute__((objc_bridge(NSArray))) __CFArray* CFArrayRef;
typedef struct __attribute__((objc_bridge_mutable(NSMutableArray))) __CFArray* CFMutableArrayRef;
typedef const struct __attribute__((objc_bridge(NSDictionary))) __CFDictionary* CFDictionaryRef;
typedef struct __attribute__((objc_bridge_mutable(NSMutableDictionary))) __CFDictionary* CFMutableDictionaryRef;
typedef const struct __attribute__((objc_bridge(NSNumber))) __CFBoolean* CFBooleanRef;
typedef const struct __attribute__((objc_bridge(NSNumber))) __CFNumber* CFNumberRef;
typedef const struct __attribute__((objc_bridge(NSURL))) __CFURL* CFURLRef;
typedef struct {
  CFIndex location;
  CFIndex length;
} CFRange;

extern const CFAllocatorRef _Nonnull kCFAllocatorDefault;

CFTypeRef CFRetain(CFTypeRef object);
void CFRelease(CFTypeRef object);
CFTypeID CFGetTypeID(CFTypeRef object);

typedef UInt32 CFStringEncoding;
enum : CFStringEncoding { kCFStringEncodingUTF8 = 0x08000100 };
CFTypeID CFStringGetTypeID(void);
CFStringRef _Null_unspecified CFStringCreateWithBytes(CFAllocatorRef _Nullable allocator, const UInt8* bytes, CFIndex length,
                                                      CFStringEncoding encoding, Boolean isExternalRepresentation);
CFIndex CFStringGetLength(CFStringRef string);
CFIndex CFStringGetBytes(CFStringRef string, CFRange range, CFStringEncoding encoding, UInt8 lossByte,
                         Boolean isExternalRepresentation, UInt8* _Nullable buffer, CFIndex maximum, CFIndex* _Nullable used);
#define CFSTR(text) ((CFStringRef)__builtin___CFStringMakeConstantString("" text ""))

CFDataRef _Null_unspecified CFDataCreate(CFAllocatorRef _Nullable allocator, const UInt8* _Null_unspecified bytes, CFIndex length);

extern const CFBooleanRef _Nonnull kCFBooleanTrue;
extern const CFBooleanRef _Nonnull kCFBooleanFalse;
CFTypeID CFBooleanGetTypeID(void);
Boolean CFBooleanGetValue(CFBooleanRef boolean);

typedef CF_ENUM(CFIndex, CFNumberType){
    kCFNumberSInt32Type = 3, kCFNumberSInt64Type = 4, kCFNumberFloat64Type = 6,
    kCFNumberLongLongType = 11, kCFNumberDoubleType = 13};
CFTypeID CFNumberGetTypeID(void);
CFNumberRef _Null_unspecified CFNumberCreate(CFAllocatorRef _Nullable allocator, CFNumberType type, const void* value);
Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* _Null_unspecified value);
Boolean CFNumberIsFloatType(CFNumberRef number);

typedef struct {
  CFIndex version;
  const void* _Nullable retain;
  const void* _Nullable release;
  const void* _Nullable copyDescription;
  const void* _Nullable equal;
} CFArrayCallBacks;
extern const CFArrayCallBacks kCFTypeArrayCallBacks;
CFTypeID CFArrayGetTypeID(void);
CFMutableArrayRef _Null_unspecified CFArrayCreateMutable(CFAllocatorRef _Nullable allocator, CFIndex capacity,
                                                         const CFArrayCallBacks* _Nullable callBacks);
void CFArrayAppendValue(CFMutableArrayRef array, const void* _Null_unspecified value);
CFIndex CFArrayGetCount(CFArrayRef array);
const void* _Null_unspecified CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index);

typedef struct {
  CFIndex version;
  const void* _Nullable retain;
  const void* _Nullable release;
  const void* _Nullable copyDescription;
  const void* _Nullable equal;
  const void* _Nullable hash;
} CFDictionaryKeyCallBacks;
typedef struct {
  CFIndex version;
  const void* _Nullable retain;
  const void* _Nullable release;
  const void* _Nullable copyDescription;
  const void* _Nullable equal;
} CFDictionaryValueCallBacks;
extern const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks;
extern const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks;
CFTypeID CFDictionaryGetTypeID(void);
CFMutableDictionaryRef _Null_unspecified CFDictionaryCreateMutable(CFAllocatorRef _Nullable allocator, CFIndex capacity,
                                                                   const CFDictionaryKeyCallBacks* _Nullable keyCallBacks,
                                                                   const CFDictionaryValueCallBacks* _Nullable valueCallBacks);
void CFDictionarySetValue(CFMutableDictionaryRef dictionary, const void* _Null_unspecified key, const void* _Null_unspecified value);
CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary);
void CFDictionaryGetKeysAndValues(CFDictionaryRef dictionary, const void* _Nullable* _Nullable keys,
                                  const void* _Nullable* _Nullable values);

CFURLRef _Nullable CFURLCreateFromFileSystemRepresentation(CFAllocatorRef _Nullable allocator, const UInt8* buffer, CFIndex length,
                                                           Boolean isDirectory);

__END_DECLS
#pragma clang assume_nonnull end
