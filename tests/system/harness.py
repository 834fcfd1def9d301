"""Starts the real helper, signed clients and hostile clients for the system tests; see run."""

import ctypes
import faulthandler
import os
import platform
import re
import select
import shutil
import signal
import socket
import struct
import subprocess
import threading
import time
import unittest
from pathlib import Path

import cbor2

TESTS = Path("/opt/tests")
SERVICE = "com.example.brimo.helper"
ENDPOINT = f"/run/{SERVICE}.socket"
LOG = Path("/tmp/BrimoHelper.log")
USER = 1000
DEADLINE = 10.0  # seconds; generous, because a passing test never waits this long

BRIMO = Path("/opt/Brimo.app/Contents/MacOS/Brimo")
# A Python interpreter signed as the main application. Its scripts act as an admitted client.
GENUINE_PYTHON = Path("/opt/Python.app/Contents/MacOS/Brimo")
PYTHON = "/usr/bin/python3"
FRAMEWORKS = ("Contents/Frameworks/Bugsnag.framework/Bugsnag", "Contents/Frameworks/Sparkle.framework/Sparkle")

ENVIRONMENT = {"PATH": "/usr/bin:/bin", "PYTHONHOME": "/usr", "PYTHONPATH": str(TESTS),
               "ASAN_OPTIONS": "verify_asan_link_order=0", "LC_ALL": "C.UTF-8"}


def sign(path, identifier="com.example.brimo", certificates=TESTS / "certificates"):
    subprocess.run([TESTS / "tools/sign-code", "--identifier", identifier, "--key", certificates / "leaf.key",
                    "--certificate", certificates / "leaf.pem", "--intermediate", certificates / "intermediate.pem",
                    path], check=True)


def make_bundles():
    """Creates the client's bundle, and another one whose executable is a Python interpreter."""
    if BRIMO.exists():
        return
    shutil.copytree(TESTS / "Brimo.app", "/opt/Brimo.app")
    shutil.copytree("/opt/Brimo.app", "/opt/Python.app")
    shutil.copy(os.path.realpath(PYTHON), GENUINE_PYTHON)
    sign(GENUINE_PYTHON)


def copy_bundle(name, source="/opt/Brimo.app"):
    """Copies a bundle under /opt and returns the copy and its executable."""
    bundle = Path("/opt") / name
    shutil.rmtree(bundle, ignore_errors=True)
    shutil.copytree(source, bundle)
    return bundle, bundle / "Contents/MacOS/Brimo"


def wait_until(condition, what, seconds=DEADLINE):
    end = time.monotonic() + seconds
    while not (result := condition()):
        if time.monotonic() > end:
            raise AssertionError(f"timed out waiting until {what}\n{LOG.read_text() if LOG.exists() else 'no log'}")
        time.sleep(0.005)
    return result


def frame(request_id, dictionary):
    item = cbor2.dumps([request_id, dictionary])
    return struct.pack(">I", len(item)) + item


def receive_exactly(connection, size):
    data = b""
    while len(data) < size:
        piece = connection.recv(min(size - len(data), 1 << 20))
        if not piece:
            raise EOFError
        data += piece
    return data


def receive_frame(connection):
    """Receives [id, dictionary]. Raises EOFError if the helper closes the connection."""
    try:
        (length,) = struct.unpack(">I", receive_exactly(connection, 4))
        return cbor2.loads(receive_exactly(connection, length))
    except ConnectionResetError:
        raise EOFError from None


def connect():
    connection = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    connection.connect(ENDPOINT)
    connection.settimeout(DEADLINE)
    return connection


def connect_greeted():
    """Opens a connection and reads the greeting."""
    connection = connect()
    assert receive_frame(connection) == [0, {"service": SERVICE, "build": 618}]
    return connection


def connect_admitted():
    """Opens a connection and waits for the answer to a first request."""
    connection = connect_greeted()
    connection.sendall(frame(1, {"command": "x"}))
    assert receive_frame(connection) == [1, {"error": "unknown command"}]
    return connection


def was_hung_up(connection):
    """Returns whether the helper closes the connection without another frame."""
    try:
        return not receive_frame(connection)
    except EOFError:
        return True


def socket_address(address, port):
    """A socket address of 128 bytes in the BSD layout."""
    if ":" in address:
        record = struct.pack(">BBHI16s", 28, 30, port, 0, socket.inet_pton(socket.AF_INET6, address))
    else:
        record = struct.pack(">BBH4s", 16, 2, port, socket.inet_pton(socket.AF_INET, address))
    return record.ljust(128, b"\0")


def kill_group(process):
    """Kills a process and its descendants, which could otherwise keep its pipes open."""
    try:
        os.killpg(process.pid, signal.SIGKILL)
    except ProcessLookupError:
        pass


