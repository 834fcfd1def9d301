"""Admission of the signed application, and attacks by other programs."""

import grp
import os
import shutil
import subprocess
from pathlib import Path

import harness
from harness import (BRIMO, FRAMEWORKS, GENUINE_PYTHON, PYTHON, TESTS, USER, HelperTest, copy_bundle, read_line, run, run_as_user,
                     sign, wait_until)

# The end of an attack's script: executes the signed application under the same PID.
BECOME_GENUINE = """
connection.set_inheritable(True)
os.execve(GENUINE_PYTHON, ["Brimo", "-c", "import sys; sys.stdin.read()"], ENVIRONMENT)
"""


def wait_for_image(pid, image):
    wait_until(lambda: os.readlink(f"/proc/{pid}/exe") == str(image), f"{pid} runs {image}")


def replace(executable, content):
    executable.unlink()
    executable.write_bytes(content)
    executable.chmod(0o755)


class ReplacedApplications(HelperTest):
    def test_an_application_replaced_or_removed_while_it_runs_needs_two_valid_files(self):
        script = """
connection = connect_greeted()
print("greeted", flush=True)
input()
connection.sendall(frame(1, {"command": "x"}))
print(was_hung_up(connection))
"""
        for change, hung_up in ((lambda: replace(executable, executable.read_bytes()), False),
                                (lambda: replace(executable, b"not signed"), True), (lambda: shutil.rmtree(bundle), True)):
            bundle, executable = copy_bundle("Copy.app", "/opt/Python.app")
            process = self.start_script(executable, script, until="greeted")
            change()
            self.assertEqual(process.communicate("\n", timeout=harness.DEADLINE), (f"{hung_up}\n", ""))
        statuses = [line.rpartition(" ")[2] for line in self.log() if "validation" in line]
        self.assertEqual(statuses, ["0", "-67050", "-67065"])


class Attacks(HelperTest):
    def test_a_process_that_sends_and_then_becomes_the_application(self):
        self.helper.pause()
        process = self.start_script(PYTHON, """
connection = connect()
connection.sendall(frame(1, {"command": "process-lookup"}))
""" + BECOME_GENUINE)
        wait_for_image(process.pid, GENUINE_PYTHON)
        self.helper.go_on()
        self.wait_for_log(r"\[Helper\] New connection: <connection from PID \d+, user 1000>")
        self.assert_serves_after_attack()

    def test_a_process_that_becomes_the_application_while_its_child_speaks(self):
        self.helper.pause()
        process = self.start_script(PYTHON, """
connection = connect()
if os.fork() == 0:
    assert receive_frame(connection)[0] == 0  # the helper admits the parent
    connection.sendall(frame(1, {"command": "process-lookup"}))
    print(was_hung_up(connection), flush=True)
    os._exit(0)
""" + BECOME_GENUINE)
        wait_for_image(process.pid, GENUINE_PYTHON)
        self.helper.go_on()
        self.assertEqual(read_line(process), "True")
        self.assert_serves_after_attack()

    def test_an_application_that_does_not_wait_for_the_greeting(self):
        self.helper.pause()
        process = self.genuine("""
connection = connect()
connection.sendall(frame(1, {"command": "process-lookup"}))
print("sent", flush=True)
print(was_hung_up(connection), flush=True)
""", until="sent")
        self.helper.go_on()
        self.assert_says(process, "True")
        self.assert_serves_after_attack()

    def test_forged_credentials_from_namespaces_of_its_own(self):
        self.helper.pause()
        # In a user namespace of its own, a process can send any PID of its PID namespace as its credentials. Here it sends
        # that of its parent, which holds the same connection and has become the application.
        process = self.start_script(PYTHON, """
enter_user_namespace(0x20000000)  # CLONE_NEWPID
first = os.fork()
if first:
    print(first, flush=True)
    os.waitpid(first, 0)
connection = connect()
parent = os.getpid()
if os.fork() == 0:
    credentials = struct.pack("iII", parent, 0, 0)
    message = [frame(1, {"command": "process-lookup"})], [(socket.SOL_SOCKET, socket.SCM_CREDENTIALS, credentials)]
    try:
        receive_frame(connection)
        connection.sendmsg(*message)
        print("accepted", flush=True)
    except EOFError:
        pair = socket.socketpair()
        pair[0].sendmsg(*message)  # the kernel permits the forgery
        print("refused", flush=True)
    os._exit(0)
""" + BECOME_GENUINE)
        wait_for_image(int(read_line(process)), GENUINE_PYTHON)
        self.helper.go_on()
        self.assertEqual(read_line(process), "refused")
        self.assert_serves_after_attack()

    def test_the_application_on_an_overlay_of_its_own(self):
        process = self.start_script(PYTHON, """
enter_user_namespace(0x00020000)  # CLONE_NEWNS
mount_overlay("/opt/Python.app", "/opt/Python.app")
os.execve(GENUINE_PYTHON, ["Brimo", "-B", "-c", "from harness import *; print(was_hung_up(connect()))"], ENVIRONMENT)
""")
        self.assertEqual(self.assert_succeeds(process), "True\n")
        self.assert_serves_after_attack()

    def test_descriptors_that_are_passed_are_closed(self):
        self.genuine("""
connection = connect_greeted()
for count in range(20):
    passed = [(socket.SOL_SOCKET, socket.SCM_RIGHTS, struct.pack("250i", *[connection.fileno()] * 250))]
    connection.sendmsg([frame(1, {"command": "x"})], passed)
    assert receive_frame(connection) == [1, {"error": "unknown command"}]
print("done", flush=True)
input()
""", until="done")
        self.assertLess(self.helper.descriptors(), 20)

    def assert_serves_after_attack(self):
        """Checks that the helper serves the next client, and that it has read from no other client."""
        self.assert_serves()
        heard = [line for line in self.log() if "Received" in line or "Client validation" in line]
        self.assertEqual(heard, ["[Helper] Client validation status: 0"] + 2 * ["[BRHMain] Received command: version"])


