"""Runs commands for the host, any number at once, over a virtio port.

One JSON object a line, both ways. From the host:
  {"id": N, "run": "sh command"}      answered by {"id": N, "rc": R, "out": TEXT}
  {"id": N, "start": "sh command"}    answered line by line, {"id": N, "line": TEXT, "at": SECONDS}, then {"id": N, "rc": R}
  {"id": N, "signal": NUMBER}         to the process group of a started command
  {"id": N, "feed": TEXT}             to its standard input; null closes it
  {"put": PATH, "data": BASE64, "mode": NUMBER}
"""
import base64
import json
import os
import selectors
import subprocess
import time

PORT = "/dev/virtio-ports/agent"


def find_port():
    while True:
        if os.path.exists(PORT):
            return PORT
        for name in os.listdir("/sys/class/virtio-ports") if os.path.isdir("/sys/class/virtio-ports") else []:
            if open(f"/sys/class/virtio-ports/{name}/name").read().strip() == "agent":
                return f"/dev/{name}"
        time.sleep(0.05)


class Command:
    def __init__(self, ident, text, streams):
        self.ident, self.streams, self.buffer = ident, streams, b""
        self.process = subprocess.Popen(["/bin/dash", "-c", text], stdin=subprocess.PIPE if streams else subprocess.DEVNULL,
                                        stdout=subprocess.PIPE, stderr=subprocess.STDOUT, start_new_session=True, cwd="/root")
        self.output = self.process.stdout.fileno()
        os.set_blocking(self.output, False)
        # The end of the command itself ends it: what it has left behind may hold its output open.
        self.end = os.pidfd_open(self.process.pid)


class Agent:
    def __init__(self):
        self.port = os.open(find_port(), os.O_RDWR | os.O_CLOEXEC)
        self.selector = selectors.DefaultSelector()
        self.selector.register(self.port, selectors.EVENT_READ, self.hear)
        self.commands, self.pending = {}, []

    def send(self, **message):
        data = json.dumps(message).encode() + b"\n"
        while data:
            data = data[os.write(self.port, data):]

    def hear(self):
        data = os.read(self.port, 65536)
        if not data:  # the host has let go: wait for it without turning
            time.sleep(0.05)
        *lines, rest = data.split(b"\n")
        for line in lines:
            self.obey(json.loads(b"".join([*self.pending, line])))
            self.pending = []
        self.pending.append(rest)

    def obey(self, message):
        ident = message.get("id")
        if "put" in message:
            os.makedirs(os.path.dirname(message["put"]), exist_ok=True)
            with open(message["put"], "wb") as file:
                file.write(base64.b64decode(message["data"]))
            os.chmod(message["put"], message.get("mode", 0o644))
            self.send(id=ident, rc=0)
        elif "run" in message or "start" in message:
            command = self.commands[ident] = Command(ident, message.get("run") or message.get("start"), "start" in message)
            self.selector.register(command.output, selectors.EVENT_READ, lambda: self.read(command))
            self.selector.register(command.end, selectors.EVENT_READ, lambda: self.finish(command))
        elif ident in self.commands:
            process = self.commands[ident].process
            try:
                if "signal" in message:
                    os.killpg(process.pid, message["signal"])
                elif message.get("feed") is None:
                    process.stdin.close()
                else:
                    process.stdin.write(message["feed"].encode())
                    process.stdin.flush()
            except (ProcessLookupError, BrokenPipeError):
                pass  # it has just ended, which its own answer tells

    def read(self, command):
        """Whether there may be more."""
        try:
            data = os.read(command.output, 65536)
        except BlockingIOError:
            return False
        command.buffer += data
        if command.streams:
            *lines, command.buffer = command.buffer.split(b"\n")
            for line in lines:
                self.send(id=command.ident, line=line.decode(errors="replace"), at=time.monotonic())
        if not data and command.output in self.selector.get_map():
            self.selector.unregister(command.output)
        return bool(data)

    def finish(self, command):
        while self.read(command):
            pass
        if command.output in self.selector.get_map():
            self.selector.unregister(command.output)
        self.selector.unregister(command.end)
        os.close(command.end)
        status = command.process.wait()
        command.process.stdout.close()
        rest = command.buffer.decode(errors="replace")
        if command.streams:
            if rest:
                self.send(id=command.ident, line=rest, at=time.monotonic())
            self.send(id=command.ident, rc=status)
        else:
            self.send(id=command.ident, rc=status, out=rest)
        del self.commands[command.ident]

    def serve(self):
        self.send(ready=time.monotonic())
        while True:
            for key, _ in self.selector.select():
                if key.fd in self.selector.get_map():
                    key.data()


Agent().serve()
