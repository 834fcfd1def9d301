// Sockets for a single interface. Any thread. The sentence of a failure is the errno's text alone.
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

/// Makes a socket (socket(2)) with close-on-exec set.
Result<FileDescriptor> openSocket(int family, int type, int protocol);

/// Allows binding a port that only a closed socket still occupies, but never one that an open socket holds (on macOS:
/// holds on the same address).
Result<void> allowReuseOfPort(int socket);

/// Makes an IPv4 or IPv6 socket send through one interface and receive only from it.
Result<void> bindToInterface(int socket, const std::string& interfaceName);

/// Enlarges a socket's receive buffer to 16 MiB, or less if the system limits it, so that a burst of packets does not
/// fill it at once.
void enlargeReceiveBuffer(int socket);

/// Binds an IPv4 socket to a port (host byte order) on all addresses. Fails with EADDRINUSE while another socket holds
/// the port (on macOS: on all addresses), even if that socket is bound to another interface.
Result<void> bindToPort(int socket, std::uint16_t port);

/// The link-layer address of an interface, in network byte order; empty if there is no such interface or it has no
/// address.
Result<std::vector<std::uint8_t>> linkLayerAddress(const std::string& interfaceName);

/// Opens a descriptor for receiveDatagram(). It receives the UDP datagrams that arrive at a port (host byte order)
/// through one interface, even if the interface has no address. `socket` is bound to both or is about to be.
Result<FileDescriptor> openDatagramReceiver(int socket, const std::string& interfaceName, std::uint16_t port);

struct ReceivedDatagram {
  std::size_t length = 0;                ///< bytes of payload in the buffer; a longer payload is cut
  std::array<std::uint8_t, 4> source{};  ///< IPv4 address, network byte order
};

/// Reads the next waiting datagram without blocking. Fails with EAGAIN if no datagram is waiting or the next one was
/// damaged in transit.
Result<ReceivedDatagram> receiveDatagram(int receiver, std::span<std::uint8_t> buffer);

/// Makes receiveICMPv6() report hop limits on a raw ICMPv6 socket.
Result<void> requestHopLimit(int socket);

struct ReceivedICMPv6 {
  std::size_t length = 0;                 ///< bytes in the buffer; a longer datagram is cut
  std::array<std::uint8_t, 28> source{};  ///< socket address in the BSD layout; the IPv6 address is in bytes 8 to 23
  std::optional<int> hopLimit;            ///< absent if unknown
};

/// Waits for a datagram on a raw ICMPv6 socket. Fails with EAGAIN after the socket's SO_RCVTIMEO.
Result<ReceivedICMPv6> receiveICMPv6(int socket, std::span<std::uint8_t> buffer);

}  // namespace platform
