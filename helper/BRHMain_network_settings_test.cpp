#include "helper/command_fixture.h"
#include "platform/fake/preferences.h"

namespace {

using platform::fake::preferences;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
namespace json = boost::json;

using Lines = std::vector<std::string>;

std::string setProxies(const std::string& service) {
  return "set /NetworkServices/" + service + "/Proxies";
}

/// The calls of a session that sets these paths.
Lines calls(const Lines& sets) {
  Lines all{"create BrimoHelper", "lock waiting"};
  all.insert(all.end(), sets.begin(), sets.end());
  for (auto last : {"commit", "apply", "synchronize", "unlock", "release"}) all.emplace_back(last);
  return all;
}

class NetworkSettingsTest : public CommandTest {
 protected:
  NetworkSettingsTest() { preferences() = {}; }

  std::string run(std::string_view request) {
    preferences().calls.clear();
    preferences().values.clear();
    log();
    return json::serialize(helper.execCommand(json::parse(request).get_object(), *platform::fake::makeConnection()));
  }

  /// Sends "set-proxy" with a payload and further members, each after a comma.
  std::string setProxy(std::string_view payload, std::string_view rest = "") {
    return run(fmt::format(R"({{"command":"set-proxy","payload":{}{}}})", payload, rest));
  }

  std::string setStaticIP(std::string_view members) {
    return run(fmt::format(R"({{"command":"set-static-ip",{}}})", members));
  }

  /// Cleans up and returns the services that this resets, or "none" if the helper has no list.
  Lines listAtCleanup() {
    preferences() = {};
    log();
    helper.cleanupProxySettings();
    if (log().empty()) return {"none"};
    Lines services;
    for (const auto& [path, value] : preferences().values) {
      EXPECT_EQ(value, json::object());
      services.push_back(path.substr(17, path.size() - 17 - 8));
    }
    return services;
  }

