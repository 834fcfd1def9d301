"""Compares the network probes with nmap and rdisc6, on the system tests' network with dnsmasq and radvd.

The kernel stamps the packets on the interface, whichever program sends and receives them. Programs are timed with the
same clock: bench_probes reports when it called a probe and received the first answer; the others are timed
from the start of their process to its end."""

import socket
import statistics
import struct
import subprocess
import sys
import time
import unittest
from pathlib import Path

sys.path.append(str(Path(__file__).resolve().parent.parent / "tests/system"))
from lan import INTERFACE, Lan, ip

SO_TIMESTAMPNS = 35
ROUNDS = {"dhcp": 5, "ra": 25}
PROGRAMS = {
    "DHCP probe": ("dhcp", "./bench_probes", "dhcp", INTERFACE),
    "nmap": ("dhcp", "nmap", "-e", INTERFACE, "--script", "broadcast-dhcp-discover", "--script-args",
             "broadcast-dhcp-discover.timeout=2"),
    "router probe": ("ra", "./bench_probes", "ra", INTERFACE),
    "rdisc6 -1": ("ra", "rdisc6", "-1", INTERFACE),
}


def kind_of(frame):
    """Classifies a frame as a probe's request or the answer to it."""
    if frame[12:14] == b"\x08\0" and frame[23] == 17:
        return {b"\0\x43": "request", b"\0\x44": "answer"}.get(frame[36:38])
    if frame[12:14] == b"\x86\xdd" and frame[20] == 58:
        return {133: "request", 134: "answer"}.get(frame[54])
    return None


def packet_times(wire):
    """The times of the first request and of the first answer after it on the wire."""
    times = {}
    while len(times) < 2:
        frame, ((_, _, stamp),), *_ = wire.recvmsg(65535, 100, socket.MSG_DONTWAIT)
        kind, (seconds, nanoseconds) = kind_of(frame), struct.unpack("qq", stamp)
        if kind == "request" or kind == "answer" and times:
            times.setdefault(kind, 10**9 * seconds + nanoseconds)
    return times


def observe(lan, command):
    """Runs a program and returns the duration of each step in milliseconds."""
    with lan.packet_socket() as wire:
        wire.setsockopt(socket.SOL_SOCKET, SO_TIMESTAMPNS, 1)
        times = {"call": time.time_ns()}
        output = subprocess.run(command, check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True).stdout
        times["end"] = time.time_ns()
        times |= packet_times(wire)
    if command[0] == "./bench_probes":
        times |= {line.split()[0]: int(line.split()[1]) for line in output.splitlines() if not line.startswith("Sent")}
    else:
        assert "Server Identifier: 192.0.2.1" in output or "from fe80::1" in output, output
        if command[0] == "rdisc6":
            times["seen"] = times["end"]
    steps = (("call", "request"), ("request", "answer"), ("answer", "seen"), ("call", "seen"), ("call", "end"))
    return {step: (times[step[1]] - times[step[0]]) / 1e6 for step in steps if step[1] in times}


def measure():
    """The steps of all rounds, by program."""
    lan = Lan(unittest.TestCase())  # no clean-up: everything ends with the namespaces
    lan.add_dnsmasq()
    lan.add_radvd("prefix 2001:db8:1::/64 {};")
    ip("address", "add", "192.0.2.20/24", "dev", INTERFACE)  # nmap rejects an interface without an address
    return {name: [observe(lan, command) for _ in range(ROUNDS[kind])] for name, (kind, *command) in PROGRAMS.items()}


def print_table(measured):
    print(f"""
the first offer of dnsmasq ({ROUNDS["dhcp"]} rounds) and the advertisement of radvd ({ROUNDS["ra"]} rounds), medians in ms
(Each probe is the first of its process, is timed from its call, and logs to memory. "Seen" is when the probe logs an
offer or returns an advertisement. nmap and rdisc6 are timed from the start of their processes. The DHCP probe collects
offers for two seconds; so does nmap, whose default is ten. nmap does not show when it sees an offer. rdisc6 ends when it
has received an advertisement, so its end counts as "seen". "Request" and "answer" are the first packets on the wire; the server
needs the time between them.)""")
    columns = {("call", "request"): "to request", ("request", "answer"): "to answer", ("answer", "seen"): "to seen",
               ("call", "seen"): "call to seen", ("call", "end"): "call to end"}
    print(f"{'':16}" + "".join(f"{text:>14}" for text in columns.values()) + f"{'slowest seen':>16}{'slowest end':>14}")
    for name, rounds in measured.items():
        values = [statistics.median(each[step] for each in rounds) if step in rounds[0] else None for step in columns]
        values += [max(each[step] for each in rounds) if step in rounds[0] else None
                   for step in (("call", "seen"), ("call", "end"))]
        print(f"{name:16}" + "".join(f"{'-' if value is None else format(value, '.2f'):>14}" for value in values))
