"""The network probes: real, missing and hostile DHCP servers and IPv6 routers."""

import json
import os
import re
import socket
import struct
import subprocess
from pathlib import Path

from harness import DEADLINE, TESTS, HelperTest, wait_until
from lan import (BROADCAST, INTERFACE, OUR_MAC, Lan, advertisement, captured, checksum, dhcp_message, icmpv6_frame, ip,
                 set_option, udp_frame)

# ThreadSanitizer adds a thread.
SANITIZER_THREADS = 1 if b"__tsan_init" in (TESTS / "bin/BrimoHelper").read_bytes() else 0

# Sends requests over one connection; prints the replies in the order in which they come.
ASK = """
import sys
connection = connect_greeted()
requests = eval(sys.argv[1])
for number, request in requests:
    connection.sendall(frame(number, request))
replies = []
while len(replies) < len(requests):
    replies.append(receive_frame(connection))
print(repr(replies))
"""


def discover(interface=INTERFACE):
    return {"json": json.dumps({"command": "dhcp-discover", "interface": interface}).encode()}


def detect(interface=INTERFACE):
    return {"command": "ra-detect", "interface": interface}


class ProbeTest(HelperTest):
    helper_options = {"quiet": True}
    output = Path("/tmp/helper.output")

    def setUp(self):
        self.output.unlink(missing_ok=True)
        super().setUp()
        self.wait_for_log(r"\[Helper\] Version: .*")
        self.lan = Lan(self)

    def start_asking(self, *requests):
        return self.genuine(ASK, repr(list(enumerate(requests, 1))))

    def replies_of(self, process):
        return eval(self.assert_succeeds(process))

    def ask(self, *requests):
        """The replies in their order of arrival: [number of the request, from 1; dictionary]."""
        return self.replies_of(self.start_asking(*requests))

    def trace(self, calls, *options):
        """Traces the helper's system calls. Returns a function that ends the trace and returns its text."""
        trace = Path("/tmp/helper.trace")
        strace = subprocess.Popen(["strace", "-f", "-p", str(self.helper.pid), "-e", f"trace={calls}", *options, "-o", trace],
                                  stderr=subprocess.PIPE, text=True)
        self.addCleanup(strace.communicate)
        self.addCleanup(strace.terminate)
        self.assertIn("attached", strace.stderr.readline())

        def text():
            strace.terminate()
            strace.wait()
            return trace.read_text()
        return text

    def next_frame(self, wire, is_wanted):
        wire.settimeout(DEADLINE)
        while not is_wanted(frame := wire.recv(65535)):
            pass
        return frame

    def threads(self):
        return len(os.listdir(f"/proc/{self.helper.pid}/task")) - SANITIZER_THREADS

    def lines_of(self, module):
        return [line.removeprefix(f"[{module}] ") for line in self.log() if line.startswith(f"[{module}]")]


