// Errors for callers that show them to people.
#pragma once

#include <string>

/// A sentence, localizedDescription. All these errors share the domain and the code.
struct HXError {
  std::string domain = "HXSimpleError";
  int code = 0;
  std::string localizedDescription;
};
