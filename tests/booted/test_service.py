"""The service: started by its socket, killed, stopped, and ended with the machine."""

import os
import signal

from machine import MEMBER, STRANGER, UNIT, MachineTest, run, show
from harness import SERVICE

class Life(MachineTest):
    def test_the_socket_starts_it_and_starts_it_again(self):
        run("systemctl", "stop", UNIT)
        self.assertEqual(show(UNIT, "ActiveState"), "inactive")
        self.assertEqual(run("Brimo", "version"), "helper build 618\n")
        before = int(show(UNIT, "MainPID"))
        self.assertGreater(before, 0)
        for _ in range(6):  # more often than systemd's default limits for starts and activations permit
            os.kill(int(show(UNIT, "MainPID")), signal.SIGKILL)
            self.assertEqual(run("Brimo", "version"), "helper build 618\n")
        self.assertNotEqual(int(show(UNIT, "MainPID")), before)
        self.assertEqual(show(f"{SERVICE}.socket", "ActiveState"), "active")

    def test_who_may_ask(self):
        self.assertEqual(self.ask(self.client(), "version"), {"version": 618})
        # The process already has the group there, so the executable does not add it.
        by_sg = self.start(MEMBER, "sg", "brimo", "-c", "Brimo version")
        self.assertIn("does not admit", by_sg.communicate()[1])
        stranger = self.start(STRANGER, "sh", "-c", "Brimo version")
        self.assertIn("Permission denied", stranger.communicate()[1])

    def test_the_exposure_is_what_it_was(self):
        report = run("systemd-analyze", "security", "--no-pager", "--threshold=34", UNIT)
        self.assertIn("Overall exposure level", report)
