"""The watchdog file, against real processes of several users and files that were planted."""

import ctypes
import json
import os
import shutil
import signal
import struct
import subprocess
import threading
import unittest
from pathlib import Path

from harness import USER, HelperTest, read_line, wait_until

WATCHDOG = Path("/tmp/Brimo-External-Processes-Watchdog.json")
OTHER_USER = 2000
UNSAFE = "[Helper] Reject unsafe external-process watchdog file"


class WatchdogFile(HelperTest):
    def setUp(self):
        self.program = shutil.copy("/usr/bin/sleep", "/opt/watched")
        self.addCleanup(self.remove)
        super().setUp()

    @staticmethod
    def remove():
        if WATCHDOG.is_dir():
            WATCHDOG.rmdir()
        WATCHDOG.unlink(missing_ok=True)

    def start(self, user=USER, program=None):
        process = subprocess.Popen([program or self.program, "1000"], user=user, group=user, extra_groups=[])
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def put(self, content, owner=USER, mode=0o600):
        WATCHDOG.write_text(content if isinstance(content, str) else json.dumps(content))
        os.chmod(WATCHDOG, mode)
        os.chown(WATCHDOG, owner, owner)

    def lose_client(self):
        """Has a client come and go; returns what the helper said when it had gone."""
        before = len(self.log())
        self.brimo("version")
        wait_until(lambda: "[BRHMain] XPC connection closed" in self.log()[before:], "the client's end is noticed")
        self.assert_serves()  # by then the sweep is over
        lines = self.log()[before:]
        end = lines.index("[BRHMain] XPC connection closed")
        return [line for line in lines[end + 1:] if "watchdog" in line]

    def assert_spared(self, *processes):
        for process in processes:
            self.assertIsNone(process.poll())

    def assert_killed(self, *processes):
        for process in processes:
            self.assertEqual(process.wait(10), -signal.SIGKILL)

    def test_only_the_owners_processes_that_run_what_is_listed_are_killed(self):
        own, another, unlisted = self.start(), self.start(), self.start()
        others, roots = self.start(OTHER_USER), self.start(0)
        elsewhere = self.start(program="/usr/bin/sleep")
        self.put([[process.pid, self.program] for process in (own, another, others, roots, elsewhere)] +
                 [[unlisted.pid, "/opt/Watched"], [str(unlisted.pid), self.program], [unlisted.pid, self.program, 1]])
        self.assertEqual(self.lose_client(), [])
        self.assert_killed(own, another)
        self.assert_spared(unlisted, others, roots, elsewhere)
        self.assertFalse(WATCHDOG.exists())

        self.put([[process.pid, self.program] for process in (others, roots)], owner=0)
        self.lose_client()
        self.assert_killed(roots)
        self.assert_spared(others)

    def test_a_pid_that_went_to_another_program_is_spared(self):
        own = self.start()
        self.put([[own.pid, self.program]])
        own.kill()
        own.wait()
        heirs = []
        while not heirs or heirs[-1].pid != own.pid:
            Path("/proc/sys/kernel/ns_last_pid").write_text(str(own.pid - 1))
            heirs.append(self.start(program="/usr/bin/sleep"))
        self.assertEqual(self.lose_client(), [])
        self.assert_spared(*heirs)
        self.assertFalse(WATCHDOG.exists())

    def test_sigterm_has_them_killed_as_well(self):
        own = self.start()
        self.put([[own.pid, self.program]])
        client = self.genuine("connection = connect_greeted()\nconnection.sendall(frame(1, {'command': 'x'}))\n"
                              "print(receive_frame(connection)[0], flush=True)\ninput()", stdin=subprocess.PIPE)
        self.assertEqual(read_line(client), "1")
        self.helper.signal(signal.SIGTERM)
        self.assertEqual(self.helper.wait(), 0)
        self.assert_killed(own)

    def test_planted_files_are_left_alone(self):
        own = self.start()
        content = json.dumps([[own.pid, self.program]])
        target = Path("/tmp/target")
        target.write_text(content)
        os.chown(target, USER, USER)
        self.addCleanup(target.unlink)
        WATCHDOG.symlink_to(target)
        self.assertEqual(self.lose_client(), [])
        self.assertTrue(WATCHDOG.is_symlink())

        for plant in (lambda: os.mkfifo(WATCHDOG), WATCHDOG.mkdir, lambda: self.put(content, mode=0o664),
                      lambda: self.put(content, mode=0o602), lambda: self.put(content.ljust(1_048_577))):
            self.remove()
            plant()
            os.chown(WATCHDOG, USER, USER)
            self.assertIn(UNSAFE, self.lose_client())
            self.assertTrue(WATCHDOG.exists())
        self.assert_spared(own)

        self.remove()
        self.put(content.ljust(1_048_576))
        self.assertEqual(self.lose_client(), [])
        self.assert_killed(own)

    def test_a_file_that_shrinks_while_it_is_read_is_left_alone(self):
        own = self.start()
        content = json.dumps([[own.pid, self.program]])
        self.put(content.ljust(100_000))
        events = fanotify_before_reads(WATCHDOG)
        self.addCleanup(os.close, events)

        def shrink():  # after the size was asked for, before the first byte is read
            for _ in range(2):  # what is left, the end
                (descriptor,) = struct.unpack_from("=i", os.read(events, 4096), 16)
                os.truncate(WATCHDOG, len(content))
                os.write(events, struct.pack("=iI", descriptor, 1))  # FAN_ALLOW
                os.close(descriptor)
        thread = threading.Thread(target=shrink)
        thread.start()
        self.brimo("version")
        self.wait_for_log(r"\[Helper\] Failed to read external-process watchdog file")
        thread.join()
        self.assert_spared(own)
        self.assertTrue(WATCHDOG.exists())
        WATCHDOG.unlink()  # or the next lost client would have it read again

    def test_what_is_no_list_is_deleted(self):
        for content in ("", '{"pid": 5}', "[[5, "):
            self.put(content)
            self.assertEqual(self.lose_client(), ["[Helper] Invalid external-process watchdog payload"])
            self.assertFalse(WATCHDOG.exists())


def fanotify_before_reads(path):
    """A descriptor that tells of reads of a file, which wait for an answer (fanotify(7))."""
    libc = ctypes.CDLL(None, use_errno=True)
    notification_class_content, add, before_access, working_folder = 0x4, 0x1, 0x20000, -100
    events = libc.fanotify_init(notification_class_content, os.O_RDONLY)
    if events < 0 or libc.fanotify_mark(events, add, ctypes.c_uint64(before_access), working_folder, os.fsencode(path)):
        raise OSError(ctypes.get_errno(), "fanotify")
    return events


if __name__ == "__main__":
    unittest.main()
