#!/usr/bin/env python3
"""How does watching compare with what else there is for Linux? One run, one tree, one line a tool.

    bench/beside/watch.py [--vorel build/release/bin/vorel] [--node DIRECTORY] [--runs 3] [TOOL...]

Tools: vorel watchman inotifywait @parcel/watcher chokidar nsfw; without any, all of them. What is not
installed is named as absent. inotifywait and watchman come with the packages inotify-tools and watchman.
The others are packages for node, looked for in DIRECTORY/node_modules (default: $BESIDE, else
/tmp/beside):

    npm install --prefix DIRECTORY @parcel/watcher chokidar nsfw

of which nsfw is compiled when it is installed; where npm holds that back, approve it and run
"npm rebuild --prefix DIRECTORY nsfw".

Each tool is a process of its own whose events are read from a pipe, on a new tree of 100,000 files in
5,000 directories, in memory where there is some; all of it three times (--runs): the middle, and the least
and the most where they differ by more than a tenth. Where a tool can be told how long it gathers changes, it
is told 10 ms, which is vorel's time. Columns:

    ready     from the start of the process until it says that it watches
    first     from then, when a file is made at once, to the event of that
    change    from one new file to its event, after pauses of up to 50 ms
    burst     from the last of 100,000 new files to the event of the last one that is reported
    found     of these 100,000
    race      files reported of 1,000, each made in a directory that has just been made
    moves     reported as moves of 2,000 renames
    overflow  files reported of 100,000 made while the process was stopped
    CPU       of the process, in all of this
    RSS       of the process when it is ready

Of a burst nothing more is waited for once nothing has come for 20 s.
"""
import argparse
import collections
import json
import os
import pathlib
import random
import re
import shutil
import signal
import socket
import subprocess
import tempfile
import threading
import time
from multiprocessing import get_context

DIRECTORIES, FILES_EACH = 5000, 20
FILES = DIRECTORIES * FILES_EACH
HERE = pathlib.Path(__file__).resolve().parent


def fill(root, prefix):
    for directory in range(DIRECTORIES):
        path = f"{root}/{directory}"
        os.makedirs(path, exist_ok=True)
        for file in range(FILES_EACH):
            os.close(os.open(f"{path}/{prefix}{file}", os.O_CREAT | os.O_WRONLY, 0o600))


def beside(work, *arguments):
    """Runs in a process of its own, so that it does not hold up the reading of events."""
    process = get_context("fork").Process(target=work, args=arguments)
    process.start()
    process.join()


class Tool:
    """A process that watches; calls added(path) and moved(), and sets ready."""

    def __init__(self, root, options):
        self.root = root
        self.lock = threading.Lock()
        self.changed = threading.Condition(self.lock)
        self.is_ready = False
        self.paths, self.moves, self.last = set(), 0, time.monotonic()
        self.counts = collections.Counter()  # of files by the letters of their names
        self.start(options)

    def spawn(self, command, reader, **more):
        self.process = subprocess.Popen(command, text=True, errors="surrogateescape", stdout=subprocess.PIPE,
                                        **{"stderr": subprocess.DEVNULL, **more})
        self.read(self.process.stdout, reader)

    @staticmethod
    def read(stream, reader):
        def run():
            for line in stream:
                reader(line)

        threading.Thread(target=run, daemon=True).start()

    def ready(self):
        with self.lock:
            self.is_ready = True
            self.changed.notify_all()

    def added(self, path):
        with self.lock:
            if path not in self.paths:
                self.paths.add(path)
                self.counts[path[path.rfind("/") + 1:].rstrip("0123456789")] += 1
                self.last = time.monotonic()
                self.changed.notify_all()

    def moved(self):
        with self.lock:
            self.moves += 1
            self.changed.notify_all()

    def wait(self, condition, seconds):
        with self.lock:
            return self.changed.wait_for(condition, seconds)

    def settle(self, wanted, letters, seconds=180, quiet=20):
        """The files reported of those wanted, once they are complete or nothing has come for some time."""
        start = time.monotonic()
        while True:
            with self.lock:
                found, last = self.counts[letters], max(self.last, start)
            now = time.monotonic()
            if found >= wanted or now > start + seconds or now > last + quiet:
                return found
            time.sleep(0.01)

    def stop(self):
        self.process.kill()
        self.process.wait()


