#include "bench/connections.h"

#include <arpa/inet.h>
#include <brimo/HelperClient.h>
#include <fmt/format.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <deque>
#include <iostream>
#include <map>
#include <random>
#include <thread>

#include "bench/measure.h"
#include "bench/running_helper.h"

namespace bench {

namespace {

constexpr int populationDescriptors = 30, keptSockets = 10, rounds = 7, lookupsOfARound = 40;
constexpr int seed = 618;

void require(bool fine, const char* what) {
  if (!fine) throw std::runtime_error(fmt::format("{}: {}", what, std::strerror(errno)));
}

/// Moves this process and its future children to a control group.
void enterGroup(const std::string& name) {
  const bool isBesideVersion1 = access("/sys/fs/cgroup/unified", F_OK) == 0;
  const std::string groups = isBesideVersion1 ? "/sys/fs/cgroup/unified/brimo-bench" : "/sys/fs/cgroup/brimo-bench";
  const auto folder = groups + "/" + name;
  mkdir(groups.c_str(), 0755);
  mkdir(folder.c_str(), 0755);
  std::ofstream list(folder + "/cgroup.procs");
  list << getpid() << std::flush;
  require(list.good(), "cannot enter a control group");
}

/// Opens descriptors in this process up to the given number.
void openDescriptors(int count) {
  rlimit limit{.rlim_cur = 32'768, .rlim_max = 32'768};
  setrlimit(RLIMIT_NOFILE, &limit);
  for (int last = open("/dev/null", O_RDONLY); last + 1 < count;) last = dup(last);
}

/// A process, killed by the destructor.
struct Child {
  pid_t pid = -1;
  platform::FileDescriptor orders;

  template <class Work>
  explicit Child(const Work& work) {
    std::array<int, 2> ends{};
    require(pipe(ends.data()) == 0, "pipe");
    pid = fork();
    require(pid >= 0, "fork");
    if (pid == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      dup2(ends[0], 3);
      close_range(4, ~0u, 0);
      work();
      _exit(0);
    }
    close(ends[0]);
    orders.reset(ends[1]);
  }
  Child(Child&& other) noexcept : pid(std::exchange(other.pid, -1)), orders(std::move(other.orders)) {}
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child() {
    if (pid < 0) return;
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
  }
};

/// The listening socket that clients connect to.
class Proxy {
 public:
  explicit Proxy(bool udp) : udp_(udp), socket_(socket(AF_INET, (udp ? SOCK_DGRAM : SOCK_STREAM) | SOCK_CLOEXEC, 0)) {
    address_.sin_family = AF_INET;
    address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address_;
    require(bind(socket_.get(), reinterpret_cast<sockaddr*>(&address_), length) == 0, "bind");
    getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&address_), &length);
    if (!udp) require(listen(socket_.get(), SOMAXCONN) == 0, "listen");
  }

  const sockaddr_in& address() const { return address_; }

  /// Opens a new connection; called in a client.
  int connectTo() const {
    int made = socket(AF_INET, udp_ ? SOCK_DGRAM : SOCK_STREAM, 0);
    if (connect(made, reinterpret_cast<const sockaddr*>(&address_), sizeof address_) != 0) _exit(1);
    if (udp_ && send(made, "", 1, 0) != 1) _exit(1);
    return made;
  }

  /// Waits for the next connection and returns the client's address. The latest 400 connections stay open.
  sockaddr_in accepted() {
    sockaddr_in peer{};
    socklen_t length = sizeof peer;
    auto* to = reinterpret_cast<sockaddr*>(&peer);
    if (udp_) {
      char byte;
      require(recvfrom(socket_.get(), &byte, 1, 0, to, &length) == 1, "recvfrom");
    } else {
      connections_.emplace_back(accept4(socket_.get(), to, &length, SOCK_CLOEXEC));
      if (connections_.size() > 400) connections_.pop_front();
    }
    return peer;
  }

 private:
  bool udp_;
  platform::FileDescriptor socket_;
  sockaddr_in address_{};
  std::deque<platform::FileDescriptor> connections_;
};

struct Case {
  std::string name, protocol, kind, group, question;
  int clients = 0, descriptors = 0;
};

