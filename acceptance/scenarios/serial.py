"""Serial lines of three real drivers: a 16550, USB adapters, and a pair joined by a null modem."""
import json
import socket
import time

from machine.scenario import scenario

# Tells each change of what it hears, a line of JSON each: lines, bytes, the end.
LISTENER = """
const { interfaces } = Components;
const [name, bits, parity] = arguments;
const port = Array.from(systemManager.getAdaptersByIId(interfaces.nsISystemAdapterSerial)).find((p) => p.sysPath === name);
const known = {};
const say = (what) => console.log(JSON.stringify(what));
const line = (key) => (state) => { if (known[key] !== state) say({ [key]: known[key] = state }); };
port.mode = 2;
port.setParameters(3, 9600, Number(bits), Number(parity), 0, 0);
port.addListener({ onCTS: line("cts"), onDSR: line("dsr"), onDCD: line("dcd"), onRING: line("ring"),
  onData(stream) { const count = stream.available(); say({ bytes: Array.from(input.readBytes(count), (c) => c.charCodeAt(0)) }); } });
port.open();
const input = port.inputStream.QueryInterface(interfaces.nsIBinaryInputStream);
const output = port.outputStream.QueryInterface(interfaces.nsIBinaryOutputStream);
const main = Components.classes["@mozilla.org/thread-manager;1"].getService(interfaces.nsIThreadManager).mainThread;
input.QueryInterface(interfaces.nsIAsyncInputStream).asyncWait({ onInputStreamReady() {
  let closed = "no"; try { input.available(); } catch (error) { closed = error.name; }
  say({ gone: closed });
  port.close();
  try { port.open(); say({ opened: true }); } catch (error) { say({ opened: error.name }); }
} }, interfaces.nsIAsyncInputStream.WAIT_CLOSURE_ONLY, 0, main);
say({ open: port.sysPath });
"""

# The peer at the other end, command by command on standard input.
PEER = """
import fcntl, os, struct, sys, termios, tty
fd = os.open(sys.argv[1], os.O_RDWR | os.O_NOCTTY | os.O_NONBLOCK)
tty.setraw(fd)
state = termios.tcgetattr(fd)
state[2] = (state[2] & ~(termios.CSIZE | termios.PARENB)) | {"7": termios.CS7, "8": termios.CS8}[sys.argv[2]] | termios.CLOCAL
state[4] = state[5] = termios.B9600
termios.tcsetattr(fd, termios.TCSANOW, state)
BITS = {"rts": 0x4, "dtr": 0x2, "out1": 0x2000}
print("ready", flush=True)
for line in sys.stdin:
    word, *rest = line.split()
    if word in ("set", "clear"):
        fcntl.ioctl(fd, 0x5416 if word == "set" else 0x5417, struct.pack("i", BITS[rest[0]]))
    elif word == "break":
        fcntl.ioctl(fd, 0x5427); fcntl.ioctl(fd, 0x5428)
    elif word == "parity":
        state[2] |= termios.PARENB; termios.tcsetattr(fd, termios.TCSANOW, state)
    elif word == "say":
        os.write(fd, bytes.fromhex(rest[0]))
    print("done", flush=True)
"""


def ports(guest):
    return json.loads(guest.run("vorel serial --json"))


class Line:
    """The far end of an emulated port."""

    def __init__(self, path):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.connect(path)
        self.socket.settimeout(20)

    def hear(self, count):
        heard = b""
        while len(heard) < count:
            part = self.socket.recv(65536)
            assert part, f"the line ended after {len(heard)} of {count} bytes"
            heard += part
        return heard


@scenario("A 16550: listed, and bytes go both ways through a pipe")
def serial_16550(trial):
    guest = trial.guest()
    line = Line(guest.line())
    listed = {p["name"]: p for p in ports(guest)}
    assert list(listed) == ["COM1", "COM2"], f"a line without hardware behind it is no port: {list(listed)}"
    assert listed["COM2"]["device"] == "/dev/ttyS1" and listed["COM2"]["driver"] == "serial", listed
    # Every byte, told to the far end and echoed by it.
    guest.put("/run/bytes", bytes(range(256)) * 8)
    program = guest.start("vorel serial COM2 --baud 115200 --wait 3000 < /run/bytes > /run/echo; echo ended $?")
    at = time.monotonic()
    heard = line.hear(2048)
    trial.time("2,048 bytes out", at, time.monotonic())
    assert heard == bytes(range(256)) * 8, "bytes were lost or changed on their way out"
    line.socket.sendall(heard)
    _, ended = program.expect(lambda text: text.startswith("ended"), 40)
    assert ended == "ended 0", ended
    assert guest.run("busybox cmp /run/bytes /run/echo && echo same").strip() == "same"
    # Another program has it.
    holder = guest.start("exec vorel serial COM2 --wait 100000 < /dev/null")
    guest.until(lambda: guest.succeeds("ls /run/lock/LCK..ttyS1"), 20, "the lock file")
    refused = guest.run("vorel serial COM2 < /dev/null", status=1)
    assert "is used by the process" in refused, refused
    holder.stop()
    assert not guest.succeeds("ls /run/lock/LCK..ttyS1"), "the lock file outlives its program"


