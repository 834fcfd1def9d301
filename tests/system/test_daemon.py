"""The process: start, log file, endpoint, end, and many connections."""

import itertools
import os
import resource
import signal
import socket
import subprocess
from unittest import mock

import harness
from harness import BRIMO, DEADLINE, ENDPOINT, ENVIRONMENT, Helper, HelperTest, PYTHON, TESTS, wait_until

SANITIZED = any(name in (TESTS / "bin/BrimoHelper").read_bytes() for name in (b"__asan_init", b"__tsan_init"))
# Sanitizers keep freed memory for a while.
ALLOWED_GROWTH = 400_000 if SANITIZED else 1_000  # kilobytes


class Start(HelperTest):
    def test_the_service_manager_is_notified(self):
        self.end_helper()
        manager = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.addCleanup(manager.close)
        manager.bind("/run/notify")
        self.addCleanup(os.unlink, "/run/notify")
        manager.settimeout(DEADLINE)
        with mock.patch.dict(ENVIRONMENT, NOTIFY_SOCKET="/run/notify"):
            self.helper = Helper()
            # Without WATCHDOG_USEC, the main loop sends nothing, so the request must have sent this message.
            self.assertEqual(self.brimo("json", '{"command": "set-proxy", "payload": {"a": {}}}')[0], 0)
            self.assertEqual(manager.recv(100), b"WATCHDOG=1")
            self.end_helper()
            with mock.patch.dict(ENVIRONMENT, WATCHDOG_USEC="100000"):
                self.helper = Helper()
            for _ in range(3):
                self.assertEqual(manager.recv(100), b"WATCHDOG=1")


class WithoutActivation(HelperTest):
    helper_options = {"activated": False}

    def test_one_helper_serves_and_replaces_what_a_killed_one_left(self):
        wait_until(lambda: os.path.exists(ENDPOINT) and os.stat(ENDPOINT).st_mode & 0o777 == 0o666, "the helper listens")
        self.assert_serves()
        command = [TESTS / "bin/BrimoHelper"]
        self.assertEqual(subprocess.run(command, env=ENVIRONMENT).returncode, 1)
        self.assertIn("[Helper] Failed to create service.", self.log())
        self.assert_serves()

        self.helper.signal(signal.SIGKILL)
        self.assertEqual(self.helper.wait(), -signal.SIGKILL)
        left = os.stat(ENDPOINT).st_ino
        self.helper.status = None
        self.helper.pid = os.posix_spawn(command[0], command, ENVIRONMENT)
        wait_until(lambda: os.path.exists(ENDPOINT) and os.stat(ENDPOINT).st_ino != left, "the new helper listens")
        self.end_helper()
        self.assertFalse(os.path.exists(ENDPOINT))


class SystemLog(HelperTest):
    """A system log whose socket exists, but which nobody reads."""

    def setUp(self):
        self.log_socket = self.make_system_log()
        self.addCleanup(self.log_socket.close)
        self.log_socket.setblocking(False)
        super().setUp()

    def received(self):
        lines = []
        while True:
            try:
                lines.append(self.log_socket.recv(65536).decode())
            except BlockingIOError:
                return lines

    def test_a_full_system_log_does_not_block_the_helper(self):
        for _ in range(20):
            self.assert_serves()
        lines = self.received()
        self.assertRegex(lines[0], r"^<29>\w{3} [ \d]\d \d\d:\d\d:\d\d BrimoHelper\[\d+\]: .*Version: 618, Starting\.\.\.$")
        self.assertLess(len(lines), 60)
        self.assertGreater(len(self.log()), 60)  # the file has all lines
        self.assert_serves()
        self.assertRegex(self.received()[0], r": Lines dropped before this one: \d+$")


class End(HelperTest):
    def test_sigterm_ends_each_connection_once(self):
        clients = [self.genuine("""
connection = connect_admitted()
print("admitted", flush=True)
print(was_hung_up(connection), flush=True)
""", until="admitted") for _ in range(4)]
        self.helper.pause()
        self._end_process(clients.pop())  # it leaves just before SIGTERM
        self.helper.signal(signal.SIGTERM)
        self.helper.go_on()
        self.assertEqual(self.helper.wait(), 0)
        ends = [line for line in self.log() if "closed" in line or "IMMINENT" in line]
        self.assertEqual(len(ends), 4, ends)
        self.assertGreaterEqual(ends.count("[BRHMain] XPC_ERROR_TERMINATION_IMMINENT"), 3)
        for client in clients:
            self.assert_says(client, "True")


class Load(HelperTest):
    users = itertools.count(10_000)  # one user may not open so many connections

    def assert_leaves_nothing(self, work, allowed=ALLOWED_GROWTH):
        """Repeats the work while memory grows. A leak makes it grow each time, but a new thread's arena only once."""
        self.assert_serves()
        descriptors = self.helper.descriptors()
        for _ in range(5):
            memory = self.helper.resident_kilobytes()
            work()
            self.assert_serves()
            wait_until(lambda: self.helper.descriptors() <= descriptors, "the descriptors are closed")
            growth = self.helper.resident_kilobytes() - memory
            if growth < allowed:
                return
        self.fail(f"memory grows by {growth} kilobytes each time")

    def test_thousands_of_connections_in_a_row(self):
        for interpreter, hammer in ((PYTHON, "connect()"), (harness.GENUINE_PYTHON, "connect_greeted()")):
            script = f"for _ in range(250):\n    {hammer}.close()"
            def thousands():
                for _ in range(12):
                    self.assert_succeeds(self.start_script(interpreter, script, user=next(self.users)))
            self.assert_leaves_nothing(thousands)

    def test_connections_are_capped_for_each_user_and_in_all(self):
        holders = [self.genuine("""
admitted = []
try:
    while True:
        admitted.append(connect_greeted())
except EOFError:
    print(len(admitted), flush=True)
input()
""", user=user, until="64") for user in range(2000, 2004)]
        self.assertEqual(self.brimo("version")[0], 3)
        holders.pop().communicate("\n")
        wait_until(lambda: self.brimo("version")[0] == 0, "another client can connect")

    def test_the_helper_survives_a_lack_of_descriptors(self):
        self.assert_serves()
        limit = resource.prlimit(self.helper.pid, resource.RLIMIT_NOFILE)
        resource.prlimit(self.helper.pid, resource.RLIMIT_NOFILE, (0, limit[1]))
        client = harness.run_as_user([BRIMO, "version"])
        self.wait_for_log(r"\[Helper\] Listener received a non-connection object: accept: Too many open files")
        resource.prlimit(self.helper.pid, resource.RLIMIT_NOFILE, limit)
        self.assertEqual(client.communicate(timeout=DEADLINE)[0], "helper build 618\n")

    def test_a_message_of_many_keys_costs_no_memory_afterwards(self):
        self.assert_leaves_nothing(lambda: self.assert_succeeds(self.genuine("""
keys = b"".join(b"\\x64" + b"%04x" % number + b"\\x01" for number in range(65536))
item = b"\\x82\\x01\\xba\\x00\\x01\\x00\\x00" + keys[:-6] + b"\\x63xxx\\x5a" + struct.pack(">I", 8 << 20) + bytes(8 << 20)
connection = connect_greeted()
connection.sendall(struct.pack(">I", len(item)) + item)
assert receive_frame(connection)[0] == 1
print("done")
""")), 3 * ALLOWED_GROWTH)
