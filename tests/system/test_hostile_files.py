"""File systems that users serve and can stop serving: the helper never waits for them."""

import json
import os
import signal
from pathlib import Path

import harness
from fuse_server import FuseServer, SERVE_UNDER_OVERLAY
from harness import DEADLINE, FRAMEWORKS, GENUINE_PYTHON, PYTHON, USER, HelperTest, copy_bundle, run, wait_until

WATCHDOG = Path("/tmp/Brimo-External-Processes-Watchdog.json")


class UsersFiles(HelperTest):
    def serve(self):
        """Starts a user's process that serves files. Returns the process and the folder in which others find the files."""
        server = self.start_script(PYTHON, SERVE_UNDER_OVERLAY, until="mounted")
        return server, f"/proc/{server.pid}/root/var/lib/overlay"

    def command(self, process, answer):
        print(file=process.stdin, flush=True)
        self.assert_says(process, answer)

    def test_the_image_of_a_process(self):
        server, folder = self.serve()
        # Only its executable is outside the helper's namespaces. The helper examines names that end in " (deleted)" more closely.
        process = self.start_script(f"{folder}/x (deleted)", """
listener = socket.create_server(("127.0.0.1", 7777))
print("listens", flush=True)
input()
print(was_hung_up(connect()), flush=True)
input()
""", until="listens")
        image = os.readlink(f"/proc/{process.pid}/exe")
        self.assertEqual(image, "/var/lib/overlay/x (deleted)")
        self.command(server, "hangs")

        code, out, err = self.brimo("process-lookup", "tcp", "127.0.0.1:7777")
        self.assertEqual((code, err), (0, ""))
        self.assertIn(str(process.pid), out)

        # The helper also kills what the file lists after that process.
        watched = self.start_program(["/usr/bin/sleep", "1000"])
        others = self.start_program(["/usr/bin/sleep", "1000"], user=4001)
        WATCHDOG.write_text(json.dumps([[process.pid, image], *([one.pid, "/usr/bin/sleep"] for one in (others, watched))]))
        os.chown(WATCHDOG, USER, USER)
        self.assert_serves()  # the helper then loses this client
        self.assertEqual(watched.wait(DEADLINE), -signal.SIGKILL)
        wait_until(lambda: not WATCHDOG.exists(), "the helper deletes the file")
        self.assert_serves()
        self.assertEqual((process.poll(), others.poll()), (None, None))

        self.command(process, "True")
        self.assert_serves()

    def test_an_image_that_is_reached_through_another_process(self):
        # The bundle is signed and complete, but on a mount that exists only in a user's namespace.
        other = self.start_script(PYTHON, """
enter_user_namespace(0x00020000)  # CLONE_NEWNS
mount_overlay("/opt", "/opt")
print("mounted", flush=True)
input()
""", until="mounted")
        process = self.start_script(f"/proc/{other.pid}/root{GENUINE_PYTHON}", "print(was_hung_up(connect()))")
        self.assertEqual(self.assert_succeeds(process), "True\n")

    def test_a_framework(self):
        # The framework is signed and appears to belong to root, but the user who serves it can change it at any time.
        bundle, executable = copy_bundle("Copy.app")
        framework = bundle / FRAMEWORKS[0]
        FuseServer(framework.parent, framework.name, framework.read_bytes(), ",allow_other")
        self.addCleanup(run, "umount", "-l", framework.parent)
        self.assertEqual(self.brimo("version", executable=executable)[:2], (3, ""))
        self.assertIn("[Helper] Client validation status: -67050", self.log())

    def test_the_home_folder_of_an_application_that_is_launched_again(self):
        server, folder = self.serve()
        self.command(server, "hangs")
        clients = self.genuine("""
for _ in range(70):
    if os.fork() == 0:
        connection = connect_greeted()
        connection.sendall(frame(1, {"json": b'{"command": "defunct-restart"}'}))
        receive_frame(connection)
    os.wait()
""", env=harness.ENVIRONMENT | {"HOME": f"{folder}/home", "PYTHONNOUSERSITE": "1"})
        self.assert_succeeds(clients)
        failures = lambda: [line.rpartition("application: ")[2] for line in self.log() if "Failed to launch" in line]
        wait_until(lambda: len(failures()) >= 70 - 8, "the helper waits for no more than eight launches", 6 * DEADLINE)
        # The probe needs one of the worker threads that all requests share.
        self.assertEqual(self.brimo("dhcp-discover", "none")[0], 1)
        self.assertLess(len(os.listdir(f"/proc/{self.helper.pid}/task")), 20)
        wait_until(lambda: len(failures()) == 70, "the helper gives these launches up", 6 * DEADLINE)
        self.assertEqual(set(failures()), {"too many launches for this user are under way", "chdir: Connection timed out"})
