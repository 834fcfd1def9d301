"""The packages: installation, upgrade with connected clients and a new root certificate, removal, purge."""

import grp
import os
import socket
import subprocess
import threading
from pathlib import Path

from machine import CONTENTS, MEMBER, UNIT, MachineTest, install, run, show
from harness import ENDPOINT, LOG, SERVICE

HOLDS = ["/usr/libexec/brimo", "/usr/lib/brimo", "/usr/bin/Brimo", ENDPOINT, f"/var/lib/{SERVICE}", str(LOG),
         f"/lib/systemd/system/{UNIT}", f"/etc/systemd/system/sockets.target.wants/{SERVICE}.socket"]


def everything():
    """All files of the machine except those that packages leave on purpose and those that change by themselves."""
    kept = ("/proc", "/sys", "/dev", "/run", "/tmp", "/opt/booted", "/root", "/home", "/var/log", "/var/cache", "/var/lib/dpkg",
            "/var/lib/apt", "/var/lib/systemd", "/var/lib/NetworkManager", "/etc/.pwd.lock", "/etc/NetworkManager/conf.d/test.conf")
    found = set()
    for folder, folders, files in os.walk("/"):
        folders[:] = [name for name in folders if not os.path.join(folder, name).startswith(kept)]
        found |= {os.path.join(folder, name) for name in files + folders}
    # Paths that end with "-" are backups of the user database.
    return {path for path in found if not path.startswith(kept) and not path.endswith("-")}


class Knocker(threading.Thread):
    """Connects repeatedly."""

    def __init__(self):
        super().__init__()
        self.stopped, self.refusals, self.connections = threading.Event(), [], 0

    def run(self):
        while not self.stopped.wait(0.02):  # below the helper's limit per user
            with socket.socket(socket.AF_UNIX) as connection:
                problem = connection.connect_ex(ENDPOINT)
            self.connections += 1
            if problem:
                self.refusals.append(os.strerror(problem))


class Packages(MachineTest):
    @classmethod
    def setUpClass(cls):
        cls.before = everything()
        super().setUpClass()

    def upgrade(self, folder):
        """Installs other packages while clients connect and one client stays connected."""
        client = self.client()
        self.assertEqual(self.ask(client, "version"), {"version": 618})
        before, endpoint = show(UNIT, "MainPID"), os.stat(ENDPOINT).st_ino
        knocker = Knocker()
        knocker.start()
        try:
            install(folder)
            self.assertEqual(run("Brimo", "version"), "helper build 618\n")
        finally:
            knocker.stopped.set()
            knocker.join()
        self.assertEqual(knocker.refusals, [])
        self.assertEqual(os.stat(ENDPOINT).st_ino, endpoint)
        self.assertGreater(knocker.connections, 10)
        self.assertNotEqual(show(UNIT, "MainPID"), before)
        return client

    def test_life(self):
        mode = (CONTENTS / "MacOS/Brimo").stat()
        self.assertEqual((oct(mode.st_mode & 0o7777), grp.getgrgid(mode.st_gid).gr_name, mode.st_uid), ("0o2750", "brimo", 0))
        self.assertNotIn(MEMBER, run("dpkg", "-s", "brimo"))
        old_client = (CONTENTS / "MacOS/Brimo").read_bytes()

        # Changes the root: first a helper that accepts both, then one that accepts only the new one.
        self.upgrade("both")
        new_client = (CONTENTS / "MacOS/Brimo").read_bytes()
        self.assertNotEqual(new_client, old_client)
        copy = Path("/opt/Old.app")
        run("cp", "-a", CONTENTS.parent, copy)
        executable = copy / "Contents/MacOS/Brimo"
        executable.unlink()
        executable.write_bytes(old_client)
        executable.chmod(0o755)
        self.assertEqual(run(executable, "version", group="brimo"), "helper build 618\n")
        self.upgrade("second")
        refused = subprocess.run([executable, "version"], group="brimo", capture_output=True, text=True)
        self.assertEqual((refused.returncode, refused.stdout), (3, ""))
        run("rm", "-r", copy)

        run("apt-get", "remove", "-y", "brimo", "brimo-helper")
        self.assertEqual([path for path in HOLDS if os.path.exists(path) and path not in (f"/var/lib/{SERVICE}", str(LOG))], [])
        self.assertTrue(LOG.exists())
        install("second")
        self.assertEqual(run("Brimo", "version"), "helper build 618\n")
        for user in ("alice", "bob"):
            run("userdel", "--remove", "--force", user)
        run("apt-get", "purge", "-y", "brimo", "brimo-helper", "libbrimo-client1", "libbrimo-client-dev")
        self.assertEqual([path for path in HOLDS if os.path.lexists(path)], [])
        self.assertRaises(KeyError, grp.getgrnam, "brimo")
        self.assertEqual(run("dpkg-statoverride", "--list").count("brimo"), 0)
        self.assertEqual(everything() - self.before, set())
