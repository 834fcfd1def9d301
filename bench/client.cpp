// A signed client that measures the helper through its endpoint. It starts the helper under socket activation, as often
// as the measurement wants a fresh one. Prints lines of a name and a median.
//
//   start COUNT    from fork and exec to the first reply (µs), and the memory of the helper then (KiB)
//   version COUNT  round trip of "version" (µs)
//   connections PROCESSES   look-ups of new connections (connections.cpp)
//   beside COUNT   round trips of "version" of one client (µs) beside the look-ups of another (connections.cpp)
//   proxies COUNT  "set-proxy" of the services on standard input, a name and their IDs a line (µs), COUNT each:
//                  "together/NAME" in one command; with a COUNT of 2 or more, "singly/NAME" in a command for each
#include <fmt/format.h>

#include <boost/json.hpp>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <map>
#include <sstream>
#include <stdexcept>

#include "bench/connections.h"
#include "bench/measure.h"
#include "bench/running_helper.h"
#include "client/HelperClient.h"

namespace {

const char* helperExecutable;

void print(const std::string& name, double value) {
  fmt::print("{} {}\n", name, value);
}

void measureStart(int count) {
  std::map<std::string, std::vector<double>> values;
  for (int round = 0; round < count; ++round) {
    auto start = std::chrono::steady_clock::now();
    bench::Helper helper(helperExecutable);
    brimo::HelperClient client;
    client.version();
    std::chrono::duration<double, std::micro> time = std::chrono::steady_clock::now() - start;
    values["start"].push_back(time.count());
    values["VmRSS"].push_back(helper.memory("status", "VmRSS:"));
    values["Pss"].push_back(helper.memory("smaps_rollup", "Pss:"));
    values["Private"].push_back(helper.memory("smaps_rollup", "Private_"));
  }
  for (const auto& [name, list] : values) print(name, bench::median(list));
}

void setProxies(brimo::HelperClient& client, const std::vector<std::string>& services) {
  static int port = 0;
  port = port % 60'000 + 1;  // another value each time
  boost::json::object proxies{{"HTTPEnable", 1}, {"HTTPProxy", "127.0.0.1"}, {"HTTPPort", port}}, payload;
  for (const auto& service : services) payload[service] = proxies;
  client.setProxies(payload, std::nullopt);
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
    print("version", bench::medianMicroseconds(std::atoi(values[3]), [&] { client.version(); }));
  } else if (what == "connections") {
    bench::measureConnections(helperExecutable, std::atoi(values[3]));
  } else if (what == "beside") {
    bench::measureBeside(helperExecutable, std::atoi(values[3]));
  } else if (what == "proxies") {
    measureProxies(std::atoi(values[3]));
  } else {
    throw std::invalid_argument("usage: bench_client HELPER start|version|connections|beside|proxies NUMBER");
  }
} catch (const std::exception& error) {
  fmt::print(stderr, "bench_client: {}\n", error.what());
  return EXIT_FAILURE;
}