/// Opens new connections one after the other.
class Clients {
 public:
  explicit Clients(const Case& with) : case_(with), proxy_(with.protocol == "udp") {
    if (case_.kind == "new") return;
    for (int number = 0; number < case_.clients; ++number) clients_.push_back(client(number));
    for (int count = 0; count < case_.clients * (keptSockets + 2); ++count) make();
  }

  struct Made {
    std::int32_t pid;
    sockaddr_in from;
  };
  Made make() {
    if (case_.kind == "new") {
      clients_.clear();
      clients_.push_back(client(0));
    }
    auto& next = clients_[random_() % clients_.size()];
    require(write(next.orders.get(), "", 1) == 1, "write");
    return {.pid = next.pid, .from = proxy_.accepted()};
  }

  const sockaddr_in& proxy() const { return proxy_.address(); }

 private:
  Child client(int number) {
    return Child([&] {
      if (case_.group == "own") enterGroup(fmt::format("own{}", number));
      openDescriptors(case_.descriptors - keptSockets);
      std::deque<int> kept;
      for (char order; read(3, &order, 1) == 1;) {
        if (kept.size() == keptSockets) {
          close(kept.front());
          kept.pop_front();
        }
        kept.push_back(proxy_.connectTo());
      }
    });
  }

  Case case_;
  Proxy proxy_;
  std::vector<Child> clients_;
  std::mt19937 random_{seed};
};

std::vector<Child> populate(int processes) {
  std::vector<Child> population;
  for (int count = 0; count < processes; ++count) {
    population.emplace_back([] {
      openDescriptors(populationDescriptors);
      for (char order; read(3, &order, 1) == 1;) {
      }
    });
  }
  return population;
}

double threadTime() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

/// The minimum of any look-up: identifies the socket, confirms a descriptor and reads the process's executable.
void floorOf(const Clients::Made& made, const sockaddr_in& proxy) {
  static const platform::FileDescriptor netlink(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG));
  struct {
    nlmsghdr header{};
    inet_diag_req_v2 body{};
  } request;
  request.header = {.nlmsg_len = sizeof request,
                    .nlmsg_type = SOCK_DIAG_BY_FAMILY,
                    .nlmsg_flags = NLM_F_REQUEST,
                    .nlmsg_seq = 0,
                    .nlmsg_pid = 0};
  request.body.sdiag_family = AF_INET;
  request.body.sdiag_protocol = IPPROTO_TCP;
  request.body.idiag_states = ~0u;
  auto& ends = request.body.id;
  ends.idiag_cookie[0] = ends.idiag_cookie[1] = INET_DIAG_NOCOOKIE;
  ends.idiag_sport = made.from.sin_port;
  ends.idiag_src[0] = made.from.sin_addr.s_addr;
  ends.idiag_dport = proxy.sin_port;
  ends.idiag_dst[0] = proxy.sin_addr.s_addr;
  std::array<char, 4096> buffer;
  require(send(netlink.get(), &request, sizeof request, 0) > 0, "send");
  require(recv(netlink.get(), buffer.data(), buffer.size(), 0) > 0, "recv");
  require(readlink(fmt::format("/proc/{}/fd/3", made.pid).c_str(), buffer.data(), buffer.size()) > 0, "readlink");
  require(readlink(fmt::format("/proc/{}/exe", made.pid).c_str(), buffer.data(), buffer.size()) > 0, "readlink");
}

struct Cost {
  double processor, wall;  // microseconds
};

