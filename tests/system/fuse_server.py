"""A file system that a user serves (fuse(4)): a folder with one file, both of which appear to belong to root."""

import errno
import os
import struct
import threading

from harness import mount

ROOT, FILE = 1, 2  # node numbers
FORGET, INTERRUPT, BATCH_FORGET = 2, 36, 42  # requests without an answer
LOOKUP, GETATTR, OPEN, READ, STATFS, INIT, OPENDIR, READDIR = 1, 3, 14, 15, 17, 26, 27, 28
# The answers that are always the same. The kernel caches nothing, so that each access asks again.
FIXED = {INIT: struct.pack("=IIIIHHIIHHII24x", 7, 31, 1 << 17, 0, 16, 12, 1 << 17, 1, 0, 0, 0, 0), OPEN: bytes(16),
         STATFS: struct.pack("=5Q3I28x", 0, 0, 0, 0, 0, 4096, 255, 4096), OPENDIR: bytes(16), READDIR: b""}


class FuseServer:
    """Mounts a folder and serves it on a thread. Once `hangs` is set, every access waits for ever."""

    def __init__(self, folder, name, content, options=""):
        self.name, self.content, self.hangs = os.fsencode(name) + b"\0", content, False
        os.makedirs(folder, exist_ok=True)
        self.device = os.open("/dev/fuse", os.O_RDWR)
        mount("fuse", folder, f"fd={self.device},rootmode=40755,user_id=0,group_id=0{options}")
        threading.Thread(target=self._serve, daemon=True).start()

    def _serve(self):
        while True:
            try:
                request = os.read(self.device, 1 << 18)
            except OSError:  # unmounted
                return
            operation, unique, node = struct.unpack_from("=4xIQQ", request)
            if operation in (FORGET, INTERRUPT, BATCH_FORGET) or self.hangs and operation in (LOOKUP, GETATTR, OPEN):
                continue
            answer = self._answer(operation, node, request[40:])
            error = -answer if isinstance(answer, int) else 0
            data = answer if isinstance(answer, bytes) else b""
            os.write(self.device, struct.pack("=IiQ", 16 + len(data), error, unique) + data)

    def _answer(self, operation, node, body):
        """The answer to a request, or an error."""
        if operation == LOOKUP:
            if body != self.name:
                return errno.ENOENT
            return struct.pack("=QQQQII", FILE, 0, 0, 0, 0, 0) + self._attributes(FILE)
        if operation == GETATTR:
            return struct.pack("=QII", 0, 0, 0) + self._attributes(node)
        if operation == READ:
            offset, size = struct.unpack_from("=8xQI", body)
            return self.content[offset:offset + size]
        return FIXED.get(operation, errno.ENOSYS)

    def _attributes(self, node):
        mode, size = (0o40755, 0) if node == ROOT else (0o100755, len(self.content))
        return struct.pack("=6Q10I", node, size, (size + 511) // 512, 0, 0, 0, 0, 0, 0, mode, 1, 0, 0, 0, 4096, 0)


# The script of a user who serves "/var/lib/overlay/x (deleted)" through an overlay in a mount namespace.
SERVE_UNDER_OVERLAY = """
from fuse_server import FuseServer
enter_user_namespace(0x00020000)  # CLONE_NEWNS
content = GENUINE_PYTHON.read_bytes()
mount("tmpfs", "/var/lib")
server = FuseServer("/var/lib/served", "x (deleted)", content)
os.mkdir("/var/lib/empty")
os.mkdir("/var/lib/overlay")
mount("overlay", "/var/lib/overlay", "lowerdir=/var/lib/served:/var/lib/empty")
print("mounted", flush=True)
input()
server.hangs = True
print("hangs", flush=True)
input()
"""
