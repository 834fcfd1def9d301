// Looks up owners while processes create, duplicate and pass sockets, fork, exec and exit. Every process records when
// it may have held a socket and when it certainly did; the answers are checked against these records at the end. The
// environment variable LOOKUPS sets the number of look-ups.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <future>
#include <map>
#include <random>

#include "helper/probes/socket_owner_lookup.h"

namespace {

using platform::SocketProtocol;
using Time = std::int64_t;  // nanoseconds of CLOCK_MONOTONIC

constexpr int workers = 6, maximumHeld = 12;
constexpr std::size_t maximumHolds = 4'000'000;
constexpr std::uint32_t localAddress = 0x7F061201;  // 127.6.18.1; nothing else binds there
constexpr Time forever = INT64_MAX;

Time now() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

/// A process holds a socket at some time between `from` and `to`, and certainly from `surelyFrom` to `surelyTo`.
struct Hold {
  std::uint16_t port;
  bool udp;
  pid_t pid;
  Time from, surelyFrom, surelyTo, to;
};

/// Shared memory that all processes write to.
struct Shared {
  std::atomic<bool> isOver;
  std::atomic<std::size_t> count;
  Hold holds[maximumHolds];

  Hold& add(const Hold& hold) {
    const auto index = count++;
    if (index >= maximumHolds) _exit(1);
    return holds[index] = hold;
  }
};

Shared& shared() {
  static auto* memory = static_cast<Shared*>(
      mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
  return *memory;
}

sockaddr_in addressOf(std::uint32_t host, std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(host);
  address.sin_port = htons(port);
  return address;
}

std::uint16_t bindTo(int socket, std::uint32_t host) {
  auto address = addressOf(host, 0);
  socklen_t length = sizeof address;
  if (bind(socket, reinterpret_cast<sockaddr*>(&address), length) != 0) _exit(1);
  getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length);
  return ntohs(address.sin_port);
}

/// The data sent along with a passed descriptor.
struct Passed {
  std::uint16_t port;
  bool udp;
};

class Worker {
 public:
  Worker(unsigned seed, int inbox, std::vector<int> outboxes, std::uint16_t server)
      : random_(seed), inbox_(inbox), outboxes_(std::move(outboxes)), server_(server) {}

  void run() {
    while (!shared().isOver && getppid() == parent_) {
      switch (random_() % 8) {
        case 0:
        case 1:
          make();
          break;
        case 2:
          if (!held_.empty()) drop(random_() % held_.size());
          break;
        case 3:
          if (!held_.empty()) pass(random_() % held_.size());
          break;
        case 4:
          if (!held_.empty()) renumber(held_[random_() % held_.size()]);
          break;
        case 5:
          close(std::exchange(file_, open("/dev/null", O_RDONLY | O_CLOEXEC)));
          break;
        case 6:
          if (random_() % 8 == 0) forkChild();
          break;
        default:
          break;
      }
      usleep(static_cast<unsigned>(random_() % 2000));
      receive();
      reap();
      while (held_.size() > maximumHeld) drop(0);
    }
    while (!children_.empty()) reap();
  }

 private:
  struct Held {
    int descriptor;
    Hold* hold;
  };

