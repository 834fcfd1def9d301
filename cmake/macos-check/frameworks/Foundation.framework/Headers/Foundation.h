// The parts of <Foundation/Foundation.h> that the helper uses; see cmake/macos-check/README.md.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <objc/NSObject.h>

#pragma clang assume_nonnull begin

@interface NSString : NSObject
+ (nullable instancetype)stringWithUTF8String:(const char*)text;
@property(nullable, readonly) const char* UTF8String __attribute__((objc_returns_inner_pointer));
@end

@interface NSArray<__covariant ObjectType> : NSObject
@end

@interface NSMutableArray<ObjectType> : NSArray <ObjectType>
+ (instancetype)array;
- (void)addObject:(ObjectType)object;
@end

@protocol NSCopying
@end

@interface NSString (Copying) <NSCopying>
@end

@interface NSDictionary<__covariant KeyType, __covariant ObjectType> : NSObject
+ (instancetype)dictionaryWithObjects:(const ObjectType _Nonnull[_Nullable])objects
                              forKeys:(const KeyType<NSCopying> _Nonnull[_Nullable])keys
                                count:(NSUInteger)count;
@end

@interface NSError : NSObject
@end

__attribute__((objc_exception)) @interface NSException : NSObject
@end

@interface NSURL : NSObject
+ (NSURL*)fileURLWithFileSystemRepresentation:(const char*)path
                                  isDirectory:(BOOL)isDirectory
                                relativeToURL:(nullable NSURL*)base API_AVAILABLE(macos(10.9));
@end

#pragma clang assume_nonnull end
