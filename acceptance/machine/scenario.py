"""What a scenario is, and how all of them are run, side by side, and told.

    @scenario("A stick with one partition comes and goes", heads=2)
    def stick_partition(trial): ...

stands in a file of acceptance/scenarios; the function's name is the scenario's. It fails by an exception, and is skipped by Skip.
"""
import concurrent.futures
import hashlib
import html
import importlib
import os
import pathlib
import signal
import sys
import threading
import time
import traceback

from machine import image, vm

SCENARIOS = []
FOLDER = pathlib.Path(__file__).resolve().parent.parent / "scenarios"


# What a guest has done before its state is saved: modules and files that scenarios would wait for are in its memory.
WARM_UP = ("modprobe -a loop usb_storage uas vfat nls_cp437 nls_ascii nls_utf8 && vorel --version && vorel --json >/dev/null && "
           "vorel watch /nowhere >/dev/null 2>&1; rm -rf /root/.local; sync")


class Skip(Exception):
    """The machine lacks what the scenario needs; the text says what."""


class Scenario:
    def __init__(self, function, title, options):
        self.function, self.title, self.options = function, title, options
        self.is_long = options.pop("long", False)
        self.name = function.__name__
        self.outcome, self.why, self.seconds, self.times, self.log = None, "", 0.0, [], None


def scenario(title, **options):
    """heads=N: a graphics card with N heads. init="/lib/systemd/systemd": under a service manager. fresh=True: booted anew, not continued
    from the saved state. memory=MIB, extra=[...]: as the emulator takes it. long=True: takes minutes, and is begun first."""
    def register(function):
        SCENARIOS.append(Scenario(function, title, options))
        return function
    return register


class Trial:
    """What a scenario is given: its guest, files of its own, and a list of the times that it measures."""

    def __init__(self, one, bench):
        self.one, self.bench, self.folder = one, bench, bench.results / one.name
        self.folder.mkdir(parents=True, exist_ok=True)
        self.guests = []

    def guest(self, **options):
        """Another guest, or the first one."""
        options = {**self.one.options, **options}
        heads = options.pop("heads", 0)
        extra = list(options.pop("extra", []))
        fresh = options.pop("fresh", False) or heads or extra or options
        log = self.folder / f"console{len(self.guests) or ''}.log"
        log.unlink(missing_ok=True)
        self.one.log = self.one.log or log
        if heads:
            extra += ["-device", f"virtio-gpu-pci,id=gpu0,max_outputs={heads},edid=on,xres=1920,yres=1080"]
            for head in range(heads):
                extra += ["-vnc", f"unix:{self.folder}/screen{head},display=gpu0,head={head},id=screen{head}"]
        guest = vm.Guest(self.bench.machine, self.bench.product, log, extra, None if fresh else self.bench.state(), **options)
        self.guests.append(guest)
        return guest

    def time(self, what, began, at):
        """Notes how long something took from its cause; returns the seconds."""
        self.one.times.append((what, at - began))
        return at - began

    def file(self, name, size=0):
        """A new sparse file of the scenario's own."""
        path = self.folder / name
        path.unlink(missing_ok=True)
        with open(path, "wb") as file:
            file.truncate(size)
        return path

    def close(self):
        for guest in self.guests:
            guest.close()


class Bench:
    """The machine, the product and the saved state that all scenarios share."""

    def __init__(self, say):
        self.results = image.BUILD
        release = image.ROOT / "build" / "release"
        binaries = [release / "bin" / n for n in ("vorel", "libvorelhost.so", "libvorelsystem.so", "libvoreltools.so")]
        missing = [b for b in binaries if not b.exists()]
        if missing:
            raise image.MachineError(f"{missing[0]} is not there: build the release preset first (./test --machine does)")
        self.machine, machine_name = image.make(binaries, say)
        self.product = self.machine / "product.squashfs"
        product_name = image.pack_product(release, self.product)
        self.name = hashlib.sha256((machine_name + product_name + WARM_UP + " ".join(vm.USUAL)).encode()).hexdigest()[:24]
        self.lock = threading.Lock()

    def state(self):
        """A guest that has just come up, saved; made by whoever needs it first."""
        with self.lock:
            path = self.machine / f"state-{self.name}"
            if not path.exists():
                for old in self.machine.glob("state-*"):
                    old.unlink()
                with vm.Guest(self.machine, self.product, self.machine / "state.log") as guest:
                    guest.run(WARM_UP, 120)
                    guest.save(path.with_suffix(".part"))
                path.with_suffix(".part").rename(path)
            return path


def choose(names):
    for path in sorted(FOLDER.glob("*.py")):
        importlib.import_module(f"scenarios.{path.stem}")
    return [one for one in SCENARIOS if not names or any(one.name.startswith(n) for n in names)]


