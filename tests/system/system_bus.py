"""A private system bus for the tests, with logind on it."""

import contextlib
import json
import os
import signal
import socket
import socketserver
import subprocess
import threading
from pathlib import Path

from gi.repository import Gio

from harness import run, wait_until

BUS = Path("/run/dbus/system_bus_socket")  # where every program expects it
LOGIND = "org.freedesktop.login1"
ALLOW_ALL = """<allow user="*"/><allow own="*"/><allow send_destination="*"/><allow send_type="*"/>
    <allow receive_sender="*"/><allow receive_type="*"/><allow eavesdrop="true"/>"""


def end(process):
    process.send_signal(signal.SIGCONT)
    process.kill()
    process.wait()


class SystemBus:
    """A bus that permits everything. Registers its clean-up with `test`."""

    def __init__(self, test):
        BUS.parent.mkdir(exist_ok=True)
        (BUS.parent / "test.conf").write_text(
            f'<busconfig><listen>unix:path={BUS}</listen><auth>EXTERNAL</auth>'
            f'<policy context="default">{ALLOW_ALL}</policy></busconfig>')
        self.test = test
        self.process = subprocess.Popen(["dbus-daemon", "--nofork", "--nopidfile", f"--config-file={BUS.parent}/test.conf"],
                                        stderr=subprocess.DEVNULL)
        test.addCleanup(lambda: BUS.unlink(missing_ok=True))
        test.addCleanup(end, self.process)
        wait_until(self.listens, "the bus listens")
        self.logind = None

    @staticmethod
    def listens():
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as connection:
            return connection.connect_ex(str(BUS)) == 0

    def start_logind(self):
        if self.logind:
            end(self.logind)
            wait_until(lambda: LOGIND not in self.names(), "the name of the old logind is free")
        os.makedirs("/run/systemd", exist_ok=True)  # as created by process 1
        self.logind = subprocess.Popen(["/lib/systemd/systemd-logind"], stderr=subprocess.DEVNULL)
        self.test.addCleanup(end, self.logind)
        wait_until(lambda: LOGIND in self.names(), "logind has its name")

    def names(self):
        return self.call("ListNames", "org.freedesktop.DBus", "/", "org.freedesktop.DBus")[0]

    def call(self, method, *where):
        """The data of the reply to a call without arguments."""
        destination, path, interface = where or (LOGIND, "/org/freedesktop/login1", LOGIND + ".Manager")
        return json.loads(run("busctl", "--system", "--json=short", "call", destination, path, interface, method))["data"]

    def inhibitors(self):
        """The active inhibitors: (what, who, mode, uid, pid)."""
        return sorted((what, who, mode, uid, pid) for what, who, _, mode, uid, pid in self.call("ListInhibitors")[0])


class FakeBus(socketserver.StreamRequestHandler):
    """A client's connection to a fake bus. A function of the test yields the answers to each message."""

    @classmethod
    def start(cls, test, answers):
        BUS.parent.mkdir(exist_ok=True)
        server = socketserver.ThreadingUnixStreamServer(str(BUS), cls)
        server.daemon_threads, server.answers = True, answers
        test.addCleanup(BUS.unlink)
        test.addCleanup(server.server_close)
        test.addCleanup(server.shutdown)
        threading.Thread(target=server.serve_forever).start()

    def handle(self):
        while self.rfile.readline() not in (b"BEGIN\r\n", b""):
            pass
        with contextlib.suppress(ConnectionError):
            self.wfile.write(b"DATA\r\nOK " + b"0" * 32 + b"\r\nAGREE_UNIX_FD\r\n")
            while head := self.rfile.read(16):
                rest = self.rfile.read(Gio.DBusMessage.bytes_needed(head) - 16)
                for answer in self.server.answers(Gio.DBusMessage.new_from_blob(head + rest, 0)):
                    answer.set_serial(1)
                    self.wfile.write(answer.to_blob(0))
