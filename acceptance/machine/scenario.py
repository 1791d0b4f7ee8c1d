"""What a scenario is, and how all of them are run, side by side, and told.

    @scenario("A stick with one partition comes and goes")
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
import time
import traceback

from machine import image, vm

SCENARIOS = []
FOLDER = pathlib.Path(__file__).resolve().parent.parent / "scenarios"


SERVICE_MANAGER = "/lib/systemd/systemd"
# What a guest has done before its state is saved: modules and files that scenarios would wait for are in its memory.
WARM_UP = ("if [ -d /run/systemd/system ]; then systemctl is-system-running --wait; fi >/dev/null 2>&1; "
           "modprobe -a loop usb_storage uas vfat nls_cp437 nls_ascii nls_utf8 && vorel --version && vorel --json >/dev/null && "
           "vorel watch /nowhere >/dev/null 2>&1; rm -rf /root/.local; sync")


class Skip(Exception):
    """The machine lacks what the scenario needs; the text says what."""


class Scenario:
    def __init__(self, function, title, init=None, boots=False, long=False):
        self.function, self.title = function, title
        self.name, self.init, self.boots, self.is_long = function.__name__, init, boots, long
        self.outcome, self.why, self.seconds, self.processor_seconds, self.times, self.log = None, "", 0.0, 0.0, [], None


def scenario(title, **options):
    """init=SERVICE_MANAGER: under it, not under the guest's own first process. boots=True: booted anew, not continued from the saved state;
    such a guest takes extra=[...] for the emulator and append="..." for the kernel. long=True: takes a minute or more, and is begun first."""
    def register(function):
        SCENARIOS.append(Scenario(function, title, **options))
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
        log = self.folder / f"console{len(self.guests) or ''}.log"
        log.unlink(missing_ok=True)
        self.one.log = log
        state = None if self.one.boots else self.bench.states[self.one.init]
        guest = vm.Guest(self.bench.machine, self.bench.product, log, state, init=self.one.init, **options)
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
            self.one.processor_seconds += guest.processor_seconds


class Bench:
    """The machine, the product and the saved states that all scenarios share, and the seconds that making them took."""

    def __init__(self, inits, say):
        began = time.monotonic()
        self.results = image.BUILD
        release = image.ROOT / "build" / "release"
        binaries = [release / "bin" / n for n in ("vorel", "libvorelhost.so", "libvorelsystem.so", "libvoreltools.so")]
        missing = [b for b in binaries if not b.exists()]
        if missing:
            raise image.MachineError(f"{missing[0]} is not there: build the release preset first (./test --machine does)")
        self.machine, self.machine_name = image.make(binaries, say)
        self.product = self.machine / "product.squashfs"
        self.product_name = image.pack_product(release, self.product)
        self.states = {init: self.machine / f"state-{self.name_of(init)}" for init in inits}
        # Of what is not asked for now, only that is kept which is still true.
        true = {f"state-{self.name_of(init)}" for init in (None, SERVICE_MANAGER)}
        for path in self.machine.glob("state-*"):
            if path.name not in true:
                path.unlink()
        missing = [init for init, path in self.states.items() if not path.exists()]
        if missing:
            say("making the states from which guests are continued: a minute")
            list(concurrent.futures.ThreadPoolExecutor().map(self.make_state, missing))
        self.seconds = time.monotonic() - began

    def name_of(self, init):
        """A state is that of this machine, product, command and emulator."""
        emulator = image.run("qemu-system-x86_64", "--version") + " ".join(vm.emulator("", "", init=init))
        return hashlib.sha256((self.machine_name + self.product_name + WARM_UP + emulator).encode()).hexdigest()[:24]

    def make_state(self, init):
        """A guest that has just come up, saved."""
        path = self.states[init]
        part = path.with_suffix(".part")
        try:
            with vm.Guest(self.machine, self.product, path.with_suffix(".log"), init=init) as guest:
                guest.run(WARM_UP, 120)
                guest.save(part)
        except vm.GuestError as error:
            raise image.MachineError(f"no state of {init or 'the plain guest'} was saved: {error}") from None
        part.rename(path)


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
    bench = Bench({one.init for one in chosen if not one.boots}, say)
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
    bench = Bench({None}, say)
    with vm.Guest(bench.machine, bench.product, bench.results / "guest.log", bench.states[None]) as guest:
        process = guest.start(command)
        while (item := process.line(3600)) is not None:
            print(item[1], flush=True)
        return process.status


def tell(one):
    times = ", ".join(f"{what} {seconds * 1000:.0f} ms" for what, seconds in one.times)
    print(f"{one.outcome:8} {one.name:28} {one.seconds:6.1f} s {one.processor_seconds:6.1f} s  {one.why.splitlines()[0] if one.why else times}", flush=True)
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
                    f"<td>{one.processor_seconds:.1f} s"
                    f"<td>{times}<td><pre>{html.escape(one.why)}</pre>{log}</tr>")
    used = os.times()
    spent = used.children_user + used.children_system + used.user + used.system
    page = f"""<!doctype html><meta charset=utf-8><title>Acceptance</title>
<style>body{{font:15px sans-serif;margin:2em}}table{{border-collapse:collapse}}td,th{{border:1px solid #bbb;padding:.3em .6em;vertical-align:top;text-align:left}}
.failed{{background:#fdd}}.skipped{{background:#eee}}pre{{margin:0;white-space:pre-wrap}}</style>
<h1>Acceptance</h1><p>{time.strftime('%Y-%m-%d %H:%M')}, {seconds:.0f} s, {bench.seconds:.0f} s of which for the machine and the
states from which guests are continued; {spent:.0f} s of processors, {vm.accelerator().split(',')[0]}. Times are from the cause, on the host,
to the line that tells of it.</p>
<table><tr><th>scenario<th>what happens<th>result<th>took<th>processor<th>times<th>why</tr>
{chr(10).join(rows)}
</table>
"""
    (bench.results / "index.html").write_text(page)