def read_line(process):
    """Returns the next line that a process prints. If there is none, fails with its error output."""
    ready = select.select([process.stdout], [], [], DEADLINE)[0]
    line = process.stdout.readline() if ready else ""
    if not line:
        kill_group(process)
        os.set_blocking(process.stderr.fileno(), False)
        raise AssertionError(f"no line: {process.stderr.read()}")
    return line.rstrip("\n")


def run_as_user(arguments, user=USER, groups=(), **options):
    options = {"env": ENVIRONMENT, "group": user, "stdout": subprocess.PIPE, "stderr": subprocess.PIPE} | options
    return subprocess.Popen([str(argument) for argument in arguments], user=user, extra_groups=groups, text=True,
                            start_new_session=True, **options)


def refuse_option(option):
    """Makes getsockopt(SOL_SOCKET, option) fail with ENOPROTOOPT in this process and its children, as on an old kernel."""
    number = {"x86_64": 55, "aarch64": 209}[platform.machine()]
    load, equal, result = 0x20, 0x15, 0x06
    program = [(load, 0, 0, 0), (equal, 0, 5, number), (load, 0, 0, 24), (equal, 0, 3, socket.SOL_SOCKET),
               (load, 0, 0, 32), (equal, 0, 1, option), (result, 0, 0, 0x00050000 | 92), (result, 0, 0, 0x7FFF0000)]
    code = ctypes.create_string_buffer(b"".join(struct.pack("<HBBI", *line) for line in program))
    header = struct.pack("<HxxxxxxQ", len(program), ctypes.addressof(code))
    libc = ctypes.CDLL(None, use_errno=True)
    if libc.prctl(38, 1, 0, 0, 0) or libc.prctl(22, 2, header):  # PR_SET_NO_NEW_PRIVS, PR_SET_SECCOMP
        raise OSError(ctypes.get_errno(), "prctl")


def enter_user_namespace(flags):
    """Enters a new user namespace, as its root, and the namespaces in the flags."""
    if ctypes.CDLL(None, use_errno=True).unshare(0x10000000 | flags):  # CLONE_NEWUSER
        raise OSError(ctypes.get_errno(), "unshare")
    Path("/proc/self/setgroups").write_text("deny")
    Path("/proc/self/uid_map").write_text(f"0 {USER} 1")
    Path("/proc/self/gid_map").write_text(f"0 {USER} 1")


def mount(kind, folder, options=""):
    """Mounts a file system (mount(2)). It is enough that this process is root in its user namespace."""
    if ctypes.CDLL(None, use_errno=True).mount(kind.encode(), os.fsencode(folder), kind.encode(), 0, options.encode()):
        raise OSError(ctypes.get_errno(), "mount")


def mount_overlay(lower, folder):
    """Mounts a writable overlay. Uses /var/lib of this process's mount namespace for its folders."""
    mount("tmpfs", "/var/lib")
    for name in ("upper", "work", "overlay"):
        os.mkdir(f"/var/lib/{name}")
    mount("overlay", folder, f"lowerdir={lower},upperdir=/var/lib/upper,workdir=/var/lib/work")


class Helper:
    """The helper, under socket activation unless `activated` is false."""

    def __init__(self, executable="BrimoHelper", old_kernel=False, activated=True, quiet=False):
        Path(ENDPOINT).unlink(missing_ok=True)
        listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        if activated:
            listener.bind(ENDPOINT)
            listener.listen(1024)
            os.chmod(ENDPOINT, 0o666)
        environment = dict(ENVIRONMENT)
        self.pid = os.fork()
        if self.pid == 0:
            try:
                if activated:
                    os.dup2(listener.fileno(), 3)
                    os.set_inheritable(3, True)  # dup2 keeps close-on-exec if the descriptor is already 3
                    environment |= {"LISTEN_FDS": "1", "LISTEN_PID": str(os.getpid())}
                if quiet:  # keeps the output of the probes and children out of the test's output
                    output = os.open("/tmp/helper.output", os.O_WRONLY | os.O_CREAT | os.O_APPEND, 0o600)
                    os.dup2(output, 1)
                    os.dup2(output, 2)
                os.umask(0)  # the helper must set its own modes
                if old_kernel:
                    refuse_option(77)  # SO_PEERPIDFD
                os.execve(TESTS / "bin" / executable, [executable], environment)
            finally:
                os._exit(127)
        listener.close()
        self.status = None

    def signal(self, number):
        os.kill(self.pid, number)

    def wait(self):
        """Waits for the end of the process and returns its exit status."""
        def ended():
            if self.status is None:
                pid, status = os.waitpid(self.pid, os.WNOHANG)
                if pid:
                    self.status = os.waitstatus_to_exitcode(status)
            return self.status is not None
        wait_until(ended, "the helper ends")
        return self.status

    def pause(self):
        """Stops the process. Data from clients then waits in queues."""
        self.signal(signal.SIGSTOP)
        wait_until(lambda: Path(f"/proc/{self.pid}/stat").read_text().rpartition(")")[2].split()[0] == "T", "it is stopped")

    def go_on(self):
        self.signal(signal.SIGCONT)

    def descriptors(self):
        return len(os.listdir(f"/proc/{self.pid}/fd"))

    def resident_kilobytes(self):
        return int(re.search(r"VmRSS:\s+(\d+)", Path(f"/proc/{self.pid}/status").read_text())[1])


