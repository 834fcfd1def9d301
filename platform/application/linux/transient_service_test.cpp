#include "platform/application/linux/transient_service.h"

#include <gtest/gtest.h>

namespace platform {
namespace {

/// The logged sentence of the outcome; empty for a success, absent before the outcome.
std::optional<std::string> outcomeOf(const ServiceState& state) {
  auto outcome = outcomeOfStart(state);
  return outcome ? std::optional<std::string>(outcome->has_error() ? outcome->error().what() : "") : std::nullopt;
}

TEST(TransientService, IsFollowedUntilTheApplicationRunsOrIsKnownNotTo) {
  // The start is not over, so the result has no meaning yet.
  EXPECT_EQ(outcomeOf({true, "inactive", false, "success", 0}), std::nullopt);
  EXPECT_EQ(outcomeOf({true, "activating", false, "success", 0}), std::nullopt);
  // systemd has forked, but not executed the application yet.
  EXPECT_EQ(outcomeOf({false, "active", false, "success", 0}), std::nullopt);
  EXPECT_EQ(outcomeOf({false, "active", true, "success", 0}), "");
  // The application has already ended, for example because another instance runs.
  EXPECT_EQ(outcomeOf({false, "inactive", false, "success", 0}), "");
  // systemd is terminating its processes.
  EXPECT_EQ(outcomeOf({false, "deactivating", false, "exit-code", 203}), std::nullopt);
  EXPECT_EQ(outcomeOf({false, "failed", false, "exit-code", 203}), "exit-code, status 203");
  EXPECT_EQ(outcomeOf({false, "inactive", false, "resources", 0}), "resources, status 0");
}

}  // namespace
}  // namespace platform
