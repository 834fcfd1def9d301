#include "helper/probes/BRHDHCPDetector.h"

#include <arpa/inet.h>
#include <fmt/ranges.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <random>
#include <stdexcept>

#include "foundation/HXSocketAddress.h"
#include "helper/probes/dhcp_message.h"
#include "helper/probes/socket_owner_lookup.h"
#include "platform/dispatch/dispatch.h"
#include "platform/sockets/interface_socket.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint16_t clientPort = 68, serverPort = 67;
constexpr std::chrono::seconds listeningTime(2);
// Anybody on the network can send to the client port and forge the addresses of servers. Each log line is synchronised
// to the disk, and that is far slower than receiving. So only this many useless datagrams and this many servers are
// logged.
constexpr std::size_t maximumLogged = 20;

/// One probe, run on one thread. A step that fails throws the Failure that the client receives.
class Probe : public HXLogging<Probe> {
 public:
  static std::string HX_logModuleName() { return BRHDHCPDetector::HX_logModuleName(); }

  explicit Probe(const std::string& interfaceName) : interfaceName_(interfaceName) {}

  /// Runs the probe and returns the addresses of the servers that made offers.
  platform::Result<std::vector<std::string>> run() {
    return platform::attempt([this] {
      if (interfaceName_.empty()) throw platform::Failure(0, "Error: Interface name is empty!");
      openSockets();
      bindToClientPort();
      findHardwareAddress();
      sendDiscover();
      collectOffers();
      return std::move(addresses_);
    });
  }

 private:
  [[noreturn]] static void fail(const char* message) {
    ::HX_log<Probe>("{}", message);
    throw platform::Failure(0, message);
  }

  void openSockets() {
    auto opened = platform::openSocket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    if (!opened) fail("Error: Could not create socket!");
    socket_ = std::move(*opened);
    HX_log("DHCP socket: {}", socket_.get());
    if (!platform::allowReuseOfPort(socket_.get())) {
      fail("Error: Could not set reuse address option on DHCP socket!");
    }
    int on = 1;
    if (setsockopt(socket_.get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on) != 0) {
      fail("Error: Could not set broadcast option on DHCP socket!");
    }
    if (if_nametoindex(interfaceName_.c_str()) == 0) fail("Error: Interface doesn't exist!");
    constexpr char notBound[] = "Error: Could not set IP_BOUND_IF on DHCP socket!";
    if (!platform::bindToInterface(socket_.get(), interfaceName_)) fail(notBound);
    auto receiver = platform::openDatagramReceiver(socket_.get(), interfaceName_, clientPort);
    if (!receiver) fail(notBound);
    receiver_ = std::move(*receiver);
  }

  void bindToClientPort() {
    auto bound = platform::bindToPort(socket_.get(), clientPort);
    if (bound) return;
    const bool isInUse = bound.error().number == EADDRINUSE;
    HX_log("Error: Could not bind to DHCP socket (port {})! {}", clientPort, bound.error().what());
    // Only EADDRINUSE means that another socket holds the port. When the interface vanishes during the bind, this very
    // socket holds it, and the helper would be named as the owner.
    auto owner = isInUse ? BRUDPSocketOwner(BRSockAddrMakeIPv4({}, clientPort)) : std::nullopt;
    if (!owner) throw platform::Failure(0, "Error: Could not bind to DHCP socket!");
    throw platform::Failure(0, fmt::format("DHCP client port {} is used by {} (PID {})", clientPort,
                                           owner->processPath.value_or("(null)"), owner->pid));
  }

  void findHardwareAddress() {
    constexpr char failure[] = "Error: Couldn't get hardware address!";
    auto address = platform::linkLayerAddress(interfaceName_);
    if (!address) {
      HX_log("Error: Couldn't enumerate interfaces: {}", address.error().what());
      throw platform::Failure(0, failure);
    }
    if (address->size() < hardwareAddress_.size()) {
      HX_log("Error: Couldn't get hardware address from {}.", interfaceName_);
      throw platform::Failure(0, failure);
    }
    std::copy_n(address->begin(), hardwareAddress_.size(), hardwareAddress_.begin());
    HX_log("Hardware address: {:02x}", fmt::join(hardwareAddress_, ""));
  }

  void sendDiscover() {
    transactionID_ = std::random_device()();
    auto message = BRHMakeDHCPDiscover(hardwareAddress_, transactionID_);
    HX_log("DHCPDISCOVER to {} port {}", "255.255.255.255", serverPort);
    HX_log("DHCPDISCOVER XID: {} (0x{:X})", transactionID_, transactionID_);
    HX_log("DHCDISCOVER ciaddr:  {}", BRHDHCPAddressText(message, BRHDHCPClientAddressOffset));
    HX_log("DHCDISCOVER yiaddr:  {}", BRHDHCPAddressText(message, BRHDHCPYourAddressOffset));
    HX_log("DHCDISCOVER siaddr:  {}", BRHDHCPAddressText(message, BRHDHCPServerAddressOffset));
    HX_log("DHCDISCOVER giaddr:  {}", BRHDHCPAddressText(message, BRHDHCPRelayAddressOffset));

    sockaddr_in destination{};
    destination.sin_family = AF_INET;
    destination.sin_port = htons(serverPort);
    destination.sin_addr.s_addr = INADDR_BROADCAST;
    auto sent = sendto(socket_.get(), message.data(), message.size(), 0,
                       reinterpret_cast<const sockaddr*>(&destination), sizeof destination);
    auto failure = platform::lastFailure("Error: Could not send DHCP discover");
    HX_log("send_dhcp_packet result: {}", sent);
    if (sent != static_cast<ssize_t>(message.size())) throw failure;
  }

