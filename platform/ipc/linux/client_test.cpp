// Tests the client's end of a connection against a service that the test plays.
#include "platform/ipc/client.h"

#include <gmock/gmock.h>

#include <future>

#include "platform/fake/service.h"

namespace platform::ipc {
namespace {

using namespace std::chrono_literals;

class ClientChannelTest : public testing::Test {
 protected:
  /// Waits. Returns whether something other than the deadline ended the wait.
  bool isWoken(std::chrono::milliseconds limit = 30s) {
    const auto deadline = ClientChannel::Clock::now() + limit;
    channel.wait(lock, deadline);
    return ClientChannel::Clock::now() < deadline;
  }

  /// The next event: the ID of a reply, or the reason of the end.
  std::string next() {
    auto event = channel.next();
    while (!event && isWoken()) event = channel.next();
    if (auto* reply = std::get_if<ClientChannel::Reply>(&event.value())) return std::to_string(reply->id);
    return std::get<ClientChannel::End>(*event).reason;
  }

  fake::Peer connect() {
    EXPECT_TRUE(channel.open(service.name));
    EXPECT_TRUE(channel.send(9, {}));
    channel.withdraw(9);  // the peer never receives it
    auto peer = service.accept();
    peer.greet(service.name);
    EXPECT_TRUE(isWoken());
    EXPECT_FALSE(channel.next());
    return peer;
  }

  fake::Service service;
  ClientChannel channel;
  std::mutex mutex;
  std::unique_lock<std::mutex> lock{mutex};
  const Dictionary large{{"k", Data(16'000'000)}};  // more than a socket holds
};

TEST_F(ClientChannelTest, SendsWhatFitsAndTheRestWhileItWaits) {
  auto peer = connect();
  EXPECT_TRUE(channel.send(1, {}));
  EXPECT_EQ(peer.receive().id, 1u);
  EXPECT_FALSE(isWoken(10ms));
  EXPECT_TRUE(channel.send(2, large));
  EXPECT_TRUE(isWoken());  // from now on, it waits for room too
  EXPECT_FALSE(isWoken(10ms));
  peer.send({.id = 1, .dictionary = {}});
  EXPECT_EQ(next(), "1");
  EXPECT_TRUE(channel.send(3, {}));
  EXPECT_TRUE(channel.send(4, {}));
  channel.withdraw(2);  // too late
  channel.withdraw(3);
  auto received = std::async([&] { return std::vector{peer.receive().id, peer.receive().id}; });
  while (received.wait_for(0s) != std::future_status::ready) isWoken(1ms);
  EXPECT_THAT(received.get(), testing::ElementsAre(2, 4));

  // The rest of a request does not enter the next connection.
  EXPECT_TRUE(channel.send(5, large));
  channel.close();
  auto other = connect();
  EXPECT_TRUE(channel.send(6, {}));
  EXPECT_EQ(other.receive().id, 6u);
}

TEST_F(ClientChannelTest, RepliesBeforeTheEndArrive) {
  auto peer = connect();
  peer.send({.id = 1, .dictionary = {}});
  peer.send({.id = 2, .dictionary = {}});
  peer.sendBytes({0, 0, 0});  // the beginning of a third
  peer.stopReading();
  EXPECT_TRUE(channel.send(3, {}));
  EXPECT_EQ(next(), "1");
  EXPECT_EQ(next(), "2");
  EXPECT_EQ(next(), "the helper has closed the connection");

  // A flood ends the turn after one read, so that others can use the channel.
  const Data reply{0, 0, 0, 3, 0x82, 1, 0xA0};
  Data flood;
  while (flood.size() < 100'000) flood.insert(flood.end(), reply.begin(), reply.end());
  connect().sendBytes(flood);
  EXPECT_TRUE(isWoken());
  for (auto rest = flood.size() / reply.size(); channel.next(); --rest) ASSERT_GT(rest, 1u);
  channel.close();
  connect().sendBytes({0, 0, 0, 1, 0xFF});
  EXPECT_EQ(next(), "the helper's answers are malformed");
}

TEST_F(ClientChannelTest, SaysWhyThereIsNoConnection) {
  for (const auto& greeting : {fake::Frame{1, {{"service", service.name}}}, {0, {}}, {0, {{"service", "other"}}}}) {
    EXPECT_TRUE(channel.open(service.name));
    auto peer = service.accept();
    peer.send(greeting);
    peer.greet(service.name);  // too late
    EXPECT_THAT(next(), testing::HasSubstr("another service"));
  }
  const std::string tooLong(200, 'x');
  for (const auto& [name, reason] : {std::pair(tooLong, "too long"), {"brimo-nobody", "No such file"}}) {
    EXPECT_TRUE(channel.open(name));
    EXPECT_THAT(next(), testing::HasSubstr(reason));
  }
}

}  // namespace
}  // namespace platform::ipc
