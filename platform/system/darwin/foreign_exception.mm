#include "platform/system/foreign_exception.h"

#import <Foundation/Foundation.h>

namespace platform {

std::optional<std::string> foreignExceptionDescription() {
  @autoreleasepool {
    @try {
      throw;
    } @catch (NSException* exception) {
      NSString* description = exception.description;
      const char* text = description.UTF8String;
      return text ? text : "(null)";
    } @catch (...) {
      return std::nullopt;
    }
  }
}

}  // namespace platform
