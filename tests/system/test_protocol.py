"""Valid and invalid frames, payloads and connections of an admitted client."""

import os
import shutil
import signal
from pathlib import Path

from harness import HelperTest, PYTHON, read_line, wait_until


class Frames(HelperTest):
    def test_malformed_frames_end_the_connection(self):
        self.assert_succeeds(self.genuine("""
good = frame(1, {"command": "x"})
for bad in struct.pack(">I", 0), struct.pack(">I", 16777217), struct.pack(">I", 1) + b"\\xff", good[:4] + b"x" * (len(good) - 4):
    connection = connect_greeted()
    connection.sendall(good + bad)
    assert receive_frame(connection) == [1, {"error": "unknown command"}], bad  # complete frames are handled
    assert was_hung_up(connection), bad
"""))
        wait_until(lambda: self.log().count("[BRHMain] XPC connection closed") == 4, "every connection ends once")

    def test_an_incomplete_frame_and_a_half_closed_connection(self):
        self.assert_succeeds(self.genuine("""
for rest in (b"", frame(3, {"command": "x"})[:-1], b"\\0"):
    connection = connect_greeted()
    connection.sendall(frame(2, {"command": "x"}) + rest)
    connection.shutdown(socket.SHUT_WR)
    assert receive_frame(connection) == [2, {"error": "unknown command"}]
    assert was_hung_up(connection)
"""))
        wait_until(lambda: self.log().count("[BRHMain] XPC connection closed") == 3, "every connection ends once")

    def test_a_message_that_accepts_no_reply_gets_none(self):
        self.assert_succeeds(self.genuine("""
connection = connect_greeted()
connection.sendall(frame(0, {"json": b'{"command":"version"}'}) + frame(2**64 - 1, {"command": "x"}))
assert receive_frame(connection) == [2**64 - 1, {"error": "unknown command"}]
"""))
        self.assertIn("[BRHMain] JSON command does not accept a reply", self.log())

    def test_a_client_that_leaves_its_replies_unread_is_disconnected(self):
        # Each reply contains a path of nearly 4,000 bytes.
        folder = Path("/var/lib")
        while len(str(folder)) < 3800:
            folder /= "x" * 200
            os.mkdir(folder)
        shutil.copy(os.path.realpath(PYTHON), folder / "python")
        self.start_program([folder / "python", "-c", """
import socket
listener = socket.create_server(("127.0.0.1", 4000))
connected = socket.create_connection(("127.0.0.1", 4000), source_address=("127.0.0.1", 4001))
print("bound", flush=True)
input()
"""], until="bound")
        self.assert_succeeds(self.genuine("""
connection = connect_greeted()
request = frame(1, {"command": "process-lookup", "address": socket_address("127.0.0.1", 4001),
                    "remote": socket_address("127.0.0.1", 4000)})
connection.sendall(request)
size = len(frame(*receive_frame(connection)))
assert size > 3800, size
sent = 0
try:
    while sent * size < 2 * 32 * 1024 * 1024:
        connection.sendall(request)
        sent += 1
    raise AssertionError("the helper has not disconnected this client")
except (BrokenPipeError, ConnectionResetError):
    assert sent * size > 32 * 1024 * 1024, sent
"""))
        self.wait_for_log(r"\[BRHMain\] XPC connection closed")

    def flood(self):
        """Starts an admitted client, pauses the helper and sends 4,545 small requests."""
        process = self.genuine("""
connection = connect_admitted()
print("admitted", flush=True)
input()
connection.sendall(frame(0, {"command": "flood"}) * 4545)
print("sent", flush=True)
input()
""", until="admitted")
        self.helper.pause()
        print(file=process.stdin, flush=True)
        self.assert_says(process, "sent")

    def test_a_flood_of_small_requests_does_not_delay_other_clients(self):
        other = self.genuine("""
connection = connect_greeted()
print("greeted", flush=True)
input()
connection.sendall(frame(1, {"command": "other"}))
print("sent", flush=True)
print(receive_frame(connection), flush=True)
""", until="greeted")
        self.flood()
        print(file=other.stdin, flush=True)
        self.assert_says(other, "sent")
        self.helper.go_on()
        read_line(other)
        lines = self.log()
        before = lines[:lines.index("[BRHMain] Received raw command: other")]
        self.assertLess(before.count("[BRHMain] Received raw command: flood"), 500)

    def test_no_request_is_carried_out_after_the_clean_up_at_sigterm(self):
        self.flood()
        self.helper.signal(signal.SIGTERM)
        self.helper.go_on()
        self.assertEqual(self.helper.wait(), 0)
        self.assertEqual(self.log()[-1], "[BRHMain] XPC_ERROR_TERMINATION_IMMINENT")
