// Errors that consist of a sentence.
#pragma once

#include <string>

struct HXError {
  std::string domain = "HXSimpleError";
  int code = 0;
  std::string localizedDescription;
};
