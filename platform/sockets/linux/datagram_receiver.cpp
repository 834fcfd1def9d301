// Receives datagrams through a packet socket, which sees them before the kernel checks their destination address and
// the route back to their sender (rp_filter).
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>

#include "platform/sockets/interface_socket.h"
#include "platform/sockets/linux/udp_packet.h"

namespace platform {

namespace {

/// Makes the kernel keep only unfragmented UDP datagrams that are for this port and not addressed to another machine.
bool setFilter(int socket, std::uint16_t port) {
  // Jumps are relative to the next instruction. A failed test jumps to the last instruction.
  std::array<sock_filter, 11> program{{
      BPF_STMT(BPF_LD | BPF_B | BPF_ABS, static_cast<unsigned>(SKF_AD_OFF + SKF_AD_PKTTYPE)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, PACKET_OTHERHOST, 8, 0),
      BPF_STMT(BPF_LD | BPF_B | BPF_ABS, 9),  // protocol
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, IPPROTO_UDP, 0, 6),
      BPF_STMT(BPF_LD | BPF_H | BPF_ABS, 6),  // flags and fragment offset
      BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, 0x3FFF, 4, 0),
      BPF_STMT(BPF_LDX | BPF_B | BPF_MSH, 0),  // length of the IP header
      BPF_STMT(BPF_LD | BPF_H | BPF_IND, 2),   // destination port
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, port, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, 0xFFFFFFFF),
      BPF_STMT(BPF_RET | BPF_K, 0),
  }};
  sock_fprog filter{.len = program.size(), .filter = program.data()};
  return setsockopt(socket, SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter) == 0;
}

/// Whether the datagram's checksum has been verified, or was never computed because the packet did not leave this
/// machine (packet(7), PACKET_AUXDATA).
bool isChecksumTrusted(msghdr& header) {
  for (auto* control = CMSG_FIRSTHDR(&header); control; control = CMSG_NXTHDR(&header, control)) {
    if (control->cmsg_level != SOL_PACKET || control->cmsg_type != PACKET_AUXDATA) continue;
    const auto* data = reinterpret_cast<const tpacket_auxdata*>(CMSG_DATA(control));
    return (data->tp_status & (TP_STATUS_CSUMNOTREADY | TP_STATUS_CSUM_VALID)) != 0;
  }
  return false;
}

}  // namespace

Result<FileDescriptor> openDatagramReceiver(int, const std::string& interfaceName, std::uint16_t port) {
  // Protocol 0: no packets arrive before the filter is installed.
  auto receiver = openSocket(AF_PACKET, SOCK_DGRAM, 0);
  if (!receiver) return receiver;
  const int socket = receiver->get();
  enlargeReceiveBuffer(socket);
  int on = 1;
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(ETH_P_IP);
  address.sll_ifindex = static_cast<int>(if_nametoindex(interfaceName.c_str()));
  if (address.sll_ifindex == 0 || !setFilter(socket, port) ||
      setsockopt(socket, SOL_PACKET, PACKET_AUXDATA, &on, sizeof on) != 0 ||
      bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    return lastFailure();
  }
  return receiver;
}

Result<ReceivedDatagram> receiveDatagram(int receiver, std::span<std::uint8_t> buffer) {
  std::array<std::uint8_t, 65'535> packet;
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(tpacket_auxdata))> control;
  iovec vector{.iov_base = packet.data(), .iov_len = packet.size()};
  msghdr header{};
  header.msg_iov = &vector;
  header.msg_iovlen = 1;
  header.msg_control = control.data();
  header.msg_controllen = control.size();
  auto length = recvmsg(receiver, &header, MSG_DONTWAIT);
  if (length < 0) return lastFailure();
  auto datagram = readUDPPacket(std::span(packet).first(static_cast<std::size_t>(length)), isChecksumTrusted(header));
  if (!datagram) return failureOf(EAGAIN);
  auto payload = datagram->payload.first(std::min(datagram->payload.size(), buffer.size()));
  std::copy(payload.begin(), payload.end(), buffer.begin());
  return ReceivedDatagram{.length = payload.size(), .source = datagram->source};
}

}  // namespace platform
