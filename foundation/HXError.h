// Errors for callers that show them to people.
#pragma once

#include <string>

/// An error whose localizedDescription is a sentence. All such errors have the same domain and code.
struct HXError {
  std::string domain = "HXSimpleError";
  int code = 0;
  std::string localizedDescription;
};
