"""The network probes: real, missing and hostile DHCP servers and IPv6 routers."""

import json
import os
import re
import select
import socket
import struct
import subprocess
import time
from pathlib import Path

from harness import TESTS, HelperTest, wait_until
from lan import (BROADCAST, INTERFACE, OUR_MAC, Lan, advertisement, captured, checksum, dhcp_message, icmpv6_frame, ip,
                 set_option, udp_frame)

# ThreadSanitizer adds a thread.
SANITIZER_THREADS = 1 if b"__tsan_init" in (TESTS / "bin/BrimoHelper").read_bytes() else 0

# Sends requests over one connection. Prints the replies in order of arrival with their durations in seconds.
ASK = """
import sys, time
connection = connect_greeted()
start = time.monotonic()
requests = eval(sys.argv[1])
for number, request in requests:
    connection.sendall(frame(number, request))
replies = []
while len(replies) < len(requests):
    replies.append((*receive_frame(connection), time.monotonic() - start))
print(repr(replies))
"""


def discover(interface=INTERFACE):
    return {"json": json.dumps({"command": "dhcp-discover", "interface": interface}).encode()}


def detect(interface=INTERFACE):
    return {"command": "ra-detect", "interface": interface}


class ProbeTest(HelperTest):
    def setUp(self):
        # The tests read the probes' output, which goes to a file.
        saved = [os.dup(1), os.dup(2)]
        self.output = Path("/tmp/helper.output")
        with self.output.open("wb") as file:
            os.dup2(file.fileno(), 1)
            os.dup2(file.fileno(), 2)
        try:
            super().setUp()
            self.wait_for_log(r"\[Helper\] Version: .*")
        finally:
            for number, descriptor in enumerate(saved, 1):
                os.dup2(descriptor, number)
                os.close(descriptor)
        self.lan = Lan(self)

    def start_asking(self, *requests):
        return self.genuine(ASK, repr(list(enumerate(requests, 1))))

    def replies_of(self, process):
        return eval(self.assert_succeeds(process))

    def ask(self, *requests):
        """The replies in order of arrival: (number of the request, from 1; dictionary; seconds)."""
        return self.replies_of(self.start_asking(*requests))

    def threads(self):
        return len(os.listdir(f"/proc/{self.helper.pid}/task")) - SANITIZER_THREADS

    def lines_of(self, module):
        return [line.removeprefix(f"[{module}] ") for line in self.log() if line.startswith(f"[{module}]")]


