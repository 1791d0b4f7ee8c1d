"""One running guest: boots it or continues its saved state, runs commands in it, plugs things in and pulls them out."""
import base64
import contextlib
import functools
import itertools
import json
import os
import pathlib
import queue
import shutil
import signal
import socket
import subprocess
import tempfile
import threading
import time
import uuid

HEADS = 2  # of the graphics card

# The guests of this process, and whether there may be more: what begins a guest and what ends all take the lock.
ALIVE = set()
ALIVE_LOCK = threading.Lock()
HAS_ENDED = threading.Event()


class GuestError(Exception):
    """What was expected of the guest did not happen; the text says what."""


def end_all():
    """Ends every guest of this process, which has none from then on."""
    with ALIVE_LOCK:
        HAS_ENDED.set()
        guests = list(ALIVE)
    for guest in guests:
        guest.close()


@functools.cache
def accelerator():
    """Hardware virtualisation where it works, else emulation; KVM's device is there in places where it does not."""
    flags = pathlib.Path("/proc/cpuinfo").read_text()
    if (" vmx" in flags or " svm" in flags) and os.access("/dev/kvm", os.R_OK | os.W_OK):
        return "kvm"
    return "tcg,thread=multi"


def patience(seconds):
    """How long to wait for what takes so long at most on an idle machine with hardware virtualisation. It costs nothing where it comes."""
    return seconds if accelerator() == "kvm" else 3 * seconds


def processor():
    """The guest's processors, and what its kernel is told of them. Emulated, one costs a fifth less than two, and a program whose code lies
    at the same place each time is translated once, not at each start."""
    if accelerator() == "kvm":
        return ["-cpu", "host", "-smp", "2"], ""
    return ["-cpu", "max", "-smp", "1"], "norandmaps mitigations=off"


def emulator(machine, product, log="", folder="", extra=(), init=None, append=""):
    """The command of a guest whose sockets are in that folder. All guests have the same hardware but for `extra`: a saved state can only be
    continued on what it was saved on. Lines and screens are there whether or not anybody is at their other end."""
    arguments, words = processor()
    words = f"console=ttyS0 quiet panic=-1 {words} {'acceptance.init=' + init if init else ''} {append}"
    command = ["qemu-system-x86_64", "-accel", accelerator(), "-machine", "pc", *arguments, "-m", "1024",
               "-nodefaults", "-no-user-config", "-display", "none", "-no-reboot", "-vga", "none", "-rtc", "base=utc,clock=vm",
               "-kernel", f"{machine}/vmlinuz", "-initrd", f"{machine}/initrd", "-append", words,
               "-chardev", f"file,id=console,path={log},append=on", "-serial", "chardev:console",
               "-chardev", f"socket,id=line,path={folder}/line,server=on,wait=off", "-serial", "chardev:line",
               "-drive", f"file={machine}/root.squashfs,format=raw,if=none,id=root,readonly=on,file.locking=off", "-device", "virtio-blk-pci,drive=root",
               "-drive", f"file={product},format=raw,if=none,id=product,readonly=on,file.locking=off", "-device", "virtio-blk-pci,drive=product",
               "-device", "virtio-serial-pci", "-chardev", f"socket,id=agent,path={folder}/agent,server=on,wait=off",
               "-device", "virtserialport,chardev=agent,name=agent",
               "-qmp", f"unix:{folder}/qmp,server=on,wait=off",
               "-device", "qemu-xhci,id=xhci,p2=8,p3=8",
               "-netdev", "user,id=n0,restrict=on", "-device", "virtio-net-pci,netdev=n0,id=nic0,mac=52:54:00:00:00:01,romfile=",
               "-device", f"virtio-gpu-pci,id=gpu0,max_outputs={HEADS},edid=on,xres=1920,yres=1080",
               # Tells the kernel that its state has been continued, so that it does not draw the same random numbers again.
               "-device", "vmgenid,guid=auto"]
    for head in range(HEADS):
        command += ["-vnc", f"unix:{folder}/screen{head},display=gpu0,head={head},id=screen{head}"]
    return [*command, *extra]


