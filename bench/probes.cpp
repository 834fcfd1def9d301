// Runs one probe in a new process and prints the times of "call", "seen" (the first offer or the advertisement) and
// "end" (the completion). Times are nanoseconds since 1970, like the kernel's packet timestamps. The log goes to a
// file, as in the helper, and shows the first offer.
//
//   bench_probes dhcp|ra INTERFACE
#include <fmt/format.h>

#include <chrono>
#include <cstdlib>
#include <future>
#include <optional>
#include <stdexcept>

#include "helper/log_file.h"
#include "helper/probes/BRHDHCPDetector.h"
#include "helper/probes/BRHV6RADetector.h"

namespace {

using Time = std::chrono::system_clock::time_point;

Time now() {
  return std::chrono::system_clock::now();
}

struct Times {
  std::optional<Time> seen;
  Time end;
};

Times waitFor(std::future<Times> times) {
  if (times.wait_for(std::chrono::seconds(10)) != std::future_status::ready) throw std::runtime_error("no answer");
  return times.get();
}

Times discover(const std::string& interface) {
  std::promise<Times> times;
  std::optional<Time> seen;
  HXSetLogLineHook([&](const std::string& line) {
    // The first log line about a valid offer.
    if (!seen && line.find("DHCPOFFER ciaddr") != std::string::npos) seen = now();
  });
  BRHDHCPDetector().startTestWithInterfaceName(interface,
                                               [&](auto&, auto&) { times.set_value({.seen = seen, .end = now()}); });
  return waitFor(times.get_future());
}

Times detect(const std::string& interface) {
  std::promise<Times> times;
  auto detector = std::make_shared<BRHV6RADetector>();
  detector->setInterface(interface);
  detector->setCompletionHandler([&](auto& data, auto&) {
    auto end = now();
    times.set_value({.seen = data ? std::optional(end) : std::nullopt, .end = end});
  });
  detector->start();
  return waitFor(times.get_future());
}

void print(const char* name, Time time) {
  fmt::print("{} {}\n", name, std::chrono::duration_cast<std::chrono::nanoseconds>(time.time_since_epoch()).count());
}

}  // namespace

int main(int count, char** values) try {
  std::string what = count == 3 ? values[1] : "";
  if (what != "dhcp" && what != "ra") throw std::invalid_argument("usage: bench_probes dhcp|ra INTERFACE");
  BRHOpenLogFile("bench_probes.log");
  const auto call = now();
  const auto times = what == "dhcp" ? discover(values[2]) : detect(values[2]);
  if (!times.seen) throw std::runtime_error("no answer");
  print("call", call);
  print("seen", *times.seen);
  print("end", times.end);
  std::fflush(stdout);
  std::_Exit(EXIT_SUCCESS);  // the router probe's threads take a second to end
} catch (const std::exception& error) {
  fmt::print(stderr, "bench_probes: {}\n", error.what());
  std::_Exit(EXIT_FAILURE);
}