  void collectOffers() {
    const auto deadline = Clock::now() + listeningTime;
    while (true) {
      auto remaining = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
      if (remaining.count() <= 0) break;
      isQuiet_ = refusals_ >= maximumLogged || addresses_.size() >= maximumLogged;
      log("\n");
      pollfd descriptor{.fd = receiver_.get(), .events = POLLIN, .revents = 0};
      int ready = poll(&descriptor, 1, static_cast<int>(remaining.count()));
      if (ready < 0 && errno == EINTR) continue;
      if (ready < 0) {
        HX_log("select() failed: {}", platform::lastFailure().what());
        break;
      }
      if (ready == 0) {
        HX_log("No (more) data received");
        break;
      }
      if (!receive() && ++refusals_ == maximumLogged) HX_log("Ignoring further packets without a log");
    }
    HX_log("Valid responses for this machine: {}", addresses_.size());
  }

  /// Receives one datagram. Returns whether it is an offer from a new server.
  bool receive() {
    BRHDHCPMessage message{};
    auto datagram = platform::receiveDatagram(receiver_.get(), message);
    if (!datagram) {
      log("recv_result: {}", -1);
      log("recvfrom() failed, ");
      log("errno: ({}) -> {}", datagram.error().number, datagram.error().what());
      return false;
    }
    const sockaddr_in source = socketAddress(datagram->source);
    std::array<char, INET_ADDRSTRLEN> sourceText{};
    inet_ntop(AF_INET, &source.sin_addr, sourceText.data(), sourceText.size());
    const auto transactionID = BRHDHCPTransactionID(message);
    const auto verdict = BRHJudgeDHCPOffer(message, datagram->length, transactionID_, hardwareAddress_);
    auto address = stringWithIPAddressFromSockaddr(reinterpret_cast<const sockaddr*>(&source), sizeof source);
    const bool isNew = verdict == BRHDHCPVerdict::offer && address &&
                       std::find(addresses_.begin(), addresses_.end(), *address) == addresses_.end();
    isQuiet_ = isQuiet_ && !(isNew && addresses_.size() < maximumLogged);
    log("recv_result: {}", datagram->length);
    log("receive_dhcp_packet() result: {}", datagram->length);
    log("receive_dhcp_packet() source: {}", sourceText.data());
    log("Result=OK");
    log("DHCPOFFER from IP address {}", sourceText.data());
    log("DHCPOFFER XID: {} (0x{:X})", transactionID, transactionID);
    logVerdict(verdict, message);
    if (isNew) addresses_.push_back(std::move(*address));
    return isNew;
  }

  void logVerdict(BRHDHCPVerdict verdict, const BRHDHCPMessage& message) {
    switch (verdict) {
      case BRHDHCPVerdict::malformedOrNoOffer:
        log("Ignoring malformed or non-offer DHCP packet");
        break;
      case BRHDHCPVerdict::otherTransaction:
        log("DHCPOFFER XID ({}) did not match DHCPDISCOVER XID ({}) - ignoring packet", BRHDHCPTransactionID(message),
            transactionID_);
        break;
      case BRHDHCPVerdict::otherHardwareAddress:
        log("DHCPOFFER hardware address did not match our own - ignoring packet");
        break;
      case BRHDHCPVerdict::offer:
        log("DHCPOFFER ciaddr: {}", BRHDHCPAddressText(message, BRHDHCPClientAddressOffset));
        log("DHCPOFFER yiaddr: {}", BRHDHCPAddressText(message, BRHDHCPYourAddressOffset));
        log("DHCPOFFER siaddr: {}", BRHDHCPAddressText(message, BRHDHCPServerAddressOffset));
        log("DHCPOFFER giaddr: {}", BRHDHCPAddressText(message, BRHDHCPRelayAddressOffset));
        break;
    }
  }

  static sockaddr_in socketAddress(const std::array<std::uint8_t, 4>& address) {
    sockaddr_in result{};
    result.sin_family = AF_INET;
    std::memcpy(&result.sin_addr, address.data(), address.size());
    return result;
  }

  /// Logs, unless too many datagrams have been logged already.
  template <class... Arguments>
  void log(fmt::format_string<Arguments...> format, Arguments&&... arguments) {
    if (!isQuiet_) HX_log(format, std::forward<Arguments>(arguments)...);
  }

  const std::string interfaceName_;
  platform::FileDescriptor socket_;    // sends, and occupies the client port
  platform::FileDescriptor receiver_;  // receives what arrives at that port
  BRHHardwareAddress hardwareAddress_{};
  std::uint32_t transactionID_ = 0;
  std::vector<std::string> addresses_;
  std::size_t refusals_ = 0;  // datagrams without an offer from a new server
  bool isQuiet_ = false;
};

}  // namespace

void BRHDHCPDetector::startTestWithInterfaceName(const std::string& interfaceName,
                                                 CompletionHandler completionHandler) const {
  platform::dispatch::async(
      platform::dispatch::globalQueue(), [interfaceName, completionHandler = std::move(completionHandler)] {
        auto addresses = Probe(interfaceName).run();
        if (addresses) return completionHandler(std::nullopt, *addresses);
        completionHandler(HXError{.localizedDescription = addresses.error().what()}, std::nullopt);
      });
}
