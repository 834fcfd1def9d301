#include <optional>

#include "helper/command_fixture.h"
#include "helper/probes/BRSockAddrObject.h"
#include "tests/support/this_machine.h"

namespace {

using platform::fake::machine;
using testing::ElementsAre;
using testing::IsEmpty;
namespace ipc = platform::ipc;
namespace fake = platform::fake;

class DispatchTest : public CommandTest {
 protected:
  void deliver(const ipc::Event& event) {
    log();
    helper.handleXPCEvent(*connection, event);
  }

  ipc::Dictionary ask(ipc::Dictionary request) {
    std::optional<ipc::Dictionary> answer;
    deliver(fake::makeMessage(std::move(request), [&](const ipc::Dictionary& reply) {
      EXPECT_FALSE(answer) << "a second reply";
      answer = reply;
    }));
    fake::passTime({});
    EXPECT_TRUE(answer) << "no reply";
    return answer.value_or(ipc::Dictionary());
  }

  std::string askJSON(std::string_view text) {
    auto reply = ask({{"json", ipc::Data(text.begin(), text.end())}});
    const auto* data = reply.get<ipc::Data>("json");
    return data ? std::string(data->begin(), data->end()) : "(none)";
  }

  std::shared_ptr<ipc::Connection> connection = fake::makeConnection();
  const BRSockAddr local = BRSockAddrMakeIPv4({127, 0, 0, 1}, 80);
  const ipc::Data address{local.begin(), local.end()};
  const platform::SocketEntry socket{
      .localPort = 80, .isIPv4 = true, .isIPv6 = false, .localAddress = {}, .identity = 7};
};

ipc::Data bytesOf(std::string_view text) {
  return {text.begin(), text.end()};
}

TEST_F(DispatchTest, JSONErrors) {
  EXPECT_EQ(*ask({}).get<ipc::Data>("json"), bytesOf(R"({"error":"missing command"})"));
  EXPECT_THAT(log(), ElementsAre("XPC dictionary contains no supported command"));
  EXPECT_EQ(*ask({{"command", true}, {"json", "text"}}).get<ipc::Data>("json"),
            bytesOf(R"({"error":"missing command"})"));
  for (auto text : {"", "[]", "{}", R"({"command":1})"}) {
    EXPECT_EQ(askJSON(text), R"({"error":"invalid command payload"})") << text;
    EXPECT_THAT(log(), ElementsAre("Invalid JSON command payload"));
  }
}

TEST_F(DispatchTest, APayloadMayHaveFourMebibytes) {
  std::string start = R"({"command":"version","padding":")", end = "\"}";
  std::string text = start + std::string(4'194'304 - start.size() - end.size(), 'x') + end;
  EXPECT_EQ(askJSON(text), R"({"version":618})");
  EXPECT_EQ(askJSON(text + " "), R"({"error":"command payload is too large"})");
  EXPECT_THAT(log(), ElementsAre("JSON command payload is too large: 4194305"));
}

TEST_F(DispatchTest, ProcessLookup) {
  machine().sockets = {{platform::SocketProtocol::udp, socket}};
  machine().owners = {{7, 123}};
  machine().executables = {{123, "/usr/sbin/owner"}};

  EXPECT_EQ(ask({{"command", "process-lookup"}, {"address", address}, {"udp", true}}),
            (ipc::Dictionary{{"pid", std::int64_t{123}}, {"path", "/usr/sbin/owner"}}));
  EXPECT_EQ(ask({{"command", "process-lookup"}, {"address", address}, {"udp", std::int64_t{1}}}).size(), 0u);
  EXPECT_EQ(ask({{"command", "process-lookup"}, {"address", address}}).size(), 0u);
  for (auto [wrong, length] : {std::pair<ipc::Value, int>(ipc::Data(127), 127), {ipc::Data(129), 129}, {"text", 0}}) {
    EXPECT_EQ(ask({{"command", "process-lookup"}, {"address", wrong}}),
              (ipc::Dictionary{{"error", "invalid address"}}));
    EXPECT_EQ(log().back(), fmt::format("Invalid process-lookup address length: {}", length));
  }
}

TEST_F(DispatchTest, LookupsOfOneConnectionAreLimited) {
  const ipc::Dictionary request{{"command", "process-lookup"}, {"address", address}};
  std::size_t answered = 0, refused = 0;
  auto count = [&](const ipc::Dictionary& reply) { ++(reply.contains("error") ? refused : answered); };
  for (int number = 0; number < 513; ++number) deliver(fake::makeMessage(request, count));
  EXPECT_EQ(log().back(), "Too many process-lookup requests at once");
  EXPECT_EQ(refused, 1u);
  auto other = fake::makeConnection();
  helper.handleXPCEvent(*other, fake::makeMessage(request, count));
  fake::passTime({});
  EXPECT_EQ(answered, 513u);
  EXPECT_EQ(ask(request).size(), 0u);
}

