// Launching by NSWorkspace.
#include "platform/application/application.h"

#import <AppKit/AppKit.h>

#include "platform/dispatch/dispatch.h"

namespace platform {

namespace {

/// The error's text, absent on success. Any thread.
std::optional<std::string> launch(const std::string& path, const std::vector<std::string>& arguments) {
  @autoreleasepool {
    NSMutableArray<NSString*>* list = [NSMutableArray array];
    for (const auto& argument : arguments) [list addObject:@(argument.c_str())];
    NSURL* url = [NSURL fileURLWithFileSystemRepresentation:path.c_str() isDirectory:NO relativeToURL:nil];
    NSError* error = nil;
// Its successor wants the bundle instead of the executable.
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdeprecated-declarations"
    if ([[NSWorkspace sharedWorkspace] launchApplicationAtURL:url
                                                      options:NSWorkspaceLaunchAsync
                                                configuration:@{NSWorkspaceLaunchConfigurationArguments : list}
                                                        error:&error]) {
      return std::nullopt;
    }
#pragma clang diagnostic pop
    NSString* description = error.description;
    const char* text = description.UTF8String;
    return text ? text : "(null)";
  }
}

}  // namespace

void noteRunningApplication(const Process&, std::uint32_t) {}

void openApplication(const std::string&, const std::string& path, const std::vector<std::string>& arguments,
                     std::function<void(std::optional<std::string> error)> completion) {
  // The call asks other processes and waits for their answer.
  dispatch::async(dispatch::globalQueue(), [path, arguments, completion = std::move(completion)] {
    dispatch::async(dispatch::mainQueue(), [completion, error = launch(path, arguments)] { completion(error); });
  });
}

}  // namespace platform
