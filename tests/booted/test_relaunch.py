"""The relaunch of the application by process 1: its identity, its lifetime, and when it does not happen."""

import os
import re
from pathlib import Path

from machine import STRANGER, UNIT, MachineTest, make_application, run, show, sign
from harness import read_line, wait_until

FAILED = "Failed to launch main application: "


def services():
    listed = run("systemctl", "list-units", "--plain", "--no-legend", "app-com.example.brimo-*")
    return [line.split()[0] for line in listed.splitlines()]


class Relaunch(MachineTest):
    def setUp(self):
        run("systemctl", "stop", UNIT, *services())  # together, so that no watchdog launches it again
        # The path also contains characters that are special to systemd and to the shell.
        self.executable = make_application("/opt/a %u $HOME.app")

    def launch(self, *environment):
        """Starts the application in its own session and waits until it is admitted. The test ends the session."""
        process = self.start(STRANGER, "env", *environment, self.executable)
        self.assertEqual(read_line(process), "armed")
        return process

    def launch_again(self, *environment):
        """Relaunches the application during another session of its user. Returns that session, the service and its main PID."""
        session = self.start(STRANGER, "cat")
        process = self.launch(*environment)
        print("defunct-restart", file=process.stdin, flush=True)
        (unit,) = wait_until(services, "it is launched again")
        pid = wait_until(lambda: int(show(unit, "MainPID")), "it has a process")
        wait_until(lambda: os.path.exists(f"/proc/{pid}") and os.readlink(f"/proc/{pid}/exe") == str(self.executable), "it runs")
        return session, unit, pid

    def test_it_inherits_nothing_from_the_helper_and_ends_with_its_users_session(self):
        kept = {"XDG_LITERAL": '$HOME %u "q" \\x', "DISPLAY": ":7"}
        session, unit, pid = self.launch_again(*(f"{name}={value}" for name, value in kept.items()), "SECRET=1")
        process, user = Path(f"/proc/{pid}"), str(int(run("id", "-u", STRANGER)))
        wait_until(Path(f"/tmp/-crashDefunctRestart.{pid}").exists, "it has started the watchdog again")
        self.assertEqual((process / "cmdline").read_bytes().split(b"\0")[:2], [str(self.executable).encode(), b"-crashDefunctRestart"])
        environment = dict(entry.split("=", 1) for entry in (process / "environ").read_text().rstrip("\0").split("\0"))
        self.assertEqual(environment | kept | {"HOME": f"/home/{STRANGER}", "USER": STRANGER}, environment)
        self.assertFalse({"SECRET", "INVOCATION_ID", "SYSTEMD_EXEC_PID"} & environment.keys())
        status = dict(re.findall(r"^(\w+):[ \t]*(.*?)[ \t]*$", (process / "status").read_text(), re.M))
        self.assertEqual([status["Uid"].split()[0], status["Gid"].split()[0], status["PPid"]], [user, user, "1"])
        self.assertEqual([int(status[name], 16) for name in ("CapEff", "SigIgn", "SigBlk")], [0, 0, 0])
        self.assertEqual((status["NoNewPrivs"], status["Seccomp"]), ("0", "0"))
        self.assertEqual(status["CapBnd"], dict(re.findall(r"^(\w+):\t(.*)$", Path("/proc/1/status").read_text(), re.M))["CapBnd"])
        self.assertIn(f"0::/user.slice/user-{user}.slice/{unit}", (process / "cgroup").read_text())
        self.assertEqual(os.readlink(process / "ns/mnt"), os.readlink("/proc/1/ns/mnt"))
        self.assertEqual((process / "loginuid").read_text() if (process / "loginuid").exists() else user, user)
        helper_limits = Path(f"/proc/{show(UNIT, 'MainPID')}/limits").read_text()
        self.assertIn("4096", re.search("Max open files.*", helper_limits)[0])
        self.assertNotIn("4096", re.search("Max open files.*", (process / "limits").read_text())[0])

        # The end of the session ends the user's manager, which ends the application.
        self.end(session)
        wait_until(lambda: not process.exists(), "it has ended", 40)
        self.assertEqual(services(), [])

    def test_a_user_who_has_logged_out_gets_nothing_launched(self):
        process = self.launch()
        log = self.log()
        print("defunct-restart", file=process.stdin, flush=True)
        self.wait_for_log(FAILED + "its user has logged out", log)
        self.assertEqual(services(), [])

    def test_an_application_without_a_session_is_launched_again(self):
        process = self.start("root", "runuser", "-u", STRANGER, self.executable)
        print("defunct-restart", file=process.stdin, flush=True)
        wait_until(services, "it is launched again")

    def test_a_start_that_fails_is_logged(self):
        self.start(STRANGER, "cat")
        process = self.launch()
        replacement = self.executable.with_name("new")
        replacement.write_text("no program\n")
        sign(replacement)
        replacement.chmod(0o755)
        replacement.rename(self.executable)
        log = self.log()
        print("defunct-restart", file=process.stdin, flush=True)
        self.wait_for_log("exit-code, status 203", log)
        self.assertRegex(self.log()[len(log):], re.escape(FAILED) + r"app-com\.example\.brimo-[0-9a-f]{16}\.service: exit-code, status 203\n")
        self.assertEqual(run("systemctl", "list-units", "--all", "--plain", "--no-legend", "app-*"), "")

    def test_an_application_that_died_comes_back_after_the_helper_was_killed(self):
        self.start(STRANGER, "cat")
        process = self.launch()
        # The watchdog ended with the first helper. A second instance of the application starts it again.
        run("systemctl", "kill", "--signal=KILL", UNIT)
        process = self.launch()
        run("pkill", "-KILL", "-x", "Application")
        wait_until(services, "it is launched again")
