"""The helper's children: a real DHCP server with a real client, a stand-in for the server, and spindump."""

import contextlib
import os
import re
import shutil
import signal
import subprocess
from pathlib import Path

from harness import USER, Helper, HelperTest, copy_bundle, make_bundles, read_line, sign, wait_until
from lan import DHCPD_CONFIGURATION, INTERFACE, Lan, ip

# Perl ignores everything after __END__, such as a signature.
STAND_IN = """#!/usr/bin/perl
$| = 1;
print "stand-in: @ARGV\\n";
sleep 1000 while 1;
__END__
"""


def is_running(pid):
    """Whether the process exists and is not a zombie."""
    with contextlib.suppress(FileNotFoundError, ProcessLookupError):
        return Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[0] != "Z"


def end(pid):
    with contextlib.suppress(ProcessLookupError):
        os.kill(pid, signal.SIGKILL)


class ChildTest(HelperTest):
    def setUp(self):
        make_bundles()
        bundle, self.executable = copy_bundle("Server.app")
        self.dhcpd = bundle / "Contents/Applications/brimo-dhcpd"
        self.dhcpd.parent.mkdir()
        self.folder = Path("/tmp/dhcp")
        shutil.rmtree(self.folder, ignore_errors=True)
        self.folder.mkdir()
        self.output = self.folder / "output"
        self.output.write_text("before\n")
        for path in (self.folder, self.output):
            os.chown(path, USER, USER)
        super().setUp()

    def install(self, server):
        """Signs what lies in the bundle as its DHCP server."""
        self.dhcpd.write_bytes(server)
        self.dhcpd.chmod(0o755)
        sign(self.dhcpd, "com.example.brimo.dhcpd")

    def start(self, words):
        """Has the server started; returns the client and the server's PID, once it has said these words."""
        client = self.start_program([self.executable], stdin=subprocess.PIPE, cwd=self.folder)
        said = self.output.read_text().count(words)
        print(f"start-dhcpd {INTERFACE} conf leases output pid", file=client.stdin, flush=True)
        pid = int(re.fullmatch(r"DHCP server runs as PID (\d+)", read_line(client))[1])
        self.addCleanup(end, pid)
        wait_until(lambda: self.output.read_text().count(words) > said, "the server speaks")
        return client, pid

    def wait_for_end(self, pid):
        wait_until(lambda: not is_running(pid), f"PID {pid} has ended")


class DHCPServer(ChildTest):
    def test_a_real_client_gets_an_address_as_long_as_the_application_stays(self):
        lan = Lan(self)
        ip("address", "add", "192.0.2.1/24", "dev", INTERFACE)
        (self.folder / "conf").write_text(DHCPD_CONFIGURATION)
        (self.folder / "leases").touch()
        self.install(Path("/usr/sbin/dhcpd").read_bytes())
        client, pid = self.start("Server starting service.")
        lan.add_dhclient()
        self.assertRegex(self.output.read_text(), r"(?s)^before\n.*DHCPACK on 192\.0\.2\.1\d\d to ")
        self.assertEqual((self.folder / "pid").read_text(), f"{pid}\n")
        self.assertEqual(Path(f"/proc/{pid}/cmdline").read_bytes().split(b"\0")[:-1],
                         [str(argument).encode() for argument in
                          [self.dhcpd, "-4", "-f", "-d", "-cf", self.folder / "conf", "-lf", self.folder / "leases", "-pf",
                           self.folder / "pid", INTERFACE]])
        self.assertTrue(is_running(pid))
        client.stdin.close()
        self.wait_for_end(pid)
        children = Path(f"/proc/{self.helper.pid}/task/{self.helper.pid}/children")
        wait_until(lambda: children.read_text() == "", "the helper has no child, not even a zombie")
        self.assertIn("[BRHMain] dhcpd started", self.log())
        self.assertNotIn("[BRHMain] dhcpd completed", self.log())  # deliberate stops are not logged

    def test_sigterm_stops_the_server_and_stop_leaves_it_until_its_name_is_called(self):
        self.install(STAND_IN.encode())
        _, pid = self.start("stand-in")
        self.helper.signal(signal.SIGTERM)
        self.assertEqual(self.helper.wait(), 0)
        self.assertFalse(is_running(pid))

        self.helper = Helper()
        client, pid = self.start("stand-in")
        print("stop", file=client.stdin, flush=True)
        self.assertEqual(self.helper.wait(), 0)
        self.assertTrue(is_running(pid))

        self.helper = Helper()
        self.assertEqual(self.brimo("stop-dhcpd"), (0, "done\n", ""))
        self.wait_for_end(pid)


class Spindump(ChildTest):
    def test_without_it_the_reply_carries_the_reason(self):
        self.assertEqual(self.brimo("spindump", self.folder / "dump of it"), (1, "", "Brimo: No such file or directory\n"))
        self.wait_for_log(r"\[BRHMain\] Failed to start spindump: No such file or directory")
        self.assertEqual(self.brimo("spindump", ""), (1, "", "Brimo: invalid spindump path\n"))
