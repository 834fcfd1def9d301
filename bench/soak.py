"""Runs an hour's worth of commands in two minutes: four clients connect, misbehave and die at random. Nothing may be left.

scripts/bench soak runs this file with the system tests' modules and in their namespaces. A run that gets to its end prints what
it did. The exit status is 1 after a failure. The environment variable SOAK_SEED repeats the choices of an earlier run;
SOAK_SECONDS sets the length."""

import collections
import faulthandler
import glob
import json
import os
import random
import re
import select
import shutil
import signal
import subprocess
import time
import unittest
from pathlib import Path

import lan
from harness import PYTHON, SERVICE, TESTS, USER, HelperTest, copy_bundle, run_as_user, sign
from network_manager import NetworkManager
from system_bus import SystemBus

SECONDS = int(os.environ.get("SOAK_SECONDS", 120))
WARM_UP = 15  # seconds; at the end, memory and descriptors are compared with their values at this time
CLIENTS = 4
ALLOWED_GROWTH = 2_000  # kilobytes
FILES = Path("/opt/soak")
DHCPD_INTERFACE = "soak0"
WATCHDOG_FILE = "/tmp/Brimo-External-Processes-Watchdog.json"

# Every one of these must be in the log, to show that the commands worked.
WANTED_LINES = ["[BRHMain] " + line for line in (
    "dhcpd started", "Terminate previous dhcpd", "spindump started", "spindump completed", "Release IOPMAssertion",
    "Relaunching", "cleanupProxySettings", "SCPreferencesPathSetValue result: 1")]
WANTED_LINES += ["[BRHV6RADetector] completed", "[BRHDHCPDetector] Valid responses for this machine: 1"]
# Clients must receive each of these answers and no others.
SUCCESSFUL = ("set-proxy", "start-watchdog", "stop-watchdog", "prevent-sleep-temp", "start-dhcpd", "stop-dhcpd", "spindump")
WANTED_REPLIES = {f"{command}: success" for command in SUCCESSFUL} | {
    "version: 618", "set-static-ip: success", "set-static-ip: invalid static IP configuration",
    "start-dhcpd: invalid dhcpd output path", "nonsense: unknown command", ": unknown command", "large: 618",
    "large: command payload is too large", "process-lookup: found", "process-lookup: nothing", "watchdog-file: listed"}

