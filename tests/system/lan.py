"""A local network of namespaces with real and hostile servers for the system tests of the probes.

The interface "probe0" lies in the tests' namespace. Its other end, "wire", is a port of a bridge in the namespace "lan". The
servers' namespaces are connected to that bridge by their "eth0"."""

import contextlib
import ctypes
import errno
import os
import shutil
import signal
import socket
import struct
import subprocess
from pathlib import Path

from harness import run, wait_until

ETH_P_ALL, ETH_P_IP, ETH_P_IPV6 = 3, 0x0800, 0x86DD
BROADCAST = b"\xff" * 6
OUR_MAC = bytes.fromhex("02000000aa01")
INTERFACE = "probe0"
DHCPD_CONFIGURATION = "ping-check false;\nsubnet 192.0.2.0 netmask 255.255.255.0 { range 192.0.2.100 192.0.2.110; }\n"


def ip(*arguments):
    run("ip", *arguments)


def set_option(family, interface, option, value, namespace=None):
    enter = ["ip", "netns", "exec", namespace] if namespace else []
    run(*enter, "sh", "-c", f"echo {value} > /proc/sys/net/{family}/conf/{interface}/{option}")


def enter(namespace):
    """Enters the network namespace of an open file."""
    if ctypes.CDLL(None, use_errno=True).setns(namespace.fileno(), 0x40000000):  # CLONE_NEWNET
        raise OSError(ctypes.get_errno(), "setns")


class Lan:
    """The network. Registers its clean-up with `test`."""

    def __init__(self, test):
        self.test = test
        self.servers = 0
        self.add_namespace("lan")
        ip("-n", "lan", "link", "add", "bridge0", "type", "bridge", "stp_state", "0", "forward_delay", "0")
        ip("link", "add", INTERFACE, "address", OUR_MAC.hex(":"), "type", "veth", "peer", "name", "wire", "netns", "lan")
        set_option("ipv6", INTERFACE, "accept_dad", 0)
        set_option("ipv6", INTERFACE, "accept_ra", 0)
        ip("-n", "lan", "link", "set", "wire", "master", "bridge0", "up")
        ip("-n", "lan", "link", "set", "bridge0", "up")
        ip("link", "set", INTERFACE, "up")
        test.addCleanup(ip, "link", "delete", INTERFACE)
        route = ["ip", "route", "get", "ff02::2", "oif", INTERFACE]  # missing until the kernel has noticed the link
        wait_until(lambda: subprocess.run(route, capture_output=True).returncode == 0, "solicitations can be sent")

    def add_namespace(self, name):
        ip("netns", "add", name)
        self.test.addCleanup(ip, "netns", "delete", name)

    def add_server(self, *addresses):
        """Creates a namespace with an interface that has these addresses. Returns its name."""
        self.servers += 1
        name = f"server{self.servers}"
        self.add_namespace(name)
        ip("-n", "lan", "link", "add", name, "type", "veth", "peer", "name", "eth0", "netns", name)
        set_option("ipv6", "eth0", "accept_dad", 0, name)
        ip("-n", "lan", "link", "set", name, "master", "bridge0", "up")
        ip("-n", name, "link", "set", "eth0", "up")
        for address in addresses:
            ip("-n", name, "address", "add", address, "dev", "eth0")
        return name

    def run_in(self, name, arguments, ready):
        """Runs a server in a namespace until the test ends. Waits until its output says that it is ready."""
        output = Path(f"/tmp/{name}.output")
        with output.open("w") as file:
            process = subprocess.Popen(["ip", "netns", "exec", name, *arguments], stdin=subprocess.DEVNULL, stdout=file,
                                       stderr=subprocess.STDOUT)
        self.test.addCleanup(process.wait)
        self.test.addCleanup(process.terminate)

        def is_ready():
            if process.poll() is not None:
                raise AssertionError(f"{arguments[0]} ended: {output.read_text()}")
            return ready in output.read_text()
        wait_until(is_ready, f"{arguments[0]} is ready")
        return process

    def add_dnsmasq(self, address="192.0.2.1"):
        name = self.add_server(f"{address}/24")
        self.run_in(name, ["dnsmasq", "--no-daemon", "--conf-file=/dev/null", "--port=0", "--bind-interfaces",
                           "--interface=eth0", "--no-ping", "--user=root", "--group=root", "--log-facility=-",
                           f"--dhcp-leasefile=/tmp/{name}.leases", "--dhcp-range=192.0.2.50,192.0.2.60,1h"],
                    "DHCP, IP range")

    def add_dhcpd(self, address="192.0.2.2"):
        name = self.add_server(f"{address}/24")
        Path(f"/tmp/{name}.conf").write_text(DHCPD_CONFIGURATION)
        Path(f"/tmp/{name}.leases").touch()
        dhcpd = shutil.copy(shutil.which("dhcpd", path="/usr/sbin"), "/run")  # AppArmor lets the original open only Debian's files
        self.run_in(name, [dhcpd, "-4", "-f", "-d", "--no-pid", "-user", "root", "-group", "root", "-cf",
                           f"/tmp/{name}.conf", "-lf", f"/tmp/{name}.leases", "eth0"], "Server starting service.")

    def add_dhclient(self):
        """Adds a DHCP client that gets an address from 192.0.2.1 and keeps it."""
        self.run_in(self.add_server(), ["dhclient", "-4", "-d", "-1", "-sf", "/bin/true", "-cf", "/dev/null", "-lf",
                                        "/run/dhclient.leases", "-pf", "/run/dhclient.pid", "eth0"], "bound to 192.0.2.1")

    def add_radvd(self, options, address="fe80::1/64"):
        name = self.add_server(address)
        set_option("ipv6", "all", "forwarding", 1, name)
        Path(f"/tmp/{name}.conf").write_text(f"interface eth0 {{ AdvSendAdvert on; {options} }};\n")
        self.run_in(name, ["radvd", "-n", "-d", "1", "-m", "stderr", "-C", f"/tmp/{name}.conf", "-p", f"/tmp/{name}.pid"],
                    "version")

    def packet_socket(self):
        """A socket that receives and sends whole frames on the other end of probe0."""
        with open("/proc/self/ns/net") as before, open("/run/netns/lan") as lan:
            enter(lan)
            packets = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETH_P_ALL))
            packets.bind(("wire", ETH_P_ALL))
            enter(before)
        self.test.addCleanup(packets.close)
        return packets

    def start_sending(self, frames):
        """Starts a process that sends frames to probe0, without pause, until the test ends."""
        wire = self.packet_socket()
        pid = os.fork()
        if pid == 0:
            try:
                send_for_ever(wire, frames)
            finally:
                os._exit(1)

        def end():
            ended, _ = os.waitpid(pid, os.WNOHANG)
            self.test.assertEqual(ended, 0, "the sender ended before the test")
            os.kill(pid, signal.SIGKILL)
            os.waitpid(pid, 0)
        self.test.addCleanup(end)


