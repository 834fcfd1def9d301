// A signed client that measures the helper through its endpoint. It starts the helper under socket activation, as often
// as the measurement wants a fresh one. Prints lines of a name and a median.
//
//   start COUNT    from fork and exec to the first reply (µs), and the memory of the helper then (KiB)
//   version COUNT  round trip of "version" (µs)
//   lookup COUNT   look-ups of the cases on standard input (µs), COUNT each: "cold/NAME" in a fresh helper,
//                  "warm/NAME" with the owner found just before
//   throughput COUNT  look-ups a second of the cases on standard input, COUNT in all: by 1 and 8 threads that wait for
//   each,
//                     and with 64 under way
//   proxies COUNT  "set-proxy" of the services on standard input, a name and their IDs a line (µs), COUNT each:
//                  "together/NAME" in one command; with a COUNT of 2 or more, "singly/NAME" in a command for each
#include <brimo/HelperClient.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <future>
#include <iterator>
#include <map>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "bench/measure.h"
#include "build_constants.h"
#include "platform/base/file_descriptor.h"
#include "platform/ipc/linux/endpoint.h"

namespace {

const char* helperExecutable;

/// A running helper; ended with this object.
class Helper {
 public:
  Helper() {
    auto path = platform::ipc::endpointPath(HelperServiceName);
    auto address = platform::ipc::endpointAddress(path);
    platform::FileDescriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    unlink(path.c_str());
    if (!address || bind(listener.get(), reinterpret_cast<const sockaddr*>(&*address), sizeof *address) != 0 ||
        listen(listener.get(), SOMAXCONN) != 0) {
      throw std::runtime_error("cannot listen on " + path);
    }
    pid_ = fork();
    if (pid_ < 0) throw std::runtime_error("cannot fork");
    if (pid_ > 0) return;
    constexpr int firstActivated = 3;  // sd_listen_fds(3)
    if (listener.get() == firstActivated) {
      fcntl(firstActivated, F_SETFD, 0);
    } else {
      dup2(listener.get(), firstActivated);
    }
    setenv("LISTEN_FDS", "1", 1);
    setenv("LISTEN_PID", fmt::format("{}", getpid()).c_str(), 1);
    execl(helperExecutable, helperExecutable, nullptr);
    _exit(127);
  }
  ~Helper() {
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
  }
  Helper(const Helper&) = delete;
  Helper& operator=(const Helper&) = delete;

  /// Sum of the lines of a file under /proc/PID that begin with a name, in KiB.
  double memory(const char* file, std::string_view name) const {
    std::ifstream lines(fmt::format("/proc/{}/{}", pid_, file));
    double sum = 0;
    for (std::string line; std::getline(lines, line);) {
      if (line.starts_with(name)) sum += std::stod(line.substr(line.find(':') + 1));
    }
    return sum;
  }

 private:
  pid_t pid_;
};

/// The answer to a request.
template <class Value>
Value ask(brimo::HelperClient& client, const brimo::Request<Value>& request) {
  auto result = client.call(request);
  if (!result) throw std::runtime_error(result.error().message);
  return *result;
}

brimo::Request<std::optional<brimo::SocketOwner>> lookupRequest(const bench::Case& next) {
  bool isIPv6 = next.host.find(':') != std::string::npos;
  auto address = fmt::format(fmt::runtime(isIPv6 ? "[{}]:{}" : "{}:{}"), next.host, next.port);
  auto transport = next.protocol == "udp" ? brimo::Transport::udp : brimo::Transport::tcp;
  return brimo::processLookup(transport, brimo::parseSocketAddress(address).value());
}

void lookUp(brimo::HelperClient& client, const bench::Case& next) {
  auto owner = ask(client, lookupRequest(next));
  if (!owner || owner->pid != next.owner) throw std::runtime_error("wrong owner of " + next.name);
}

void print(const std::string& name, double value) {
  fmt::print("{} {}\n", name, value);
}

void measureStart(int count) {
  std::map<std::string, std::vector<double>> values;
  for (int round = 0; round < count; ++round) {
    auto start = std::chrono::steady_clock::now();
    Helper helper;
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

void measureLookups(int count) {
  auto cases = bench::readCases();
  for (const auto& next : cases) {
    std::vector<double> times;
    for (int round = 0; round < count; ++round) {
      Helper helper;
      brimo::HelperClient client;
      ask(client, brimo::version());
      times.push_back(bench::microseconds([&] { lookUp(client, next); }));
    }
    print("cold/" + next.name, bench::median(times));
  }
  Helper helper;
  brimo::HelperClient client;
  for (const auto& next : cases) {
    lookUp(client, next);
    print("warm/" + next.name, bench::medianMicroseconds(10 * count, [&] { lookUp(client, next); }));
  }
}

/// Look-ups a second by threads that together keep so many under way; of each thread's own, when there is one each, by
/// waiting.
double lookupsPerSecond(const bench::Case& next, int threadCount, int underWay, int count) {
  Helper helper;
  brimo::HelperClient client;
  auto request = lookupRequest(next);
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
      for (int number = 0; number < count / threadCount; ++number) lookUp(client, next);
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
  for (const auto& next : bench::readCases()) {
    for (int threads : {1, 8}) {
      for (int underWay : {threads, 64}) {
        print(fmt::format("throughput/{}/{}-threads/{}-under-way", next.name, threads, underWay),
              lookupsPerSecond(next, threads, underWay, count));
      }
    }
  }
}

void setProxies(brimo::HelperClient& client, const std::vector<std::string>& services) {
  static int port = 0;
  port = port % 60'000 + 1;  // another value each time
  brimo::Proxies proxies;
  proxies.http = {"127.0.0.1", static_cast<std::uint16_t>(port)};
  std::map<std::string, brimo::Proxies> payload;
  for (const auto& service : services) payload[service] = proxies;
  ask(client, brimo::setProxies(payload, brimo::ProxyLifetime::permanent));
}

void measureProxies(int count) {
  Helper helper;
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
    Helper helper;
    brimo::HelperClient client;
    print("version", bench::medianMicroseconds(std::atoi(values[3]), [&] { ask(client, brimo::version()); }));
  } else if (what == "lookup") {
    measureLookups(std::atoi(values[3]));
  } else if (what == "throughput") {
    measureThroughput(std::atoi(values[3]));
  } else if (what == "proxies") {
    measureProxies(std::atoi(values[3]));
  } else {
    throw std::invalid_argument("usage: bench_client HELPER start|version|lookup|throughput|proxies COUNT");
  }
} catch (const std::exception& error) {
  fmt::print(stderr, "bench_client: {}\n", error.what());
  return EXIT_FAILURE;
}