# A client, which prints the answers that it receives. Arguments: a seed, the network services as JSON, the DHCP server. Its
# connection is descriptor 3.
CLIENT = """
from harness import *
import json, random, sys
chance = random.Random(sys.argv[1])
services = json.loads(sys.argv[2])
connection = socket.socket(fileno=3)
connection.settimeout(DEADLINE)
last_id = 1000  # the program that it replaced has used the first IDs

def send(dictionary, wants_reply=True):
    global last_id
    last_id += 1
    connection.sendall(frame(last_id if wants_reply else 0, dictionary))

def ask(name, dictionary):
    send(dictionary)
    id, reply = None, None
    while id != last_id:  # late answers of probes can come in between
        id, reply = receive_frame(connection)
    if "json" in reply:
        text = json.loads(reply["json"])
        outcome = text.get("error") or text.get("result") or text["version"]
    else:
        outcome = "found" if reply.get("path") else reply.get("error", "nothing")
    print(f"{name}: {outcome}", flush=True)

def command(name, **rest):
    message = {"json": json.dumps({"command": name, **rest}).encode()}
    send(message, False) if chance.random() < 0.05 else ask(name, message)

def proxies():
    port = chance.randrange(1, 65536)
    return chance.choice([{"HTTPEnable": 1, "HTTPProxy": "192.0.2.7", "HTTPPort": port}, {},
                          {"ProxyAutoConfigEnable": 1, "ProxyAutoConfigURLString": f"http://192.0.2.7:{port}/p.pac"}])

def start_dhcpd():
    command("start-dhcpd", config="/opt/soak/dhcpd.conf", lease="/opt/soak/leases", dhcpd=sys.argv[3], interface="soak0",
            output=chance.choice(["/opt/soak/output", "/opt/soak/missing"]), pid="/opt/soak/pid")

def list_a_process():
    victim = subprocess.Popen(["/usr/bin/sleep", "1000"], start_new_session=True)
    own = f"/tmp/list.{os.getpid()}"
    Path(own).write_text(json.dumps([[victim.pid, os.path.realpath("/usr/bin/sleep")]]))
    try:
        os.link(own, FILE)
        print("watchdog-file: listed", flush=True)
    except FileExistsError:  # another client's file, which the helper deletes when the next client disconnects
        victim.kill()
    os.unlink(own)

def large():
    ask("large", {"json": b'{"command":"version","x":"' + b"x" * chance.choice([100_000, 4_000_000, 5_000_000]) + b'"}'})

holder = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
holder.bind(("127.0.0.1", 0))
held = holder.getsockname()[1]
usual = [
    (20, lambda: command("version")),
    (15, lambda: command("set-proxy", payload={chance.choice(services): proxies() for _ in range(2)}, cleanup=False)),
    (4, lambda: command("set-static-ip", serviceID=services[-1], address="198.51.100.7", mask="255.255.255.0",
                        router="198.51.100.1")),
    (4, lambda: command("set-static-ip", serviceID="a/b", address="x", mask="y", router="z")),
    (10, lambda: command(chance.choice(["start-watchdog", "stop-watchdog"]))),
    (2, lambda: command("prevent-sleep-temp")),
    (5, start_dhcpd),
    (3, lambda: command("stop-dhcpd")),
    (3, lambda: command("spindump", path="/opt/soak/spindump")),
    (15, lambda: ask("process-lookup", {"command": "process-lookup", "address": socket_address(
        "127.0.0.1", chance.choice([held, chance.randrange(1, 65536)])), "udp": chance.random() < 0.5})),
    (1, lambda: send({"command": "ra-detect", "interface": "probe0"})),
    (1, lambda: send({"json": b'{"command":"dhcp-discover","interface":"probe0"}'})),
    (4, list_a_process),
    (4, lambda: command(chance.choice(["nonsense", ""]))),
    (2, large),
]

def leave():
    sys.exit(0)

def die():
    os.kill(os.getpid(), 9)

def garbage():
    connection.sendall(chance.randbytes(chance.randrange(1, 100)))
    die()

def half_a_frame():
    connection.sendall(frame(1, {"command": "x" * 1000})[:500])
    die()

def flood():
    for number in range(2000):
        send({"command": "process-lookup", "address": bytes(128)})
    die()

def leave_a_child_behind():
    if os.fork() == 0:
        time.sleep(1)
        os._exit(0)
    die()

def half_close():
    connection.shutdown(socket.SHUT_WR)
    while True:
        receive_frame(connection)

ends = [leave, die, die, garbage, half_a_frame, flood, leave_a_child_behind, half_close,
        lambda: command("defunct-restart")]
for _ in range(chance.randrange(200)):
    chance.choices([action for _, action in usual], [weight for weight, _ in usual])[0]()
    time.sleep(chance.expovariate(1 / 0.02))
try:
    chance.choice(ends)()
    time.sleep(DEADLINE)  # defunct-restart kills this process
except (EOFError, OSError):
    sys.exit(0)  # the helper has closed the connection
""".replace("FILE)", f"{WATCHDOG_FILE!r})")