Cost run(std::vector<std::string> words) {
  std::vector<char*> arguments;
  for (auto& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  rusage usage{};
  double wall = microseconds([&] {
    pid_t pid = 0;
    require(posix_spawnp(&pid, arguments[0], &actions, nullptr, arguments.data(), environ) == 0, "posix_spawnp");
    require(wait4(pid, nullptr, 0, &usage) == pid, "wait4");
  });
  posix_spawn_file_actions_destroy(&actions);
  auto time = [](const timeval& value) { return static_cast<double>(value.tv_sec * 1'000'000 + value.tv_usec); };
  return {.processor = time(usage.ru_utime) + time(usage.ru_stime), .wall = wall};
}

/// Sends requests to the helper like a client.
class Asker {
 public:
  void lookUp(const Case& which, const Clients::Made& made, const sockaddr_in& proxy) {
    std::optional<brimo::SocketAddress> remote;
    if (which.question == "remote") remote = addressOf(proxy);
    auto transport = which.protocol == "udp" ? brimo::Transport::udp : brimo::Transport::tcp;
    auto owner = client_.call(brimo::processLookup(transport, addressOf(made.from), remote));
    if (!owner || !*owner || (*owner)->pid != made.pid) throw std::runtime_error("wrong owner in case " + which.name);
  }

  /// A request of the same kind that the helper refuses at once.
  void beRefused() { client_.call(brimo::raDetect("")); }

 private:
  static brimo::SocketAddress addressOf(const sockaddr_in& address) {
    return *brimo::socketAddress(reinterpret_cast<const sockaddr*>(&address));
  }

  brimo::HelperClient client_;
};

void measure(const Case& which, const Helper& helper, Asker& asker) {
  Clients clients(which);
  std::map<std::string, std::vector<double>> values;
  auto oneLookup = [&] {
    auto made = clients.make();
    values["wall"].push_back(microseconds([&] { asker.lookUp(which, made, clients.proxy()); }));
    return made;
  };
  for (int count = 0; count < lookupsOfARound; ++count) oneLookup();
  values.clear();
  for (int round = 0; round < rounds; ++round) {
    auto made = clients.make();
    const auto start = helper.processorTime();
    for (int count = 0; count < lookupsOfARound; ++count) made = oneLookup();
    const auto middle = helper.processorTime();
    for (int count = 0; count < lookupsOfARound; ++count) asker.beRefused();
    const auto end = helper.processorTime();
    values["helper"].push_back(((middle - start) - (end - middle)) / lookupsOfARound);
    const auto before = threadTime();
    for (int count = 0; count < lookupsOfARound; ++count) floorOf(made, clients.proxy());
    values["floor"].push_back((threadTime() - before) / lookupsOfARound);
    const bool udp = which.protocol == "udp";
    const auto port = ntohs(made.from.sin_port);
    auto ss = run({"ss", udp ? "-Hunp" : "-Htnp", "sport", "=", fmt::format(":{}", port)});
    auto lsof = run({"lsof", "-nP", fmt::format("-i{}:{}", udp ? "UDP" : "TCP", port)});
    values["ss"].push_back(ss.processor);
    values["ss-wall"].push_back(ss.wall);
    values["lsof"].push_back(lsof.processor);
    values["lsof-wall"].push_back(lsof.wall);
  }
  for (const auto& [what, list] : values) fmt::print("{}/{} {:.1f}\n", which.name, what, median(list));
  fmt::print("{}/wall99 {:.1f}\n", which.name, quantile(values["wall"], 0.99));
}

}  // namespace

void measureConnections(const char* executable, int processes) {
  Helper helper(executable);
  Asker asker;
  asker.beRefused();
  enterGroup("shared");
  const auto population = populate(processes);
  for (Case next; std::cin >> next.name >> next.protocol >> next.kind >> next.clients >> next.descriptors >>
                  next.group >> next.question;) {
    measure(next, helper, asker);
    std::cout << std::flush;
  }
}

void measureBeside(const char* executable, int count) {
  Helper helper(executable);
  enterGroup("shared");
  const Case among{.name = "beside",
                   .protocol = "tcp",
                   .kind = "known",
                   .group = "shared",
                   .question = "alone",
                   .clients = 20,
                   .descriptors = 15'000};
  Clients clients(among);
  std::atomic<bool> isDone = false;
  std::atomic<int> lookups = 0;
  std::thread asking([&] {
    Asker asker;
    for (; !isDone; ++lookups) asker.lookUp(among, clients.make(), clients.proxy());
  });
  brimo::HelperClient innocent;
  innocent.call(brimo::version());
  std::vector<double> times;
  for (int round = 0; round < count; ++round) {
    times.push_back(microseconds([&] { innocent.call(brimo::version()); }));
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  isDone = true;
  asking.join();
  fmt::print("median {:.1f}\np99 {:.1f}\nworst {:.1f}\nlookups {}\n", median(times), quantile(times, 0.99),
             quantile(times, 1), lookups.load());
}

}  // namespace bench