def attempt(one, bench):
    began = time.monotonic()
    trial = Trial(one, bench)
    try:
        one.function(trial)
        one.outcome = "passed"
    except Skip as reason:
        one.outcome, one.why = "skipped", str(reason)
    except (vm.GuestError, AssertionError) as error:
        where = traceback.extract_tb(error.__traceback__)
        mine = [f for f in where if f.filename == one.function.__code__.co_filename]
        line = f"{pathlib.Path(mine[-1].filename).name}:{mine[-1].lineno}: {mine[-1].line}" if mine else ""
        one.outcome, one.why = "failed", f"{error or 'not so'}\n{line}"
    except Exception:
        one.outcome, one.why = "failed", traceback.format_exc()
    finally:
        trial.close()
        one.seconds = time.monotonic() - began
    return one


def say(text):
    print(f"vorel: {text}", file=sys.stderr, flush=True)


def without_leftovers(work, *arguments):
    """What the work gives. An interrupt ends its guests, and with them the process."""
    def interrupted(*_):
        raise KeyboardInterrupt

    numbers = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)
    for number in numbers:
        signal.signal(number, interrupted)
    try:
        return work(*arguments)
    except KeyboardInterrupt:
        for number in numbers:
            signal.signal(number, signal.SIG_IGN)
        say("interrupted")
        vm.end_all()
        os._exit(130)  # threads may still wait for guests that are no more


def try_all(chosen, jobs):
    return without_leftovers(try_side_by_side, chosen, jobs)


def try_side_by_side(chosen, jobs):
    began = time.monotonic()
    bench = Bench(say)
    pool = concurrent.futures.ThreadPoolExecutor(jobs or os.cpu_count() or 2)
    running = [pool.submit(attempt, one, bench) for one in sorted(chosen, key=lambda one: not one.is_long)]
    for done in concurrent.futures.as_completed(running):
        tell(done.result())
    count = {o: sum(one.outcome == o for one in chosen) for o in ("passed", "failed", "skipped")}
    write_page(chosen, bench, time.monotonic() - began)
    print(f"{count['passed']} passed, {count['failed']} failed, {count['skipped']} skipped", flush=True)
    return 1 if count["failed"] else 0


def run_in_guest(command):
    """The status of a command in a guest of its own, which prints here as it goes."""
    return without_leftovers(print_of_guest, command)


def print_of_guest(command):
    bench = Bench(say)
    with vm.Guest(bench.machine, bench.product, bench.results / "guest.log", state=bench.state()) as guest:
        process = guest.start(command)
        while (item := process.line(3600)) is not None:
            print(item[1], flush=True)
        return process.status


def tell(one):
    times = ", ".join(f"{what} {seconds * 1000:.0f} ms" for what, seconds in one.times)
    print(f"{one.outcome:8} {one.name:28} {one.seconds:6.1f} s  {one.why.splitlines()[0] if one.why else times}", flush=True)
    if one.outcome == "failed":
        for line in one.why.splitlines()[1:]:
            print(f"         {line}")
        if one.log and one.log.exists():
            for line in one.log.read_text(errors="replace").splitlines()[-12:]:
                print(f"         guest: {line}")
        sys.stdout.flush()


def write_page(chosen, bench, seconds):
    rows = []
    for one in chosen:
        times = "<br>".join(f"{html.escape(w)}: {s * 1000:.0f} ms" for w, s in one.times)
        log = f'<a href="{html.escape(one.name)}/{one.log.name}">log</a>' if one.log else ""
        rows.append(f"<tr class={one.outcome}><td>{html.escape(one.name)}<td>{html.escape(one.title)}<td>{one.outcome}<td>{one.seconds:.1f} s"
                    f"<td>{times}<td><pre>{html.escape(one.why)}</pre>{log}</tr>")
    used = os.times()
    spent = used.children_user + used.children_system + used.user + used.system
    page = f"""<!doctype html><meta charset=utf-8><title>Acceptance</title>
<style>body{{font:15px sans-serif;margin:2em}}table{{border-collapse:collapse}}td,th{{border:1px solid #bbb;padding:.3em .6em;vertical-align:top;text-align:left}}
.failed{{background:#fdd}}.skipped{{background:#eee}}pre{{margin:0;white-space:pre-wrap}}</style>
<h1>Acceptance</h1><p>{time.strftime('%Y-%m-%d %H:%M')}, {seconds:.0f} s, {spent:.0f} s of processors, {vm.accelerator().split(',')[0]}. Times are from the cause, on the host,
to the line that tells of it.</p>
<table><tr><th>scenario<th>what happens<th>result<th>took<th>times<th>why</tr>
{chr(10).join(rows)}
</table>
"""
    (bench.results / "index.html").write_text(page)
