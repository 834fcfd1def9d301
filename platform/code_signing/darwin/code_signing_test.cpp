// Tests signatures of files that every Mac has.
#include "platform/code_signing/code_signing.h"

#include <gtest/gtest.h>

namespace platform::code_signing {
namespace {

Status statusOf(const Result<void>& result) {
  return result ? success : result.error().number;
}

TEST(CodeSigning, FilesAreCheckedAgainstTheRequirement) {
  EXPECT_EQ(statusOf(checkFile("/bin/ls", "anchor apple")), success);
  EXPECT_EQ(statusOf(checkFile("/bin/ls", R"(anchor apple and identifier "com.example.other")")), requirementFailed);
  EXPECT_EQ(statusOf(checkFile("/bin/ls", "anchor anchor")), requirementInvalid);
  EXPECT_EQ(statusOf(checkFile("/bin/ls", "\xFF")), requirementInvalid);
  EXPECT_EQ(statusOf(checkFile("/etc/hosts", "anchor apple")), unsignedCode);
  EXPECT_NE(statusOf(checkFile("/no/such/file", "anchor apple")), success);
}

}  // namespace
}  // namespace platform::code_signing
