#include "helper/probes/socket_owner_lookup.h"

#include <algorithm>
#include <mutex>
#include <vector>

#include "platform/base/utf8.h"
#include "platform/dispatch/dispatch.h"
#include "platform/process/process.h"
#include "platform/sockets/socket_table.h"

namespace {

using platform::SocketEntry;

bool isZero(std::span<const std::uint8_t> bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](auto byte) { return byte == 0; });
}

/// Whether port and family agree, and the addresses are equal or one of them is unspecified.
bool matches(const SocketEntry& socket, const BRSockAddr& query) {
  if (socket.localPort != BRSockAddrPort(query)) return false;
  auto wanted = BRSockAddrAddress(query);
  std::span<const std::uint8_t> bound = socket.localAddress;
  if (BRSockAddrFamily(query) == BRFamilyIPv4) {
    // The IPv4 address of a dual-stack socket is the last four bytes of its v4-mapped address.
    if (!socket.isIPv4) return false;
    bound = bound.last(4);
  } else if (!socket.isIPv6) {
    return false;
  }
  return isZero(wanted) || isZero(bound) || std::equal(wanted.begin(), wanted.end(), bound.begin());
}

platform::SocketEnd endOf(const BRSockAddr& address) {
  return {.address = BRSockAddrAddress(address), .port = BRSockAddrPort(address), .scope = BRSockAddrScope(address)};
}

/// The socket that a question is about, if it can be found without walking the table.
std::optional<SocketEntry> socketAtOnce(const BRSocketQuestion& question) {
  const auto local = endOf(question.address);
  std::optional<SocketEntry> found;
  if (question.remote && BRSockAddrFamily(*question.remote) == BRSockAddrFamily(question.address) &&
      BRSockAddrPort(*question.remote) != 0) {
    found = platform::connectedSocket(question.protocol, local, endOf(*question.remote));
  }
  if (!found && question.protocol == platform::SocketProtocol::tcp && !isZero(local.address) && local.scope == 0) {
    found = platform::likelySocket(local);
  }
  return found && matches(*found, question.address) ? found : std::nullopt;
}

std::optional<SocketEntry> socketOf(const BRSocketQuestion& question) {
  auto found = socketAtOnce(question);
  if (found) return found;
  platform::visitSockets(question.protocol, BRSockAddrPort(question.address),
                         BRSockAddrFamily(question.address) == BRFamilyIPv6, [&](const SocketEntry& socket) {
                           if (matches(socket, question.address)) found = socket;
                           return !found;
                         });
  return found;
}

/// Names the process with this PID, if it still holds the socket according to `holds`.
std::optional<BRProcess> identify(std::int32_t pid, const SocketEntry& socket, decltype(platform::holdsSocket)& holds) {
  if (pid == 0) return std::nullopt;
  auto path = platform::executablePath(pid);
  // Checked after the path is read: if the PID still holds the socket, the path belongs to an owner of it.
  if (!path || !holds(pid, socket)) return std::nullopt;
  if (!platform::isUTF8(*path)) path.reset();
  return BRProcess{.pid = pid, .processPath = std::move(path)};
}

struct Waiting {
  BRSocketQuestion question;
  std::function<void(const std::optional<BRProcess>&)> answer;
  int passes = 0;
};

/// Answers the questions that one pass over all processes can answer. Answers a question that remains open after its
/// fifth pass with "no owner". Returns the other open ones: their sockets exist, but the owners were not found, because
/// a socket may have moved to another process during the pass.
std::vector<Waiting> answerInOnePass(std::vector<Waiting> questions) {
  constexpr int maximumPasses = 5;
  std::vector<Waiting> asked;
  std::vector<SocketEntry> sockets;
  for (auto& next : questions) {
    if (auto socket = socketOf(next.question)) {
      sockets.push_back(*socket);
      asked.push_back(std::move(next));
    } else {
      next.answer(std::nullopt);
    }
  }
  platform::findSocketOwners(sockets, [&](std::size_t index, std::int32_t pid) {
    // An exiting process has no executable any more, but another process may share the socket.
    auto owner = identify(pid, sockets[index], platform::holdsSocket);
    if (owner) std::exchange(asked[index].answer, nullptr)(owner);
    return owner.has_value();
  });
  std::vector<Waiting> open;
  for (auto& next : asked) {
    if (!next.answer) continue;
    if (++next.passes < maximumPasses) {
      open.push_back(std::move(next));
    } else {
      next.answer(std::nullopt);
    }
  }
  return open;
}

/// The questions that wait for a pass.
class WaitingQuestions {
 public:
  void add(Waiting question) {
    std::lock_guard lock(mutex_);
    questions_.push_back(std::move(question));
    if (std::exchange(isServed_, true)) return;
    platform::dispatch::async(platform::dispatch::globalQueue(), [this] { serve(); });
  }

 private:
  void serve() {
    std::vector<Waiting> open;
    while (true) {
      std::vector<Waiting> next = std::move(open);
      {
        std::lock_guard lock(mutex_);
        std::move(questions_.begin(), questions_.end(), std::back_inserter(next));
        questions_.clear();
        if (next.empty()) {
          isServed_ = false;
          return;
        }
      }
      open = answerInOnePass(std::move(next));
    }
  }

  std::mutex mutex_;
  std::vector<Waiting> questions_;
  bool isServed_ = false;  // serve() is running or queued
};

bool canMatch(const BRSockAddr& address) {
  return BRSockAddrFamily(address) == BRFamilyIPv4 || BRSockAddrFamily(address) == BRFamilyIPv6;
}

std::optional<BRProcess> socketOwner(platform::SocketProtocol protocol, const BRSockAddr& address) {
  if (!canMatch(address)) return std::nullopt;
  std::optional<BRProcess> owner;
  std::vector<Waiting> questions;
  questions.push_back({.question = {.protocol = protocol, .address = address, .remote = {}},
                       .answer = [&](const auto& found) { owner = found; }});
  while (!questions.empty()) questions = answerInOnePass(std::move(questions));
  return owner;
}

}  // namespace

std::optional<BRProcess> BRTCPSocketOwner(const BRSockAddr& address) {
  return socketOwner(platform::SocketProtocol::tcp, address);
}

std::optional<BRProcess> BRUDPSocketOwner(const BRSockAddr& address) {
  return socketOwner(platform::SocketProtocol::udp, address);
}

void BRAskSocketOwner(const BRSocketQuestion& question, std::function<void(const std::optional<BRProcess>&)> answer) {
  if (!canMatch(question.address)) return answer(std::nullopt);
  auto socket = socketAtOnce(question);
  auto pid = socket ? platform::likelySocketOwner(*socket) : std::nullopt;
  // The caller may be the main thread, which must not search a process with a million descriptors.
  auto owner = pid ? identify(*pid, *socket, platform::seemsToHoldSocket) : std::nullopt;
  if (owner) return answer(owner);
  static auto& waiting = *new WaitingQuestions;  // never destroyed: serve() may run while the process exits
  waiting.add({.question = question, .answer = std::move(answer)});
}