class AttacksOnOldKernels(Attacks):
    """The same attacks without SO_PEERPIDFD."""

    helper_options = {"old_kernel": True}


class Departures(HelperTest):
    def test_a_client_that_ends_before_its_first_message_is_read(self):
        process = self.genuine("""
connection = connect_greeted()
print("greeted", flush=True)
input()
connection.sendall(frame(1, {"command": "process-lookup"}))
""", until="greeted")
        self.helper.pause()
        process.communicate("\n")
        self.helper.go_on()
        self.wait_for_log(f"\\[Helper\\] Reject connection from PID {process.pid}")
        self.assertIn("[Helper] Client validation status: -67065", self.log())
        self.assertFalse([line for line in self.log() if "Received" in line])

    def test_the_death_of_a_client_is_noticed_while_its_child_keeps_the_connection(self):
        process = self.genuine("""
connection = connect_admitted()
if os.fork() == 0:
    print(was_hung_up(connection), flush=True)
""")
        self.assert_says(process, "True")
        self.wait_for_log(r"\[BRHMain\] XPC connection closed")


class ClientGroup(HelperTest):
    """A helper with the client group "games"."""

    helper_options = {"executable": "BrimoHelperWithClientGroup"}

    def setUp(self):
        super().setUp()
        self.bundle, self.executable = copy_bundle("Setgid.app", "/opt/Python.app")
        shutil.chown(self.executable, 0, "games")
        self.executable.chmod(0o2755)

    def ask(self, executable, user=USER, group=USER, **environment):
        """Runs a signed application. Returns the error in the reply that it receives, or "refused"."""
        script = ("from harness import *; c = connect()\ntry: receive_frame(c); c.sendall(frame(1, {'command': 'x'})); "
                  "print(receive_frame(c)[1]['error'])\nexcept EOFError: print('refused')")
        code, out, err = self.brimo("-B", "-c", script, executable=executable, user=user, group=group,
                                    env=harness.ENVIRONMENT | environment)
        self.assertEqual((code, err), (0, ""))
        return out.strip()

    def assert_serves(self):
        self.assertEqual(self.ask(self.executable), "unknown command")

    def test_only_set_group_id_applications_without_preloaded_code_are_admitted(self):
        self.end_helper()
        system_log = self.listen_to_the_system_log()
        self.helper = harness.Helper(**self.helper_options)
        marker = Path("/tmp/preloaded")
        preload = {"LD_PRELOAD": str(TESTS / "bin/libpreloaded.so"), "PRELOADED": str(marker)}
        # Without the group, preloaded code runs in the genuine application.
        self.assertEqual(self.ask(GENUINE_PYTHON, **preload), "refused")
        self.assertTrue(marker.exists())
        marker.unlink()
        self.assertEqual(self.ask(self.executable, **preload), "unknown command")
        self.assertFalse(marker.exists())
        # After sg(1), the process already has the group, so the executable adds nothing and the loader obeys LD_PRELOAD.
        self.assertEqual(self.ask(self.executable, group="games", **preload), "refused")
        self.assertEqual(self.ask(self.executable, user=0, group="games"), "unknown command")
        wait_until(lambda: any(f"of user {USER}: its executable did not give it the client group "
                               f"{grp.getgrnam('games').gr_gid}: it connected with the group {USER}" in line for line in system_log),
                   "the system log names the reason")


