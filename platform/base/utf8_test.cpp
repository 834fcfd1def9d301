#include "platform/base/utf8.h"

#include <gtest/gtest.h>

using namespace std::string_view_literals;

namespace platform {
namespace {

TEST(UTF8, AcceptsTheLimitsOfEveryRangeAndNothingBeyond) {
  for (auto text : {""sv, "a\0b"sv, "\x7F"sv, "\xC2\x80\xDF\xBF"sv,
                    "\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF"sv, "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"sv}) {
    EXPECT_TRUE(isUTF8(text)) << testing::PrintToString(text);
  }
  for (auto text : {"\x80"sv, "\xBF"sv, "\xC0\x80"sv, "\xC1\xBF"sv, "\xC2"sv, "\xC2\x7F"sv, "\xC2\xC0"sv,
                    "\xE0\x9F\xBF"sv, "\xED\xA0\x80"sv, "\xE1\x80"sv, "\xE1\x80\x7F"sv, "\xF0\x8F\xBF\xBF"sv,
                    "\xF4\x90\x80\x80"sv, "\xF5\x80\x80\x80"sv, "\xF1\x80\x80"sv, "\xFF"sv, "ok\xFE"sv}) {
    EXPECT_FALSE(isUTF8(text)) << testing::PrintToString(text);
  }
}

}  // namespace
}  // namespace platform