class DHCP(ProbeTest):
    def discover(self, interface=INTERFACE):
        (_, reply), = self.ask(discover(interface))
        return json.loads(reply["json"])

    def test_servers_are_heard_with_any_rp_filter(self):
        self.lan.add_dnsmasq()
        self.lan.add_dhcpd()
        for rp_filter, address in ((0, None), (1, None), (1, "198.51.100.1/24")):
            with self.subTest(rp_filter=rp_filter, address=address):
                ip("address", "flush", "dev", INTERFACE)
                if address:
                    ip("address", "add", address, "dev", INTERFACE)
                set_option("ipv4", "all", "rp_filter", rp_filter)
                set_option("ipv4", INTERFACE, "rp_filter", rp_filter)
                self.assertCountEqual(self.discover()["serverAddresses"], ["192.0.2.1", "192.0.2.2"])

    def test_discover_on_the_wire_and_an_empty_list_after_two_seconds(self):
        wire = self.lan.packet_socket("lan", "wire")
        trace = self.trace("poll")
        self.assertEqual(self.discover(), {"serverAddresses": []})
        waits = [int(limit) for limit in re.findall(r"poll\(\[.*\], 1, (\d+)", trace())]
        self.assertTrue(1000 < max(waits) <= 2000, waits)  # milliseconds left of two seconds
        frame, = (frame for out, frame in captured(wire) if not out and frame[12:14] == b"\x08\0")
        self.assertEqual(frame[:12], BROADCAST + OUR_MAC)
        self.assertEqual(frame[30:40], b"\xff" * 4 + struct.pack(">HHH", 68, 67, 8 + 548))
        number = int.from_bytes(frame[46:50], "big")
        lines = self.lines_of("BRHDHCPDetector")
        self.assertRegex(lines.pop(0), r"^DHCP socket: \d+$")
        self.assertEqual(lines, [
            "Hardware address: 02000000aa01", "DHCPDISCOVER to 255.255.255.255 port 67",
            f"DHCPDISCOVER XID: {number} (0x{number:X})", "DHCDISCOVER ciaddr:  0.0.0.0", "DHCDISCOVER yiaddr:  0.0.0.0",
            "DHCDISCOVER siaddr:  0.0.0.0", "DHCDISCOVER giaddr:  0.0.0.0", "send_dhcp_packet result: 548", "",
            "No (more) data received", "Valid responses for this machine: 0"])

    def test_interfaces_that_cannot_be_probed(self):
        for interface, error in (("lo", "Error: Couldn't get hardware address!"),
                                 ("a-name-that-is-too-long-for-an-interface", "Error: Interface doesn't exist!")):
            self.assertEqual(self.discover(interface), {"error": error})
            self.assertEqual(self.brimo("dhcp-discover", interface), (1, "", f"Brimo: {error}\n"))
        ip("link", "set", INTERFACE, "down")
        self.assertEqual(self.discover(), {"error": "Error: Could not send DHCP discover: Network is unreachable"})
        self.assertEqual(self.lines_of("BRHDHCPDetector")[-1], "send_dhcp_packet result: -1")

    def test_the_error_names_the_holder_of_the_client_port(self):
        ip("link", "add", "other0", "type", "veth", "peer", "name", "other1")
        self.addCleanup(ip, "link", "delete", "other0")
        for interface in (None, INTERFACE, "other0"):
            with self.subTest(interface=interface), socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as holder:
                holder.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
                if interface:
                    holder.setsockopt(socket.SOL_SOCKET, socket.SO_BINDTODEVICE, interface.encode())
                holder.bind(("", 68))
                executable = os.readlink("/proc/self/exe")
                self.assertEqual(self.discover(), {"error": f"DHCP client port 68 is used by {executable} (PID {os.getpid()})"})
        self.assertIn("Error: Could not bind to DHCP socket (port 68)! Address already in use",
                      self.lines_of("BRHDHCPDetector"))
        self.assertEqual(self.brimo("dhcp-discover", INTERFACE), (4, f"no DHCP server answers on {INTERFACE}\n", ""))

    def test_one_probe_runs_at_a_time_without_delaying_other_commands(self):
        ip("link", "add", "other0", "up", "type", "veth", "peer", "name", "other1")
        self.addCleanup(ip, "link", "delete", "other0")
        descriptors = self.helper.descriptors()
        helper = TESTS / "bin/BrimoHelper"
        in_use = {"error": f"DHCP client port 68 is used by {helper} (PID {self.helper.pid})"}

        lost = self.start_asking(discover())
        self.wait_for_log(r"\[BRHDHCPDetector\] send_dhcp_packet result: 548")
        lost.kill()
        replies = self.ask(discover(), discover("other0"), {"json": b'{"command":"version"}'})
        self.assertEqual(sorted((number, json.loads(reply["json"])) for number, reply in replies),
                         [(1, in_use), (2, in_use), (3, {"version": 618})])

        wait_until(lambda: self.log()[-1].startswith("[BRHDHCPDetector] Valid responses"), "the probe ends")
        # The port is free again when the reply arrives.
        for _ in range(2):
            replies = self.ask(discover(), {"json": b'{"command":"version"}'})
            self.assertEqual([number for number, _ in replies], [2, 1])
            self.assertEqual(json.loads(replies[1][1]["json"]), {"serverAddresses": []})
        wait_until(lambda: self.helper.descriptors() == descriptors and self.threads() <= 1, "all is released")

    def test_other_packets_are_ignored_and_offers_keep_their_order(self):
        wire = self.lan.packet_socket("lan", "wire")
        probe = self.start_asking(discover())
        frame = self.next_frame(wire, lambda frame: frame[36:38] == b"\0\x43")
        transaction = int.from_bytes(frame[46:50], "big")
        offer = dhcp_message(transaction)
        for packet in (udp_frame(b""), udp_frame(dhcp_message(5), "192.0.2.65"), udp_frame(offer, "192.0.2.9"),
                       # Of the next three, one is for another machine, one for another port, and one is damaged.
                       udp_frame(offer, "192.0.2.66", destination=bytes.fromhex("020000000066")),
                       udp_frame(offer, "192.0.2.67", ports=(67, 69)), udp_frame(offer, "192.0.2.68", damaged=True),
                       udp_frame(offer, "192.0.2.8")):
            wire.send(packet)
        (_, reply), = self.replies_of(probe)
        self.assertEqual(json.loads(reply["json"]), {"serverAddresses": ["192.0.2.9", "192.0.2.8"]})
        lines = self.lines_of("BRHDHCPDetector")
        self.assertIn(f"DHCPOFFER XID (5) did not match DHCPDISCOVER XID ({transaction}) - ignoring packet", lines)
        begin = lines.index("Ignoring malformed or non-offer DHCP packet") - 6
        self.assertEqual(lines[begin:begin + 5], ["recv_result: 0", "receive_dhcp_packet() result: 0",
                                                  "receive_dhcp_packet() source: 192.0.2.9", "Result=OK",
                                                  "DHCPOFFER from IP address 192.0.2.9"])
        end = lines.index("DHCPOFFER giaddr: 0.0.0.0") + 1
        self.assertEqual(lines[end - 5:end], [f"DHCPOFFER XID: {transaction} (0x{transaction:X})", "DHCPOFFER ciaddr: 0.0.0.0",
                                              "DHCPOFFER yiaddr: 192.0.2.50", "DHCPOFFER siaddr: 0.0.0.0",
                                              "DHCPOFFER giaddr: 0.0.0.0"])

    def test_a_good_server_is_found_among_hostile_ones(self):
        self.lan.add_dnsmasq()
        junk = [udp_frame(dhcp_message(number, options), "203.0.113.1") for number, options in
                ((1, b"\x35\x01\x02\xff"), (2, b"\x36\xff"), (3, b"\0" * 300), (4, b"\x0c\xfa" + bytes(250)), (5, b"\xff"))]
        junk += [udp_frame(os.urandom(size), "203.0.113.2") for size in (0, 1, 240, 548, 1400)]
        junk.append(udp_frame(dhcp_message(1), "203.0.113.3", damaged=True))
        self.lan.start_sending(junk)
        before = self.helper.resident_kilobytes()
        self.assertEqual(self.brimo("dhcp-discover", INTERFACE), (0, "192.0.2.1\n", ""))
        self.assertEqual(self.brimo("--json", "dhcp-discover", INTERFACE)[:2], (0, '{"serverAddresses":["192.0.2.1"]}\n'))
        self.assertLess(self.helper.resident_kilobytes() - before, 20_000)
        # Without a limit on logged packets, there would be about a thousand times as many lines.
        lines = self.lines_of("BRHDHCPDetector")
        for line in ("DHCPOFFER from IP address 192.0.2.1", "Ignoring further packets without a log"):
            self.assertEqual(lines.count(line), 2)
        self.assertLess(len(lines), 2 * 20 * 10)