TEST_F(DispatchTest, ARemoteAddressOfTheSameFamilySelectsTheSocket) {
  auto remote = BRSockAddrMakeIPv4({192, 0, 2, 1}, 443);
  auto named = socket;
  named.identity = 8;
  machine().sockets = {{platform::SocketProtocol::tcp, socket}};
  machine().connections = {{443, named}};
  machine().owners = {{7, 1}, {8, 2}};
  machine().executables = {{1, "/first"}, {2, "/named"}};
  auto owner = [&](const ipc::Value& other) {
    auto reply = ask({{"command", "process-lookup"}, {"address", address}, {"remote", other}});
    return *reply.get<std::int64_t>("pid");
  };
  EXPECT_EQ(owner(ipc::Data(remote.begin(), remote.end())), 2);
  EXPECT_EQ(owner(ipc::Data(remote.begin(), remote.end() - 1)), 1);
  machine().connections[0] = named;
  remote = BRSockAddrMakeIPv4({192, 0, 2, 1}, 0);
  EXPECT_EQ(owner(ipc::Data(remote.begin(), remote.end())), 1);
  remote = BRSockAddrMakeIPv6({}, 443);
  EXPECT_EQ(owner(ipc::Data(remote.begin(), remote.end())), 1);
}

TEST_F(DispatchTest, ProbesNeedAnInterface) {
  for (const ipc::Value& interface : {ipc::Value(""), ipc::Value(bytesOf("lo"))}) {
    EXPECT_EQ(ask({{"command", "ra-detect"}, {"interface", interface}}),
              (ipc::Dictionary{{"error", "invalid interface"}}));
    EXPECT_THAT(log(), ElementsAre("Received raw command: ra-detect", "Invalid ra-detect interface"));
  }
  for (auto interface : {"", R"(,"interface":"")", R"(,"interface":1)"}) {
    EXPECT_EQ(askJSON(fmt::format(R"({{"command":"dhcp-discover"{}}})", interface)),
              R"({"error":"Invalid interface"})");
    EXPECT_THAT(log(), ElementsAre("Received command: dhcp-discover"));
  }
}

TEST_F(DispatchTest, RouterProbesAreLimited) {
  using namespace std::chrono_literals;
  int replies = 0;
  auto detect = [&] {
    deliver(fake::makeMessage({{"command", "ra-detect"}, {"interface", loopbackInterface()}},
                              [&](const ipc::Dictionary& reply) { replies += reply.size() == 0; }));
  };
  for (int probe = 0; probe < 128; ++probe) detect();
  EXPECT_EQ(replies, 0);
  detect();
  EXPECT_EQ(replies, 1);
  EXPECT_EQ(log().back(), "Too many ra-detect requests at once");
  fake::passTime(5s - 1ns);
  EXPECT_EQ(replies, 1);
  fake::passTime(1ns);
  EXPECT_EQ(replies, 129);
  detect();
  EXPECT_EQ(replies, 129);
  fake::passTime(5s);
}

TEST_F(DispatchTest, DHCPProbesAreLimited) {
  std::vector<std::string> replies;
  auto discover = [&] {
    deliver(fake::makeMessage({{"json", bytesOf(R"({"command":"dhcp-discover","interface":"nothing0"})")}},
                              [&](const ipc::Dictionary& reply) {
                                const auto& data = *reply.get<ipc::Data>("json");
                                replies.emplace_back(data.begin(), data.end());
                              }));
  };
  for (int probe = 0; probe < 129; ++probe) discover();
  EXPECT_THAT(replies, ElementsAre(R"({"error":"too many requests"})"));
  EXPECT_EQ(log().back(), "Too many dhcp-discover requests at once");
  fake::passTime({});
  discover();
  fake::passTime({});
  EXPECT_EQ(replies.size(), 130u);
  EXPECT_EQ(replies.back(), R"({"error":"Error: Interface doesn't exist!"})");
}

TEST_F(DispatchTest, RequestsThatAcceptNoReply) {
  machine().sockets = {{platform::SocketProtocol::tcp, socket}};
  auto expect = [&](ipc::Dictionary request, const std::vector<std::string>& lines) {
    deliver(fake::makeMessage(std::move(request)));
    EXPECT_EQ(log(), lines);
  };
  expect({{"command", "process-lookup"}, {"address", address}},
         {"Received raw command: process-lookup", "process-lookup request does not accept a reply"});
  EXPECT_THAT(machine().passes, IsEmpty());
  expect({{"command", "ra-detect"}, {"interface", "lo"}},
         {"Received raw command: ra-detect", "ra-detect request does not accept a reply"});
  expect({{"json", bytesOf(R"({"command":"dhcp-discover","interface":"lo"})")}},
         {"Received command: dhcp-discover", "dhcp-discover request does not accept a reply"});
  expect({{"command", "x"}}, {"Received raw command: x", "Unknown raw command!"});
  expect({{"json", bytesOf(R"({"command":"nope"})")}},
         {"Received command: nope", "Unknown command!", "JSON command does not accept a reply"});
  expect({}, {"XPC dictionary contains no supported command"});
  expect({{"json", bytesOf("{")}}, {"Invalid JSON command payload"});
}

TEST_F(DispatchTest, AnUnknownErrorIsDescribedInTheLog) {
  deliver(ipc::Error{.kind = ipc::Error::Kind::other, .description = "interrupted"});
  EXPECT_THAT(log(), ElementsAre("XPC_TYPE_ERROR: interrupted"));
}

}  // namespace
