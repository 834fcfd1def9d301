// Sockets that work on one interface. Any thread. The sentence of a failure is the errno's text alone.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/base/file_descriptor.h"
#include "platform/base/result.h"

namespace platform {

/// Makes a socket (socket(2)) that is closed on exec.
Result<FileDescriptor> openSocket(int family, int type, int protocol);

/// Lets a port be bound that is only left over from a closed socket, but never one that a socket holds (on macOS:
/// holds on the same address).
Result<void> allowReuseOfPort(int socket);

/// Has an IPv4 or IPv6 socket send by one interface and receive from it alone.
Result<void> bindToInterface(int socket, const std::string& interfaceName);

/// Gives a socket, as far as the system allows, a receive buffer that a flood of packets does not fill at once.
void enlargeReceiveBuffer(int socket);

/// Binds an IPv4 socket to a port (host byte order) on all addresses. Fails with EADDRINUSE while any other socket
/// holds the port (on macOS: on all addresses), even one that is bound to another interface.
Result<void> bindToPort(int socket, std::uint16_t port);

/// The link-layer address of an interface, in network order; empty when there is no such interface or it has none.
Result<std::vector<std::uint8_t>> linkLayerAddress(const std::string& interfaceName);

/// Opens what receiveDatagram() reads from: the UDP datagrams to a port (host byte order) that come in by one
/// interface, even while the interface has no address. `socket` is the socket that is bound to both, or about to be.
Result<FileDescriptor> openDatagramReceiver(int socket, const std::string& interfaceName, std::uint16_t port);

struct ReceivedDatagram {
  std::size_t length = 0;                ///< as much of the payload as found room in the buffer
  std::array<std::uint8_t, 4> source{};  ///< IPv4 address, network order
};

/// Takes a waiting datagram, never waits for one: fails with EAGAIN when there is none, or only one that was damaged
/// on the way.
Result<ReceivedDatagram> receiveDatagram(int receiver, std::span<std::uint8_t> buffer);

/// Has receiveICMPv6() tell hop limits for a raw ICMPv6 socket.
Result<void> requestHopLimit(int socket);

struct ReceivedICMPv6 {
  std::size_t length = 0;                 ///< as much of the datagram as found room in the buffer
  std::array<std::uint8_t, 28> source{};  ///< socket address in the BSD layout; its address at bytes 8 to 23
  std::optional<int> hopLimit;            ///< as received
};

/// Waits for a datagram on a raw ICMPv6 socket, as long as its SO_RCVTIMEO allows: then it fails with EAGAIN.
Result<ReceivedICMPv6> receiveICMPv6(int socket, std::span<std::uint8_t> buffer);

}  // namespace platform
