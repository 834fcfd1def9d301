"""Brimo, the command-line client, and its look-ups of real sockets."""

import json
import os
import pty
import select
import signal
import socket
import subprocess

import harness
from harness import BRIMO, HelperTest, PYTHON, USER, read_line, run_as_user, stored, wait_until

SERVER = """
import socket
server = socket.create_server(("", 0), family=socket.AF_INET6, dualstack_ipv6=True)
print(server.getsockname()[1], flush=True)
connection = server.accept()
server.close()
print("accepted", flush=True)
input()
"""


class Lookup(HelperTest):
    def owner(self, protocol, *addresses):
        code, out, err = self.brimo("--json", "process-lookup", protocol, *addresses)
        self.assertEqual(err, "")
        self.assertEqual(code, 0 if "pid" in json.loads(out) else 4)
        return json.loads(out)

    def test_both_ends_of_a_connection(self):
        process = self.start_program([PYTHON, "-c", SERVER], user=2000)
        port = int(read_line(process))
        for address in ("127.0.0.1", "0.0.0.0", "[::1]", "[2001:db8::1]"):
            expected = {"pid": process.pid, "path": os.path.realpath(PYTHON)}
            self.assertEqual(self.owner("tcp", f"{address}:{port}"), expected, address)
        self.assertEqual(self.owner("udp", f"127.0.0.1:{port}"), {})
        client = socket.create_connection(("127.0.0.1", port))
        own_port = client.getsockname()[1]
        self.assertEqual(read_line(process), "accepted")
        self.assertEqual(self.owner("tcp", f"127.0.0.1:{port}")["pid"], process.pid)
        self.assertEqual(self.owner("tcp", f"127.0.0.1:{own_port}")["pid"], os.getpid())
        client.close()
        process.communicate("\n")
        self.assertEqual(self.owner("tcp", f"127.0.0.1:{own_port}"), {})  # a socket in TIME_WAIT has no owner

    def test_the_other_end_tells_sockets_on_one_port_apart(self):
        servers = [socket.create_server(("127.0.0.1", 0)) for _ in range(2)]
        ends = [socket.socket() for _ in servers]
        local = ("127.0.0.1", 0)
        for end, server in zip(ends, servers):
            end.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
            end.bind(local)
            local = end.getsockname()
            end.connect(server.getsockname())
        heir = self.start_program(["cat"], pass_fds=[ends[1].fileno()])
        ends.pop().close()
        for server, pid in zip(servers, (os.getpid(), heir.pid)):
            self.assertEqual(self.owner("tcp", *("%s:%d" % address for address in (local, server.getsockname())))["pid"], pid)

    def test_other_network_namespaces_are_ignored(self):
        server = "import socket; held = socket.create_server(('', 5555)); print('listens', flush=True); input()"
        self.start_program(["unshare", "--net", PYTHON, "-c", server], user=0, until="listens")
        self.assertEqual(self.owner("tcp", "127.0.0.1:5555"), {})