@scenario("USB adapters keep their numbers, whatever the order in which they are plugged in")
def serial_usb(trial):
    guest = trial.guest()
    guest.run("modprobe -a usbserial ftdi_sio || true")
    paths = {name: str(guest.folder / f"line-{name}") for name in "ab"}
    for name, path in paths.items():
        guest.qmp("chardev-add", id=name, backend={"type": "socket", "data": {"addr": {"type": "unix", "data": {"path": path}},
                                                                               "server": True, "wait": False}})

    def plug(name):
        guest.qmp("device_add", driver="usb-serial", id=f"usb-{name}", chardev=name, serial=f"SERIAL{name}", bus="xhci.0", **{"always-plugged": True})

    def usb():
        return {p["identity"]: p["name"] for p in ports(guest) if p["device"].startswith("/dev/ttyUSB")}

    def settle(count):
        guest.until(lambda: len(guest.run("ls -d /dev/ttyUSB* 2>/dev/null || true").split()) == count, 30, f"{count} adapters")

    plug("a")
    settle(1)
    plug("b")
    settle(2)
    first = usb()
    assert sorted(first.values()) == ["COM33", "COM34"], first
    described = next(p for p in ports(guest) if p["name"] == "COM33")
    assert described["driver"] == "ftdi_sio" and "SERIALa" in described["identity"] and described["product"], described
    for name in "ab":
        guest.qmp("device_del", id=f"usb-{name}")
    settle(0)
    plug("b")
    settle(1)
    assert list(usb().values()) == ["COM34"], "an adapter has taken another's number"
    plug("a")
    settle(2)
    assert usb() == first, (first, usb())
    guest.run("cat /sys/class/tty/ttyUSB0/device/../../serial | grep -q SERIALb")  # the nodes have changed places

    # Bytes, and then it is pulled out under its user.
    far = Line(paths["a"])
    guest.put("/run/listen.js", LISTENER)
    listener = guest.start("exec vorel /run/listen.js COM33 8 256")
    listener.expect(lambda text: '"open"' in text, 30)
    far.socket.sendall(b"\x00\x11\xff")
    got = []
    while len(got) < 3:
        _, text = listener.expect(lambda line: '"bytes"' in line, 20, "bytes")
        got += json.loads(text)["bytes"]
    assert got == [0, 17, 255], got
    at = time.monotonic()
    guest.qmp("device_del", id="usb-a")
    seen, text = listener.expect(lambda line: '"gone"' in line, 20, "the reader to be called")
    trial.time("pull to reader", at, seen)
    assert json.loads(text)["gone"] == "NS_ERROR_FAILURE", text
    _, text = listener.expect(lambda line: '"opened"' in line, 20)
    assert json.loads(text)["opened"] == "NS_ERROR_FILE_ACCESS_DENIED", text
    listener.stop()


@scenario("A null modem: lines, break, parity, seven bits, rest, and unplugging")
def serial_null_modem(trial):
    guest = trial.guest()
    guest.run("modprobe nullmodem && udevadm settle -t 10")
    names = {p["device"]: p["name"] for p in ports(guest)}
    name = names["/dev/ttyNM0"]
    guest.put("/run/listen.js", LISTENER)
    guest.put("/run/peer.py", PEER)
    peer = guest.start("exec python3 /run/peer.py /dev/ttyNM1 7")
    peer.expect(lambda text: text == "ready", 20)
    listener = guest.start(f"exec vorel --log debug /run/listen.js {name} 7 256 2> /run/log")
    listener.expect(lambda text: '"open"' in text, 30)

    def tell(command):
        at = time.monotonic()
        peer.feed(command + "\n")
        return at

    # What the peer sets arrives at the pin that a null modem joins it with.
    for line, key in (("rts", "cts"), ("dtr", "dsr"), ("dtr", "dcd")):
        for command, state in (("clear", False), ("set", True)):
            at = tell(f"{command} {line}")
            seen, _ = listener.expect(lambda text: json.loads(text) == {key: state}, 10, f"{key} {state}")
            trial.time(f"{line} {state} to listener", at, seen)
    # A ring is an event when it ends; that it has begun is told with the next one.
    tell("set out1")
    tell("say 00")
    listener.expect(lambda text: json.loads(text) == {"ring": True}, 10, "the ring")
    tell("clear out1")
    listener.expect(lambda text: json.loads(text) == {"ring": False}, 10, "the end of the ring")

    tell("say 55aa")
    _, text = listener.expect(lambda line: '"bytes"' in line, 10, "bytes")
    assert json.loads(text)["bytes"][0] == 0x55, text
    tell("break")
    guest.until(lambda: guest.succeeds("grep -q EV_BREAK /run/log"), 10, "the break")
    tell("parity")
    tell("say 01")
    guest.until(lambda: guest.succeeds("grep -q EV_ERR /run/log"), 10, "the parity error")

    # A port at rest that nobody talks over wakes its process for nothing but what can't be waited for.
    count = "cat /proc/$(busybox pidof vorel)/task/*/status | busybox awk '/^voluntary/ {n += $2} END {print n}'"
    # By the guest's own clock: a command takes seconds where the machine is busy.
    # The first seconds are those of the last event.
    began, before, after, ended = guest.run(f"sleep 3; cut -d' ' -f1 /proc/uptime; {count}; sleep 10; {count}; cut -d' ' -f1 /proc/uptime").split()
    wakes = (int(after) - int(before)) / (float(ended) - float(began))
    assert wakes <= 10, f"{wakes:.1f} wake-ups a second"

    at = time.monotonic()
    guest.run("echo 2 > /sys/module/nullmodem/parameters/plugged")
    seen, text = listener.expect(lambda line: '"gone"' in line, 20, "the reader to be called")
    trial.time("pull to reader", at, seen)
    _, text = listener.expect(lambda line: '"opened"' in line, 20)
    assert json.loads(text)["opened"] == "NS_ERROR_FILE_ACCESS_DENIED", text
    guest.run("echo 3 > /sys/module/nullmodem/parameters/plugged && udevadm settle -t 10")
    assert {p["device"]: p["name"] for p in ports(guest)}["/dev/ttyNM0"] == name, "it has another number"
    listener.stop()
    peer.stop()
