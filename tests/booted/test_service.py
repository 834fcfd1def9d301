"""The service: started by its socket, killed, stopped, and ended with the machine."""

import os
import signal

from machine import MEMBER, STRANGER, UNIT, MachineTest, connected, ensure_installed, in_session, proxy_method, run, show
from harness import SERVICE, read_line

TEMPORARY = "set-proxy Wired http=127.0.0.1:8080 temporary"


def set_temporary_proxy_and_stay():
    """Sets temporary proxies, prints "set" and keeps the client until the script "run" shuts the machine down."""
    ensure_installed()
    connected()
    client = in_session(MEMBER, "Brimo", "--json")
    print(TEMPORARY, file=client.stdin, flush=True)
    assert read_line(client) == '{"result":"success"}'
    assert proxy_method() == "auto"
    print("set", flush=True)
    client.wait()


class Life(MachineTest):
    def test_the_socket_starts_it_again_and_again(self):
        run("systemctl", "stop", UNIT)
        self.assertEqual(show(UNIT, "ActiveState"), "inactive")
        self.assertEqual(run("Brimo", "version"), "helper build 618\n")
        before = int(show(UNIT, "MainPID"))
        self.assertGreater(before, 0)
        for _ in range(6):  # more often than systemd's default limits permit
            os.kill(int(show(UNIT, "MainPID")), signal.SIGKILL)
            self.assertEqual(run("Brimo", "version"), "helper build 618\n")
        self.assertNotEqual(int(show(UNIT, "MainPID")), before)
        self.assertEqual(show(f"{SERVICE}.socket", "ActiveState"), "active")

    def test_who_may_ask(self):
        self.assertEqual(self.ask(self.client(), "version"), {"version": 618})
        # Under sg(1), the process already has the group, so the executable does not add it.
        by_sg = self.start(MEMBER, "sg", "brimo", "-c", "Brimo version")
        self.assertIn("does not admit", by_sg.communicate()[1])
        stranger = self.start(STRANGER, "sh", "-c", "Brimo version")
        self.assertIn("Permission denied", stranger.communicate()[1])

    def test_the_exposure_stays_low(self):
        report = run("systemd-analyze", "security", "--no-pager", "--threshold=34", UNIT)
        self.assertIn("Overall exposure level", report)
