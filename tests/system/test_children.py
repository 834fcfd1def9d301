"""The helper's children: a real DHCP server with a real client, a stand-in for the server, and spindump."""

import contextlib
import json
import os
import re
import shutil
import signal
import subprocess
import unittest
from pathlib import Path

import harness
from harness import USER, Helper, HelperTest, copy_bundle, make_bundles, read_line, run_as_user, sign, wait_until
from lan import INTERFACE, Lan, ip

# Perl ignores everything after __END__, such as a signature.
STAND_IN = """#!/usr/bin/perl
$| = 1;
print "stand-in: @ARGV\\n";
sleep 1000 while 1;
__END__
"""

# Sends each line that it reads as a JSON command and prints the reply.
RELAY = """
import sys
connection = connect_greeted()
for line in sys.stdin:
    connection.sendall(frame(1, {"json": line.encode()}))
    print(receive_frame(connection)[1]["json"].decode(), flush=True)
"""


def state(pid):
    """The name and the state letter of a process; None if it does not exist."""
    try:
        name, _, rest = Path(f"/proc/{pid}/stat").read_text().partition("(")[2].rpartition(")")
        return name, rest.split()[0]
    except (FileNotFoundError, ProcessLookupError):
        return None


def is_running(pid):
    """Whether the process exists and is not a zombie."""
    found = state(pid)
    return found is not None and found[1] != "Z"


def processes_named(name):
    found = {int(pid): state(pid) for pid in os.listdir("/proc") if pid.isdigit()}
    return [pid for pid, known in found.items() if known and known[0] == name and known[1] != "Z"]


class ChildTest(HelperTest):
    def setUp(self):
        make_bundles()
        self.bundle, self.executable = copy_bundle("Server.app", "/opt/Python.app")
        self.dhcpd = self.bundle / "Contents/Applications/brimo-dhcpd"
        self.dhcpd.parent.mkdir()
        self.folder = Path("/tmp/dhcp")
        shutil.rmtree(self.folder, ignore_errors=True)
        self.folder.mkdir()
        self.output = self.folder / "output"
        self.output.write_text("before\n")
        for path in (self.folder, self.output):
            os.chown(path, USER, USER)
        super().setUp()
        self.addCleanup(self.end_strays)

    @staticmethod
    def end_strays():
        for pid in processes_named("brimo-dhcpd"):
            with contextlib.suppress(ProcessLookupError):  # the process may just be exiting
                os.kill(pid, signal.SIGKILL)

    def install(self, source=None):
        """Installs a signed file, by default the stand-in, as the bundle's DHCP server."""
        if source:
            shutil.copy(source, self.dhcpd)
        else:
            self.dhcpd.write_text(STAND_IN)
        self.dhcpd.chmod(0o755)
        sign(self.dhcpd, "com.example.brimo.dhcpd")

    def client(self):
        return self.start_script(self.executable, RELAY, stdin=subprocess.PIPE)

    @staticmethod
    def ask(client, command):
        client.stdin.write(json.dumps(command) + "\n")
        client.stdin.flush()
        return json.loads(read_line(client))

    def start_command(self, **changes):
        return {"command": "start-dhcpd", "config": str(self.folder / "conf"), "lease": str(self.folder / "leases"),
                "dhcpd": str(self.dhcpd), "interface": INTERFACE, "output": str(self.output),
                "pid": str(self.folder / "pid")} | changes

    def start(self, client, **changes):
        """Starts the server and returns its PID after its first output."""
        known = self.output.read_text()
        reply = self.ask(client, self.start_command(**changes))
        self.assertEqual(reply.get("result"), "success", reply)
        wait_until(lambda: self.output.read_text() != known, "the server speaks")
        return reply["pid"]

    def wait_for_end(self, pid):
        wait_until(lambda: not is_running(pid), f"PID {pid} has ended")

    def assert_no_child(self):
        """Checks that the process is gone and has left no zombie."""
        path = Path(f"/proc/{self.helper.pid}/task/{self.helper.pid}/children")
        wait_until(lambda: path.read_text() == "", "the helper has no child")


class DHCPServer(ChildTest):
    def test_a_real_client_gets_an_address_as_long_as_the_application_stays(self):
        lan = Lan(self)
        ip("address", "add", "192.0.2.1/24", "dev", INTERFACE)
        guest = lan.add_server()
        (self.folder / "conf").write_text("ping-check false;\n"
                                          "subnet 192.0.2.0 netmask 255.255.255.0 { range 192.0.2.100 192.0.2.110; }\n")
        (self.folder / "leases").touch()
        shutil.copy(harness.BRIMO, self.executable)
        self.install(shutil.which("dhcpd", path="/usr/sbin"))
        client = run_as_user([self.executable], stdin=subprocess.PIPE, cwd=self.folder)
        self.addCleanup(self._end_process, client)
        client.stdin.write(f"start-dhcpd {INTERFACE} conf leases output pid\n")
        client.stdin.flush()
        pid = int(re.fullmatch(r"DHCP server runs as PID (\d+)", read_line(client))[1])
        wait_until(lambda: "Server starting service." in self.output.read_text(), "the server is ready")

        lan.run_in(guest, ["dhclient", "-4", "-d", "-1", "-sf", "/bin/true", "-cf", "/dev/null", "-lf", "/run/dhclient.leases",
                           "-pf", "/run/dhclient.pid", "eth0"], "bound to 192.0.2.1")
        self.assertRegex(self.output.read_text(), r"(?s)^before\n.*DHCPACK on 192\.0\.2\.1\d\d to ")
        self.assertEqual((self.folder / "pid").read_text(), f"{pid}\n")
        self.assertEqual(Path(f"/proc/{pid}/cmdline").read_bytes().split(b"\0")[:-1],
                         [str(argument).encode() for argument in
                          [self.dhcpd, "-4", "-f", "-d", "-cf", self.folder / "conf", "-lf", self.folder / "leases", "-pf",
                           self.folder / "pid", INTERFACE]])
        self.assertTrue(is_running(pid))
        client.stdin.close()
        self.wait_for_end(pid)
        self.assert_no_child()
        self.assertIn("[BRHMain] dhcpd started", self.log())
        self.assertNotIn("[BRHMain] dhcpd completed", self.log())  # deliberate stops are not logged

    def test_sigterm_stops_the_server_and_stop_leaves_it_until_its_name_is_called(self):
        self.install()
        pid = self.start(self.client())
        self.helper.signal(signal.SIGTERM)
        self.assertEqual(self.helper.wait(), 0)
        self.assertFalse(is_running(pid))

        self.helper = Helper()
        client = self.client()
        pid = self.start(client)
        client.stdin.write('{"command": "stop"}\n')
        client.stdin.flush()
        self.assertEqual(self.helper.wait(), 0)
        self.assertTrue(is_running(pid))

        self.helper = Helper()
        self.assertEqual(self.brimo("stop-dhcpd"), (0, "done\n", ""))
        self.wait_for_end(pid)


class Spindump(ChildTest):
    def test_without_it_the_reply_carries_the_reason(self):
        for _ in range(2):
            self.assertEqual(self.brimo("spindump", self.folder / "dump of it"), (1, "", "Brimo: No such file or directory\n"))
            self.wait_for_log(r"\[BRHMain\] Failed to start spindump: No such file or directory")
        self.assertEqual(self.brimo("spindump", ""), (1, "", "Brimo: invalid spindump path\n"))


if __name__ == "__main__":
    unittest.main()