class Process:
    """A command that runs in the guest while the scenario goes on; its lines come with the host's time of arrival."""

    def __init__(self, guest, ident, command):
        self.guest, self.ident, self.command = guest, ident, command
        self.lines, self.seen, self.status = queue.Queue(), [], None

    def line(self, within):
        """The next line, or None once the command has ended. GuestError when there is none in time."""
        try:
            item = self.lines.get(timeout=max(0.0, within))
        except queue.Empty:
            raise GuestError(f"{self.command}: silent for {within:.0f} s; before: {[t for _, t in self.seen[-5:]]}") from None
        if item is None:
            self.lines.put(None)
            return None
        self.seen.append(item)
        return item

    def expect(self, fits, within=20.0, what=None):
        """The first of the lines to come that fits, as (time, line)."""
        within = patience(within)
        end = time.monotonic() + within
        passed = len(self.seen)
        while True:
            try:
                item = self.line(end - time.monotonic())
            except GuestError:
                item = None
            if item is None:
                came = [text[:160] for _, text in self.seen[passed:]][-6:]
                raise GuestError(f"{self.command}: no {what or 'such line'} within {within:.0f} s; what came: {came or 'nothing'}")
            if fits(item[1]):
                return item

    def none(self, fits, during, what=None):
        """Fails when a line comes that fits."""
        end = time.monotonic() + during
        while time.monotonic() < end:
            try:
                item = self.lines.get(timeout=max(0.01, end - time.monotonic()))
            except queue.Empty:
                return
            if item is None:
                self.lines.put(None)
                return
            self.seen.append(item)
            if fits(item[1]):
                raise GuestError(f"{self.command}: {what or 'a line'} that should not come: {item[1][:200]}")

    def feed(self, text):
        self.guest.send(id=self.ident, feed=text)

    def signal(self, number):
        self.guest.send(id=self.ident, signal=number)

    def wait(self, within=20.0):
        end = time.monotonic() + patience(within)
        while self.line(end - time.monotonic()) is not None:
            pass
        return self.status

    def stop(self):
        """SIGTERM; the exit status."""
        if self.status is None:
            self.signal(15)
        return self.wait()


class Picture(Process):
    """`vorel --watch --json`: its events, as objects."""

    def event(self, name, within=20.0, **facts):
        """The first event of that name whose adapter or binding has these facts, as (time, event). A fact is a value or a function."""
        found = {}

        def fits(line):
            try:
                event = json.loads(line)
            except ValueError:
                return False
            about = event.get("adapter") or event.get("binding") or {}
            if event.get("event") != name or not all(f(about.get(k)) if callable(f) else about.get(k) == f for k, f in facts.items()):
                return False
            found.update(event)
            return True

        at, _ = self.expect(fits, within, f"{name} {facts if facts else ''}".strip())
        return at, found


