#include "cli/proxy_arguments.h"

#include <gtest/gtest.h>

#include "cli/words.h"
#include "client/message.h"

namespace brimo {
namespace {

/// The JSON command that the words produce.
std::string command(const std::vector<std::string>& words) {
  auto [proxies, lifetime] = parseProxyArguments(words);
  auto request = setProxies({{"id", proxies}}, lifetime);
  const auto& data = *request.message()->dictionary.get<platform::ipc::Data>("json");
  return {data.begin(), data.end()};
}

std::string permanent(const std::string& proxies) {
  return R"({"command":"set-proxy","payload":{"id":{)" + proxies + "}}}";
}

TEST(ProxyArguments, BecomeACommand) {
  EXPECT_EQ(command({"off"}), permanent(""));
  EXPECT_EQ(command({"http=proxy.example:8080"}),
            permanent(R"("HTTPEnable":1,"HTTPProxy":"proxy.example","HTTPPort":8080)"));
  EXPECT_EQ(command({"socks=[::1]:65535", "https=192.0.2.1:1"}),
            permanent(R"("HTTPSEnable":1,"HTTPSProxy":"192.0.2.1","HTTPSPort":1,)"
                      R"("SOCKSEnable":1,"SOCKSProxy":"::1","SOCKSPort":65535)"));
  EXPECT_EQ(command({"pac=http://a/?b=c", "except=*.local,,169.254/16", "except-simple"}),
            permanent(R"("ProxyAutoConfigEnable":1,"ProxyAutoConfigURLString":"http://a/?b=c",)"
                      R"("ExceptionsList":["*.local","169.254/16"],"ExcludeSimpleHostnames":1)"));
  EXPECT_EQ(command({"temporary"}), R"({"command":"set-proxy","payload":{"id":{}},"cleanup":false})");
}

TEST(ProxyArguments, RefuseInvalidWords) {
  for (const auto& word :
       splitWords("'' on http http= http=a http=a: http=:1 http=a:0 http=a:65536 http=a:1x http=::1:80 http=[::1] "
                  "http=[a]:80 pac= pac ftp=a:1 except-simple=1 = off= 'http=a b:1' http=a/b:1 http=[::g]:1 "
                  "pac=proxy.pac 'pac=http://a b' pac=ftp://a 'except=a b'")) {
    EXPECT_THROW(parseProxyArguments({word}), std::invalid_argument) << word;
    EXPECT_THROW(parseProxyArguments({"off", word}), std::invalid_argument) << word;
  }
  EXPECT_THROW(parseProxyArguments({"http=a:1", "http=b:1"}), std::invalid_argument);
  EXPECT_THROW(parseProxyArguments({"except=a", "except=b"}), std::invalid_argument);
}

}  // namespace
}  // namespace brimo
