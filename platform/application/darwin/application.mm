// Launches the application through NSWorkspace.
#include "platform/application/application.h"

#import <AppKit/AppKit.h>

#include "platform/dispatch/dispatch.h"

namespace platform {

namespace {

/// Any thread.
Result<void> launch(const std::string& path, const std::vector<std::string>& arguments) {
  @autoreleasepool {
    NSMutableArray<NSString*>* list = [NSMutableArray array];
    for (const auto& argument : arguments) [list addObject:@(argument.c_str())];
    NSURL* url = [NSURL fileURLWithFileSystemRepresentation:path.c_str() isDirectory:NO relativeToURL:nil];
    NSError* error = nil;
// The replacement of this call takes a bundle instead of an executable.
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdeprecated-declarations"
    if ([[NSWorkspace sharedWorkspace] launchApplicationAtURL:url
                                                      options:NSWorkspaceLaunchAsync
                                                configuration:@{NSWorkspaceLaunchConfigurationArguments : list}
                                                        error:&error]) {
      return {};
    }
#pragma clang diagnostic pop
    NSString* description = error.description;
    const char* text = description.UTF8String;
    return Failure(0, text ? text : "(null)");
  }
}

}  // namespace

void noteRunningApplication(const Process&, std::uint32_t) {}

void openApplication(const std::string&, const std::string& path, const std::vector<std::string>& arguments,
                     std::function<void(const Result<void>& launched)> completion) {
  // The launch waits for answers of other processes.
  dispatch::async(dispatch::globalQueue(), [path, arguments, completion = std::move(completion)] {
    dispatch::async(dispatch::mainQueue(), [completion, launched = launch(path, arguments)] { completion(launched); });
  });
}

}  // namespace platform