def is_solicitation(frame):
    return frame[12:14] == b"\x86\xdd" and frame[20] == 58 and frame[54] == 133 and frame[6:12] == OUR_MAC


class Router(ProbeTest):
    def detect(self, interface=INTERFACE):
        (_, reply), = self.ask(detect(interface))
        return reply

    def test_radvd(self):
        self.lan.add_radvd("AdvLinkMTU 1400; prefix 2001:db8:1::/64 {}; RDNSS 2001:db8:1::53 {}; DNSSL lab.example {};")
        wire = self.lan.packet_socket()
        reply = self.detect()
        scope = socket.if_nametoindex(INTERFACE)
        self.assertEqual(reply["addr"], struct.pack(">BBHI16s", 28, 30, 0, 0, socket.inet_pton(socket.AF_INET6, "fe80::1"))
                         + struct.pack("=I", scope))
        sent = [frame[54:] for out, frame in captured(wire) if not out and frame[20:21] == b":" and frame[54] == 134]
        self.assertIn(reply["data"], sent)
        code, out, err = self.brimo("ra-detect", INTERFACE)
        self.assertEqual((code, err), (0, ""))
        self.assertRegex(out, rf"(?s)^router fe80::1%{INTERFACE}\n.*  MTU               1400\n.*  search domains    lab.example\n$")

    def test_the_receiver_is_ready_before_the_first_solicitation(self):
        wire = self.lan.packet_socket("lan", "wire")
        # The trace delays each option. The receiver sets more options than the sender, so the receiver is ready last.
        trace = self.trace("setsockopt,sendto", "-e", "inject=setsockopt:delay_enter=20000")
        probe = self.start_asking(detect())
        self.next_frame(wire, is_solicitation)
        wire.send(icmpv6_frame(advertisement()))
        (_, reply), = self.replies_of(probe)
        self.assertIn("data", reply)
        lines = trace().splitlines()
        first = next(index for index, line in enumerate(lines) if "sendto(" in line and "AF_INET6" in line)
        self.assertEqual([line for line in lines[first:] if "setsockopt" in line], [])

    def test_solicitations_on_the_wire_without_a_router(self):
        wire = self.lan.packet_socket("lan", "wire")
        descriptors = self.helper.descriptors()
        self.assertEqual(self.detect(), {})
        asked = [frame for out, frame in captured(wire) if not out and is_solicitation(frame) and len(frame) == 62]
        self.assertTrue(2 <= len(asked) < 50, "solicitations must be repeated, but not flood the network")
        for frame in asked:
            self.assertEqual((frame[:2], frame[18:22]), (b"\x33\x33", b"\0\x08" + b":" + b"\xff"))  # length, ICMPv6, hop limit
            self.assertEqual(frame[38:54], socket.inet_pton(socket.AF_INET6, "ff02::2"))
            self.assertEqual(frame[54:56] + frame[58:62], b"\x85\0\0\0\0\0")
            self.assertEqual(checksum(frame[22:54] + struct.pack(">II", 8, 58) + frame[54:62]), 0)
        self.assertEqual(self.lines_of("BRHV6RADetector"), ["start", "timeout"])
        self.assertIn(f"Sent RS (8\u202fbytes) on {INTERFACE}\n", self.output.read_text())
        wait_until(lambda: self.helper.descriptors() <= descriptors and self.threads() <= 2, "all is released")

    def test_interfaces_that_cannot_be_probed(self):
        self.assertEqual(self.detect("nothing0"), {})
        self.assertEqual(self.lines_of("BRHV6RADetector"), ["start", "Invalid interface: nothing0"])
        ip("link", "set", INTERFACE, "down")
        self.assertEqual(self.detect(), {})
        self.assertRegex(self.output.read_text(), "(?m)^sendto: ")

    def test_invalid_advertisements_are_ignored(self):
        self.lan.start_sending([icmpv6_frame(advertisement(), source="2001:db8::1"),
                                icmpv6_frame(advertisement(), hop_limit=254)], interval=0.01)
        self.assertEqual(self.brimo("ra-detect", INTERFACE), (4, f"no IPv6 router answers on {INTERFACE}\n", ""))
        # A valid advertisement, sent in the same way, is found.
        self.lan.start_sending([icmpv6_frame(advertisement(), source="fe80::1")], interval=0.01)
        self.assertEqual(self.detect()["data"][0], 134)


class BeforeTheAddressIsUsable(ProbeTest):
    def test_a_failed_send_is_reported_and_the_router_is_still_heard(self):
        ip("link", "set", INTERFACE, "down")
        set_option("ipv6", INTERFACE, "disable_ipv6", 1)
        set_option("ipv6", INTERFACE, "disable_ipv6", 0)
        set_option("ipv6", INTERFACE, "accept_dad", 1)
        set_option("ipv6", INTERFACE, "dad_transmits", 10)
        ip("link", "set", INTERFACE, "up")
        self.lan.start_sending([icmpv6_frame(advertisement(), source="fe80::7")], interval=0.3)
        (_, reply), = self.ask(detect())
        self.assertEqual(reply["addr"][8:24], socket.inet_pton(socket.AF_INET6, "fe80::7"))
        self.assertRegex(self.output.read_text(), "(?m)^sendto: Cannot assign requested address$")
