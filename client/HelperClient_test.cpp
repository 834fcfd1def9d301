// Tests the client against an endpoint that the test serves.
#include <brimo/HelperClient.h>
#include <gmock/gmock.h>
#include <poll.h>

#include <atomic>
#include <future>
#include <thread>

#include "platform/fake/service.h"

namespace brimo {
namespace {

using namespace std::chrono_literals;
using platform::fake::Peer;
using platform::fake::waitReadable;
using platform::ipc::Data;
using platform::ipc::Dictionary;
using testing::HasSubstr;

constexpr char loopback[] = "127.0.0.1:80";

/// Waits for the result that a handler receives. A second call of the handler aborts the test program.
template <class Value>
class Outcome {
 public:
  typename Request<Value>::Handler handler() {
    return [promise = promise_](Result<Value> result) { promise->set_value(std::move(result)); };
  }
  bool isThere() const { return future_.wait_for(0s) == std::future_status::ready; }
  Result<Value> get() {
    if (future_.wait_for(30s) != std::future_status::ready) throw std::runtime_error("the handler was not called");
    return future_.get();
  }

 private:
  std::shared_ptr<std::promise<Result<Value>>> promise_ = std::make_shared<std::promise<Result<Value>>>();
  std::future<Result<Value>> future_ = promise_->get_future();
};

Dictionary jsonReply(const std::string& text) {
  return {{"json", Data(text.begin(), text.end())}};
}

/// Answers the next request.
void answer(Peer& peer, const Dictionary& reply) {
  peer.send({.id = peer.receive().id, .dictionary = reply});
}

Dictionary versionReply(std::int64_t number) {
  return jsonReply("{\"version\":" + std::to_string(number) + "}");
}

class HelperClientTest : public testing::Test {
 protected:
  /// Sends the greeting and answers the client's first request.
  void admit(Peer& peer) {
    peer.greet(helper_.name);
    answer(peer, versionReply(618));
  }
  Peer admit() {
    auto peer = helper_.accept();
    admit(peer);
    return peer;
  }
  Options options() {
    Options options;
    options.service = helper_.name;
    options.timeLimit = 60s;
    return options;
  }
  static auto lookup() { return processLookup(Transport::tcp, *parseSocketAddress(loopback)); }
  static Dictionary owner(std::int64_t pid) { return {{"pid", pid}, {"path", "/bin/owner"}}; }

