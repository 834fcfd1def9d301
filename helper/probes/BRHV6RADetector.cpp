#include "helper/probes/BRHV6RADetector.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/icmp6.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <utility>

#include "helper/probes/router_advertisement.h"
#include "platform/base/thread.h"
#include "platform/sockets/interface_socket.h"

namespace {

constexpr double timeoutSeconds = 5.0;
constexpr std::size_t receiveBuffer = 2048;

/// Reports a failed step on standard error. Returns the exit value of the thread's function.
int fail(const char* step, const platform::Failure& failure = platform::lastFailure()) {
  std::fprintf(stderr, "%s: %s\n", step, failure.what());
  return 1;
}

template <class Value>
bool setOption(int socket, int level, int option, const Value& value) {
  return setsockopt(socket, level, option, &value, sizeof value) == 0;
}

}  // namespace

// Each thread owns the detector, so the destructor may run on one of them, and a thread cannot join itself.
BRHV6RADetector::~BRHV6RADetector() {
  if (_sendThread.joinable()) _sendThread.detach();
  if (_recvThread.joinable()) _recvThread.detach();
}

void BRHV6RADetector::start() {
  HX_log("start");
  if (_interface.empty() || if_nametoindex(_interface.c_str()) == 0) {
    HX_log("Invalid interface: {}", _interface);
    return completeWithData(std::nullopt, std::nullopt);
  }
  _timeoutTimer =
      HXGCDTimer::onetimeTimerWithQueue(platform::dispatch::mainQueue(), timeoutSeconds, [weak = weak_from_this()] {
        if (auto self = weak.lock()) self->timeout();
      });
  auto started = platform::attempt([this] {
    _recvThread = platform::startThread([self = shared_from_this()] { self->recvRA(); }).value();
    _sendThread = platform::startThread([self = shared_from_this()] { self->sendRS(); }).value();
  });
  if (!started) fail("thread", started.error());  // the timeout completes the probe
}

void BRHV6RADetector::timeout() {
  HX_log("timeout");
  completeWithData(std::nullopt, std::nullopt);
}

void BRHV6RADetector::completeWithData(const std::optional<Data>& data, const std::optional<Data>& address) {
  CompletionHandler handler;
  {
    std::lock_guard guard(lock_);
    if (_stopped.exchange(true)) return;
    if (_timeoutTimer) _timeoutTimer->invalidate();
    _timeoutTimer = nullptr;
    handler = std::exchange(_completionHandler, nullptr);
  }
  if (handler) handler(data, address);
}

int BRHV6RADetector::sendRS() {
  const auto index = if_nametoindex(_interface.c_str());
  if (index == 0) {
    std::fprintf(stderr, "未知接口: %s\n", _interface.c_str());
    return 1;
  }
  auto opened = platform::openSocket(AF_INET6, SOCK_RAW, IPPROTO_ICMPV6);
  if (!opened) return fail("socket", opened.error());
  const auto& socket = *opened;
  const int hops = 255;
  if (!setOption(socket.get(), IPPROTO_IPV6, IPV6_UNICAST_HOPS, hops) ||
      !setOption(socket.get(), IPPROTO_IPV6, IPV6_MULTICAST_HOPS, hops)) {
    return fail("setsockopt(HOPS)");
  }
  if (auto bound = platform::bindToInterface(socket.get(), _interface); !bound) {
    return fail("setsockopt(IPV6_BOUND_IF)", bound.error());
  }

  sockaddr_in6 allRouters{};
  allRouters.sin6_family = AF_INET6;
  allRouters.sin6_scope_id = index;
  inet_pton(AF_INET6, "ff02::2", &allRouters.sin6_addr);
  // Type 133 is a router solicitation. The kernel fills in the checksum.
  constexpr std::array<std::uint8_t, 8> solicitation{133};
  listening_.get_future().wait();  // a router can answer at once
  while (!_stopped) {
    if (sendto(socket.get(), solicitation.data(), solicitation.size(), 0,
               reinterpret_cast<const sockaddr*>(&allRouters), sizeof allRouters) < 0) {
      return fail("sendto");
    }
    std::printf("Sent RS (%zu\u202Fbytes) on %s\n", solicitation.size(), _interface.c_str());
    std::fflush(stdout);
    sleep(1);
  }
  return 0;
}

// Reports a failure itself and then returns an empty descriptor.
platform::FileDescriptor BRHV6RADetector::openReceiver() const {
  auto failed = [](const char* step, const platform::Failure& failure = platform::lastFailure()) {
    fail(step, failure);
    return platform::FileDescriptor();
  };
  if (if_nametoindex(_interface.c_str()) == 0) return {};
  auto socket = platform::openSocket(AF_INET6, SOCK_RAW, IPPROTO_ICMPV6);
  if (!socket) return failed("socket", socket.error());
  if (auto bound = platform::bindToInterface(socket->get(), _interface); !bound) {
    return failed("setsockopt(IPV6_BOUND_IF)", bound.error());
  }
  if (auto requested = platform::requestHopLimit(socket->get()); !requested) {
    return failed("setsockopt(IPV6_2292HOPLIMIT)", requested.error());
  }
  if (!setOption(socket->get(), SOL_SOCKET, SO_RCVTIMEO, timeval{.tv_sec = 1, .tv_usec = 0})) {
    return failed("setsockopt(SO_RCVTIMEO)");
  }
  platform::enlargeReceiveBuffer(socket->get());
  icmp6_filter onlyAdvertisements;
  ICMP6_FILTER_SETBLOCKALL(&onlyAdvertisements);
  ICMP6_FILTER_SETPASS(ND_ROUTER_ADVERT, &onlyAdvertisements);
  if (!setOption(socket->get(), IPPROTO_ICMPV6, ICMP6_FILTER, onlyAdvertisements)) {
    return failed("setsockopt(ICMP6_FILTER)");
  }
  return std::move(*socket);
}

int BRHV6RADetector::recvRA() {
  auto socket = openReceiver();
  listening_.set_value();
  if (!socket) return 1;
  std::array<std::uint8_t, receiveBuffer> buffer;
  while (!_stopped) {
    auto received = platform::receiveICMPv6(socket.get(), buffer);
    if (!received) {
      const auto failure = received.error();
      if (failure.number == EINTR || failure.number == EAGAIN) continue;
      fail("recvfrom", failure);
      break;
    }
    auto message = BRHRouterAdvertisement(std::span(buffer).first(received->length), received->hopLimit,
                                          std::span(received->source).subspan<8, 16>());
    if (!message) continue;
    HX_log("completed");
    completeWithData(Data(message->begin(), message->end()), Data(received->source.begin(), received->source.end()));
  }
  return 0;
}
