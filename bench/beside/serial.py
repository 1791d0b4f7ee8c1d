#!/usr/bin/env python3
"""How soon does an application answer a byte on a serial line, beside other ways to write one?

    bench/beside/serial.py [--vorel build/release/bin/vorel] [--node-modules DIR] [TOOL...]

Tools: descriptor pyserial vorel-listener vorel-wait serialport; without any, all of them. What is not installed is named as
absent: pyserial is a module of /usr/bin/python3, serialport a package of node, in DIR.

Each tool is a process that sends back each byte that it gets on a pseudo terminal. Columns, in microseconds, of 2,000 bytes
one after the other: from the write to the answer, the half and 99 of 100; and the processor's time of the tool for a byte.
"""
import argparse
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time
import tty

COUNT = 2000

DESCRIPTOR = """
import os, sys
fd = os.open(sys.argv[1], os.O_RDWR | os.O_NOCTTY)
os.write(fd, b"!")
while True:
    os.write(fd, os.read(fd, 256))
"""

PYSERIAL = """
import serial, sys
port = serial.Serial(sys.argv[1], 9600)
port.write(b"!")
while True:
    port.write(port.read(1))
"""

VOREL = """
const { classes, interfaces } = Components;
const port = Array.from(systemManager.getAdaptersByIId(interfaces.nsISystemAdapterSerial)).find((p) => p.sysPath === "COM99");
const byListener = arguments[0] === "listener";
port.mode = 2;
if (byListener) port.addListener({ onData: answer, onCTS() {}, onDSR() {}, onDCD() {}, onRING() {} });
port.open();
const input = port.inputStream.QueryInterface(interfaces.nsIBinaryInputStream);
const output = port.outputStream.QueryInterface(interfaces.nsIBinaryOutputStream);
function answer() {
  const count = input.available();
  if (count > 0) output.write(input.readBytes(count), count);
}
if (!byListener) {
  const main = classes["@mozilla.org/thread-manager;1"].getService(interfaces.nsIThreadManager).mainThread;
  // Registered before the bytes are taken: what comes in between would call nobody.
  const waiter = { onInputStreamReady() { input.QueryInterface(interfaces.nsIAsyncInputStream).asyncWait(waiter, 0, 0, main); answer(); } };
  waiter.onInputStreamReady();
}
output.write("!", 1);
"""

NODE = """
const { SerialPort } = require("serialport");
const port = new SerialPort({ path: process.argv[2], baudRate: 9600 });
port.on("data", (bytes) => port.write(bytes));
port.on("open", () => port.write("!"));
"""


class Absent(Exception):
    pass


def python(text, device):
    return ["/usr/bin/python3", "-c", text, device], {}


def command(tool, device, options, directory):
    if tool == "descriptor":
        return python(DESCRIPTOR, device)
    if tool == "pyserial":
        if subprocess.run(["/usr/bin/python3", "-c", "import serial"], stderr=subprocess.DEVNULL).returncode:
            raise Absent("/usr/bin/python3 has no module serial")
        return python(PYSERIAL, device)
    if tool.startswith("vorel-"):
        binary = pathlib.Path(options.vorel).resolve()
        if not binary.exists():
            raise Absent(f"{options.vorel} has not been built")
        (directory / "echo.js").write_text(VOREL)
        return [str(binary), "--profile", str(directory / "profile"), str(directory / "echo.js"), tool.split("-")[1]], {
            "VOREL_SERIAL_PORTS": f"COM99={device}"}
    node, modules = shutil.which("node"), pathlib.Path(options.node_modules or "node_modules").resolve()
    if not node or not (modules / "serialport").exists():
        raise Absent(f"there is no node, or no serialport in {modules}")
    (directory / "echo.js").write_text(NODE)
    return [node, str(directory / "echo.js"), device], {"NODE_PATH": str(modules)}


def measure(tool, options):
    master, slave = os.openpty()
    tty.setraw(slave)
    with tempfile.TemporaryDirectory() as directory:
        line, more = command(tool, os.ttyname(slave), options, pathlib.Path(directory))
        process = subprocess.Popen(line, env={**os.environ, **more}, cwd=directory, stderr=subprocess.DEVNULL)
        try:
            assert os.read(master, 1) == b"!"  # it is there
            times = []
            for i in range(COUNT + 200):
                start = time.perf_counter()
                os.write(master, b"x")
                os.read(master, 1)
                if i >= 200:
                    times.append((time.perf_counter() - start) * 1e6)
            with open(f"/proc/{process.pid}/stat") as stat:
                fields = stat.read().rsplit(") ", 1)[1].split()
        finally:
            process.kill()
            process.wait()
    os.close(master)
    os.close(slave)
    cpu = (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK") * 1e6 / COUNT
    times.sort()
    return times[COUNT // 2], times[COUNT * 99 // 100], cpu


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vorel", default="build/release/bin/vorel")
    parser.add_argument("--node-modules")
    parser.add_argument("tools", nargs="*", metavar="TOOL")
    options = parser.parse_args()
    known = ["descriptor", "pyserial", "vorel-listener", "vorel-wait", "serialport"]
    if unknown := set(options.tools) - set(known):
        sys.exit(f"unknown tool {unknown.pop()}: {' '.join(known)} are known")
    print("".join(f"{column:>16}" for column in ("us", "p50", "p99", "CPU a byte")))
    for tool in options.tools or known:
        try:
            p50, p99, cpu = measure(tool, options)
        except Absent as absent:
            print(f"{tool:>16}  absent: {absent}")
        else:
            print(f"{tool:>16}{p50:>16.0f}{p99:>16.0f}{cpu:>16.0f}", flush=True)


if __name__ == "__main__":
    main()
