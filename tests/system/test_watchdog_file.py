"""The watchdog file with real processes of several users."""

import json
import os
import shutil
import signal
import subprocess
import unittest
from pathlib import Path

from harness import USER, HelperTest, read_line, wait_until

WATCHDOG = Path("/tmp/Brimo-External-Processes-Watchdog.json")
OTHER_USER = 2000


class WatchdogFile(HelperTest):
    def setUp(self):
        self.program = shutil.copy("/usr/bin/sleep", "/opt/watched")
        self.addCleanup(WATCHDOG.unlink, missing_ok=True)
        super().setUp()
        self.staying = self.genuine("""
connection = connect_greeted()
while input():
    connection.sendall(frame(1, {"command": "x"}))
    print(receive_frame(connection)[0], flush=True)
""", stdin=subprocess.PIPE)

    def start(self, user=USER, program=None):
        process = subprocess.Popen([program or self.program, "1000"], user=user, group=user, extra_groups=[])
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def put(self, content, owner=USER):
        WATCHDOG.write_text(json.dumps(content))
        os.chmod(WATCHDOG, 0o600)
        os.chown(WATCHDOG, owner, owner)

    def lose_client(self):
        """Connects and disconnects a client. Returns what the helper logs afterwards."""
        before = len(self.log())
        self.brimo("version")
        wait_until(lambda: "[BRHMain] XPC connection closed" in self.log()[before:], "the client's end is noticed")
        print("?", file=self.staying.stdin, flush=True)
        self.assertEqual(read_line(self.staying), "1")  # the sweep is over by now, and no other client can start one
        lines = self.log()[before:]
        end = lines.index("[BRHMain] XPC connection closed")
        return [line for line in lines[end + 1:] if "watchdog" in line]

    def assert_spared(self, *processes):
        for process in processes:
            self.assertIsNone(process.poll())

    def assert_killed(self, *processes):
        for process in processes:
            self.assertEqual(process.wait(10), -signal.SIGKILL)

    def test_only_the_owners_processes_that_run_what_is_listed_are_killed(self):
        own, another, unlisted = self.start(), self.start(), self.start()
        others, roots = self.start(OTHER_USER), self.start(0)
        elsewhere = self.start(program="/usr/bin/sleep")
        self.put([[process.pid, self.program] for process in (own, another, others, roots, elsewhere)] +
                 [[unlisted.pid, "/opt/Watched"], [str(unlisted.pid), self.program], [unlisted.pid, self.program, 1]])
        self.assertEqual(self.lose_client(), [])
        self.assert_killed(own, another)
        self.assert_spared(unlisted, others, roots, elsewhere)
        self.assertFalse(WATCHDOG.exists())

        self.put([[process.pid, self.program] for process in (others, roots)], owner=0)
        self.lose_client()
        self.assert_killed(roots)
        self.assert_spared(others)

if __name__ == "__main__":
    unittest.main()