class Reasons(HelperTest):
    def setUp(self):
        super().setUp()
        self.user = 3000
        self.bundle, self.executable = copy_bundle("Copy.app")

    def assert_reason(self, reason, *command):
        """Makes the helper refuse a new user. Expects one line in the system log; check-code-signature agrees with it."""
        self.user += 1
        process = run_as_user(command or [self.executable, "version"], user=self.user)
        self.assertEqual((process.communicate(timeout=harness.DEADLINE)[0], process.returncode), ("", 3))
        refusals = lambda: [line for line in self.system_log if f"of user {self.user}:" in line]
        wait_until(refusals, "the system log has the refusal")
        lines = refusals()
        self.assertEqual(len(lines), 1, lines)
        self.assertRegex(lines[0], rf"Refused PID \d+ of user {self.user}: {reason}")
        if not command:
            self.assertEqual(self.check(self.bundle), (f"would be refused: {lines[0].split(f'user {self.user}: ')[1]}\n", 1))

    def check(self, bundle):
        process = run_as_user([TESTS / "bin/check-code-signature", bundle])
        return process.communicate(timeout=harness.DEADLINE)[0], process.returncode

    def test_helper_info_and_check_code_signature(self):
        executable = TESTS / "bin/BrimoHelperWithClientGroup"
        info = lambda file: subprocess.run([TESTS / "bin/helper-info", file], capture_output=True, text=True)
        for part in ("build               618\n", "team                BRIMO00618\n", "client group        games\n"):
            self.assertIn(part, info(executable).stdout)
        fingerprint = run("openssl", "x509", "-in", TESTS / "certificates/root.pem", "-noout", "-fingerprint", "-sha256")
        self.assertIn(f"its SHA-256         {fingerprint.strip().split('=')[1].replace(':', '').lower()}", info(executable).stdout)
        for file in (BRIMO, "/opt", "/nothing", "/dev/null"):
            self.assertEqual((info(file).returncode, info(file).stdout), (1, ""))
            self.assertRegex(info(file).stderr, "^brimo-helper-info: .+\n$")
        self.assertEqual(self.check(self.bundle), (f"{self.executable} would be admitted\n", 0))
        self.executable.chmod(0o700)
        for unknown in (self.bundle, "/nothing", "/opt/tests"):
            self.assertEqual(self.check(unknown), ("", 2))

    def test_only_the_system_log_has_the_reason(self):
        self.end_helper()
        self.system_log = self.listen_to_the_system_log()
        self.helper = harness.Helper()
        # The other team's leaf certificate is issued by the trusted intermediate certificate.
        team, trusted = Path("/opt/other-team"), TESTS / "certificates"
        for folder, name in ((team, "WRONG00000"), ("/opt/other-anchor", "BRIMO00618")):
            run(TESTS / "tools/make-development-certificates", folder, name)
        shutil.copy(trusted / "intermediate.pem", team)
        run("sh", "-c", "openssl req -new -key leaf.key -subj /CN=x/OU=WRONG00000 -out r && "
            "echo 1.2.840.113635.100.6.1.13=ASN1:NULL >e && openssl x509 -req -in r -CA intermediate.pem "
            f"-CAkey {trusted}/intermediate.key -set_serial 5 -days 9 -extfile e -out leaf.pem", cwd=team)
        signed = self.executable.read_bytes()
        replace(self.executable, signed[:-1])
        self.assert_reason(f"{self.executable} has no signature")
        replace(self.executable, signed[:15] + b"x" + signed[16:])  # in the ELF header's padding, so that it still runs
        self.assert_reason(f"{self.executable} has been changed since it was signed")
        sign(self.executable, certificates=Path("/opt/other-anchor"))
        self.assert_reason(f'{self.executable} is signed by "CN = .*", under another root than the one trusted here')
        sign(self.executable, certificates=team)
        self.assert_reason(f'{self.executable} is signed as "com.example.brimo" by "CN = x, OU = WRONG00000", which does not satisfy: ')
        sign(self.executable, identifier="com.example.other")
        self.assert_reason(f'{self.executable} is signed as "com.example.other" by ".*OU = BRIMO00618", which does not satisfy: ')
        sign(self.executable)
        os.chown(self.bundle, USER, 0)
        self.assert_reason(f"{self.bundle} may be changed by its owner, user {USER}")
        os.chown(self.bundle, 0, 0)
        self.executable.parent.chmod(0o757)
        self.assert_reason(f"{self.executable.parent} may be changed by everybody")
        self.executable.parent.chmod(0o755)
        self.assert_reason("it runs in user or PID namespaces of its own", "unshare", "--user", self.executable, "version")
        # The helper has greeted none of them, so it has read none of their data.
        self.assertEqual(harness.LOG.read_text().count("Client validation"), 1)
        (self.bundle / FRAMEWORKS[1]).write_text("unsigned")
        self.assert_reason(f"{self.bundle}/{FRAMEWORKS[1]} has no signature")
        for user, script, reason in (
            (USER, "connections = [connect_greeted() for _ in range(64)]\nassert was_hung_up(connect())",
             "there are too many connections: 64 of this user"),
            (4001, "connection = connect()\nconnection.sendall(b'x')", "it sent data before the greeting"),
            (4002, "for _ in range(1000): connect().close()", "this user connects too often"),
        ):
            if user != USER:
                self.helper.pause()
            process = self.genuine(script + "\nprint('done', flush=True)\ninput()", user=user)
            self.assertEqual(read_line(process), "done")
            self.helper.go_on()
            wait_until(lambda: any(f"of user {user}: {reason}" in line for line in self.system_log), f"the log says {reason}")
        self.assertNotIn("Refused", harness.LOG.read_text())
        # The log does not mention connections that are refused for their number. The helper accepts another client after them.
        self.assertEqual(self.brimo("version", user=4003)[0], 0)
        self.assertLess(harness.LOG.read_text().count("New connection"), 1000)