def send_for_ever(wire, frames):
    while True:
        for frame in frames:
            try:
                wire.send(frame)
            except OSError as error:  # a queue is full
                if error.errno != errno.ENOBUFS:
                    raise


def captured(packets):
    """The frames that wait in a packet socket."""
    packets.setblocking(False)
    frames = []
    with contextlib.suppress(BlockingIOError):
        while True:
            frames.append(packets.recv(65535))
    return frames


def checksum(data):
    data += b"\0" * (len(data) % 2)
    total = sum(struct.unpack(f">{len(data) // 2}H", data))
    while total > 0xFFFF:
        total = (total >> 16) + (total & 0xFFFF)
    return ~total & 0xFFFF


def udp_frame(payload, source="192.0.2.9", ports=(67, 68), damaged=False, destination=BROADCAST):
    addresses = socket.inet_aton(source) + b"\xff" * 4
    length = 8 + len(payload)
    udp = struct.pack(">HHHH", *ports, length, 0) + payload
    total = checksum(addresses + struct.pack(">HH", 17, length) + udp) or 0xFFFF
    udp = udp[:6] + struct.pack(">H", total ^ (0x0101 if damaged and total != 0x0101 else 2 * damaged)) + payload
    header = struct.pack(">BBHHHBBH", 0x45, 0, 20 + length, 1, 0, 64, 17, 0) + addresses
    header = header[:10] + struct.pack(">H", checksum(header)) + header[12:]
    return destination + bytes.fromhex("02000000bb01") + struct.pack(">H", ETH_P_IP) + header + udp


def dhcp_message(transaction, options=b"\x35\x01\x02\xff"):
    return struct.pack(">BBBBIHHIIII16s64s128s4s", 2, 1, 6, 0, transaction, 0, 0x8000, 0, 0xC0000232, 0, 0, OUR_MAC, b"",
                       b"", b"\x63\x82\x53\x63") + options


def advertisement_frame():
    message = struct.pack(">BBHBBHII", 134, 0, 0, 64, 0, 1800, 0, 0)
    addresses = b"".join(socket.inet_pton(socket.AF_INET6, address) for address in ("fe80::bad", "ff02::1"))
    total = checksum(addresses + struct.pack(">II", len(message), 58) + message)
    message = message[:2] + struct.pack(">H", total) + message[4:]
    header = struct.pack(">IHBB", 0x60000000, len(message), 58, 255) + addresses
    return bytes.fromhex("333300000001") + bytes.fromhex("02000000bb02") + struct.pack(">H", ETH_P_IPV6) + header + message
