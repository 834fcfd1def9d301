// Looks up owners while processes create, duplicate and pass sockets, fork, exec and exit. Every process records when
// it may have held a socket and when it certainly did; the answers are checked against these records at the end. The
// environment variable LOOKUPS sets the number of look-ups.
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
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <future>
#include <map>
#include <random>

#include "helper/probes/socket_owner_lookup.h"
#include "tests/support/bound_socket.h"

namespace {

using Time = std::int64_t;  // nanoseconds of the steady clock, which all processes share

constexpr int workers = 6, maximumHeld = 12;
constexpr std::size_t maximumHolds = 4'000'000;
constexpr char localAddress[] = "127.6.18.1";  // nothing else binds there
constexpr Time forever = INT64_MAX;

Time now() {
  return std::chrono::steady_clock::now().time_since_epoch() / std::chrono::nanoseconds(1);
}

/// A process holds a socket at some time between `from` and `to`, and certainly from `surelyFrom` to `surelyTo`.
struct Hold {
  std::uint16_t port = 0;
  pid_t pid = 0;
  Time from = 0, surelyFrom = forever, surelyTo = forever, to = forever;
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

/// A message with a port and room for a descriptor (unix(7)).
struct Passed {
  Passed() {
    message.msg_iov = &vector;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
  }
  std::uint16_t port = 0;
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
  iovec vector{.iov_base = &port, .iov_len = sizeof port};
  msghdr message{};
};

class Worker {
 public:
  Worker(unsigned seed, int inbox, int outbox) : random_(seed), inbox_(inbox), outbox_(outbox) {}

  void run() {
    while (!shared().isOver && getppid() == parent_) {
      const auto choice = random_() % 8;
      const auto index = held_.empty() ? 0 : random_() % held_.size();
      if (choice < 2) make();
      if (choice == 2 && !held_.empty()) drop(index);
      if (choice == 3 && !held_.empty()) pass(index);
      if (choice == 4 && !held_.empty()) renumber(held_[index]);
      if (choice == 5 && random_() % 8 == 0) forkChild();
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
    const auto from = now();
    platform::test::Bound made(localAddress, SOCK_DGRAM);
    hold(made.descriptor.release(), made.port, from);
  }

  void hold(int descriptor, std::uint16_t port, Time from) {
    auto& hold = shared().add({.port = port, .pid = getpid(), .from = from, .surelyFrom = now()});
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
    Passed passed;
    passed.port = held_[index].hold->port;
    auto* header = CMSG_FIRSTHDR(&passed.message);
    *header = {.cmsg_len = CMSG_LEN(sizeof(int)), .cmsg_level = SOL_SOCKET, .cmsg_type = SCM_RIGHTS};
    memcpy(CMSG_DATA(header), &held_[index].descriptor, sizeof(int));
    const auto sent = sendmsg(outbox_, &passed.message, MSG_DONTWAIT);
    if (sent > 0 && random_() % 2 == 0) drop(index);
  }

  void receive() {
    Passed passed;
    const auto from = now();
    if (recvmsg(inbox_, &passed.message, MSG_DONTWAIT) <= 0) return;
    int descriptor = -1;
    memcpy(&descriptor, CMSG_DATA(CMSG_FIRSTHDR(&passed.message)), sizeof descriptor);
    hold(descriptor, passed.port, from);
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
    for (const auto& held : held_) child.holds.push_back(&shared().add({.port = held.hold->port, .from = from}));
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
  int inbox_, outbox_;
  std::vector<Held> held_;
  std::vector<Child> children_;
};

struct Answer {
  std::uint16_t port = 0;
  Time asked = 0, answered = 0;
  pid_t pid = 0;  // 0: no owner
};

using Holds = std::map<std::uint16_t, std::vector<Hold>>;

/// Whether the answer can have been true at some time between the question and the answer.
bool isRight(const Answer& answer, const Holds& all) {
  const auto& holds = all.at(answer.port);
  if (answer.pid != 0) {
    return std::any_of(holds.begin(), holds.end(), [&](const Hold& hold) {
      return hold.pid == answer.pid && hold.from <= answer.answered && hold.to >= answer.asked;
    });
  }
  // From the question until this time, some process certainly held the socket.
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

TEST(SocketOwnerRaces, EveryAnswerWasTrueBetweenQuestionAndAnswer) {
  const char* wanted = std::getenv("LOOKUPS");
  const int lookups = wanted ? std::atoi(wanted) : 2'000;
  std::vector<pid_t> processes;
  int ends[2];  // whichever worker comes first receives what another has sent
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
  shared().isOver = false;
  const std::size_t first = shared().count;  // the holds before it are from an earlier run of this test
  const auto parent = getpid();
  for (unsigned number = 0; number < workers; ++number) {
    pid_t pid = fork();
    if (pid == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      if (getppid() == parent) Worker(number, ends[0], ends[1]).run();
      _exit(0);
    }
    processes.push_back(pid);
  }

  std::mt19937 random(618);
  std::vector<Answer> answers;
  while (shared().count < first + 200) usleep(1000);
  while (static_cast<int>(answers.size()) < lookups) {
    std::vector<std::pair<Answer, std::promise<Answer>>> asked(1 + random() % 4);
    for (auto& [answer, promise] : asked) {
      // About half of the latest sockets are still held.
      Hold about{};
      while (about.port == 0) about = shared().holds[shared().count - 1 - random() % 100];  // 0: not recorded yet
      answer = {.port = about.port, .asked = now()};
      BRAskSocketOwner({.protocol = platform::SocketProtocol::udp,
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
  for (auto pid : processes) waitpid(pid, nullptr, 0);
  for (int end : ends) close(end);

  Holds holds;
  for (std::size_t index = first; index < shared().count; ++index) {
    const auto& hold = shared().holds[index];
    holds[hold.port].push_back(hold);
  }
  const auto none = std::count_if(answers.begin(), answers.end(), [](const auto& answer) { return answer.pid == 0; });
  EXPECT_THAT(none, testing::AllOf(testing::Gt(0), testing::Lt(lookups * 9 / 10)));
  for (const auto& answer : answers) EXPECT_TRUE(isRight(answer, holds)) << answer.pid;
}

}  // namespace
