// Tests the client against an endpoint that the test serves.
#include <brimo/HelperClient.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/wait.h>

#include <array>
#include <atomic>
#include <future>
#include <thread>

#include "platform/base/readiness.h"
#include "platform/fake/service.h"
#include "tests/support/linux/thread_count.h"
#include "tests/support/this_machine.h"

namespace brimo {
namespace {

using namespace std::chrono_literals;
using platform::fake::Frame;
using platform::fake::Peer;
using platform::fake::waitReadable;
using platform::ipc::Data;
using platform::ipc::Dictionary;

/// Waits for the result that a handler receives. A second call of the handler aborts the test program.
template <class Value>
class Outcome {
 public:
  typename Request<Value>::Handler handler() {
    return [promise = promise_](Result<Value> result) { promise->set_value(std::move(result)); };
  }
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
  /// Accepts the client, sends the greeting and answers the first request.
  Peer admit() {
    auto peer = helper_.accept();
    EXPECT_TRUE(peer.hasHeardNothing());
    peer.greet(helper_.name);
    answer(peer, versionReply(618));
    return peer;
  }
  Options options() {
    Options options;
    options.service = helper_.name;
    options.timeLimit = 60s;
    return options;
  }
  static auto lookup() { return processLookup(Transport::tcp, *parseSocketAddress("127.0.0.1:80")); }
  static Dictionary owner(std::int64_t pid) { return {{"pid", pid}, {"path", "/bin/owner"}}; }

