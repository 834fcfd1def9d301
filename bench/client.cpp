// A signed client that measures the helper through its endpoint. It starts the helper under socket activation, as often
// as the measurement wants a fresh one. Prints lines of a name and a median.
//
//   start COUNT    from fork and exec to the first reply (µs), and the memory of the helper then (KiB)
//   version COUNT  round trip of "version" (µs)
//   lookup COUNT   look-ups of the cases on standard input (µs), COUNT each: "cold/NAME" in a fresh helper,
//                  "warm/NAME" with the owner found just before
//   proxies COUNT  "set-proxy" of the services on standard input, a name and their IDs a line (µs), COUNT each:
//                  "together/NAME" in one command; with a COUNT of 2 or more, "singly/NAME" in a command for each
#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <boost/json.hpp>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <stdexcept>

#include "bench/measure.h"
#include "build_constants.h"
#include "client/HelperClient.h"
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

void lookUp(brimo::HelperClient& client, const bench::Case& next) {
  bool isIPv6 = next.host.find(':') != std::string::npos;
  auto address = fmt::format(fmt::runtime(isIPv6 ? "[{}]:{}" : "{}:{}"), next.host, next.port);
  auto owner = client.processLookup(next.protocol == "udp", address);
  if (!owner || owner->pid != next.owner) throw std::runtime_error("wrong owner of " + address);
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
    client.version();
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
      client.version();
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

void setProxies(brimo::HelperClient& client, const std::vector<std::string>& services) {
  static int port = 0;
  port = port % 60'000 + 1;  // another value each time
  boost::json::object proxies{{"HTTPEnable", 1}, {"HTTPProxy", "127.0.0.1"}, {"HTTPPort", port}}, payload;
  for (const auto& service : services) payload[service] = proxies;
  client.setProxies(payload, std::nullopt);
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
    print("version", bench::medianMicroseconds(std::atoi(values[3]), [&] { client.version(); }));
  } else if (what == "lookup") {
    measureLookups(std::atoi(values[3]));
  } else if (what == "proxies") {
    measureProxies(std::atoi(values[3]));
  } else {
    throw std::invalid_argument("usage: bench_client HELPER start|version|lookup|proxies COUNT");
  }
} catch (const std::exception& error) {
  fmt::print(stderr, "bench_client: {}\n", error.what());
  return EXIT_FAILURE;
}
