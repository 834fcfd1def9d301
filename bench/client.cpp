// A signed client that measures the helper through its endpoint. It starts the helper under socket activation, several
// times if necessary. Prints lines with a name and a median.
//
//   start COUNT    time from fork and exec to the first reply (µs), and the helper's memory then (KiB)
//   version COUNT  round trip of "version" (µs)
//   connections PROCESSES  look-ups of new connections (connections.h)
//   beside COUNT   round trips of "version" of one client (µs) during the look-ups of another (connections.h)
//   throughput COUNT  standard input lists sockets (protocol, address, owner). Looks each up COUNT times and prints the
//                     look-ups per second: by 1 and 8 threads that wait for each answer, and with 64 pending
//   proxies COUNT  each line of standard input is a name and service IDs. Sets their proxies COUNT times and prints the
//                  time (µs): "together/NAME" in one command; if COUNT is 2 or more, also "singly/NAME", in one
//                  command for each service
#include <brimo/HelperClient.h>
#include <fmt/format.h>

#include <atomic>
#include <cstdlib>
#include <future>
#include <iostream>
#include <iterator>
#include <map>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "bench/connections.h"
#include "bench/measure.h"
#include "bench/running_helper.h"

namespace {

const char* helperExecutable;

/// A socket and the process that owns it.
struct Case {
  brimo::Transport transport;
  std::string address;
  std::int32_t owner;
};

std::vector<Case> readCases() {
  std::vector<Case> cases;
  std::string protocol, address;
  for (std::int32_t owner = 0; std::cin >> protocol >> address >> owner;) {
    cases.push_back({protocol == "udp" ? brimo::Transport::udp : brimo::Transport::tcp, address, owner});
  }
  return cases;
}

/// Throws if the request fails.
template <class Value>
Value ask(brimo::HelperClient& client, const brimo::Request<Value>& request) {
  auto result = client.call(request);
  if (!result) throw std::runtime_error(result.error().message);
  return *result;
}

void print(const std::string& name, double value) {
  fmt::print("{} {}\n", name, value);
}

void measureStart(int count) {
  std::map<std::string, std::vector<double>> values;
  for (int round = 0; round < count; ++round) {
    auto start = std::chrono::steady_clock::now();
    bench::Helper helper(helperExecutable);
    brimo::HelperClient client;
    ask(client, brimo::version());
    std::chrono::duration<double, std::micro> time = std::chrono::steady_clock::now() - start;
    values["start"].push_back(time.count());
    values["VmRSS"].push_back(helper.memory("status", "VmRSS:"));
    values["Pss"].push_back(helper.memory("smaps_rollup", "Pss:"));
    values["Private"].push_back(helper.memory("smaps_rollup", "Private_"));
  }
  for (const auto& [name, list] : values) print(name, bench::median(list));
}

/// Look-ups per second while the threads together keep `underWay` look-ups pending. If `underWay` equals `threadCount`,
/// each thread waits for every answer.
double lookupsPerSecond(const Case& next, int threadCount, int underWay, int count) {
  bench::Helper helper(helperExecutable);
  brimo::HelperClient client;
  auto request = brimo::processLookup(next.transport, brimo::parseSocketAddress(next.address).value());
  ask(client, request);
  std::atomic<int> begun = 0, right = 0;
  std::promise<void> finished;
  brimo::Request<std::optional<brimo::SocketOwner>>::Handler handler = [&](auto owner) {
    if (owner && *owner && (*owner)->pid == next.owner && ++right == count) finished.set_value();
    if (++begun <= count) client.send(request, handler);
  };
  auto work = [&](int share) {
    if (underWay > threadCount) {
      for (int number = 0; number < share; ++number, ++begun) client.send(request, handler);
    } else {
      for (int number = 0; number < count / threadCount; ++number) {
        if (auto owner = ask(client, request); !owner || owner->pid != next.owner)
          throw std::runtime_error("wrong owner");
      }
    }
  };
  std::vector<std::thread> threads;
  auto time = bench::microseconds([&] {
    for (int number = 0; number < threadCount; ++number) threads.emplace_back(work, underWay / threadCount);
    for (auto& thread : threads) thread.join();
    if (underWay > threadCount) finished.get_future().get();
  });
  return count / time * 1e6;
}

void measureThroughput(int count) {
  for (const auto& next : readCases()) {
    for (int threads : {1, 8}) {
      for (int underWay : {threads, 64}) {
        print(fmt::format("throughput/{}/{}-threads/{}-under-way", next.address, threads, underWay),
              lookupsPerSecond(next, threads, underWay, count));
      }
    }
  }
}

void setProxies(brimo::HelperClient& client, const std::vector<std::string>& services) {
  static int port = 0;
  port = port % 60'000 + 1;  // changes the value each time
  brimo::Proxies proxies;
  proxies.http = {"127.0.0.1", static_cast<std::uint16_t>(port)};
  std::map<std::string, brimo::Proxies> payload;
  for (const auto& service : services) payload[service] = proxies;
  ask(client, brimo::setProxies(payload, brimo::ProxyLifetime::permanent));
}

void measureProxies(int count) {
  bench::Helper helper(helperExecutable);
  brimo::HelperClient client;
  for (std::string line; std::getline(std::cin, line);) {
    std::istringstream words(line);
    std::string name;
    words >> name;
    const std::vector<std::string> services(std::istream_iterator<std::string>(words), {});
    print("together/" + name, bench::medianMicroseconds(count, [&] { setProxies(client, services); }));
    if (count < 2) continue;
    print("singly/" + name, bench::medianMicroseconds(count, [&] {
            for (const auto& service : services) setProxies(client, {service});
          }));
  }
}

}  // namespace

int main(int count, char** values) try {
  std::string what = count == 4 ? values[2] : "";
  helperExecutable = values[1];
  if (what == "start") {
    measureStart(std::atoi(values[3]));
  } else if (what == "version") {
    bench::Helper helper(helperExecutable);
    brimo::HelperClient client;
    print("version", bench::medianMicroseconds(std::atoi(values[3]), [&] { ask(client, brimo::version()); }));
  } else if (what == "connections") {
    bench::measureConnections(helperExecutable, std::atoi(values[3]));
  } else if (what == "beside") {
    bench::measureBeside(helperExecutable, std::atoi(values[3]));
  } else if (what == "throughput") {
    measureThroughput(std::atoi(values[3]));
  } else if (what == "proxies") {
    measureProxies(std::atoi(values[3]));
  } else {
    throw std::invalid_argument(
        "usage: bench_client HELPER start|version|connections|beside|throughput|proxies NUMBER");
  }
} catch (const std::exception& error) {
  fmt::print(stderr, "bench_client: {}\n", error.what());
  return EXIT_FAILURE;
}
