#include "platform/network_settings/linux/projection.h"

#include <boost/json.hpp>
#include <vector>

#include "tests/support/linux/signed_files.h"

namespace platform {
namespace {

Result<ProxySetting> tryToProject(std::string_view proxies) {
  return projectProxies(boost::json::parse({proxies.data(), proxies.size()}).get_object());
}

ProxySetting project(std::string_view proxies) {
  return tryToProject(proxies).value();
}
std::string problem(std::string_view proxies) {
  return tryToProject(proxies).error().what();
}

/// The results of a script's FindProxyForURL() for each URL, from duktape (Debian package duktape).
std::vector<std::string> evaluate(const std::string& script, const std::vector<std::string>& urls) {
  test::TemporaryFolder folder;
  std::string calls;
  for (const auto& url : urls) {
    auto start = url.find("//") + 2;
    bool bracketed = url.substr(start, 1) == "[";
    auto end = bracketed ? url.find(']') + 1 : url.find_first_of(":/", start);
    calls += fmt::format("print(FindProxyForURL(\"{}\", \"{}\"));\n", url, url.substr(start, end - start));
  }
  test::writeFile(folder / "script.js", script + calls);
  test::run(fmt::format("duk {} > {}", folder / "script.js", folder / "output"));
  std::ifstream output(folder / "output");
  std::vector<std::string> answers;
  for (std::string line; std::getline(output, line);) answers.push_back(line);
  return answers;
}

TEST(NetworkProjection, AProxyThatIsOffIsLeftOut) {
  for (auto proxies : {"{}", R"({"HTTPEnable":0,"HTTPProxy":"a","HTTPPort":80,"SOCKSEnable":false})",
                       R"({"HTTPProxy":"a","HTTPPort":80,"ExceptionsList":["b"],"ExcludeSimpleHostnames":1})",
                       R"({"ProxyAutoConfigEnable":0,"ProxyAutoConfigURLString":"http://a/"})",
                       R"({"HTTPEnable":"1","HTTPSEnable":null,"SOCKSEnable":[1],"HTTPPort":-1})"}) {
    EXPECT_EQ(project(proxies), ProxySetting()) << proxies;
  }
}

TEST(NetworkProjection, TheApplicationsScriptComesFirstAndStaysUnchanged) {
  EXPECT_EQ(project(R"({"ProxyAutoConfigEnable":1,"ProxyAutoConfigURLString":"http://a.example/x?y=\"z\"",
                        "ProxyAutoConfigJavaScript":"FindProxyForURL","HTTPEnable":1,"HTTPProxy":"b","HTTPPort":80})"),
            (ProxySetting{.automatic = true, .pacURL = "http://a.example/x?y=\"z\"", .pacScript = ""}));
  for (auto url : {"1", R"("")", R"("http://a/\u0000")", R"("http://a b/")", R"("http://é/")", R"("a:\u007F")"}) {
    EXPECT_EQ(problem(fmt::format(R"({{"ProxyAutoConfigEnable":true,"ProxyAutoConfigURLString":{}}})", url)),
              "ProxyAutoConfigURLString is not a URL");
  }
  EXPECT_EQ(project(R"({"ProxyAutoConfigEnable":1,"ProxyAutoConfigJavaScript":"/* é */ FindProxyForURL = x;",
                        "HTTPEnable":1})"),
            (ProxySetting{.automatic = true, .pacURL = "", .pacScript = "/* é */ FindProxyForURL = x;"}));
  for (auto script : {R"("x")", R"("FindProxyForURL\u0000")"}) {
    EXPECT_EQ(problem(fmt::format(R"({{"ProxyAutoConfigEnable":1,"ProxyAutoConfigJavaScript":{}}})", script)),
              "ProxyAutoConfigJavaScript does not define FindProxyForURL");
  }
}

TEST(NetworkProjection, AProxyThatIsOnMustBeUsable) {
  for (std::string kind : {"HTTP", "HTTPS", "SOCKS"}) {
    for (auto host : {"1", "null", R"("")", R"("a b")", R"("a;DIRECT")", R"("a\"")", R"("a\\")", R"("a\n")", R"("a:1")",
                      R"("é")", R"("a\u0000")", R"("[::1]")", R"("::g")", R"("a@")", R"("a`")", R"("a{")"}) {
      EXPECT_EQ(problem(fmt::format(R"({{"{0}Enable":1,"{0}Proxy":{1},"{0}Port":80}})", kind, host)),
                kind + "Proxy is not a host")
          << host;
    }
    for (auto port : {"0", "65536", "-1", "1.5", "1e99", R"("80")", "null", "true"}) {
      EXPECT_EQ(problem(fmt::format(R"({{"{0}Enable":1,"{0}Proxy":"a","{0}Port":{1}}})", kind, port)),
                kind + "Port is not a port")
          << port;
    }
    EXPECT_EQ(problem(fmt::format(R"({{"{0}Enable":1,"{0}Proxy":"a"}})", kind)), kind + "Port is not a port");
    for (auto length : {255, 256}) {
      auto proxies = fmt::format(R"({{"{0}Enable":1,"{0}Proxy":"{1:x>{2}}","{0}Port":80}})", kind, "", length);
      auto setting = tryToProject(proxies);
      EXPECT_EQ(setting && setting->automatic, length == 255);
    }
  }
}

TEST(NetworkProjection, TheScriptGivesEachSchemeItsProxies) {
  const std::vector<std::string> urls{"http://x.example/", "HTTPS://x.example/", "ws://x.example/", "wss://x.example/",
                                      "ftp://x.example/"};
  auto http = project(R"({"HTTPEnable":1,"HTTPProxy":"AZ-az.example","HTTPPort":8080})");
  EXPECT_EQ(evaluate(http.pacScript, urls), (std::vector<std::string>{"PROXY AZ-az.example:8080", "DIRECT",
                                                                      "PROXY AZ-az.example:8080", "DIRECT", "DIRECT"}));
  auto all = project(R"({"HTTPEnable":true,"HTTPProxy":"192.0.2.1","HTTPPort":65535,"HTTPSEnable":1,
      "HTTPSProxy":"2001:db8::1","HTTPSPort":1,"SOCKSEnable":1.0,"SOCKSProxy":"s_1","SOCKSPort":1080})");
  const std::string socks = "SOCKS5 s_1:1080; SOCKS s_1:1080";
  EXPECT_EQ(evaluate(all.pacScript, urls),
            (std::vector<std::string>{"PROXY 192.0.2.1:65535; " + socks, "PROXY [2001:db8::1]:1; " + socks,
                                      "PROXY 192.0.2.1:65535; " + socks, "PROXY [2001:db8::1]:1; " + socks, socks}));
}

TEST(NetworkProjection, ExceptionsGoDirect) {
  auto setting = project(R"({"HTTPEnable":1,"HTTPProxy":"p","HTTPPort":1,"ExcludeSimpleHostnames":1,"ExceptionsList":[
      " *.LocAlZ\t","exact.example.","a*b*c.example","one?.example","169.254/16","10.1.2.3","192.0.2.128/25","fe80::/10",
      "[2001:DB8::1]",1,null,""," ",".","[","[]","\"];alert(1);//","a\\","é.example","10.0.0.0/33","10.0.0.0/8x","192.0.2.9/32","x10.1.2.30]","[10.1.2.30x","10.0.0.0/","x/8","0.0.0.1/-1"]})");
  const std::vector<std::string> direct{
      "http://a.localz/",       "http://b.a.LOCALZ:8080/",     "http://exact.example/",       "http://exact.example./",
      "http://a1b2bc.example/", "http://abc.example/",         "http://one1.example/",        "http://169.254.255.1/",
      "http://10.1.2.3/",       "http://192.0.2.128/",         "http://192.0.2.255/",         "http://[fe80::1]/",
      "http://[FEBF:1::]/",     "http://[2001:db8:0:0::0:1]/", "http://[2001:db8::0.0.0.1]/", "http://simple/",
      "http://192.0.2.9/"};
  EXPECT_EQ(evaluate(setting.pacScript, direct), std::vector<std::string>(direct.size(), "DIRECT"));
  const std::vector<std::string> proxied{
      "http://local.example/",   "http://local.a/",     "http://sub.exact.example/", "http://exact.example.org/",
      "http://acb.example/",     "http://one.example/", "http://one12.example/",     "http://169.255.0.1/",
      "http://169.254.256.1/",   "http://169.254/",     "http://10.1.2.30/",         "http://10.1.2.3.example/",
      "http://192.0.2.127/",     "http://[fec0::1]/",   "http://[2001:db8::2]/",     "http://[2001:db8::1:1]/",
      "http://[1:2:3:4:5:6:7]/", "http://[::fe80]/",    "http://[::1::]/",           "http://10.0.0.0/"};
  EXPECT_EQ(evaluate(setting.pacScript, proxied), std::vector<std::string>(proxied.size(), "PROXY p:1"));
}

TEST(NetworkProjection, NoPatternMakesTheScriptSlow) {
  std::string pattern, host(20'000, 'a');
  for (int i = 0; i < 200; ++i) pattern += "*a";
  auto setting =
      project(fmt::format(R"({{"HTTPEnable":1,"HTTPProxy":"p","HTTPPort":1,"ExceptionsList":["{}b","**"]}})", pattern));
  EXPECT_EQ(evaluate(setting.pacScript, {"http://" + host + "/"}), std::vector<std::string>{"DIRECT"});
}

TEST(NetworkProjection, IPv4) {
  auto entity = [](std::string_view addresses, std::string_view masks, std::string_view router) {
    return boost::json::parse(fmt::format(R"({{"ConfigMethod":"Manual","Addresses":{},"SubnetMasks":{},"Router":{}}})",
                                          addresses, masks, router))
        .get_object();
  };
  EXPECT_EQ(projectIPv4(entity(R"(["192.0.2.7"])", R"(["255.255.255.0"])", R"("192.0.2.1")")).value(),
            (IPv4Setting{.address = "192.0.2.7", .prefix = 24, .gateway = "192.0.2.1"}));
  EXPECT_EQ(projectIPv4(entity(R"(["192.0.2.7"])", R"(["0.0.0.0"])", R"("1.1.1.1")")).value().prefix, 0u);
  const std::string address = R"(["192.0.2.7"])", mask = R"(["255.255.255.0"])", router = R"("192.0.2.1")";
  for (auto other : {R"([])", R"([1])", R"("192.0.2")", R"(["192.0.2.7","192.0.2.8"])", R"(["192.0.2"])",
                     R"(["192.0.2.7\u0000"])", R"(["::1"])", R"(["not an address"])"}) {
    EXPECT_FALSE(projectIPv4(entity(other, mask, router))) << other;
    EXPECT_FALSE(projectIPv4(entity(address, other, router))) << other;
    EXPECT_FALSE(projectIPv4(entity(address, mask, other))) << other;
  }
  EXPECT_FALSE(projectIPv4(entity(address, R"(["255.0.255.0"])", router)));
  EXPECT_FALSE(projectIPv4(entity(address, R"(["0.0.0.255"])", router)));
  EXPECT_FALSE(projectIPv4(entity(address, mask, R"("0.0.0.0")")));
  EXPECT_FALSE(projectIPv4({}));
}

}  // namespace
}  // namespace platform
