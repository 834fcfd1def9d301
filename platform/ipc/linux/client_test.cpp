// Tests the client's end of a connection against a service that the test plays.
#include "platform/ipc/client.h"

#include <gmock/gmock.h>

#include <future>

#include "platform/fake/service.h"
#include "platform/ipc/linux/frames.h"

namespace platform::ipc {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

class ClientChannelTest : public testing::Test {
 protected:
  /// Waits. Returns whether something other than the deadline ended the wait.
  bool isWoken(std::chrono::milliseconds limit = 30s) {
    const auto deadline = ClientChannel::Clock::now() + limit;
    channel.wait(lock, deadline);
    return ClientChannel::Clock::now() < deadline;
  }

  ClientChannel::Event next() {
    while (true) {
      if (auto event = channel.next()) return *event;
      if (!isWoken()) throw std::runtime_error("there is no event");
    }
  }
  std::uint64_t nextReply() { return std::get<ClientChannel::Reply>(next()).id; }
  std::string nextEnd(bool wasReached) {
    auto end = std::get<ClientChannel::End>(next());
    EXPECT_EQ(end.wasReached, wasReached);
    return end.reason;
  }

  fake::Peer connect() {
    EXPECT_TRUE(channel.open(service.name));
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
  const Dictionary large{{"k", Data(1'000'000)}};  // more than a socket holds
};

TEST_F(ClientChannelTest, WaitsUntilThereIsWork) {
  auto peer = connect();
  EXPECT_TRUE(channel.send(1, {}));
  EXPECT_EQ(peer.receive().id, 1u);
  EXPECT_FALSE(isWoken(10ms));
  channel.wake();
  EXPECT_TRUE(isWoken());
  EXPECT_FALSE(isWoken(10ms));
}

TEST_F(ClientChannelTest, OnlyWhatHasNotBegunIsWithdrawn) {
  auto peer = connect();
  EXPECT_TRUE(channel.send(1, large));
  EXPECT_TRUE(isWoken());
  EXPECT_FALSE(isWoken(10ms));
  EXPECT_TRUE(channel.send(2, {}));
  EXPECT_TRUE(channel.send(3, {}));
  channel.withdraw(1);
  channel.withdraw(2);
  auto received = std::async([&] { return std::vector{peer.receive().id, peer.receive().id}; });
  while (received.wait_for(0s) != std::future_status::ready) isWoken(1ms);
  EXPECT_THAT(received.get(), testing::ElementsAre(1, 3));

  // The rest of a request does not enter the next connection.
  EXPECT_TRUE(channel.send(4, large));
  channel.close();
  auto other = connect();
  EXPECT_TRUE(channel.send(5, {}));
  EXPECT_EQ(other.receive().id, 5u);
}

TEST_F(ClientChannelTest, RepliesBeforeTheEndArrive) {
  auto peer = connect();
  const auto reply = *encodeFrame({.id = 7, .dictionary = {}});
  peer.sendBytes({reply.begin(), reply.begin() + 5});
  EXPECT_TRUE(isWoken());
  EXPECT_FALSE(channel.next());
  peer.sendBytes({reply.begin() + 5, reply.end()});
  peer.sendBytes(reply);
  peer.sendBytes({reply.begin(), reply.end() - 1});
  peer.stopReading();
  EXPECT_TRUE(channel.send(1, {}));
  EXPECT_EQ(nextReply(), 7u);
  EXPECT_EQ(nextReply(), 7u);
  EXPECT_EQ(nextEnd(true), "the helper has closed the connection");
}

TEST_F(ClientChannelTest, SaysWhyThereIsNoConnection) {
  for (const auto& greeting : {fake::Frame{1, {{"service", service.name}}}, {0, {}}, {0, {{"service", "other"}}}}) {
    EXPECT_TRUE(channel.open(service.name));
    auto peer = service.accept();
    peer.send(greeting);
    peer.greet(service.name);  // too late
    EXPECT_THAT(nextEnd(true), HasSubstr("another service"));
  }
  const std::string tooLong(200, 'x');
  for (const auto& [name, reason] : {std::pair(tooLong, "too long"), {"brimo-nobody", "No such file"}}) {
    EXPECT_TRUE(channel.open(name));
    EXPECT_THAT(nextEnd(false), HasSubstr(reason));
  }
}

}  // namespace
}  // namespace platform::ipc
