"""Desktops of two users in the tests' namespaces."""

import configparser
import json
import os
import shutil
import subprocess
from pathlib import Path

from harness import ENVIRONMENT, SERVICE, TESTS, read_line, wait_until

FOLDER = Path("/run") / SERVICE
DATABASE = FOLDER / "dconf"
PLAIN_WORDS = FOLDER / "proxies.json"
PYTHON = "/usr/bin/python3"
# The environment variables that tell GLib which desktop runs. There is no session bus.
DESKTOP = ENVIRONMENT | {"XDG_CURRENT_DESKTOP": "GNOME", "DBUS_SESSION_BUS_ADDRESS": "unix:path=/nonexistent"}
del DESKTOP["PYTHONHOME"]

# Reads URLs from standard input and prints GLib's proxies for each.
RESOLVER = """
import sys
from gi.repository import Gio, GLib
resolver, loop = Gio.ProxyResolver.get_default(), GLib.MainLoop()
def answer(source, condition):
    line = sys.stdin.readline()
    if not line:
        loop.quit()
    else:
        print(*resolver.lookup(line.strip()), flush=True)
    return bool(line)
GLib.io_add_watch(0, GLib.IOCondition.IN | GLib.IOCondition.HUP, answer)
loop.run()
"""


def install():
    """Creates the files that the packages install under /etc and create at boot, mounted over the machine's own."""
    subprocess.run(["mount", "-t", "tmpfs", "-o", "mode=0755", "tmpfs", "/etc/dconf"], check=True)
    subprocess.run(["systemd-tmpfiles", "--create", TESTS / "packaging/tmpfiles.conf"], check=True)
    subprocess.run([TESTS / "packaging/dconf-profile", "add", SERVICE], check=True, capture_output=True)


def proxies_off(code="killed", status="KILL"):
    """Does what systemd does after the helper has ended."""
    subprocess.run([TESTS / "bin/BrimoProxiesOff"], env=ENVIRONMENT | {"EXIT_CODE": code, "EXIT_STATUS": status}, check=True)


def plain_words():
    words = json.loads(PLAIN_WORDS.read_text())
    words.pop("services", None)
    return words


class User:
    """A user with running programs."""

    def __init__(self, test, number):
        self.test, self.number = test, number
        home = Path(f"/tmp/home-{number}")
        home.mkdir(exist_ok=True)
        os.chown(home, number, number)
        test.addCleanup(shutil.rmtree, home, ignore_errors=True)
        self.environment = DESKTOP | {"HOME": str(home)}
        self.resolver = self.start([PYTHON, "-c", RESOLVER], stdin=subprocess.PIPE)
        self.resolve()

    def start(self, command, **options):
        return self.test.start_program(command, user=self.number, env=self.environment, **options)

    def run(self, *command):
        process = self.start(command)
        out, err = process.communicate(timeout=20)
        self.test.assertEqual(process.returncode, 0, err)
        return out.rstrip("\n")

    def monitor(self, *key):
        """Starts a program that prints a setting after each change. Returns the file that it writes to."""
        output = Path(self.environment["HOME"]) / "monitor"
        with output.open("w") as file:
            process = self.start(["gsettings", "monitor", *key], stdout=file)
        tasks = Path(f"/proc/{process.pid}/task")
        wait_until(lambda: any("dconf" in (task / "comm").read_text() for task in tasks.iterdir()), "gsettings watches")
        return output

    def dump(self):
        """The user's proxy settings in dconf: {"http": {"port": "1"}}."""
        parser = configparser.ConfigParser(interpolation=None)
        parser.read_string(self.run("dconf", "dump", "/system/proxy/"))
        return {section.strip("/"): dict(parser[section]) for section in parser.sections()}

    def resolve(self, url="http://page.example/"):
        print(url, file=self.resolver.stdin, flush=True)
        return read_line(self.resolver)

    def wait_for(self, proxies, url="http://page.example/"):
        wait_until(lambda: self.resolve(url) == proxies, f"user {self.number} has {proxies} for {url}")
