#include "platform/network_settings/linux/desktop_proxies.h"

#include <gtest/gtest.h>

#include <boost/json.hpp>

namespace platform {
namespace {

namespace json = boost::json;

// tests/system/test_desktop_proxies.py covers real programs that read the database.

TEST(DesktopProxies, ThePrimaryConnectionAppliesElseTheFirstServiceThatIsNoConnection) {
  ProxyRecord record;
  EXPECT_EQ(record.source(), std::nullopt);
  record.add({"a", "b"});
  record.add({"a", "c", "d"});
  EXPECT_EQ(record.source(), std::nullopt)
      << "every service may be a connection until NetworkManager has said otherwise";
  record.primary = "b";
  EXPECT_EQ(record.source(), "b");
  record.primary = "another";
  EXPECT_EQ(record.source(), std::nullopt);
  record.services[3].isConnection = record.services[2].isConnection = false;
  EXPECT_EQ(record.source(), "c");
  record.primary = "d";
  EXPECT_EQ(record.source(), "d");
  record.remove({"d"});
  EXPECT_EQ(record.source(), "c");

  // As many as a request can name: adding them takes linear time, and the record stays small.
  std::set<std::string> many;
  for (int number = 0; number < 300'000; ++number) many.insert(std::to_string(number));
  record.add(many);
  record.add({"last", std::string(256, 'a'), std::string(257, 'x')});
  EXPECT_EQ(record.services.size(), 4'096u);
  EXPECT_EQ(record.services[4'094].id.size(), 256u);
  EXPECT_EQ(record.services.back().id, "last");
}

TEST(DesktopProxies, AnUnusableProxyIsOff) {
  auto words = [](const char* proxies) {
    return json::serialize(inPlainWords(desktopProxy(json::parse(proxies).get_object())));
  };
  for (std::string url : {"https://a/p", "http://a/p"}) {
    auto proxy = desktopProxy({{"ProxyAutoConfigEnable", 1}, {"ProxyAutoConfigURLString", url}});
    EXPECT_EQ(inPlainWords(proxy), (json::object{{"mode", "auto"}, {"pac", url}}));
  }
  for (auto off : {"{}", R"({"ProxyAutoConfigEnable":1,"ProxyAutoConfigURLString":"http://a b/"})",
                   R"({"HTTPEnable":1,"HTTPProxy":"a b","HTTPPort":1})", R"({"HTTPEnable":1,"HTTPProxy":"a"})",
                   R"({"ProxyAutoConfigEnable":1,"ProxyAutoConfigURLString":"file:///a","HTTPEnable":1})"}) {
    EXPECT_EQ(words(off), R"({"mode":"none"})") << off;
    EXPECT_TRUE(dconfValues(desktopProxy(json::parse(off).get_object())).empty());
  }
  auto values = dconfValues(desktopProxy({{"SOCKSEnable", 1}, {"SOCKSProxy", "a"}, {"SOCKSPort", 2}}));
  EXPECT_EQ(values.at("/system/proxy/socks/host"), GVDBValue("a"));
  EXPECT_EQ(values.at("/system/proxy/socks/port"), GVDBValue(2));
  EXPECT_EQ(words(R"({"HTTPEnable":1,"HTTPProxy":"a","HTTPPort":0,"SOCKSEnable":1,"SOCKSProxy":"::1","SOCKSPort":2,
                      "ExceptionsList":["10/8",".a","b.","\"","fe80::/10",1],"ExcludeSimpleHostnames":1})"),
            R"({"mode":"manual","socks":"[::1]:2","exceptions":["10.0.0.0/8","*.a","b","fe80::/10","<local>"]})");
}

}  // namespace
}  // namespace platform
