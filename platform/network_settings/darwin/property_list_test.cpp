// Tests a round trip of each type.
#include "platform/network_settings/darwin/property_list.h"

#include <gtest/gtest.h>

#include <boost/json.hpp>
#include <limits>

namespace platform {
namespace {

namespace json = boost::json;

TEST(PropertyList, JSONComesBackAsItWas) {
  const auto value = json::parse(R"({
    "HTTPEnable": 1, "HTTPPort": 8080, "HTTPProxy": "proxy.example", "ExcludeSimpleHostnames": true, "Off": false,
    "ExceptionsList": ["*.local", "169.254/16", "ä\u0000\ud83d\ude00", ""], "Empty": {}, "None": [], "Half": 0.5,
    "One": 1.0, "Least": -9223372036854775808, "Most": 9223372036854775807, "Deep": [[{"a": [{"b": true}]}]]})");
  const auto list = propertyList(value);
  ASSERT_TRUE(list);
  EXPECT_EQ(jsonValue(list.get()), value);
}

TEST(PropertyList, TypesStayApart) {
  auto type = [](const json::value& value) { return CFGetTypeID(propertyList(value).get()); };
  EXPECT_EQ(type(true), CFBooleanGetTypeID());
  EXPECT_EQ(type(1), CFNumberGetTypeID());
  EXPECT_EQ(type(1u), CFNumberGetTypeID());
  auto isFloat = [](const json::value& value) {
    return CFNumberIsFloatType(static_cast<CFNumberRef>(propertyList(value).get())) != 0;
  };
  EXPECT_FALSE(isFloat(1));
  EXPECT_TRUE(isFloat(1.0));
  EXPECT_TRUE(jsonValue(kCFBooleanTrue)->is_bool());
  EXPECT_TRUE(jsonValue(propertyList(1).get())->is_int64());
  EXPECT_TRUE(jsonValue(propertyList(1.0).get())->is_double());
}

TEST(PropertyList, ValuesWithoutACounterpartAreRefused) {
  EXPECT_FALSE(propertyList({{"a", {1, nullptr}}}));
  EXPECT_FALSE(propertyList(std::numeric_limits<std::uint64_t>::max()));
  EXPECT_FALSE(propertyList(std::numeric_limits<double>::infinity()));
  EXPECT_FALSE(propertyList("\xFF"));

  const UInt8 byte = 0;
  CFOwner<CFDataRef> data(CFDataCreate(kCFAllocatorDefault, &byte, 1));
  CFOwner<CFMutableArrayRef> list(CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks));
  CFArrayAppendValue(list.get(), data.get());
  EXPECT_FALSE(jsonValue(list.get()));
}

TEST(CoreFoundationText, IsUTF8) {
  for (const std::string& text : {std::string(), std::string("plain"), std::string("ä€😀"), std::string("a\0b", 3)}) {
    EXPECT_EQ(textOf(makeString(text).get()), text);
  }
  EXPECT_EQ(textOf(nullptr), "");
  EXPECT_FALSE(makeString("\xC0\x80"));
}

}  // namespace
}  // namespace platform
