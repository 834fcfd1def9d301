"""The relaunch of an application that dies: its user, its environment, and when it does not happen."""

import glob
import os
import re
import shutil
import signal
from pathlib import Path

from harness import ENVIRONMENT, HelperTest, TESTS, USER, copy_bundle, read_line, run_as_user, sign, wait_until
from system_bus import SystemBus

DIED, RELAUNCHING = "[BRHMain] Main process died unexpectedly", "[BRHMain] Relaunching"
NOBODY_IN_PARTICULAR = 4321  # a user ID without an entry in the user database


class Relaunch(HelperTest):
    def setUp(self):
        # The applications must end after the helper. If they ended first, it would relaunch them.
        self.started, self.relaunched = [], []
        self.addCleanup(self.end_applications)
        super().setUp()
        _, self.executable = copy_bundle("Relaunched.app")
        self.executable.unlink()  # it may be running, so it cannot be overwritten
        shutil.copy(TESTS / "bin/relaunched", self.executable)
        sign(self.executable)

    def end_applications(self):
        for process in self.started:
            self._end_process(process)
        for pid in self.relaunched:
            try:
                os.kill(pid, signal.SIGKILL)
                os.waitpid(pid, 0)  # this process is the first of its namespace, so it is the parent
            except (ProcessLookupError, ChildProcessError):
                pass

    def start(self, **options):
        """Starts the application, which is admitted and starts the watchdog."""
        process = run_as_user([self.executable], **options)
        self.started.append(process)
        self.assertEqual(read_line(process), "armed")
        return process

    def launched(self, argument):
        """Waits for the only application that is launched with the argument. Returns its folder in /proc."""
        path, = wait_until(lambda: glob.glob(f"/tmp/{argument}.*"), "it runs")
        os.unlink(path)
        pid = path.rpartition(".")[2]
        self.relaunched.append(int(pid))
        return Path("/proc", pid)

    def assert_runs_as(self, process, user, groups):
        status = dict(re.findall(r"^(\w+):[ \t]*(.*?)[ \t]*$", (process / "status").read_text(), re.M))
        self.assertEqual(status["Uid"].split(), [str(user)] * 4)
        self.assertEqual(status["Gid"].split(), [str(user)] * 4)
        self.assertEqual(status["Groups"].split(), [str(group) for group in groups])
        if user:
            self.assertEqual({status[name] for name in ("CapInh", "CapPrm", "CapEff", "CapAmb")}, {"0" * 16})

    def test_it_is_relaunched_as_its_user(self):
        kept = {"HOME": "/opt", "USER": "somebody", "DISPLAY": ":7", "WAYLAND_DISPLAY": "wayland-1",
                "XAUTHORITY": "/run/user/1000/.Xauthority", "DBUS_SESSION_BUS_ADDRESS": "unix:path=/run/user/1000/bus",
                "XDG_SESSION_ID": "2", "LANG": "de_DE.UTF-8", "LC_ALL": "C.UTF-8"}
        other = {"SECRET": "1", "LD_LIBRARY_PATH": "/tmp", "PYTHONPATH": "/tmp", "BASH_ENV": "/tmp/x", "IFS": "x"}
        process = self.start(env=ENVIRONMENT | kept | other, user=NOBODY_IN_PARTICULAR, groups=[4, 2000, 3000])
        process.kill()
        process = self.launched("-crashWatchDog")

        self.assertEqual((process / "cmdline").read_text(), f"{self.executable}\0-crashWatchDog\0")
        self.assert_runs_as(process, NOBODY_IN_PARTICULAR, [4, 2000, 3000])
        environment = dict(entry.split("=", 1) for entry in (process / "environ").read_text().rstrip("\0").split("\0"))
        self.assertEqual(environment, kept | {"PATH": ENVIRONMENT["PATH"]})
        self.assertEqual(os.readlink(process / "cwd"), "/opt")
        self.assertEqual(Path(f"/proc/{self.helper.pid}/task/{self.helper.pid}/children").read_text(), "")

    def test_where_systemd_runs_only_systemd_launches(self):
        # Here, there is a bus but no systemd. The booted tests have both.
        SystemBus(self)
        os.makedirs("/run/systemd/system", exist_ok=True)  # indicates that systemd is running
        self.addCleanup(os.rmdir, "/run/systemd/system")
        print("defunct-restart", file=self.start().stdin, flush=True)
        self.wait_for_log(r"\[BRHMain\] Failed to launch main application: .*org\.freedesktop\.systemd1.*")
        self.assertEqual(glob.glob("/tmp/-crash*"), [])

    def check_the_relaunched_user(self, user, groups, other):
        self.assertEqual(self.brimo("version", user=other)[0], 0)  # this user was admitted before
        print("defunct-restart", file=self.start(user=user, groups=groups).stdin, flush=True)
        self.assert_runs_as(self.launched("-crashDefunctRestart"), user, groups)

    def test_an_application_of_root_is_relaunched_as_root(self):
        self.check_the_relaunched_user(0, [0, 7], USER)

    def test_no_other_application_is_relaunched_as_root(self):
        self.check_the_relaunched_user(USER, [], 0)

    def test_brimo_says_that_it_was_relaunched(self):
        self.assertEqual(self.brimo("defunct-restart"), (-signal.SIGKILL, "", ""))
        self.wait_for_log(r"\[BRHMain\] Received command: version")
        for argument in ("-crashWatchDog", "-crashDefunctRestart"):
            self.assertEqual(self.brimo(argument), (0, f"launched again by the helper ({argument})\nhelper build 618\n", ""))

    def test_sigterm_with_the_watchdog_armed_ends_the_helper_at_once(self):
        process = self.start()
        self.helper.signal(signal.SIGTERM)
        self.assertEqual(self.helper.wait(), 0)
        self.assertEqual(self.log()[-3:], ["[BRHMain] XPC_ERROR_TERMINATION_IMMINENT", DIED, RELAUNCHING])
        self.assertIsNone(process.poll())