class CommandLine(HelperTest):
    def test_answers_and_exit_codes(self):
        self.assertEqual(self.brimo("--json", "version"), (0, '{"version":618}\n', ""))
        self.assertEqual(self.brimo("--version"), (0, "Brimo 618\n", ""))
        self.assertEqual(self.brimo("--json", "--version"), (0, '{"version":618}\n', ""))
        self.assertEqual(self.brimo("stop-watchdog"), (0, "done\n", ""))
        self.assertEqual(self.brimo("process-lookup", "tcp", "localhost:1"), (4, "no process owns localhost:1\n", ""))
        self.assertEqual(self.brimo("json", '{"command": "version"}'), (0, '{"version":618}\n', ""))
        self.assertEqual(self.brimo("json", '{"command": "Version"}'), (1, '{"error":"unknown command"}\n', ""))
        self.assertEqual(self.brimo("--json", "json", '{"command": "x"}'), (1, '{"error":"unknown command"}\n', ""))
        self.assertEqual(self.brimo("spindump", "/tmp/dump of it"), (1, "", "Brimo: No such file or directory\n"))
        self.assertIn("usage: Brimo set-proxy SERVICE", self.brimo("help", "set-proxy")[1])
        for arguments in (["nonsense"], ["version", "x"], ["process-lookup", "sctp", "1.1.1.1:1"], ["start-watchdog"],
                          ["process-lookup", "udp", "127.0.0.1:1", "[::1]:1"], ["--nonsense"], ["help", "nonsense"],
                          ["set-proxy", "eth0", "http=a b:1"],
                          ["set-static-ip", "eth0", "1.2.3.4", "255.0.255.0", "1.2.3.1"], ["set-static-ip", "eth0", "1.2.3.4"]):
            code, out, err = self.brimo(*arguments)
            self.assertEqual((code, out), (2, ""), arguments)
            self.assertRegex(err, "^Brimo: .+\n$")
            code, out, err = self.brimo("--json", *arguments)
            self.assertEqual((code, list(json.loads(out)), err), (2, ["error"], ""), arguments)
        with open("/dev/full", "w") as full:
            process = subprocess.run([BRIMO, "version"], stdout=full, stderr=subprocess.PIPE, text=True)
        self.assertEqual((process.returncode, process.stderr), (1, "Brimo: cannot write the answer\n"))

    def test_temporary_proxies_last_until_the_interrupt(self):
        process = self.start_program([BRIMO, "set-proxy", "id", "--force", "http=192.0.2.1:1", "temporary"], until="done")
        self.assertIn("until this program is interrupted", process.stderr.readline())
        self.assertTrue(stored()["id"]["Proxies"])
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.wait(), 0)
        wait_until(lambda: not stored()["id"]["Proxies"], "the proxies are off")

    def test_lines_share_one_connection_and_outlive_errors(self):
        process = run_as_user([BRIMO])
        out, err = process.communicate('version # of the helper\n\nnonsense\n"process-lookup" tcp \'127.0.0.1:1\'\n'
                                       'json {"command": "start-watchdog"}\n"version\nversion\n',
                                       timeout=harness.DEADLINE)
        self.assertEqual(out, 'helper build 618\nno process owns 127.0.0.1:1\n{"result":"success"}\nhelper build 618\n')
        self.assertEqual((process.returncode, err), (2, 'Brimo: there is no command "nonsense"; "help" lists them\n'
                                                        'Brimo: missing closing "\n'))
        self.assertEqual(len([line for line in self.log() if "New connection" in line]), 1)
        self.assertEqual(len([line for line in self.log() if "validation" in line]), 1)

    def test_a_terminal_completes_commands(self):
        terminal, other = pty.openpty()
        process = subprocess.Popen([BRIMO], stdin=other, stdout=other, stderr=other, user=USER, group=USER, extra_groups=(),
                                   # libedit never frees the names of added functions.
                                   env=harness.ENVIRONMENT | {"TERM": "xterm", "ASAN_OPTIONS": "detect_leaks=0"},
                                   start_new_session=True)
        self.addCleanup(self._end_process, process)
        seen = b""

        def read_until(text):
            nonlocal seen
            while text not in seen:
                self.assertTrue(select.select([terminal], [], [], harness.DEADLINE)[0], seen)
                seen += os.read(terminal, 1000)

        read_until(b"brimo> ")  # from here on, libedit controls the terminal
        os.write(terminal, b"versi\t\n")
        read_until(b"helper build 618")
        os.write(terminal, b"quit\n")
        self.assertEqual(process.wait(harness.DEADLINE), 0)

    def test_stop_and_the_absence_of_a_helper(self):
        session = self.start_program([BRIMO])
        print("stop", file=session.stdin, flush=True)
        self.assertEqual(read_line(session), "done")
        self.assertEqual(self.helper.wait(), 0)
        self.assertEqual(self.brimo("version"),
                         (3, "", f"Brimo: cannot reach the helper at {harness.ENDPOINT}: Connection refused\n"))
        self.helper = harness.Helper()  # a new helper for the same session
        print("version", file=session.stdin, flush=True)
        self.assertEqual(read_line(session), "helper build 618")
