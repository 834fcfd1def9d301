"""The desktop proxies after every end of the helper, with its real unit."""

import json
import os
import shutil
import signal
from pathlib import Path

from harness import SERVICE, wait_until
from machine import UNIT, MachineTest, run, show

FOLDER = Path("/run") / SERVICE
SET = json.dumps({"command": "set-proxy", "payload": {"tunnel": {"HTTPEnable": 1, "HTTPProxy": "127.0.0.1", "HTTPPort": 1}},
                  "cleanup": False})


def mode():
    return json.loads((FOLDER / "proxies.json").read_text())["mode"]


class DesktopProxies(MachineTest):
    def set(self):
        client = self.client()
        self.assertEqual(self.ask(client, f"json {SET}"), {"result": "success"})
        self.assertEqual(mode(), "manual")
        return client

    def wait_until_off(self):
        wait_until(lambda: mode() == "none", "the proxy is off")
        wait_until(lambda: not (FOLDER / "services.json").exists(), "the record for the next helper is removed")

    def test_every_end_but_stop_switches_them_off(self):
        for number in ("KILL", "SEGV", "ABRT", "INT", "TERM"):
            with self.subTest(number):
                self.set()
                run("systemctl", "kill", f"--signal={number}", "--kill-whom=main", UNIT)
                self.wait_until_off()
        self.set()
        run("systemctl", "stop", UNIT)
        self.wait_until_off()

    def test_a_hanging_helper_is_killed_and_replaced(self):
        drop_in = Path(f"/run/systemd/system/{UNIT}.d/watchdog.conf")
        drop_in.parent.mkdir()
        self.addCleanup(run, "systemctl", "daemon-reload")
        self.addCleanup(shutil.rmtree, drop_in.parent)
        drop_in.write_text("[Service]\nWatchdogSec=2\n")
        run("systemctl", "daemon-reload")
        run("systemctl", "stop", UNIT)
        self.set()
        fed = lambda: int(show(UNIT, "WatchdogTimestampMonotonic"))
        hanging, started = show(UNIT, "MainPID"), fed()
        wait_until(lambda: fed() > started, "the idle helper feeds its watchdog")
        os.kill(int(hanging), signal.SIGSTOP)
        self.wait_until_off()
        self.assertEqual(show(UNIT, "Result"), "watchdog")
        self.assertEqual(run("Brimo", "version"), "helper build 618\n")
        self.assertNotEqual(show(UNIT, "MainPID"), hanging)

    def test_stop_leaves_them_to_the_next_helper(self):
        client = self.set()
        before = show(UNIT, "ExecMainPID")
        print("stop", file=client.stdin, flush=True)
        wait_until(lambda: show(UNIT, "ActiveState") == "inactive", "it stops")
        self.assertEqual(mode(), "manual")
        client = self.client()
        self.assertIn("version", self.ask(client, "version"))
        self.assertNotEqual(show(UNIT, "ExecMainPID"), before)
        self.assertEqual(mode(), "manual")
        run("systemctl", "kill", "--signal=KILL", "--kill-whom=main", UNIT)
        self.wait_until_off()

    def test_they_are_installed_for_everybody_to_read(self):
        self.assertEqual(Path(f"/etc/dconf/db/{SERVICE.replace('.', '_')}").resolve(), FOLDER / "dconf")
        self.assertIn(f"  # {SERVICE}\n", Path("/etc/dconf/profile/user").read_text())
        for name in (".", "dconf", "proxies.json"):
            self.assertTrue((FOLDER / name).stat().st_mode & 0o004, name)
