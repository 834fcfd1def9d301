// The parts of <AppKit/AppKit.h> that the helper uses; see cmake/macos-check/README.md.
#pragma once

#include <Foundation/Foundation.h>

#pragma clang assume_nonnull begin

enum NSWorkspaceLaunchOptions : NSUInteger { NSWorkspaceLaunchAsync = 0x00010000 };
typedef NSString* NSWorkspaceLaunchConfigurationKey;
extern "C" NSWorkspaceLaunchConfigurationKey const NSWorkspaceLaunchConfigurationArguments
    API_DEPRECATED("Use NSWorkspaceOpenConfiguration", macos(10.6, 11.0));

@interface NSRunningApplication : NSObject
@end

@interface NSWorkspace : NSObject
@property(class, readonly, strong) NSWorkspace* sharedWorkspace;
- (nullable NSRunningApplication*)launchApplicationAtURL:(NSURL*)url
                                                 options:(NSWorkspaceLaunchOptions)options
                                           configuration:(NSDictionary<NSWorkspaceLaunchConfigurationKey, id>*)configuration
                                                   error:(NSError* _Nullable* _Nullable)error
    API_DEPRECATED("Use -openApplicationAtURL:configuration:completionHandler:", macos(10.6, 11.0));
@end

#pragma clang assume_nonnull end