class Soak(HelperTest):
    helper_options = {"quiet": True}

    def setUp(self):
        super().setUp()
        faulthandler.dump_traceback_later(SECONDS + 120, exit=True)
        self.seed = os.environ.get("SOAK_SEED", str(random.randrange(1 << 32)))
        self.chance = random.Random(self.seed)
        self.replies, self.ends, self.relaunched = (collections.Counter() for _ in range(3))
        self.bus = SystemBus(self)
        self.bus.start_logind()
        self.manager = NetworkManager(self)
        self.connections = [self.manager.add_connection("One", "nm0"), self.manager.add_connection("Two", "nm1")]
        network = lan.Lan(self)
        network.add_dnsmasq()
        network.add_radvd("prefix 2001:db8:1::/64 {};")
        self.prepare_application()
        self.add_spindump()
        self.addCleanup(self.end_relaunched)

    def add_spindump(self):
        """Lays a folder with a shell script as spindump over /usr/sbin, in the tests' own mount namespace."""
        folder = Path("/run/sbin")
        folder.mkdir()
        self.addCleanup(shutil.rmtree, folder)
        (folder / "spindump").write_text('#!/bin/sh\necho "$1" >"$3"\n')
        (folder / "spindump").chmod(0o755)
        subprocess.run(["mount", "-t", "overlay", "-o", f"ro,lowerdir={folder}:/usr/sbin", "overlay", "/usr/sbin"], check=True)
        self.addCleanup(subprocess.run, ["umount", "/usr/sbin"], check=True)

    def prepare_application(self):
        """The genuine application, which can be relaunched. Most instances execute a script once they are admitted."""
        self.bundle, self.executable = copy_bundle("Soak.app")
        shutil.copy(TESTS / "bin/relaunched", self.executable)
        sign(self.executable)
        self.dhcpd = self.bundle / "Contents/Applications/brimo-dhcpd"
        self.prepare_dhcpd()

    def prepare_dhcpd(self):
        """Puts a signed DHCP server into the bundle and creates an interface for it."""
        FILES.mkdir(exist_ok=True)
        self.dhcpd.parent.mkdir(exist_ok=True)
        shutil.copy(shutil.which("dhcpd", path="/usr/sbin"), self.dhcpd)
        sign(self.dhcpd, "com.example.brimo.dhcpd")
        (FILES / "dhcpd.conf").write_text("subnet 198.51.100.0 netmask 255.255.255.0 { range 198.51.100.50 198.51.100.60; }\n")
        (FILES / "leases").touch()
        (FILES / "output").touch()
        os.chown(FILES / "output", USER, USER)
        lan.ip("link", "add", DHCPD_INTERFACE, "type", "veth", "peer", "name", "soak1")
        self.addCleanup(lan.ip, "link", "delete", DHCPD_INTERFACE)
        for interface in (DHCPD_INTERFACE, "soak1"):
            lan.ip("link", "set", interface, "up")
        lan.ip("address", "add", "198.51.100.1/24", "dev", DHCPD_INTERFACE)

    def run_clients(self, seconds):
        end = time.monotonic() + seconds
        clients = []
        while time.monotonic() < end:
            while len(clients) < CLIENTS:
                services = json.dumps(["EN0", "EN1", *self.connections])
                clients.append(run_as_user([self.executable, PYTHON, "-B", "-c", CLIENT, self.chance.random(), services,
                                            self.dhcpd]))
            time.sleep(0.05)
            if self.chance.random() < 0.02:
                self.end_relaunched()
            if self.chance.random() < 0.01:
                self.chance.choice(clients).kill()
            for client in [client for client in clients if client.poll() is not None]:
                self.take_leave(client)
                clients.remove(client)
        for client in clients:
            client.kill()
            client.wait()
            self.take_leave(client)

    def take_leave(self, client):
        self.ends["killed" if client.returncode == -signal.SIGKILL else "left"] += 1
        self.replies.update(self.what_it_printed(client.stdout).splitlines())
        self.assertEqual(self.what_it_printed(client.stderr), "")
        self.assertIn(client.returncode, (0, -signal.SIGKILL))

    @staticmethod
    def what_it_printed(pipe):
        """Does not wait for the end of the pipe, because a child may keep it open."""
        with pipe:
            ready = select.select([pipe], [], [], 0)[0]
            return os.read(pipe.fileno(), 1 << 16).decode() if ready else ""

    def end_relaunched(self):
        """Kills the relaunched applications. Each has created the file /tmp/ARGUMENT.PID."""
        for path in glob.glob("/tmp/-crash*[0-9]"):
            argument, _, pid = Path(path).name.rpartition(".")
            os.unlink(path)
            os.kill(int(pid), signal.SIGKILL)
            os.waitpid(int(pid), 0)  # this process is the first of its namespace, so it is the parent
            self.relaunched[argument] += 1

    def descriptors(self):
        """The helper's descriptors except inhibitors, which last 30 seconds."""
        folder = f"/proc/{self.helper.pid}/fd"
        kinds = collections.Counter()
        for name in os.listdir(folder):
            try:
                target = os.readlink(f"{folder}/{name}")
            except FileNotFoundError:
                continue
            if "/systemd/inhibit/" not in target:
                kinds[re.sub(r"\[\d+\]", "", target)] += 1
        return kinds

    def helper_children(self):
        return Path(f"/proc/{self.helper.pid}/task/{self.helper.pid}/children").read_text().split()

    def processes_of_user(self):
        """The remaining clients, relaunched applications and processes listed in the watchdog file."""
        return subprocess.run(["pgrep", "-u", str(USER), "-r", "R,S,D,T", "-a"], capture_output=True, text=True).stdout

    def inhibitors(self):
        return [inhibitor for inhibitor in self.bus.inhibitors() if inhibitor[-1] == self.helper.pid]

    def assert_nothing_left(self, what, left, seconds=20):
        """Waits until left() is empty."""
        end = time.monotonic() + seconds
        while rest := left():
            self.end_relaunched()
            self.assertLess(time.monotonic(), end, f"{what} left: {rest}")
            time.sleep(0.02)

    def wait_until_quiet(self):
        self.assert_nothing_left("children", self.helper_children)
        self.assert_nothing_left("the user's processes", self.processes_of_user)

    def proxies_left(self):
        store = json.loads(Path(f"/var/lib/{SERVICE}/preferences.json").read_text())["NetworkServices"]
        left = {name: service["Proxies"] for name, service in store.items() if service.get("Proxies")}
        for connection in self.connections:
            if (method := self.manager.setting(connection, "proxy.method")) != "none":
                left[connection] = method
        return left

    def test_nothing_is_left(self):
        print(f"\nseed {self.seed}", flush=True)
        self.run_clients(WARM_UP)
        self.wait_until_quiet()
        memory, descriptors = self.helper.resident_kilobytes(), self.descriptors()
        start = time.monotonic()
        self.run_clients(SECONDS)
        took = time.monotonic() - start
        self.wait_until_quiet()

        self.assert_nothing_left("descriptors", lambda: self.descriptors() - descriptors)
        self.assertEqual(self.proxies_left(), {})
        self.assert_nothing_left("inhibitors", self.inhibitors, 45)
        grown = self.helper.resident_kilobytes() - memory
        lines = collections.Counter(self.log())
        print(f"{self.replies.total()} replies to {self.ends.total()} clients ({dict(self.ends)}) in {took + WARM_UP:.0f} s:",
              *(f"  {count:6} {name}" for name, count in sorted(self.replies.items())),
              f"of {lines.total()} lines of the log:", *(f"  {lines[line]:6} {line}" for line in WANTED_LINES),
              f"launched again: {dict(self.relaunched)}; memory: {memory} kB after {WARM_UP} s, {grown:+} kB in the end; "
              f"processor time of the helper: {self.processor_time():.1f} s", sep="\n", flush=True)
        self.assertLess(grown, ALLOWED_GROWTH)
        self.wait_until_quiet()
        self.assertEqual(set(self.replies), WANTED_REPLIES)
        self.assertEqual([line for line in WANTED_LINES if not lines[line]], [])
        self.assertEqual([line for line in lines if re.search("Fail|Refuse", line)], [])
        self.assertEqual(lines["[BRHMain] Release IOPMAssertion"], 2 * lines["[BRHMain] Prevent system sleeping"])
        self.assertEqual(set(self.relaunched), {"-crashWatchDog", "-crashDefunctRestart"})

    def processor_time(self):
        fields = Path(f"/proc/{self.helper.pid}/stat").read_text().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


if __name__ == "__main__":
    unittest.main()