  platform::fake::Service helper_;
};

TEST_F(HelperClientTest, EachRequestEndsOnceWhateverTheHelperDoes) {
  constexpr int askers = 8, requestCount = 125;
  const auto descriptors = openDescriptors(), threadsBefore = threadCount();
  std::array<std::atomic<int>, askers * requestCount> ends{};
  std::atomic<int> right = 0, wrong = 0;
  // This helper sometimes misbehaves: it answers a request twice or not at all, or answers one that was never sent. It
  // also closes connections, some before their first answer.
  std::atomic<bool> isDone = false;
  std::thread helper([&] {
    for (int connection = 1, request = 0;; ++connection) {
      auto peer = helper_.accept();
      if (isDone) return;
      if (connection % 5 == 0) continue;
      try {
        peer.greet(helper_.name);
        answer(peer, versionReply(618));
        while (++request % 29 != 0) {
          auto frame = peer.receive();
          const auto& address = *frame.dictionary.get<Data>("address");
          if (request % 13 == 0) frame.id += 1'000'000;
          for (int answers = request % 7 == 0 ? 2 : request % 11 != 0; answers > 0; --answers) {
            peer.send({.id = frame.id, .dictionary = owner(address[2] << 8 | address[3])});
          }
        }
      } catch (const std::runtime_error&) {  // the client has left
      }
    }
  });
  {
    auto client = std::make_unique<HelperClient>(options());
    auto run = [&](int thread) {
      for (int number = thread * requestCount; number < (thread + 1) * requestCount; ++number) {
        SocketAddress address;
        address.port = static_cast<std::uint16_t>(number + 1);
        auto handle = [&, number](Result<std::optional<SocketOwner>> result) {
          ++ends[static_cast<std::size_t>(number)];
          if (!result) return;
          ++(*result && (*result)->pid == number + 1 ? right : wrong);
        };
        auto request = processLookup(Transport::udp, address);
        auto limit = std::chrono::milliseconds(number % 30);
        if (number % 3 == 0) {
          handle(client->call(request, limit));
        } else {
          auto id = client->send(request, handle, limit);
          if (number % 7 == 0) client->cancel(id);
        }
      }
    };
    std::vector<std::thread> threads;
    for (int thread = 0; thread < askers; ++thread) threads.emplace_back(run, thread);
    for (auto& thread : threads) thread.join();
    isDone = true;
    client = std::make_unique<HelperClient>(options());
    client->connect();
    helper.join();
  }
  EXPECT_TRUE(std::all_of(ends.begin(), ends.end(), [](const auto& count) { return count == 1; }));
  EXPECT_GT(right, 0);
  EXPECT_EQ(wrong, 0);
  EXPECT_LE(openDescriptors(), descriptors);
  // The kernel still lists a joined thread for a moment.
  while (threadCount() > threadsBefore) std::this_thread::yield();
}

TEST_F(HelperClientTest, AForkedChildCannotUseItAndDoesNoHarm) {
  auto client = std::make_unique<HelperClient>(options());
  client->connect();
  auto peer = admit();
  platform::Readiness isOver;
  pid_t child = fork();
  if (child == 0) {
    auto code = client->call(version()).error().code;
    client->send(version(), [](auto) {});
    client.reset();
    waitReadable(isOver.descriptor());
    _exit(code == ErrorCode::invalidArgument ? 0 : 1);
  }
  auto next = std::async([&] { return client->call(version()); });
  answer(peer, versionReply(2));
  EXPECT_EQ(*next.get(), 2);
  // The connection ends although the child holds the socket, too.
  client.reset();
  EXPECT_THAT([&] { peer.receive(); }, testing::ThrowsMessage<std::runtime_error>("the client has left"));
  isOver.set();
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST(BusyHelper, IsReachedOnceItHasRoom) {
  platform::fake::Service helper(0);
  Options options;
  options.service = helper.name;
  options.reconnects = false;  // otherwise the first client would connect again before the second
  HelperClient first(options), second(options);
  // The first client fills the helper's queue of connections, so the second cannot connect.
  Outcome<std::int64_t> outcomes[2];
  first.send(version(), outcomes[0].handler());
  waitReadable(helper.descriptor());
  EXPECT_EQ(second.call(version(), 20ms).error().code, ErrorCode::timedOut);
  second.send(version(), outcomes[1].handler());
  for (auto& outcome : outcomes) {
    auto peer = helper.accept();
    peer.greet(helper.name);
    for (int request = 0; request < 2; ++request) answer(peer, versionReply(618));
    EXPECT_TRUE(outcome.get());
  }
}

TEST_F(HelperClientTest, ReportsARefusal) {
  HelperClient client(options());
  auto ask = [&] { return std::async([&] { return client.call(version()); }); };

  auto refused = ask();
  helper_.accept().close();
  EXPECT_EQ(refused.get().error().code, ErrorCode::refused);

  refused = ask();
  auto peer = helper_.accept();
  peer.greet(helper_.name);
  peer.receive();
  peer.close();
  EXPECT_EQ(refused.get().error().code, ErrorCode::refused);
}

TEST_F(HelperClientTest, ReportsWhyThereIsNoAnswer) {
  HelperClient client(options());
  auto rejected = std::async([&] { return client.call(startWatchdog()); });
  auto peer = admit();
  answer(peer, jsonReply(R"({"error":"unknown command"})"));
  auto error = rejected.get().error();
  EXPECT_EQ(error.code, ErrorCode::rejected);
  EXPECT_EQ(error.message, "unknown command");
  EXPECT_EQ(client.call(jsonCommand(std::string(17'000'000, ' '))).error().code, ErrorCode::invalidArgument);
  Proxies noPort;
  noPort.http = {"proxy.example", 0};
  auto request = setProxies({{"id", noPort}}, ProxyLifetime::permanent);
  EXPECT_EQ(client.call(request).error().code, ErrorCode::invalidArgument);

  helper_.leave();
  EXPECT_EQ(HelperClient(options()).call(version()).error().code, ErrorCode::notInstalled);
}

TEST_F(HelperClientTest, NoRequestWaitsForEver) {
  HelperClient client(options());
  for (auto limit : {std::chrono::milliseconds::min(), 1ms}) {  // the helper has not sent its greeting yet
    EXPECT_EQ(client.call(version(), limit).error().code, ErrorCode::timedOut);
  }
  Outcome<std::int64_t> cancelled;
  auto request = client.send(version(), cancelled.handler());
  client.cancel(request);
  client.cancel(request);
  EXPECT_EQ(cancelled.get().error().code, ErrorCode::cancelled);

  // A request that is cancelled before it is sent is never sent.
  Outcome<std::optional<SocketOwner>> kept;
  client.send(lookup(), kept.handler());
  auto peer = admit();
  answer(peer, {});
  EXPECT_EQ(*kept.get(), std::nullopt);
}

TEST_F(HelperClientTest, ReconnectsAndReportsIt) {
  std::promise<std::int64_t> first, second;
  std::promise<ErrorCode> lost;
  int connections = 0;
  auto options = this->options();
  options.onConnection = [&](const ConnectionChange& change) {
    if (change.build) return (++connections == 1 ? first : second).set_value(*change.build);
    if (connections == 1 && change.error->code == ErrorCode::lost) lost.set_value(change.error->code);
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
  helper_.accept().close();  // this connection ends at once
  auto again = admit();
  EXPECT_EQ(second.get_future().get(), 618);
  EXPECT_TRUE(again.hasHeardNothing());  // the lost request is not sent again
}

TEST_F(HelperClientTest, HandlersWaitForDelivery) {
  auto options = this->options();
  options.ownThread = false;
  auto client = std::make_unique<HelperClient>(options);
  std::vector<std::int64_t> versions;
  std::function<void(Result<std::int64_t>)> handler = [&](Result<std::int64_t> result) {
    versions.push_back(*result);
    if (versions.size() < 3) client->send(version(), handler);
  };
  client->send(version(), handler);
  auto peer = admit();
  for (std::int64_t number = 1; number <= 3; ++number) {
    answer(peer, versionReply(number));
    waitReadable(client->descriptor());
    EXPECT_EQ(versions.size(), number - 1);
    client->deliver();
    EXPECT_EQ(versions.size(), number);
    pollfd idle{client->descriptor(), POLLIN, 0};
    EXPECT_EQ(poll(&idle, 1, 0), 0);
  }
  // A handler may destroy the client, which then cancels the pending requests.
  std::vector<ErrorCode> ends;
  client->send(version(), [&](auto result) { ends.push_back(result.error().code); });
  client->cancel(client->send(version(), [&](auto) { client.reset(); }));
  client->deliver();
  EXPECT_THAT(ends, testing::ElementsAre(ErrorCode::cancelled));
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
