// JSON from texts, and as the caller's own.
#include <gtest/gtest.h>

#include <boost/json.hpp>
#include <limits>

#include "foundation/HXJSON.h"
#include "foundation/HXLog.h"

namespace json = boost::json;

namespace {

TEST(JSONContainers, AreTheCallersOwnAndLeaveTheCacheAlone) {
  HXData data("{\"a\":[1]}");
  auto own = HX_JSONObjectWithMutableContainers(data);
  ASSERT_TRUE(own);
  EXPECT_FALSE(data.cachedJSON());
  own->at("a").as_array().push_back(2);
  own->as_object()["b"] = nullptr;
  EXPECT_EQ(HX_JSONString(*own), "{\"a\":[1,2],\"b\":null}");
  EXPECT_EQ(json::serialize(*HX_JSONObject(data)), "{\"a\":[1]}");
  EXPECT_EQ(json::serialize(*HX_JSONObjectWithMutableContainers(data)), "{\"a\":[1]}");
}

TEST(JSONContainers, AllReceiversRefuseTheSame) {
  HXSetLogDestinations(0);
  EXPECT_EQ(HX_JSONObject("[\"é\"]")->at(0).as_string(), "é");
  EXPECT_TRUE(HX_JSONObjectWithMutableContainers("[]"));
  for (std::string_view text : {"", "1", "\"text\"", "null", "[1,]", "[\"\xFF\"]", "{} []"}) {
    EXPECT_FALSE(HX_JSONObject(text)) << text;
    EXPECT_FALSE(HX_JSONObjectWithMutableContainers(text)) << text;
    EXPECT_FALSE(HX_JSONObjectWithMutableContainers(HXData(text))) << text;
  }
  EXPECT_FALSE(HX_JSONString("text"));
  EXPECT_FALSE(HX_JSONString(json::array{std::numeric_limits<double>::infinity()}));
}

}  // namespace