  void make() {
    const bool udp = random_() % 2 == 0;
    const auto from = now();
    int made = socket(AF_INET, udp ? SOCK_DGRAM : SOCK_STREAM, 0);
    const auto port = bindTo(made, localAddress);
    if (!udp) {
      linger reset{.l_onoff = 1, .l_linger = 0};  // a reset leaves no TIME_WAIT that blocks the port
      setsockopt(made, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
      auto server = addressOf(INADDR_LOOPBACK, server_);
      if (connect(made, reinterpret_cast<sockaddr*>(&server), sizeof server) != 0) _exit(1);
    }
    hold(made, port, udp, from);
  }

  void hold(int descriptor, std::uint16_t port, bool udp, Time from) {
    auto& hold = shared().add({.port = port,
                               .udp = udp,
                               .pid = getpid(),
                               .from = from,
                               .surelyFrom = now(),
                               .surelyTo = forever,
                               .to = forever});
    held_.push_back({.descriptor = descriptor, .hold = &hold});
  }

  void drop(std::size_t index) {
    const auto dropped = held_[index];
    held_.erase(held_.begin() + static_cast<std::ptrdiff_t>(index));
    dropped.hold->surelyTo = now();
    close(dropped.descriptor);
    dropped.hold->to = now();
  }

  void pass(std::size_t index) {
    Passed passed{.port = held_[index].hold->port, .udp = held_[index].hold->udp};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
    iovec vector{.iov_base = &passed, .iov_len = sizeof passed};
    msghdr message{};
    message.msg_iov = &vector;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    auto* header = CMSG_FIRSTHDR(&message);
    *header = {.cmsg_len = CMSG_LEN(sizeof(int)), .cmsg_level = SOL_SOCKET, .cmsg_type = SCM_RIGHTS};
    memcpy(CMSG_DATA(header), &held_[index].descriptor, sizeof(int));
    const auto sent = sendmsg(outboxes_[random_() % outboxes_.size()], &message, MSG_DONTWAIT);
    if (sent > 0 && random_() % 2 == 0) drop(index);
  }

  void receive() {
    Passed passed{};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
    iovec vector{.iov_base = &passed, .iov_len = sizeof passed};
    msghdr message{};
    message.msg_iov = &vector;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    const auto from = now();
    if (recvmsg(inbox_, &message, MSG_DONTWAIT) <= 0) return;
    int descriptor = -1;
    memcpy(&descriptor, CMSG_DATA(CMSG_FIRSTHDR(&message)), sizeof descriptor);
    hold(descriptor, passed.port, passed.udp, from);
  }

  /// Moves a socket to another descriptor number.
  void renumber(Held& held) {
    int other = fcntl(held.descriptor, F_DUPFD, 10 + random_() % 40);
    close(std::exchange(held.descriptor, other));
  }

  /// Forks a child, which holds all sockets of this process. It exits soon; half of the children exec first.
  void forkChild() {
    Child child;
    const auto from = now();
    for (const auto& held : held_) {
      child.holds.push_back(&shared().add({.port = held.hold->port,
                                           .udp = held.hold->udp,
                                           .pid = 0,
                                           .from = from,
                                           .surelyFrom = forever,
                                           .surelyTo = forever,
                                           .to = forever}));
    }
    const bool executes = random_() % 2 == 0;
    const auto life = static_cast<unsigned>(random_() % 20'000);
    child.pid = fork();
    if (child.pid == 0) {
      if (executes) execl("/bin/sleep", "sleep", "0.005", nullptr);
      usleep(life);
      for (auto* hold : child.holds) hold->surelyTo = now();
      _exit(0);
    }
    for (auto* hold : child.holds) {
      hold->pid = child.pid;
      if (!executes) hold->surelyFrom = now();
    }
    children_.push_back(std::move(child));
  }

  void reap() {
    std::erase_if(children_, [](const auto& child) {
      if (waitpid(child.pid, nullptr, WNOHANG) == 0) return false;
      for (auto* hold : child.holds) hold->to = now();
      return true;
    });
  }

  struct Child {
    pid_t pid = 0;
    std::vector<Hold*> holds;
  };

  const pid_t parent_ = getppid();
  std::mt19937 random_;
  int inbox_;
  std::vector<int> outboxes_;
  std::uint16_t server_;
  int file_ = -1;
  std::vector<Held> held_;
  std::vector<Child> children_;
};

struct Answer {
  std::uint16_t port;
  bool udp;
  Time asked, answered;
  pid_t pid;  // 0 if there is none
};

using Holds = std::map<std::pair<bool, std::uint16_t>, std::vector<Hold>>;

/// Whether the answer can have been true at some time between question and answer.
bool isRight(const Answer& answer, const Holds& all) {
  const auto& holds = all.at({answer.udp, answer.port});
  if (answer.pid != 0) {
    return std::any_of(holds.begin(), holds.end(), [&](const Hold& hold) {
      return hold.pid == answer.pid && hold.from <= answer.answered && hold.to >= answer.asked;
    });
  }
  // Until when, from the question on, some process certainly held the socket.
  Time covered = answer.asked;
  for (bool goesOn = true; goesOn && covered < answer.answered;) {
    goesOn = false;
    for (const auto& hold : holds) {
      if (hold.surelyFrom > covered || hold.surelyTo <= covered || hold.surelyFrom == forever) continue;
      covered = hold.surelyTo;
      goesOn = true;
    }
  }
  return covered < answer.answered;
}

/// Accepts the workers' connections and closes them at the end.
pid_t startServer(int listener) {
  pid_t pid = fork();
  if (pid > 0) return pid;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  while (accept(listener, nullptr, nullptr) >= 0 || errno == EMFILE) {
    if (errno == EMFILE) closefrom(listener + 1);
    errno = 0;
  }
  _exit(0);
}

TEST(SocketOwnerRaces, EveryAnswerWasTrueBetweenQuestionAndAnswer) {
  const char* wanted = std::getenv("LOOKUPS");
  const int lookups = wanted ? std::atoi(wanted) : 2'000;
  int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const auto server = bindTo(listener, INADDR_LOOPBACK);
  ASSERT_EQ(listen(listener, SOMAXCONN), 0);
  std::vector<pid_t> processes{startServer(listener)};
  close(listener);
  std::vector<int> inboxes, outboxes;
  for (int number = 0; number < workers; ++number) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
    inboxes.push_back(ends[0]);
    outboxes.push_back(ends[1]);
  }
  shared().isOver = false;
  const auto parent = getpid();
  for (unsigned number = 0; number < workers; ++number) {
    pid_t pid = fork();
    if (pid == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      if (getppid() == parent) Worker(number, inboxes[number], outboxes, server).run();
      _exit(0);
    }
    processes.push_back(pid);
  }

  std::mt19937 random(618);
  std::vector<Answer> answers;
  while (shared().count < 200) usleep(1000);
  while (static_cast<int>(answers.size()) < lookups) {
    std::vector<std::pair<Answer, std::promise<Answer>>> asked(1 + random() % 4);
    for (auto& [answer, promise] : asked) {
      // About half of the latest sockets are still held.
      Hold about{};
      while (about.port == 0) about = shared().holds[shared().count - 1 - random() % 100];  // 0: not recorded yet
      answer = {.port = about.port, .udp = about.udp, .asked = now(), .answered = 0, .pid = 0};
      BRAskSocketOwner({.protocol = answer.udp ? SocketProtocol::udp : SocketProtocol::tcp,
                        .address = BRSockAddrMakeIPv4({127, 6, 18, 1}, answer.port),
                        .remote = {}},
                       [&](const auto& owner) {
                         answer.pid = owner ? owner->pid : 0;
                         answer.answered = now();
                         promise.set_value(answer);
                       });
    }
    for (auto& [answer, promise] : asked) answers.push_back(promise.get_future().get());
  }
  shared().isOver = true;
  kill(processes.front(), SIGKILL);
  for (auto pid : processes) waitpid(pid, nullptr, 0);
  for (const auto& list : {inboxes, outboxes}) {
    for (int descriptor : list) close(descriptor);
  }

  Holds holds;
  for (std::size_t index = 0; index < shared().count; ++index) {
    const auto& hold = shared().holds[index];
    holds[{hold.udp, hold.port}].push_back(hold);
  }
  const auto none = std::count_if(answers.begin(), answers.end(), [](const auto& answer) { return answer.pid == 0; });
  EXPECT_THAT(none, testing::AllOf(testing::Gt(0), testing::Lt(lookups * 9 / 10)));
  std::size_t wrong = 0, wrongNone = 0;
  for (const auto& answer : answers) {
    if (isRight(answer, holds)) continue;
    ++(answer.pid == 0 ? wrongNone : wrong);
  }
  EXPECT_EQ(wrong, 0u);
  EXPECT_EQ(wrongNone, 0u);
  RecordProperty("none", static_cast<int>(none));
  RecordProperty("holds", static_cast<int>(shared().count));
}

}  // namespace
