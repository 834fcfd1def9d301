#include "platform/application/linux/transient_service.h"

#include <gmock/gmock.h>

namespace platform {
namespace {

using testing::Eq;
using testing::Optional;

TEST(TransientService, IsFollowedUntilTheApplicationRunsOrIsKnownNotTo) {
  // Not yet begun; the result is of nothing so far.
  EXPECT_EQ(outcomeOfStart({true, "inactive", false, "success", 0}), std::nullopt);
  EXPECT_EQ(outcomeOfStart({true, "activating", false, "success", 0}), std::nullopt);
  // Forked, and still on its way to the application.
  EXPECT_EQ(outcomeOfStart({false, "active", false, "success", 0}), std::nullopt);
  EXPECT_THAT(outcomeOfStart({false, "active", true, "success", 0}), Optional(Eq("")));
  // Already gone again, as it may do when another instance runs.
  EXPECT_THAT(outcomeOfStart({false, "inactive", false, "success", 0}), Optional(Eq("")));
  // Its processes are being ended.
  EXPECT_EQ(outcomeOfStart({false, "deactivating", false, "exit-code", 203}), std::nullopt);
  EXPECT_THAT(outcomeOfStart({false, "failed", false, "exit-code", 203}), Optional(Eq("exit-code, status 203")));
  EXPECT_THAT(outcomeOfStart({false, "inactive", false, "resources", 0}), Optional(Eq("resources, status 0")));
}

}  // namespace
}  // namespace platform
