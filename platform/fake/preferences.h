// Fake network preferences for unit tests.
#pragma once

#include <boost/json/value.hpp>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/network_settings/preferences.h"

namespace platform::fake {

struct Preferences {
  /// The calls that fail, written as in `calls`.
  std::set<std::string> failing;
  std::string errorText;  ///< the sentence of their failures

  /// All calls, in order: "create BrimoHelper", "lock waiting", "set PATH", "commit", "apply", "synchronize", "unlock",
  /// "release".
  std::vector<std::string> calls;
  /// Values passed to setValue(), also in calls that fail.
  std::vector<std::pair<std::string, boost::json::value>> values;
};

/// The preferences seen by the code under test. Each test begins by assigning new ones.
Preferences& preferences();

}  // namespace platform::fake
