"""A booted Debian with the packages installed, for the tests in this folder. They run inside it as root; see run."""

import json
import pwd
import shutil
import subprocess
import unittest
from pathlib import Path

from harness import DEADLINE, LOG, SERVICE, read_line, wait_until

HERE = Path("/opt/booted")
UNIT = f"{SERVICE}.service"
CONTENTS = Path("/usr/lib/brimo/Brimo.app/Contents")
MEMBER, STRANGER = "bob", "alice"  # in the group "brimo", and not in it


def run(*arguments, **options):
    """Runs a command and returns its output. Fails the test if the command fails."""
    result = subprocess.run([str(argument) for argument in arguments], capture_output=True, text=True, **options)
    if result.returncode:
        raise AssertionError(f"{arguments}: {result.returncode} {result.stdout}{result.stderr}")
    return result.stdout


def show(unit, name):
    return run("systemctl", "show", "--value", f"--property={name}", unit).strip()


def packages(folder):
    return sorted(path for path in (HERE / "packages" / folder).glob("*.deb") if "-dbgsym" not in path.name)


def install(folder):
    run("apt-get", "install", "-y", *packages(folder))


def ensure_installed():
    """Installs the packages and creates two users. NetworkManager manages no interfaces by default."""
    Path("/etc/NetworkManager/conf.d/test.conf").write_text("[main]\nno-auto-default=*\n[device]\nmanaged=0\n")
    run("systemctl", "reload", "NetworkManager")
    if not CONTENTS.exists():
        install("first")
    for user, groups in ((MEMBER, ["-G", "brimo"]), (STRANGER, [])):
        try:
            pwd.getpwnam(user)
        except KeyError:
            run("useradd", "--create-home", "--shell", "/bin/sh", *groups, user)


def sign(path, identifier="com.example.brimo", keys="first"):
    keys = HERE / "keys" / keys
    run(HERE / "tools/sign-code", "--identifier", identifier, "--key", keys / "leaf.key", "--certificate", keys / "leaf.pem",
        "--intermediate", keys / "intermediate.pem", path)


def in_session(user, *arguments):
    """Starts a command in a login session of a user, with pipes as standard streams. The command ends with the session."""
    return subprocess.Popen(["systemd-run", "--quiet", "--pipe", "--wait", "--collect", f"--property=User={user}",
                             "--property=PAMName=login", "--property=WorkingDirectory=~", "--", *arguments],
                            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, start_new_session=True)


class MachineTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        ensure_installed()

    def start(self, user, *arguments):
        process = in_session(user, *arguments)
        self.addCleanup(self.end, process)
        return process

    @staticmethod
    def end(process):
        process.stdin.close()
        try:
            process.wait(DEADLINE)
        except subprocess.TimeoutExpired:
            process.terminate()
            process.wait(DEADLINE)
        process.stdout.close()
        process.stderr.close()

    def client(self, user=MEMBER):
        """Starts Brimo in a session, where it reads commands."""
        return self.start(user, "Brimo", "--json")

    @staticmethod
    def ask(client, command):
        """Sends a line to Brimo and returns the reply."""
        print(command, file=client.stdin, flush=True)
        return json.loads(read_line(client))

    def log(self):
        return LOG.read_text()

    def wait_for_log(self, text, since=""):
        wait_until(lambda: text in self.log()[len(since):], f"the log says {text}")


def connected(interface="nm0", name="Wired"):
    """Creates an interface with a NetworkManager connection. Returns the connection's ID."""
    if not Path(f"/sys/class/net/{interface}").exists():
        run("ip", "link", "add", interface, "type", "veth", "peer", "name", f"{interface}-peer")
        run("ip", "link", "set", f"{interface}-peer", "up")
        run("nmcli", "device", "set", interface, "managed", "yes")
        run("nmcli", "connection", "add", "type", "ethernet", "con-name", name, "ifname", interface, "ipv4.method", "manual",
            "ipv4.addresses", "198.51.100.1/24", "ipv6.method", "disabled")
        run("nmcli", "--wait", "10", "connection", "up", name)
    return run("nmcli", "-g", "connection.uuid", "connection", "show", name).strip()


def proxy_method(name="Wired"):
    return run("nmcli", "-g", "proxy.method", "connection", "show", name).strip()


def make_application(folder="/opt/Application.app"):
    """Installs an application that keeps running after its relaunch. It is set-group-ID, and every user can execute it."""
    shutil.rmtree(folder, ignore_errors=True)
    shutil.copytree(CONTENTS, Path(folder) / "Contents", ignore=shutil.ignore_patterns("MacOS"))
    executable = Path(folder) / "Contents/MacOS/Application"
    executable.parent.mkdir()
    shutil.copy(HERE / "relaunched", executable)
    sign(executable)
    shutil.chown(executable, 0, "brimo")
    executable.chmod(0o2755)
    return executable
