"""A client of the emulator's screens, as far as a person who resizes a window: a size connects a head, 0x0 disconnects it."""
import socket
import struct
import time


class Screen:
    def __init__(self, path):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.connect(path)
        self.socket.settimeout(5)
        self.take(12)
        self.socket.sendall(b"RFB 003.008\n")
        self.take(self.take(1)[0])
        self.socket.sendall(b"\x01")  # no authentication
        if self.take(4) != b"\0\0\0\0":
            raise OSError("the screen refuses the connection")
        self.socket.sendall(b"\x01")  # shared
        head = self.take(24)
        self.size = struct.unpack(">HH", head[:4])
        self.take(struct.unpack(">I", head[20:])[0])
        encodings = [0, -308, -223]  # raw, and both ways in which a size is told
        self.socket.sendall(struct.pack(">BxH", 2, len(encodings)) + b"".join(struct.pack(">i", e) for e in encodings))
        self.ask(0, *self.size)
        time.sleep(0.2)
        self.drain()

    def take(self, count):
        data = b""
        while len(data) < count:
            part = self.socket.recv(count - len(data))
            if not part:
                raise OSError("the screen has gone")
            data += part
        return data

    def ask(self, incremental, width, height):
        self.socket.sendall(struct.pack(">BBHHHH", 3, incremental, 0, 0, width, height))

    def drain(self):
        self.socket.setblocking(False)
        try:
            while self.socket.recv(1 << 20):
                pass
        except BlockingIOError:
            pass
        self.socket.settimeout(5)

    def resize(self, width, height):
        """The time at which the emulator was told."""
        self.drain()
        self.socket.sendall(struct.pack(">BBHHBB", 251, 0, width, height, 1, 0) + struct.pack(">IHHHHI", 0, 0, 0, width, height, 0))
        at = time.monotonic()
        self.ask(1, 16, 16)
        time.sleep(0.1)
        self.drain()
        return at
