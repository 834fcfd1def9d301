#include "foundation/HXJSON.h"

#include <gmock/gmock.h>

#include <boost/json.hpp>
#include <clocale>
#include <cstdlib>
#include <limits>

#include "tests/support/captured_log.h"
#include "tests/support/temporary_folder.h"

namespace json = boost::json;

namespace {

TEST(HXJSONObject, RefusesOtherTextsWithoutLogging) {
  CapturedLog log;
  for (std::string_view text :
       {"", "{", "1", "\"text\"", "null", "{} {}", "[1,]", "{\"a\":}", "{'a':1}", "[01]", "[NaN]", "[Infinity]",
        "// {}\n{}", "[\"\xC0\x80\"]", "[\"\xED\xA0\x80\"]", "[\"\\uD800\"]", "[\"\x01\"]", "\xEF\xBB\xBF{}"}) {
    HXData data(text);
    EXPECT_FALSE(HX_JSONObject(data)) << text;
    EXPECT_FALSE(HX_JSONObject(data)) << text;
  }
  EXPECT_THAT(log.lines, testing::IsEmpty());
}

TEST(HXJSONObject, NestsToItsLimit) {
  auto nested = [](std::size_t depth) { return HXData(std::string(depth, '[') + std::string(depth, ']')); };
  EXPECT_TRUE(HX_JSONObject(nested(512)));
  EXPECT_FALSE(HX_JSONObject(nested(513)));
  EXPECT_FALSE(HX_JSONObject(HXData(std::string(1'000'000, '['))));
}

TEST(HXJSONObject, SurvivesOddNumbersAndNames) {
  auto parsed =
      HX_JSONObject(HXData(R"({"a":1,"a":2,"big":123456789012345678901234567890,"huge":1e400,"tiny":1e-400,"":0,
                             "real":1.3927926388013963E-143})"));
  ASSERT_TRUE(parsed);
  EXPECT_EQ(parsed->at("a").as_int64(), 2);
  EXPECT_TRUE(parsed->at("big").is_double());
  EXPECT_EQ(parsed->at("huge"), std::numeric_limits<double>::infinity());
  EXPECT_EQ(parsed->at("tiny"), 0.0);
  EXPECT_EQ(parsed->at("real").as_double(), 1.3927926388013963E-143);  // Boost 1.81 itself misses the last bit
}

TEST(HXJSONData, RealsAreWrittenShortAndReadBackAsTheyWere) {
  EXPECT_EQ(HX_JSONData(json::array{1.5, 1.0, -0.0, 100000.0, 0.1, 1}), "[1.5,1.0,-0.0,100000.0,0.1,1]");
  for (double real : {1e300, 5e-324, 1e16, 123456789.123, 1.0 / 3, -1e-7}) {
    auto text = HX_JSONData(json::array{real});
    auto read = HX_JSONObject(*text)->at(0);
    ASSERT_TRUE(read.is_double()) << *text;
    EXPECT_EQ(read.get_double(), real) << *text;
  }
}

// The test makes its own locale, because not every machine has one with a decimal comma.
TEST(HXJSONObject, NumbersAreReadTheSameInEveryLocale) {
#ifdef __linux__
  TemporaryFolder folder;
  ASSERT_EQ(std::system(("localedef -i de_DE -f UTF-8 " + folder / "de_DE.UTF-8").c_str()), 0);
  setenv("LOCPATH", (folder / "").c_str(), 1);
#endif
  ASSERT_TRUE(std::setlocale(LC_ALL, "de_DE.UTF-8"));
  EXPECT_STREQ(localeconv()->decimal_point, ",");
  auto read = HX_JSONObject("[1.5]");
  auto written = HX_JSONData(json::array{2.5});
  std::setlocale(LC_ALL, "C");
  unsetenv("LOCPATH");
  EXPECT_EQ(*read, json::array{1.5});
  EXPECT_EQ(written, "[2.5]");
}

TEST(HXJSONData, FailuresAreLogged) {
  CapturedLog log;
  EXPECT_FALSE(HX_JSONData("text"));
  EXPECT_FALSE(HX_JSONData(json::object{{"a", json::array{std::numeric_limits<double>::infinity()}}}));
  EXPECT_FALSE(HX_JSONData(json::array{"\xFF"}));
  EXPECT_THAT(log.lines,
              testing::ElementsAre(
                  "[JSONHelper] Not a valid JSON object: string", "[JSONHelper] Not a valid JSON object: object",
                  "[JSONHelper] Error occered when JSON serializate object to NSData: a text is not UTF-8"));
}

TEST(JSONContainers, BelongToTheCallerAndLeaveTheCacheAlone) {
  HXData data("{\"a\":[1]}");
  auto own = HX_JSONObjectWithMutableContainers(data);
  own->at("a").as_array().push_back(2);
  EXPECT_EQ(HX_JSONString(*own), "{\"a\":[1,2]}");
  EXPECT_EQ(json::serialize(*HX_JSONObject(data)), "{\"a\":[1]}");
}

}  // namespace