class HelperTest(unittest.TestCase):
    """Starts a helper for each test and verifies at the end that it still serves and exits cleanly."""

    helper_options = {}

    def setUp(self):
        faulthandler.dump_traceback_later(120, exit=True)  # instead of hanging
        make_bundles()
        LOG.unlink(missing_ok=True)
        self.helper = Helper(**self.helper_options)
        self.addCleanup(self._end_helper)

    def _end_helper(self):
        if self.helper.status is None:
            self.helper.go_on()
            self.end_helper()
        self.assertEqual(self.helper.status, 0)

    def end_helper(self):
        self.assert_serves()
        self.helper.signal(signal.SIGTERM)
        self.assertEqual(self.helper.wait(), 0, "the helper exits cleanly")

    def brimo(self, *arguments, executable=BRIMO, **options):
        process = run_as_user([executable, *arguments], stdin=subprocess.PIPE, **options)
        out, err = process.communicate(timeout=DEADLINE)
        return process.returncode, out, err

    def assert_serves(self):
        self.assertEqual(self.brimo("version"), (0, "helper build 618\n", ""))

    def genuine(self, script, *arguments, **options):
        """Runs a script in an admitted client."""
        return self.start_script(GENUINE_PYTHON, script, *arguments, **options)

    def start_script(self, interpreter, script, *arguments, **options):
        """Runs a script as a user. It begins with `from harness import *`."""
        return self.start_program([interpreter, "-B", "-c", "from harness import *\n" + script, *arguments], **options)

    def start_program(self, arguments, until=None, **options):
        """Starts a program as a user. At its end, the test kills the program. Waits for the line `until`, if it is given."""
        if until:
            options = {"stdin": subprocess.PIPE} | options
        process = run_as_user(arguments, **options)
        self.addCleanup(self._end_process, process)
        if until:
            self.assert_says(process, until)
        return process

    def assert_says(self, process, line):
        self.assertEqual(read_line(process), line)

    @staticmethod
    def _end_process(process):
        kill_group(process)
        process.wait()
        for pipe in (process.stdin, process.stdout, process.stderr):
            if pipe:
                pipe.close()

    def assert_succeeds(self, process):
        out, err = process.communicate(timeout=3 * DEADLINE)
        self.assertEqual(process.returncode, 0, err)
        return out

    def log(self):
        """Returns the lines of the log without their time and thread mark."""
        text = LOG.read_text() if LOG.exists() else ""
        return [line[line.index("["):] for line in text.splitlines() if "[" in line]

    def wait_for_log(self, line):
        wait_until(lambda: any(re.fullmatch(line, entry) for entry in self.log()), f"the log says {line}")

    def make_system_log(self):
        """Mounts a folder with a socket for the system log over /dev. Returns the socket."""
        folder = Path("/run/dev")
        folder.mkdir(exist_ok=True)
        subprocess.run(["mount", "-t", "tmpfs", "tmpfs", folder], check=True)
        subprocess.run(["cp", "-a", "/dev/null", "/dev/zero", "/dev/full", "/dev/urandom", "/dev/random", folder], check=True)
        log = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        log.bind(str(folder / "log"))
        subprocess.run(["mount", "--move", folder, "/dev"], check=True)
        self.addCleanup(subprocess.run, ["umount", "--lazy", "/dev"], check=True)
        return log

    def listen_to_the_system_log(self):
        """Replaces the system log. Returns a list to which its lines are appended."""
        queue = Path("/proc/sys/net/unix/max_dgram_qlen")  # in messages; the helper drops lines when the queue is full
        usual = queue.read_text()
        queue.write_text("10000")
        log, lines = self.make_system_log(), []
        queue.write_text(usual)

        def read():
            while line := log.recv(4096):
                lines.append(line.decode(errors="replace"))
            log.close()
        threading.Thread(target=read).start()
        self.addCleanup(log.shutdown, socket.SHUT_RD)
        return lines