  const std::string success = R"({"result":"success"})", failure = R"({"error":"failed to apply proxy settings"})";
};

TEST_F(NetworkSettingsTest, ProxiesAreWrittenUnchanged) {
  EXPECT_EQ(setProxy(R"({"B":{"HTTPEnable":1,"HTTPPort":8080,"X":[true,null,0.5]},"A":{}})"), success);
  EXPECT_EQ(preferences().calls, calls({setProxies("B"), setProxies("A")}));
  EXPECT_THAT(preferences().values,
              ElementsAre(Pair("/NetworkServices/B/Proxies",
                               json::parse(R"({"HTTPEnable":1,"HTTPPort":8080,"X":[true,null,0.5]})")),
                          Pair("/NetworkServices/A/Proxies", json::object())));
  EXPECT_THAT(log(), ElementsAre(R"(Update service B proxy settings to: {"HTTPEnable":1,"HTTPPort":8080,)"
                                 R"("X":[true,null,0.5]}, result: 1)",
                                 "Update service A proxy settings to: {}, result: 1"));
  EXPECT_THAT(listAtCleanup(), ElementsAre("none"));
}

TEST_F(NetworkSettingsTest, OnlyAnObjectOpensASession) {
  for (auto request : {R"({"command":"set-proxy"})", R"({"command":"set-proxy","payload":[],"cleanup":false})"}) {
    EXPECT_EQ(run(request), failure);
    EXPECT_THAT(log(), ElementsAre("Invalid proxy settings payload"));
    EXPECT_THAT(preferences().calls, IsEmpty());
  }
}

TEST_F(NetworkSettingsTest, InvalidEntriesDoNotStopTheOthers) {
  EXPECT_EQ(setProxy(R"({"A/B":{},"C":1,"D":[],"E":{}})", R"(,"cleanup":false)"), failure);
  EXPECT_EQ(preferences().calls, calls({setProxies("E")}));
  EXPECT_THAT(log(),
              ElementsAre("Invalid proxy settings entry: A/B", "Invalid proxy settings entry: C",
                          "Invalid proxy settings entry: D", "Update service E proxy settings to: {}, result: 1"));
  EXPECT_THAT(listAtCleanup(), ElementsAre("A/B", "C", "D", "E"));
}

TEST_F(NetworkSettingsTest, AFailedStepDoesNotStopTheLaterOnes) {
  for (const auto& step : {setProxies("A"), std::string("commit"), std::string("apply")}) {
    preferences().failing = {step};
    EXPECT_EQ(setProxy(R"({"A":{},"B":{}})"), failure) << step;
    EXPECT_EQ(preferences().calls, calls({setProxies("A"), setProxies("B")}));
    EXPECT_THAT(log(), ElementsAre(fmt::format("Update service A proxy settings to: {{}}, result: {:d}",
                                               step != setProxies("A")),
                                   "Update service B proxy settings to: {}, result: 1"));
  }
}

TEST_F(NetworkSettingsTest, SessionsThatCannotBeOpened) {
  ASSERT_EQ(setProxy(R"({"A":{}})", R"(,"cleanup":false)"), success);
  auto expect = [&](const std::string& error, const std::string& failed, const Lines& calls) {
    preferences().failing = {calls[calls.size() == 1 ? 0 : 1]};
    preferences().errorText = "Busy";
    const auto reason = calls.size() == 1 ? "" : ": Busy";
    EXPECT_EQ(setProxy(R"({"B":{}})", R"(,"cleanup":false)"), failure);
    EXPECT_THAT(log(), ElementsAre(failed + reason));
    EXPECT_EQ(preferences().calls, calls);
    EXPECT_EQ(setStaticIP(R"("address":"1","mask":"2","router":"3","serviceID":"A")"), error);
    EXPECT_THAT(log(), IsEmpty());
    EXPECT_EQ(std::exchange(preferences().calls, {}), calls);
    helper.cleanupProxySettings();
    EXPECT_THAT(log(), ElementsAre("cleanupProxySettings", failed + " for cleanup" + reason));
    EXPECT_EQ(preferences().calls, calls);
  };
  expect(R"({"error":"failed to create preferences session"})", "Failed to create SCPreferences session",
         {"create BrimoHelper"});
  expect(R"({"error":"failed to lock preferences"})", "Failed to lock SCPreferences",
         {"create BrimoHelper", "lock waiting", "release"});
  EXPECT_THAT(listAtCleanup(), ElementsAre("A"));
}

TEST_F(NetworkSettingsTest, TheListKeepsTheOrderInWhichServicesWereFirstSeen) {
  setProxy(R"({"B":{},"A":{}})", R"(,"cleanup":false)");
  setProxy(R"({"C":{},"A":{}})", R"(,"cleanup":0)");
  preferences().failing = {"commit"};
  setProxy(R"({"D":{}})", R"(,"cleanup":0.0)");
  setProxy(R"({"E":{}})");
  EXPECT_THAT(listAtCleanup(), ElementsAre("B", "A", "C", "D"));
  EXPECT_THAT(listAtCleanup(), ElementsAre("none"));
}

TEST_F(NetworkSettingsTest, WhatCleanupMeans) {
  for (auto truth : {"true", "1", "-1", "0.5", "1e-300", "18446744073709551615"}) {
    setProxy(R"({"A":{}})", R"(,"cleanup":false)");
    preferences().failing = {"apply"};
    EXPECT_EQ(setProxy(R"({"B":{}})", fmt::format(R"(,"cleanup":{})", truth)), failure);
    preferences().failing = {};
    EXPECT_EQ(setProxy(R"({"A/B":{}})", fmt::format(R"(,"cleanup":{})", truth)), failure);
    EXPECT_THAT(listAtCleanup(), ElementsAre("A")) << "a failure keeps the list: " << truth;

    setProxy(R"({"A":{}})", R"(,"cleanup":false)");
    EXPECT_EQ(setProxy(R"({"B":{}})", fmt::format(R"(,"cleanup":{})", truth)), success);
    EXPECT_THAT(listAtCleanup(), ElementsAre("none")) << truth;
  }
  for (auto neither : {"null", R"("true")", R"("")", "[]", "{}"}) {
    setProxy(R"({"A":{}})", R"(,"cleanup":false)");
    EXPECT_EQ(setProxy(R"({"B":{}})", fmt::format(R"(,"cleanup":{})", neither)), success);
    EXPECT_THAT(listAtCleanup(), ElementsAre("A")) << neither;
  }
}

TEST_F(NetworkSettingsTest, AnIncompleteCleanupKeepsTheWholeList) {
  setProxy(R"({"A":{},"B":{}})", R"(,"cleanup":false)");
  for (const auto& step : {setProxies("A"), std::string("commit"), std::string("apply")}) {
    preferences() = {};
    preferences().failing = {step};
    preferences().errorText = "No space";
    log();
    helper.cleanupProxySettings();
    EXPECT_EQ(preferences().calls, calls({setProxies("A"), setProxies("B")}));
    EXPECT_THAT(
        log(),
        ElementsAre("cleanupProxySettings",
                    fmt::format("Remove service A proxy settings, result: {:d}", step != setProxies("A")),
                    "Remove service B proxy settings, result: 1", "Proxy settings cleanup was incomplete: No space"));
  }
  EXPECT_THAT(listAtCleanup(), ElementsAre("A", "B"));
}

TEST_F(NetworkSettingsTest, StaticIP) {
  const std::string request =
      R"("address":"not an address","mask":"255.255.255.0","router":"192.0.2.1","serviceID":"A")";
  EXPECT_EQ(setStaticIP(request), success);
  const std::string path = "/NetworkServices/A/IPv4";
  EXPECT_EQ(preferences().calls, calls({"set " + path}));
  EXPECT_THAT(preferences().values,
              ElementsAre(Pair(path, json::parse(R"({"Addresses":["not an address"],"ConfigMethod":"Manual",)"
                                                 R"("Router":"192.0.2.1","SubnetMasks":["255.255.255.0"]})"))));
  EXPECT_THAT(log(), ElementsAre("SCPreferencesPathSetValue result: 1"));
  for (const auto& step : {"set " + path, std::string("commit"), std::string("apply")}) {
    preferences().failing = {step};
    EXPECT_EQ(setStaticIP(request), R"({"error":"failed to apply static IP configuration"})");
    EXPECT_EQ(preferences().calls, calls({"set " + path}));
    EXPECT_THAT(log(), ElementsAre(fmt::format("SCPreferencesPathSetValue result: {:d}", !step.starts_with("set"))));
  }
}

TEST_F(NetworkSettingsTest, StaticIPTakesFourTexts) {
  for (auto key : {"address", "mask", "router", "serviceID"}) {
    for (const json::value& value : {json::value(""), json::value(1), json::value(nullptr)}) {
      json::object request{
          {"command", "set-static-ip"}, {"address", "1"}, {"mask", "2"}, {"router", "3"}, {"serviceID", "a/b"}};
      EXPECT_EQ(run(json::serialize(request)), R"({"error":"invalid static IP configuration"})");
      request["serviceID"] = "4";
      request[key] = value;
      EXPECT_EQ(run(json::serialize(request)), R"({"error":"invalid static IP configuration"})") << request;
      EXPECT_THAT(preferences().calls, IsEmpty());
    }
  }
}

}  // namespace
