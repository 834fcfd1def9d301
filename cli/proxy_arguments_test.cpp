#include "cli/proxy_arguments.h"

#include <gtest/gtest.h>

#include <boost/json.hpp>

namespace brimo {
namespace {

std::string proxies(const std::vector<std::string>& words) {
  return boost::json::serialize(parseProxyArguments(words).proxies);
}

TEST(ProxyArguments, BecomeAProxiesDictionary) {
  EXPECT_EQ(proxies({"off"}), "{}");
  EXPECT_EQ(proxies({"http=proxy.example:8080"}), R"({"HTTPEnable":1,"HTTPProxy":"proxy.example","HTTPPort":8080})");
  EXPECT_EQ(proxies({"socks=[::1]:65535", "https=192.0.2.1:1"}),
            R"({"SOCKSEnable":1,"SOCKSProxy":"::1","SOCKSPort":65535,)"
            R"("HTTPSEnable":1,"HTTPSProxy":"192.0.2.1","HTTPSPort":1})");
  EXPECT_EQ(proxies({"pac=http://a/?b=c", "except=*.local,,169.254/16", "except-simple"}),
            R"({"ProxyAutoConfigEnable":1,"ProxyAutoConfigURLString":"http://a/?b=c",)"
            R"("ExceptionsList":["*.local","169.254/16"],"ExcludeSimpleHostnames":1})");
  EXPECT_EQ(parseProxyArguments({"http=a:1"}).cleanup, std::nullopt);
  EXPECT_EQ(parseProxyArguments({"temporary", "http=a:1"}).cleanup, false);
}

TEST(ProxyArguments, AreRefusedWhenTheyAreNone) {
  for (auto word :
       {"", "on", "http", "http=", "http=a", "http=a:", "http=:1", "http=a:0", "http=a:65536", "http=a:1x",
        "http=::1:80", "http=[::1]", "http=[a]:80", "pac=", "pac", "ftp=a:1", "except-simple=1", "=", "off="}) {
    EXPECT_THROW(parseProxyArguments({word}), std::invalid_argument) << word;
    EXPECT_THROW(parseProxyArguments({"off", word}), std::invalid_argument) << word;
  }
}

}  // namespace
}  // namespace brimo