class DHCP(ProbeTest):
    def discover(self, interface=INTERFACE):
        (_, reply, seconds), = self.ask(discover(interface))
        return json.loads(reply["json"]), seconds

    def servers(self):
        answer, _ = self.discover()
        return answer["serverAddresses"]

    def test_servers_in_order_of_arrival_whatever_rp_filter_says(self):
        self.lan.add_dnsmasq()
        self.lan.add_dhcpd()
        for rp_filter, address in ((0, None), (1, None), (2, None), (1, "192.0.2.20/24"), (1, "198.51.100.1/24")):
            with self.subTest(rp_filter=rp_filter, address=address):
                ip("address", "flush", "dev", INTERFACE)
                if address:
                    ip("address", "add", address, "dev", INTERFACE)
                set_option("ipv4", "all", "rp_filter", rp_filter)
                set_option("ipv4", INTERFACE, "rp_filter", rp_filter)
                wire = self.lan.packet_socket()
                servers = self.servers()
                self.assertCountEqual(servers, ["192.0.2.1", "192.0.2.2"])
                offers = [socket.inet_ntoa(frame[26:30]) for out, frame in captured(wire)
                          if not out and frame[36:38] == b"\0\x44"]
                self.assertEqual(servers, list(dict.fromkeys(offers)))

    def test_command_line(self):
        self.lan.add_dnsmasq()
        self.assertEqual(self.brimo("dhcp-discover", INTERFACE), (0, "192.0.2.1\n", ""))
        self.assertEqual(self.brimo("--json", "dhcp-discover", INTERFACE)[:2], (0, '{"serverAddresses":["192.0.2.1"]}\n'))

    def test_discover_on_the_wire_and_an_empty_list_after_two_seconds(self):
        wire = self.lan.packet_socket("lan", "wire")
        answer, seconds = self.discover()
        self.assertEqual(answer, {"serverAddresses": []})
        self.assertGreaterEqual(seconds, 1.99)
        frame, = (frame for out, frame in captured(wire) if not out and frame[12:14] == b"\x08\0")
        self.assertEqual(frame[:12], BROADCAST + OUR_MAC)
        self.assertEqual(frame[14:][9], 17)
        self.assertEqual(frame[30:34], b"\xff" * 4)
        self.assertEqual(frame[34:40], struct.pack(">HHH", 68, 67, 8 + 548))
        message = frame[42:]
        transaction = message[4:8]
        self.assertEqual(message, b"\x01\x01\x06\0" + transaction + b"\0\0\x80\0" + bytes(16) + OUR_MAC + bytes(10 + 64 + 128)
                         + b"\x63\x82\x53\x63\x35\x01\x01\xff" + bytes(304))
        number = int.from_bytes(transaction, "big")
        lines = self.lines_of("BRHDHCPDetector")
        self.assertRegex(lines.pop(0), r"^DHCP socket: \d+$")
        self.assertEqual(lines, [
            "Hardware address: 02000000aa01", "DHCPDISCOVER to 255.255.255.255 port 67",
            f"DHCPDISCOVER XID: {number} (0x{number:X})", "DHCDISCOVER ciaddr:  0.0.0.0", "DHCDISCOVER yiaddr:  0.0.0.0",
            "DHCDISCOVER siaddr:  0.0.0.0", "DHCDISCOVER giaddr:  0.0.0.0", "send_dhcp_packet result: 548", "",
            "No (more) data received", "Valid responses for this machine: 0"])

    def test_interfaces_that_cannot_be_probed(self):
        for interface, error in (("lo", "Error: Couldn't get hardware address!"),
                                 ("nothing0", "Error: Interface doesn't exist!")):
            self.assertEqual(self.discover(interface)[0], {"error": error})
            self.assertEqual(self.brimo("dhcp-discover", interface), (1, "", f"Brimo: {error}\n"))
        ip("link", "set", INTERFACE, "down")
        self.assertEqual(self.discover()[0], {"error": "Error: Could not send DHCP discover: Network is unreachable"})
        self.assertEqual(self.lines_of("BRHDHCPDetector")[-1], "send_dhcp_packet result: -1")

    def test_the_holder_of_the_client_port_is_named(self):
        ip("link", "add", "other0", "type", "veth", "peer", "name", "other1")
        self.addCleanup(ip, "link", "delete", "other0")
        for interface in (None, INTERFACE, "other0"):
            with self.subTest(interface=interface), socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as holder:
                holder.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
                if interface:
                    holder.setsockopt(socket.SOL_SOCKET, socket.SO_BINDTODEVICE, interface.encode())
                holder.bind(("", 68))
                answer, _ = self.discover()
                executable = os.readlink("/proc/self/exe")
                self.assertEqual(answer, {"error": f"DHCP client port 68 is used by {executable} (PID {os.getpid()})"})
        self.assertIn("Error: Could not bind to DHCP socket (port 68)! Address already in use",
                      self.lines_of("BRHDHCPDetector"))
        self.assertEqual(self.brimo("dhcp-discover", INTERFACE), (4, f"no DHCP server answers on {INTERFACE}\n", ""))

    def test_one_probe_at_a_time_and_neither_the_queue_nor_a_lost_client_waits(self):
        ip("link", "add", "other0", "up", "type", "veth", "peer", "name", "other1")
        self.addCleanup(ip, "link", "delete", "other0")
        descriptors = self.helper.descriptors()
        helper = TESTS / "bin/BrimoHelper"
        in_use = {"error": f"DHCP client port 68 is used by {helper} (PID {self.helper.pid})"}

        lost = self.start_asking(discover())
        self.wait_for_log(r"\[BRHDHCPDetector\] send_dhcp_packet result: 548")
        lost.kill()
        replies = self.ask(discover(), discover("other0"), {"json": b'{"command":"version"}'})
        self.assertEqual(sorted((number, json.loads(reply["json"])) for number, reply, _ in replies),
                         [(1, in_use), (2, in_use), (3, {"version": 618})])

        wait_until(lambda: self.log()[-1].startswith("[BRHDHCPDetector] Valid responses"), "the probe has ended")
        # The port is free once a reply arrives.
        for _ in range(2):
            replies = self.ask(discover(), {"json": b'{"command":"version"}'})
            self.assertEqual([number for number, _, _ in replies], [2, 1])
            self.assertEqual(json.loads(replies[1][1]["json"]), {"serverAddresses": []})
        wait_until(lambda: self.helper.descriptors() == descriptors and self.threads() <= 1, "everything was given back")

    def test_what_is_no_offer_for_us_is_ignored(self):
        wire = self.lan.packet_socket("lan", "wire")
        probe = self.start_asking(discover())
        select.select([wire], [], [], 20)
        while True:
            frame = wire.recv(65535)
            if frame[36:38] == b"\0\x43":
                break
        transaction = int.from_bytes(frame[46:50], "big")
        ignored = "Ignoring malformed or non-offer DHCP packet"
        steps = [
            (b"", ignored),
            (dhcp_message(5, hardware=BROADCAST),
             f"DHCPOFFER XID (5) did not match DHCPDISCOVER XID ({transaction}) - ignoring packet"),
            (dhcp_message(transaction, bytes(400) + b"\x35\x01\x02"), ignored),  # truncated to 548 bytes
            (dhcp_message(transaction), "DHCPOFFER giaddr: 0.0.0.0"),
        ]
        for message, _ in steps:
            wire.send(udp_frame(message))
        # For another machine, for another port, and damaged.
        wire.send(udp_frame(dhcp_message(transaction), "192.0.2.66", destination=bytes.fromhex("020000000066")))
        wire.send(udp_frame(dhcp_message(transaction), "192.0.2.67", ports=(67, 69)))
        wire.send(udp_frame(dhcp_message(transaction), "192.0.2.68", damaged=True))
        wire.send(udp_frame(dhcp_message(transaction), "192.0.2.10"))
        (_, reply, _), = self.replies_of(probe)
        self.assertEqual(json.loads(reply["json"]), {"serverAddresses": ["192.0.2.9", "192.0.2.10"]})

        lines = self.lines_of("BRHDHCPDetector")
        lines = lines[lines.index("send_dhcp_packet result: 548") + 1:]
        for message, verdict in steps:
            length = min(len(message), 548)
            number = int.from_bytes(message[4:8], "big")
            end = lines.index(verdict)
            self.assertEqual(lines[:7], ["", f"recv_result: {length}", f"receive_dhcp_packet() result: {length}",
                                         "receive_dhcp_packet() source: 192.0.2.9", "Result=OK",
                                         "DHCPOFFER from IP address 192.0.2.9", f"DHCPOFFER XID: {number} (0x{number:X})"])
            if "giaddr" in verdict:
                self.assertEqual(lines[7:end], ["DHCPOFFER ciaddr: 0.0.0.0", "DHCPOFFER yiaddr: 192.0.2.50",
                                                "DHCPOFFER siaddr: 0.0.0.0"])
            else:
                self.assertEqual(end, 7)
            lines = lines[end + 1:]
        self.assertEqual(lines[-1], "Valid responses for this machine: 2")

    def test_a_good_server_is_found_among_hostile_ones(self):
        self.lan.add_dnsmasq()
        junk = [udp_frame(dhcp_message(number, options), "203.0.113.1") for number, options in
                ((1, b"\x35\x01\x02\xff"), (2, b"\x36\xff"), (3, b"\0" * 300), (4, b"\x0c\xfa" + bytes(250)), (5, b"\xff"))]
        junk += [udp_frame(os.urandom(size), "203.0.113.2") for size in (0, 1, 240, 548, 1400)]
        junk.append(udp_frame(dhcp_message(1), "203.0.113.3", damaged=True))
        self.lan.start_sending(junk)
        before = self.helper.resident_kilobytes()
        for _ in range(3):
            self.assertEqual(self.servers(), ["192.0.2.1"])
        self.assertLess(self.helper.resident_kilobytes() - before, 20_000)
        self.assertEqual(self.lines_of("BRHDHCPDetector").count("DHCPOFFER from IP address 192.0.2.1"), 3)
        # A thousandth of the size without the limit.
        self.assertEqual(self.lines_of("BRHDHCPDetector").count("Ignoring further packets without a log"), 3)
        self.assertLess(len(self.lines_of("BRHDHCPDetector")), 3 * 20 * 10)