class JsonTool(Tool):
    def event(self, line):
        event = json.loads(line)
        kind = event["event"]
        if kind == "started":
            self.ready()
        elif kind == "added":
            self.added(os.path.join(self.root, event["path"]))
        elif kind == "moved":
            self.moved()


class Vorel(JsonTool):
    @staticmethod
    def is_there(options):
        return os.access(options.vorel, os.X_OK)

    def start(self, options):
        self.spawn([options.vorel, "watch", self.root, "--json"], self.event)


class NodeTool(JsonTool):
    name = ""

    @classmethod
    def is_there(cls, options):
        return shutil.which("node") and os.path.isdir(f"{options.node}/node_modules/{cls.name}")

    def start(self, options):
        script = (HERE / "watch_node.mjs").read_text()
        self.spawn(["node", "--input-type=module", "-e", script, "--", self.name, self.root], self.event,
                   cwd=options.node)


class Inotifywait(Tool):
    @staticmethod
    def is_there(_):
        return shutil.which("inotifywait")

    def start(self, _):
        self.cookies = set()
        events = "create,delete,close_write,moved_from,moved_to"
        self.spawn(["inotifywait", "-m", "-r", "-e", events, "--format", "%c %e %w%f", self.root],
                   self.event, stderr=subprocess.PIPE)
        self.read(self.process.stderr, lambda line: "Watches established" in line and self.ready())

    def event(self, line):
        cookie, kinds, path = line.rstrip("\n").split(" ", 2)
        if "CREATE" in kinds:
            self.added(path)
        elif "MOVED_FROM" in kinds:
            self.cookies.add(cookie)
        elif "MOVED_TO" in kinds and cookie in self.cookies:
            self.moved()


class Watchman(Tool):
    @staticmethod
    def is_there(_):
        return shutil.which("watchman")

    def start(self, _):
        self.place = tempfile.mkdtemp()
        pathlib.Path(self.root, ".watchmanconfig").write_text('{"settle": 10}')
        self.spawn(["watchman", "--foreground", "--no-save-state", f"--sockname={self.place}/sock",
                    f"--logfile={self.place}/log", f"--pidfile={self.place}/pid"], lambda _: None)
        while not os.path.exists(f"{self.place}/sock"):
            time.sleep(0.001)
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.connect(f"{self.place}/sock")
        self.read(self.socket.makefile(), self.event)
        self.send("watch", self.root)

    def send(self, *command):
        self.socket.sendall(json.dumps(command).encode() + b"\n")

    def event(self, line):
        message = json.loads(line)
        if "watch" in message:  # each command waits for the answer to the one before
            self.send("subscribe", self.root, "all", {"fields": ["name", "exists"]})
        for file in message.get("files", []):
            if file["exists"]:
                self.added(f"{self.root}/{file['name']}")
        if "files" in message:
            self.ready()

    def stop(self):
        super().stop()
        shutil.rmtree(self.place)


def node_tool(name):
    return type(name, (NodeTool,), {"name": name})


TOOLS = {
    "vorel": Vorel,
    "watchman": Watchman,
    "inotifywait": Inotifywait,
    **{name: node_tool(name) for name in ("@parcel/watcher", "chokidar", "nsfw")},
}


def one_change(tool, number):
    time.sleep(random.uniform(0, 0.05))
    path = f"{tool.root}/{number % DIRECTORIES}/single{number}"
    start = time.monotonic()
    os.close(os.open(path, os.O_CREAT | os.O_WRONLY, 0o600))
    tool.wait(lambda: path in tool.paths, 2)
    return time.monotonic() - start


