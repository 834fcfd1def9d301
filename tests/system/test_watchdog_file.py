"""The watchdog file with real processes of several users."""

import json
import os
import shutil
import signal
import subprocess
from pathlib import Path

from harness import DEADLINE, USER, HelperTest, wait_until

WATCHDOG = Path("/tmp/Brimo-External-Processes-Watchdog.json")


class WatchdogFile(HelperTest):
    def start(self, program, user):
        process = subprocess.Popen([program, "1000"], user=user, group=user, extra_groups=[])
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def test_only_the_owners_processes_that_run_what_is_listed_are_killed(self):
        program = shutil.copy("/usr/bin/sleep", "/opt/watched")
        own, another, unlisted = (self.start(program, USER) for _ in range(3))
        others, roots, elsewhere = self.start(program, 2000), self.start(program, 0), self.start("/usr/bin/sleep", USER)
        for owner, killed in ((USER, [own, another]), (0, [roots])):
            WATCHDOG.write_text(json.dumps([[process.pid, program] for process in (own, another, others, roots, elsewhere)]
                                           + [[unlisted.pid, "/opt/Watched"], [str(unlisted.pid), program]]))
            WATCHDOG.chmod(0o600)
            os.chown(WATCHDOG, owner, owner)
            self.assert_serves()  # after which the client is lost
            for process in killed:
                self.assertEqual(process.wait(DEADLINE), -signal.SIGKILL)
            wait_until(lambda: not WATCHDOG.exists(), "the file is swept")
            self.assert_serves()
            self.assertEqual([process.poll() for process in (unlisted, others, elsewhere)], [None] * 3)
            self.assertEqual(roots.poll() is None, roots not in killed)