class Guest:
    """Use as a context: leaving it ends the guest."""

    def __init__(self, machine, product, log, state=None, **options):
        self.folder = pathlib.Path(tempfile.gettempdir()) / f"vorel-guest.{os.urandom(6).hex()}"
        self.log, self.calls, self.numbers = log, {}, itertools.count(1)
        self.pending_ready = threading.Event()
        self.plugged = itertools.count(1)
        self.events = []
        self.processor_seconds, self.closing = 0.0, threading.Lock()
        command = emulator(machine, product, log, self.folder, **options)
        if state:
            command += ["-incoming", f"exec:cat {state}"]
        self.began = time.monotonic()
        with ALIVE_LOCK:
            if HAS_ENDED.is_set():
                raise GuestError("the run has been interrupted")
            self.folder.mkdir(mode=0o700)
            self.messages = open(self.folder / "qemu.log", "w+")
            self.process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=self.messages, stderr=self.messages, start_new_session=True)
            ALIVE.add(self)
        try:
            self.agent = self.connect("agent")
            self.monitor = self.connect("qmp").makefile("rw")
            self.monitor_lock = threading.Lock()
            json.loads(self.monitor.readline())
            self.qmp("qmp_capabilities")
            self.write_lock = threading.Lock()
            threading.Thread(target=self.listen, daemon=True).start()
            if state:
                self.until(lambda: self.qmp("query-status")["status"] in ("running", "paused"), 60, "the saved state to be there")
                self.qmp("cont")
                self.start_anew()
            elif not self.pending_ready.wait(patience(80)):
                raise GuestError("the guest did not come up: " + self.console()[-1500:])
            self.boot_seconds = time.monotonic() - self.began
        except BaseException:
            self.close()
            raise

    def start_anew(self):
        """What a state that is continued lacks of a machine that has just been started: the time, and a start with a name of its own."""
        self.run(f"date -u -s @{time.time():.3f} > /dev/null && echo {uuid.uuid4()} > /run/boot_id && "
                 "mount --bind /run/boot_id /proc/sys/kernel/random/boot_id")

    # ---- Connections

    def connect(self, name):
        for _ in range(800):
            if self.process.poll() is not None:
                self.messages.seek(0)
                raise GuestError(f"the emulator has ended ({self.process.returncode}): {self.messages.read()[-800:]}")
            connection = socket.socket(socket.AF_UNIX)
            try:
                connection.connect(str(self.folder / name))
                return connection
            except OSError:
                connection.close()
                time.sleep(0.025)
        raise GuestError("the emulator does not answer")

    def console(self):
        return pathlib.Path(self.log).read_text(errors="replace")

    def send(self, **message):
        with self.write_lock:
            self.agent.sendall(json.dumps(message).encode() + b"\n")

    def listen(self):
        try:
            for line in self.agent.makefile("rb"):
                now = time.monotonic()
                message = json.loads(line)
                if "ready" in message:
                    self.pending_ready.set()
                    continue
                target = self.calls.get(message.get("id"))
                if isinstance(target, Process):
                    if "line" in message:
                        target.lines.put((now, message["line"]))
                    else:
                        target.status = message["rc"]
                        target.lines.put(None)
                elif target:
                    target.put(message)
        except (OSError, ValueError) as error:
            if self.process.poll() is None:
                self.events.append(("connection lost", str(error)))
        for target in list(self.calls.values()):  # whoever waits is told
            if isinstance(target, Process):
                target.lines.put(None)
            else:
                target.put({"rc": -1, "out": "the guest has gone"})

    def call(self, within, **message):
        ident, within = next(self.numbers), patience(within)
        answer = self.calls[ident] = queue.Queue()
        self.send(id=ident, **message)
        try:
            return answer.get(timeout=within)
        except queue.Empty:
            raise GuestError(f"no answer within {within:.0f} s to {str(message.get('run', message))[:200]!r}") from None
        finally:
            self.calls.pop(ident, None)

    # ---- Commands

    def run(self, command, within=60.0, status=None):
        """Its output. GuestError for another status than 0, or than the one that is given; -1 takes any."""
        answer = self.call(within, run=command)
        if status != -1 and answer["rc"] != (status or 0):
            raise GuestError(f"{command!r} ended with {answer['rc']}: {answer['out'][-1500:]}")
        return answer["out"]

    def start(self, command, kind=Process):
        ident = next(self.numbers)
        process = self.calls[ident] = kind(self, ident, command)
        self.send(id=ident, start=command)
        return process

    def picture(self, options="", profile="/tmp/profile", environment=""):
        """`vorel --watch --json` from the moment at which it has shown its first picture; that picture is in `.first`."""
        watch = self.start(f"exec env {environment} vorel --profile {profile} --watch --json {options}", Picture)
        _, line = watch.expect(lambda text: text.startswith("{") and '"adapters"' in text, 60, "picture")
        watch.first = json.loads(line)
        return watch

    def put(self, path, text, mode=0o644):
        data = base64.b64encode(text.encode() if isinstance(text, str) else text).decode()
        self.call(30, put=path, data=data, mode=mode)

    def bring(self, source, path, mode=0o755):
        """A file of any size, by a disk that holds it; with some more zeros at its end."""
        name, device = self.plug_disk(source, read_only=True)
        self.run(f"cat {device} > {path} && chmod {mode:o} {path}", 120)
        self.unplug(name)

    def until(self, holds, within=20.0, what="it"):
        """Waits for a condition; the seconds that it took."""
        within = patience(within)
        began = time.monotonic()
        asked = began
        while not holds():
            now = time.monotonic()
            if now - began > within:
                raise GuestError(f"waited {within:.0f} s for {what}")
            # Whoever asks takes half of an emulated processor at most from what is waited for.
            time.sleep(max(0.03, now - asked))
            asked = time.monotonic()
        return time.monotonic() - began

    def succeeds(self, command):
        return self.call(60, run=command)["rc"] == 0

    # ---- The emulator

    def qmp(self, command, **arguments):
        with self.monitor_lock:
            self.monitor.write(json.dumps({"execute": command, "arguments": arguments}) + "\n")
            self.monitor.flush()
            while True:
                line = self.monitor.readline()
                if not line:
                    raise GuestError("the emulator has ended")
                answer = json.loads(line)
                if "event" in answer:
                    self.events.append((answer["event"], answer.get("data")))
                elif "error" in answer:
                    raise GuestError(f"{command} {arguments}: {answer['error']['desc']}")
                else:
                    return answer["return"]

    def screen(self, head):
        """The socket of what a head of the graphics card is connected with."""
        return str(self.folder / f"screen{head}")

    def line(self):
        """The socket of the far end of the second serial line."""
        return str(self.folder / "line")

    def plug_disk(self, image, read_only=False):
        """Plugs an image in as a disk; what `unplug` takes, and its device, which is there."""
        name = f"disk{next(self.plugged)}"
        self.qmp("blockdev-add", **{"driver": "raw", "node-name": name, "read-only": read_only,
                                    "file": {"driver": "file", "filename": str(image), "locking": "off"}})
        self.qmp("device_add", driver="virtio-blk-pci", id=name, drive=name, serial=name)
        find = f"file=$(grep -lx {name} /sys/block/vd*/serial) && file=${{file%/serial}} && [ -b /dev/${{file##*/}} ] && echo /dev/${{file##*/}}"
        self.until(lambda: self.succeeds(find), 30, "the disk")
        return name, self.run(find).strip()

    def plug_stick(self, image, driver="usb-storage", bus="xhci.0", **properties):
        """Plugs an image in as a stick; what `unplug` takes, and the time."""
        name = f"stick{next(self.plugged)}"
        throttle = properties.pop("throttle", None)
        node = {"driver": "raw", "node-name": name + "-raw", "file": {"driver": "file", "filename": str(image), "locking": "off"}}
        if throttle:
            self.qmp("object-add", **{"qom-type": "throttle-group", "id": name + "-group", "x-bps-total": throttle})
            node = {"driver": "throttle", "node-name": name + "-raw", "throttle-group": name + "-group", "file": node["file"]}
        self.qmp("blockdev-add", **node)
        at = time.monotonic()
        if driver == "usb-storage":
            properties.setdefault("removable", True)
        self.qmp("device_add", driver=driver, id=name, drive=name + "-raw", bus=bus, **properties)
        return name, at

    def unplug(self, name):
        """Pulls out; the time."""
        at = time.monotonic()
        self.qmp("device_del", id=name)
        return at

    def save(self, path):
        """Writes the guest's state and ends it."""
        self.qmp("stop")
        self.qmp("migrate", uri=f"exec:cat > {path}")
        self.until(lambda: self.qmp("query-migrate").get("status") in ("completed", "failed"), 120, "the state to be saved")
        if self.qmp("query-migrate")["status"] != "completed":
            raise GuestError("the state could not be saved")

    @contextlib.contextmanager
    def frozen(self):
        """The emulator stands still: its files are what a power cut at this moment leaves of them."""
        self.process.send_signal(signal.SIGSTOP)
        os.waitid(os.P_PID, self.process.pid, os.WSTOPPED | os.WEXITED | os.WNOWAIT)  # all its threads
        try:
            yield
        finally:
            self.process.send_signal(signal.SIGCONT)

    def cut_power(self):
        self.close()

    def close(self):
        with self.closing:  # an interrupt and the scenario may both end it
            if self.process.poll() is None:
                spent = pathlib.Path(f"/proc/{self.process.pid}/stat").read_text().rsplit(")", 1)[1].split()[11:13]
                self.processor_seconds = sum(map(int, spent)) / os.sysconf("SC_CLK_TCK")
                self.process.kill()
            self.process.wait()
        ALIVE.discard(self)
        self.messages.close()
        shutil.rmtree(self.folder, ignore_errors=True)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()