def race(root):
    for number in range(1000):
        os.mkdir(f"{root}/race{number}")
        os.close(os.open(f"{root}/race{number}/inside{number}", os.O_CREAT | os.O_WRONLY, 0o600))


def rename(root):
    for number in range(2000):
        directory = f"{root}/{number // FILES_EACH}"
        os.rename(f"{directory}/old{number % FILES_EACH}", f"{directory}/renamed{number % FILES_EACH}")


def cpu(process):
    fields = pathlib.Path(f"/proc/{process.pid}/stat").read_text().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def measure(name, root, options):
    """The figures of one run, by the names of COLUMNS; None when the tool does not become ready."""
    beside(fill, root, "old")
    start = time.monotonic()
    tool = TOOLS[name](root, options)
    try:
        if not tool.wait(lambda: tool.is_ready, 120):
            return None
        result = {"ready": time.monotonic() - start}
        start = time.monotonic()
        os.close(os.open(f"{root}/{DIRECTORIES - 1}/first1", os.O_CREAT | os.O_WRONLY, 0o600))
        tool.wait(lambda: tool.counts["first"] > 0, 20)
        result["first"] = (time.monotonic() - start) * 1e3
        time.sleep(1)
        status = pathlib.Path(f"/proc/{tool.process.pid}/status").read_text()
        result["RSS"] = int(re.search(r"VmRSS:\s*(\d+)", status)[1]) / 1024
        times = sorted(one_change(tool, number) * 1e3 for number in range(200))
        result["change"], result["p99"] = times[100], times[197]

        beside(fill, root, "burst")
        end = time.monotonic()
        result["found"] = tool.settle(FILES, "burst")
        result["burst"] = max(tool.last - end, 0)

        beside(race, root)
        result["race"] = tool.settle(1000, "inside")
        beside(rename, root)
        tool.wait(lambda: tool.moves >= 2000, 20)
        result["moves"] = tool.moves

        os.kill(tool.process.pid, signal.SIGSTOP)
        beside(fill, root, "stopped")
        os.kill(tool.process.pid, signal.SIGCONT)
        result["overflow"] = tool.settle(FILES, "stopped")
        result["CPU"] = cpu(tool.process)
        return result
    finally:
        tool.stop()


COLUMNS = {"ready": ("s", 2), "first": ("ms", 1), "change": ("ms", 1), "p99": ("ms", 1), "burst": ("s", 2),
           "found": ("", 0), "race": ("", 0), "moves": ("", 0), "overflow": ("", 0), "CPU": ("s", 1),
           "RSS": ("MiB", 0)}


def spread(runs, column):
    unit, digits = COLUMNS[column]
    values = sorted(run[column] for run in runs)
    text = f"{values[len(values) // 2]:.{digits}f}"
    if values[-1] - values[0] > 0.1 * values[-1]:
        text += f" ({values[0]:.{digits}f}-{values[-1]:.{digits}f})"
    return f"{text} {unit}".strip()


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("--vorel", default="build/release/bin/vorel")
    parser.add_argument("--node", default=os.environ.get("BESIDE", "/tmp/beside"))
    parser.add_argument("--runs", type=int, default=3)
    parser.add_argument("tools", nargs="*")
    options = parser.parse_args()
    unknown = set(options.tools) - set(TOOLS)
    if unknown:
        parser.error("unknown: " + ", ".join(unknown))
    memory = "/dev/shm" if os.path.isdir("/dev/shm") else None
    for name in options.tools or TOOLS:
        if not TOOLS[name].is_there(options):
            print(f"{name}: absent", flush=True)
            continue
        runs = []
        for _ in range(options.runs):
            with tempfile.TemporaryDirectory(dir=memory) as root:
                runs.append(measure(name, root, options))
        if None in runs:
            print(f"{name}: does not become ready", flush=True)
            continue
        print(f"{name}: " + ", ".join(f"{column} {spread(runs, column)}" for column in COLUMNS), flush=True)


if __name__ == "__main__":
    main()