  platform::fake::Service helper_;
};

TEST_F(HelperClientTest, RequestsAreUnderWayTogether) {
  HelperClient client(options());
  Outcome<std::optional<SocketOwner>> first, second;
  client.send(lookup(), first.handler());
  auto peer = helper_.accept();
  EXPECT_TRUE(peer.hasHeardNothing());
  admit(peer);
  client.send(lookup(), second.handler());
  auto firstID = peer.receive().id, secondID = peer.receive().id;
  peer.send({.id = secondID, .dictionary = owner(2)});
  EXPECT_EQ((*second.get())->pid, 2);
  EXPECT_FALSE(first.isThere());
  peer.send({.id = secondID, .dictionary = owner(3)});  // this request already has its answer
  peer.send({.id = firstID, .dictionary = {}});
  EXPECT_EQ(*first.get(), std::nullopt);
}

TEST_F(HelperClientTest, AnswersEachOfManyThreads) {
  HelperClient client(options());
  std::atomic<int> right = 0;
  std::vector<std::thread> threads;
  for (int number = 0; number < 8; ++number) {
    threads.emplace_back([&, number] {
      for (int count = 1; count <= 100; ++count) {
        SocketAddress address;
        address.port = static_cast<std::uint16_t>(1000 * number + count);
        auto result = client.call(processLookup(Transport::udp, address));
        right += result && *result && (*result)->pid == address.port;
      }
    });
  }
  auto peer = admit();
  for (int count = 0; count < 800; ++count) {
    auto frame = peer.receive();
    const auto& address = *frame.dictionary.get<Data>("address");
    peer.send({.id = frame.id, .dictionary = owner(address[2] << 8 | address[3])});
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(right, 800);
}

TEST_F(HelperClientTest, TellsWhyThereIsNoAnswer) {
  auto options = this->options();
  options.reconnects = false;
  HelperClient client(options);
  auto code = [](auto result) { return result ? std::nullopt : std::make_optional(result.error().code); };

  auto ask = [&] { return std::async([&] { return client.call(version()); }); };

  auto refused = ask();
  helper_.accept().close();
  EXPECT_EQ(code(refused.get()), ErrorCode::refused);

  refused = ask();
  {
    auto peer = helper_.accept();
    peer.greet(helper_.name);
    peer.receive();
  }
  EXPECT_EQ(code(refused.get()), ErrorCode::refused);

  auto other = ask();
  helper_.accept().send({.id = 0, .dictionary = {{"service", "another"}}});
  EXPECT_THAT(other.get().error().message, HasSubstr("not that of"));

  auto rejected = std::async([&] { return client.call(startWatchdog()); });
  auto peer = admit();
  answer(peer, jsonReply(R"({"error":"unknown command"})"));
  auto result = rejected.get();
  EXPECT_EQ(code(result), ErrorCode::rejected);
  EXPECT_EQ(result.error().message, "unknown command");
  EXPECT_EQ(code(client.call(jsonCommand(std::string(17'000'000, ' ')))), ErrorCode::invalidArgument);
  Proxies noPort;
  noPort.http = {"proxy.example", 0};
  EXPECT_EQ(code(client.call(setProxies({{"id", noPort}}, ProxyLifetime::permanent))), ErrorCode::invalidArgument);

  auto lost = ask();
  peer.receive();
  peer.close();
  EXPECT_EQ(code(lost.get()), ErrorCode::lost);

  helper_.leave();
  EXPECT_EQ(code(client.call(version())), ErrorCode::notInstalled);
}

TEST_F(HelperClientTest, NoAnswerIsWaitedForWithoutEnd) {
  HelperClient client(options());
  EXPECT_EQ(client.call(version(), 1ms).error().code, ErrorCode::timedOut);  // the helper has not sent its greeting yet
  Outcome<std::int64_t> cancelled;
  auto request = client.send(version(), cancelled.handler());
  client.cancel(request);
  client.cancel(request);
  EXPECT_EQ(cancelled.get().error().code, ErrorCode::cancelled);

  // A request that is cancelled before it is sent is never sent.
  Outcome<std::optional<SocketOwner>> kept;
  client.send(lookup(), kept.handler());
  auto peer = admit();
  answer(peer, owner(1));
  EXPECT_EQ((*kept.get())->pid, 1);

  // A late answer is ignored.
  Outcome<std::int64_t> late;
  client.send(version(), late.handler(), 1ms);
  auto lateID = peer.receive().id;
  EXPECT_EQ(late.get().error().code, ErrorCode::timedOut);
  peer.send({.id = lateID, .dictionary = versionReply(1)});
  auto next = std::async([&] { return client.call(version()); });
  answer(peer, versionReply(2));
  EXPECT_EQ(*next.get(), 2);
}

TEST_F(HelperClientTest, ComesBackAndSaysSo) {
  std::promise<std::int64_t> first, second;
  std::promise<ErrorCode> lost;
  int connections = 0;
  auto options = this->options();
  options.onConnection = [&](const ConnectionChange& change) {
    if (change.build) return (++connections == 1 ? first : second).set_value(*change.build);
    if (connections == 1) lost.set_value(change.error->code);
  };
  HelperClient client(options);
  client.connect();
  auto peer = admit();
  EXPECT_EQ(first.get_future().get(), 618);
  Outcome<Done> watchdog;
  client.send(startWatchdog(), watchdog.handler());
  peer.receive();
  peer.close();
  EXPECT_EQ(lost.get_future().get(), ErrorCode::lost);
  EXPECT_EQ(watchdog.get().error().code, ErrorCode::lost);
  auto again = admit();
  EXPECT_EQ(second.get_future().get(), 618);
  EXPECT_TRUE(again.hasHeardNothing());  // the lost request is not sent again
}

TEST_F(HelperClientTest, TheEndOfTheHelperIsTheAnswerToStop) {
  HelperClient client(options());
  Outcome<Done> stopped;
  client.send(stop(), stopped.handler());
  auto peer = admit();
  peer.receive();
  peer.close();
  EXPECT_TRUE(stopped.get());
  auto next = std::async([&] { return client.call(version()); });
  auto id = helper_.accept();  // connects only for the next request
  admit(id);
  answer(id, versionReply(3));
  EXPECT_EQ(*next.get(), 3);
}

TEST_F(HelperClientTest, HandlersWaitForDelivery) {
  auto options = this->options();
  options.ownThread = false;
  HelperClient client(options);
  std::vector<std::int64_t> versions;
  std::function<void(Result<std::int64_t>)> handler = [&](Result<std::int64_t> result) {
    versions.push_back(*result);
    if (versions.size() < 3) client.send(version(), handler);
  };
  client.send(version(), handler);
  auto peer = admit();
  for (std::int64_t number = 1; number <= 3; ++number) {
    answer(peer, versionReply(number));
    waitReadable(client.descriptor());
    EXPECT_EQ(versions.size(), number - 1);
    client.deliver();
    EXPECT_EQ(versions.size(), number);
    pollfd idle{client.descriptor(), POLLIN, 0};
    EXPECT_EQ(poll(&idle, 1, 0), 0);
  }
}

TEST_F(HelperClientTest, HandlersMayCallAnything) {
  auto client = std::make_unique<HelperClient>(options());
  Outcome<std::int64_t> inner;
  std::promise<void> destroyed;
  Outcome<std::int64_t> pending;
  client->send(version(), [&](Result<std::int64_t>) {
    inner.handler()(client->call(version()));
    client->send(version(), pending.handler());
    client.reset();
    destroyed.set_value();
  });
  auto peer = admit();
  for (std::int64_t number : {1, 2}) answer(peer, versionReply(number));
  EXPECT_EQ(*inner.get(), 2);
  EXPECT_EQ(pending.get().error().code, ErrorCode::cancelled);
  destroyed.get_future().get();
}

}  // namespace
}  // namespace brimo