class Router(ProbeTest):
    def detect(self, interface=INTERFACE):
        (_, reply, seconds), = self.ask(detect(interface))
        return reply, seconds

    def test_radvd(self):
        self.lan.add_radvd("AdvLinkMTU 1400; prefix 2001:db8:1::/64 {}; RDNSS 2001:db8:1::53 {}; DNSSL lab.example {};")
        wire = self.lan.packet_socket()
        reply, _ = self.detect()
        scope = socket.if_nametoindex(INTERFACE)
        self.assertEqual(reply["addr"], struct.pack(">BBHI16s", 28, 30, 0, 0, socket.inet_pton(socket.AF_INET6, "fe80::1"))
                         + struct.pack("=I", scope))
        sent = [frame[54:] for out, frame in captured(wire) if not out and frame[20:21] == b":" and frame[54] == 134]
        self.assertIn(reply["data"], sent)

        code, out, err = self.brimo("ra-detect", INTERFACE)
        self.assertEqual((code, err), (0, ""))
        lines = out.splitlines()
        self.assertEqual(lines[0], f"router fe80::1%{INTERFACE}")
        for line in ("  lifetime          1800 s", "  MTU               1400", "  DNS servers       2001:db8:1::53",
                     "  search domains    lab.example",
                     "  prefix            2001:db8:1::/64, on link, autonomous, valid 86400 s, preferred 14400 s"):
            self.assertIn(line, lines)
        decoded = json.loads(self.brimo("--json", "ra-detect", INTERFACE)[1])
        self.assertEqual((decoded["router"], decoded["mtu"], decoded["prefixes"][0]["prefix"]),
                         (f"fe80::1%{INTERFACE}", 1400, "2001:db8:1::/64"))

    def test_routers_are_asked_when_their_answer_would_be_heard(self):
        wire = self.lan.packet_socket("lan", "wire")
        trace = Path("/tmp/probe.trace")
        # Slows down both threads, so that the receiver, which sets more options, is ready last.
        strace = subprocess.Popen(["strace", "-f", "-p", str(self.helper.pid), "-e", "trace=setsockopt,sendto", "-e",
                                   "inject=setsockopt:delay_enter=20000", "-o", trace], stderr=subprocess.PIPE, text=True)
        self.addCleanup(strace.communicate)
        self.addCleanup(strace.terminate)
        self.assertIn("attached", strace.stderr.readline())
        probe = self.start_asking(detect())
        while True:
            frame = wire.recv(65535)
            if frame[12:14] == b"\x86\xdd" and frame[20] == 58 and frame[54] == 133 and frame[6:12] == OUR_MAC:
                break
        wire.send(icmpv6_frame(advertisement()))
        (_, reply, _), = self.replies_of(probe)
        self.assertIn("data", reply)
        strace.terminate()
        strace.wait()
        lines = trace.read_text().splitlines()
        first = next(index for index, line in enumerate(lines) if "sendto(" in line and "AF_INET6" in line)
        self.assertEqual([line for line in lines[first:] if "setsockopt" in line], [])

    def test_solicitations_on_the_wire_when_nobody_is_there(self):
        wire = self.lan.packet_socket("lan", "wire")
        descriptors = self.helper.descriptors()
        times = []
        probe = self.start_asking(detect())
        while probe.poll() is None:
            if select.select([wire], [], [], 0.05)[0]:
                frame = wire.recv(65535)
                if frame[12:14] == b"\x86\xdd" and frame[20] == 58 and frame[54] == 133 and frame[:2] == b"\x33\x33" \
                        and len(frame) == 62:
                    times.append(time.monotonic())
                    self.assertEqual(frame[18:22], b"\0\x08" + b":" + b"\xff")  # length, ICMPv6, hop limit
                    self.assertEqual(frame[38:54], socket.inet_pton(socket.AF_INET6, "ff02::2"))
                    self.assertEqual(frame[54:56] + frame[58:62], b"\x85\0\0\0\0\0")
                    self.assertEqual(checksum(frame[22:54] + struct.pack(">II", 8, 58) + frame[54:62]), 0)
        (_, reply, seconds), = self.replies_of(probe)
        self.assertEqual(reply, {})
        self.assertGreaterEqual(seconds, 4.99)
        self.assertIn(len(times), (5, 6))
        self.assertEqual(self.lines_of("BRHV6RADetector"), ["start", "timeout"])
        self.assertIn(f"Sent RS (8\u202fbytes) on {INTERFACE}\n", self.output.read_text())
        # The timers of the main queue have created three descriptors.
        wait_until(lambda: self.helper.descriptors() <= descriptors + 3 and self.threads() <= 2, "everything was given back")

    def test_interfaces_that_cannot_be_probed(self):
        self.assertEqual(self.detect("nothing0")[0], {})
        self.assertEqual(self.lines_of("BRHV6RADetector"), ["start", "Invalid interface: nothing0"])
        ip("link", "set", INTERFACE, "down")
        self.assertEqual(self.detect()[0], {})
        self.assertRegex(self.output.read_text(), "(?m)^sendto: ")

    def test_advertisements_that_do_not_count(self):
        self.lan.start_sending([icmpv6_frame(advertisement(lifetime=0)),
                                icmpv6_frame(advertisement(), source="2001:db8::1"),
                                icmpv6_frame(advertisement(), hop_limit=64),
                                icmpv6_frame(advertisement(), hop_limit=254),
                                icmpv6_frame(advertisement(code=1)),
                                icmpv6_frame(advertisement()[:12]),
                                icmpv6_frame(advertisement(kind=136))], interval=0.01)
        probe = self.start_asking(detect())
        self.assertEqual(self.brimo("ra-detect", INTERFACE), (4, f"no IPv6 router answers on {INTERFACE}\n", ""))
        (_, reply, seconds), = self.replies_of(probe)
        self.assertEqual(reply, {})
        self.assertGreaterEqual(seconds, 4.99)
        # A valid advertisement, sent in the same way, is found.
        self.lan.start_sending([icmpv6_frame(advertisement(), source="fe80::1")], interval=0.01)
        self.assertEqual(self.detect()[0]["data"][0], 134)

    def test_a_hundred_at_once(self):
        self.lan.start_sending([icmpv6_frame(advertisement(), source="fe80::1")], interval=1.5)
        self.assertIn("data", self.detect()[0])  # creates the timers' thread and descriptors, which stay
        wait_until(lambda: self.threads() <= 2, "the first has ended")
        descriptors = self.helper.descriptors()
        replies = self.ask(*[detect() for _ in range(100)], {"json": b'{"command":"version"}'})
        self.assertEqual(sorted(number for number, _, _ in replies), list(range(1, 102)))
        for number, reply, _ in replies:
            if number <= 100:
                self.assertEqual(reply["data"][0], 134)

        lost = self.start_asking(*[detect("lo") for _ in range(100)])
        wait_until(lambda: self.lines_of("BRHV6RADetector").count("start") == 201, "all have started")
        lost.kill()
        self.assert_serves()
        wait_until(lambda: self.helper.descriptors() == descriptors and self.threads() <= 2, "everything was given back")


class BeforeTheAddressIsUsable(ProbeTest):
    def test_a_failed_send_is_reported_and_the_router_heard_all_the_same(self):
        ip("link", "set", INTERFACE, "down")
        set_option("ipv6", INTERFACE, "disable_ipv6", 1)
        set_option("ipv6", INTERFACE, "disable_ipv6", 0)
        set_option("ipv6", INTERFACE, "accept_dad", 1)
        set_option("ipv6", INTERFACE, "dad_transmits", 10)
        ip("link", "set", INTERFACE, "up")
        self.lan.start_sending([icmpv6_frame(advertisement(), source="fe80::7")], interval=0.3)
        (_, reply, _), = self.ask(detect())
        self.assertEqual(reply["addr"][8:24], socket.inet_pton(socket.AF_INET6, "fe80::7"))
        self.assertRegex(self.output.read_text(), "(?m)^sendto: Cannot assign requested address$")
