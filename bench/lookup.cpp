// The socket-owner look-up in process: "cold/NAME" with no process remembered, "warm/NAME" with the owner found just
// before, and "turns/KIND", which asks for all sockets of a kind in turn, so that the owner is always the one that was
// found longest ago. Names are KIND/PROCESS.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <map>
#include <stdexcept>

#include "bench/measure.h"
#include "helper/probes/socket_owner_lookup.h"

namespace {

struct Query {
  BRSockAddr address;
  bool udp;
  std::int32_t owner;

  explicit Query(const bench::Case& from) : udp(from.protocol == "udp"), owner(from.owner) {
    std::array<std::uint8_t, 4> ipv4;
    std::array<std::uint8_t, 16> ipv6;
    if (inet_pton(AF_INET, from.host.c_str(), ipv4.data()) == 1) {
      address = BRSockAddrMakeIPv4(ipv4, from.port);
    } else if (inet_pton(AF_INET6, from.host.c_str(), ipv6.data()) == 1) {
      address = BRSockAddrMakeIPv6(ipv6, from.port);
    } else {
      throw std::invalid_argument(from.host);
    }
  }

  /// Whether the look-up finds the owner.
  bool answered() const {
    auto found = udp ? BRUDPSocketOwner(address) : BRTCPSocketOwner(address);
    return found && found->pid == owner;
  }
};

/// Seconds that the look-up takes in a process that has made none; negative when it fails.
double coldSeconds(const Query& query) {
  std::array<int, 2> ends;
  if (pipe(ends.data()) != 0) return -1;
  pid_t child = fork();
  if (child == 0) {
    bool answered = false;
    double seconds = bench::microseconds([&] { answered = query.answered(); }) / 1e6;
    _exit(answered && write(ends[1], &seconds, sizeof seconds) == sizeof seconds ? 0 : 1);
  }
  close(ends[1]);
  double seconds = -1;
  if (read(ends[0], &seconds, sizeof seconds) != sizeof seconds) seconds = -1;
  close(ends[0]);
  waitpid(child, nullptr, 0);
  return seconds;
}

void cold(benchmark::State& state, const Query& query) {
  for (auto _ : state) {
    double seconds = coldSeconds(query);
    if (seconds < 0) return state.SkipWithError("wrong owner");
    state.SetIterationTime(seconds);
  }
}

void inTurn(benchmark::State& state, const std::vector<Query>& queries) {
  std::size_t next = 0;
  for (const auto& query : queries) {
    if (!query.answered()) return state.SkipWithError("wrong owner");
  }
  for (auto _ : state) {
    if (!queries[next++ % queries.size()].answered()) return state.SkipWithError("wrong owner");
  }
}

}  // namespace

int main(int count, char** values) {
  benchmark::Initialize(&count, values);
  auto cases = bench::readCases();
  // In this order: the cold ones fork from a process that has looked nothing up.
  for (const auto& next : cases) {
    benchmark::RegisterBenchmark(("cold/" + next.name).c_str(), cold, Query(next))
        ->UseManualTime()
        ->Iterations(1)
        ->Repetitions(15);
  }
  std::map<std::string, std::vector<Query>> kinds;
  for (const auto& next : cases) {
    benchmark::RegisterBenchmark(("warm/" + next.name).c_str(), inTurn, std::vector{Query(next)})->Repetitions(5);
    kinds[next.name.substr(0, next.name.find('/'))].emplace_back(next);
  }
  for (const auto& [kind, queries] : kinds) {
    benchmark::RegisterBenchmark(("turns/" + kind).c_str(), inTurn, queries)->Repetitions(5);
  }
  benchmark::RunSpecifiedBenchmarks();
}
