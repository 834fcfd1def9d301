"""The examples: an application built with an installed library, and a client in Python."""

import os
import shutil
import signal
import subprocess
from pathlib import Path

import harness
from harness import GENUINE_PYTHON, STORE, HelperTest, TESTS, kill_group, stored, wait_until

EXAMPLE = Path("/opt/Example.app/Contents/MacOS/Example")


class Application(HelperTest):
    def setUp(self):
        super().setUp()
        shutil.copytree(TESTS / "Example.app", "/opt/Example.app")
        self.addCleanup(shutil.rmtree, "/opt/Example.app")

    def proxies(self):
        return stored()["example"].get("Proxies") if STORE.exists() else None

    def instances(self):
        """The command lines of the running examples by PID."""
        listed = subprocess.run(["pgrep", "--list-full", "--full", f"^{EXAMPLE}"], capture_output=True, text=True).stdout
        return {int(pid): command for pid, command in (line.split(" ", 1) for line in listed.splitlines())}

    def test_it_sets_looks_up_comes_back_and_cleans_up(self):
        process = self.start_program([EXAMPLE, "example", "192.0.2.1", "8080"], env=harness.ENVIRONMENT | {"HOME": "/tmp"})
        lines = sorted(process.stdout.readline().rstrip("\n") for _ in range(7))
        self.assertEqual(lines, ["connected to build 618"] + 4 * ["owner found"] + ["proxies set", "watched"])
        self.assertEqual((self.proxies()["HTTPProxy"], self.proxies()["HTTPPort"]), ("192.0.2.1", 8080))

        kill_group(process)
        process.wait()
        again = wait_until(self.instances, "it is launched again")
        self.addCleanup(lambda: [os.kill(pid, signal.SIGKILL) for pid in self.instances()])
        self.assertEqual(list(again.values()), [f"{EXAMPLE} -crashWatchDog"])
        wait_until(lambda: (self.proxies() or {}).get("HTTPProxy") == "192.0.2.1", "it sets its proxies again")
        wait_until(lambda: self.log().count("[BRHMain] Received command: start-watchdog") == 2, "it starts the watchdog again")

        os.kill(next(iter(again)), signal.SIGTERM)
        wait_until(lambda: not self.instances(), "it ends")
        self.assertFalse(self.proxies())
        self.assertEqual(self.log().count("[BRHMain] Received command: stop-watchdog"), 1)


class Python(HelperTest):
    def test_the_smallest_client(self):
        process = self.start_program([GENUINE_PYTHON, "-B", TESTS / "client.py", "lo"])
        out = self.assert_succeeds(process)
        self.assertEqual(out, "helper build 618\n"
                              f"this program is PID {process.pid} at {GENUINE_PYTHON}\n"
                              "DHCP servers on lo {'error': \"Error: Couldn't get hardware address!\"}\n")
        _, errors = self.start_program([harness.PYTHON, "-B", TESTS / "client.py", "lo"]).communicate(timeout=harness.DEADLINE)
        self.assertIn("Refused", errors)
