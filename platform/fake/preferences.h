// Network preferences that unit tests steer and look into.
#pragma once

#include <boost/json/value.hpp>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/network_settings/preferences.h"

namespace platform::fake {

struct Preferences {
  /// The calls that fail, as they stand in `calls`.
  std::set<std::string> failing;
  std::string errorText;  ///< of their failures

  /// What was called, in order: "create BrimoHelper", "lock waiting", "set PATH", "commit", "apply", "synchronize",
  /// "unlock", "release".
  std::vector<std::string> calls;
  std::vector<std::pair<std::string, boost::json::value>> values;  ///< that were set, failed ones too
};

/// The preferences that the code under test sees. A test begins by assigning fresh ones.
Preferences& preferences();

}  // namespace platform::fake
