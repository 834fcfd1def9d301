"""The end of a DHCP server, for which a script stands in. tests/booted has a real one, with a real client."""

import contextlib
import os
import re
import shutil
import signal
import subprocess
from pathlib import Path

from harness import USER, HelperTest, copy_bundle, make_bundles, read_line, sign, wait_until

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


class DHCPServer(HelperTest):
    def setUp(self):
        make_bundles()
        bundle, self.executable = copy_bundle("Server.app")
        server = bundle / "Contents/Applications/brimo-dhcpd"
        server.parent.mkdir()
        server.write_text(STAND_IN)
        server.chmod(0o755)
        sign(server, "com.example.brimo.dhcpd")
        self.folder = Path("/tmp/dhcp")
        shutil.rmtree(self.folder, ignore_errors=True)
        self.folder.mkdir()
        self.output = self.folder / "output"
        self.output.touch()
        for path in (self.folder, self.output):
            os.chown(path, USER, USER)
        super().setUp()

    def start(self):
        """Starts the server and waits until it runs. Returns the client, which stays connected, and the server's PID."""
        client = self.start_program([self.executable], stdin=subprocess.PIPE, cwd=self.folder)
        said = self.output.read_text()
        print("start-dhcpd lo conf leases output pid", file=client.stdin, flush=True)
        pid = int(re.fullmatch(r"DHCP server runs as PID (\d+)", read_line(client))[1])
        self.addCleanup(end, pid)
        wait_until(lambda: self.output.read_text() ==
                   f"{said}stand-in: -4 -f -d -cf {self.folder}/conf -lf {self.folder}/leases -pf {self.folder}/pid lo\n",
                   "the server has these arguments")
        return client, pid

    def test_it_ends_with_the_client_and_with_the_helper(self):
        client, pid = self.start()
        client.stdin.close()
        wait_until(lambda: not is_running(pid), "the server ends")

        _, pid = self.start()
        self.helper.signal(signal.SIGTERM)
        self.assertEqual(self.helper.wait(), 0)
        self.assertFalse(is_running(pid))
