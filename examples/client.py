"""A minimal client in Python that uses only the standard library. It implements docs/protocol.md.

The helper answers signed programs only: run this with a Python interpreter that is signed as the application and lies in
its bundle, in place of /usr/bin/python3.
"""
import ipaddress
import json
import socket
import struct
import sys

SERVICE = "com.example.brimo.helper"


def head(major, number):
    """The head of a CBOR item (RFC 8949, section 3)."""
    if number < 24:
        return bytes([major << 5 | number])
    size = next(size for size in (1, 2, 4, 8) if number < 1 << 8 * size)
    return bytes([major << 5 | {1: 24, 2: 25, 4: 26, 8: 27}[size]]) + number.to_bytes(size, "big")


def encode(value):
    if isinstance(value, bool):
        return b"\xf5" if value else b"\xf4"
    if isinstance(value, int):
        return head(0, value) if value >= 0 else head(1, -1 - value)
    if isinstance(value, bytes):
        return head(2, len(value)) + value
    if isinstance(value, str):
        return head(3, len(value.encode())) + value.encode()
    if isinstance(value, list):
        return head(4, len(value)) + b"".join(map(encode, value))
    return head(5, len(value)) + b"".join(encode(key) + encode(value[key]) for key in value)


def decode(data, at=0):
    """Decodes the item at an offset. Returns it and the offset of the next. The helper sends only definite lengths."""
    major, number, at = data[at] >> 5, data[at] & 31, at + 1
    if major == 7:
        return {20: False, 21: True}[number], at
    if number >= 24:
        size = 1 << number - 24
        number, at = int.from_bytes(data[at:at + size], "big"), at + size
    if major < 2:
        return (number if major == 0 else -1 - number), at
    if major < 4:
        piece = data[at:at + number]
        return (piece if major == 2 else piece.decode()), at + number
    items = []
    for _ in range(number * (major - 3)):  # a map of n entries has 2n items
        item, at = decode(data, at)
        items.append(item)
    return (items if major == 4 else dict(zip(items[::2], items[1::2]))), at


class Refused(Exception):
    """The helper refuses this program. The system log has the reason."""


class Helper:
    """A connection to the helper. Use one per application: when any connection ends, the helper undoes all settings."""

    def __init__(self, service=SERVICE, time_limit=10):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.settimeout(time_limit)
        self.socket.connect(f"/run/{service}.socket")
        self.last_id = 0
        self.was_answered = False
        greeting_id, greeting = self.receive()  # the helper sends the first message
        assert (greeting_id, greeting["service"]) == (0, service)
        self.build = greeting["build"]

    def receive_exactly(self, size):
        data = b""
        while len(data) < size:
            try:
                piece = self.socket.recv(size - len(data))
            except ConnectionResetError:
                piece = b""
            if not piece:
                raise ConnectionError("the helper has closed the connection") if self.was_answered else Refused()
            data += piece
        return data

    def receive(self):
        (length,) = struct.unpack(">I", self.receive_exactly(4))
        return decode(self.receive_exactly(length))[0]

    def send(self, request):
        """Sends a request and returns its ID, which the reply repeats."""
        self.last_id += 1
        item = encode([self.last_id, request])
        self.socket.sendall(struct.pack(">I", len(item)) + item)
        return self.last_id

    def ask(self, **request):
        """Sends a raw command and returns the reply."""
        request_id = self.send(request)
        while True:
            reply_id, reply = self.receive()
            self.was_answered = True
            if reply_id == request_id:
                return reply

    def json(self, **command):
        """Sends a JSON command and returns the reply."""
        return json.loads(self.ask(json=json.dumps(command).encode())["json"])


def address(text, port):
    """A socket address in the layout of requests."""
    ip = ipaddress.ip_address(text)
    if ip.version == 4:
        return struct.pack(">BBH4s120x", 16, 2, port, ip.packed)
    scope = socket.if_nametoindex(ip.scope_id) if ip.scope_id else 0
    return struct.pack(">BBHI16s4s100x", 28, 30, port, 0, ip.packed, struct.pack("=I", scope))


if __name__ == "__main__":
    helper = Helper()
    print("helper build", helper.json(command="version")["version"])
    with socket.create_server(("127.0.0.1", 0)) as server:
        owner = helper.ask(command="process-lookup", address=address(*server.getsockname()))
        print("this program is PID", owner["pid"], "at", owner.get("path", "an unknown path"))
    for interface in sys.argv[1:]:
        print("DHCP servers on", interface, helper.json(command="dhcp-discover", interface=interface))
