"""The program as a service: killed, hung, and the power cut while it writes."""
import json
import queue
import random
import re
import subprocess
import time

from machine import image
from machine.scenario import SERVICE_MANAGER, scenario

PREFERENCES = """
pref("vorel.crashreporter.enabled", true);
pref("vorel.appli.crashhandler.action", "Restart");
"""
APPLICATION = """
const fs = Components.classes["@mozilla.org/preferences-service;1"].getService(Components.interfaces.nsIPrefBranch);
let starts = 0;
try { starts = fs.getIntPref("acceptance.starts"); } catch (error) {}
fs.setIntPref("acceptance.starts", starts + 1);
console.log("player started", starts + 1);
setInterval(() => {}, 1000);
%s
"""


def install(guest, more=""):
    """The unit of the handbook, to the letter, and an application where it looks for one."""
    unit = re.search(r"^```ini\n(\[Unit\]\n.*?)^```", (image.ROOT / "docs" / "operating.md").read_text(), re.M | re.S)
    assert unit, "docs/operating.md gives no unit any more"
    guest.run("mkdir -p /opt/player/defaults/preferences", 120)
    guest.put("/etc/systemd/system/player.service", unit[1])
    guest.put("/opt/player/app.js", APPLICATION % more)
    guest.put("/opt/player/defaults/preferences/player.js", PREFERENCES)
    guest.run("systemctl daemon-reload", 120)


def started(guest, times, within):
    return guest.until(lambda: f"player started {times}" in guest.run("journalctl -u player -o cat --no-pager", 120), within, f"start {times}")


@scenario("Under systemd: ready is told, a kill is followed by a new start, a stop is in order", init=SERVICE_MANAGER)
def service_killed(trial):
    guest = trial.guest()
    install(guest)
    at = time.monotonic()
    guest.run("systemctl start player", 180)
    trial.time("start until ready is told", at, time.monotonic())
    assert guest.run("systemctl is-active player", 120).strip() == "active"
    started(guest, 1, 60)
    # Settings are written half a second after a change.
    guest.until(lambda: guest.succeeds("grep -q acceptance.starts /var/lib/vorel/profile/prefs.js"), 20, "the settings")
    at = time.monotonic()
    guest.run("systemctl kill -s KILL player", 120)
    started(guest, 2, 120)
    trial.time("kill to the next start", at, time.monotonic())
    guest.run("systemctl stop player", 120)
    shown = guest.run("systemctl show player -p Result -p ExecMainStatus", 120)
    assert "Result=success" in shown and "ExecMainStatus=0" in shown, shown


@scenario("Under systemd: a hung application is ended by the watchdog, with a report, and started anew", init=SERVICE_MANAGER, long=True)
def service_hung(trial):
    guest = trial.guest()
    install(guest, 'if (starts === 0) setTimeout(() => { for (;;); }, 1500);')
    guest.run("systemctl start player", 240)
    at = time.monotonic()
    started(guest, 1, 60)
    guest.until(lambda: guest.run("ls /var/lib/vorel/profile/crashes 2>/dev/null || true", 120).strip(), 330, "a report of the crash")
    trial.time("hung to report", at, time.monotonic())
    assert "watchdog" in guest.run("journalctl -u player -o cat --no-pager", 120).lower(), "another one has ended it"
    started(guest, 2, 120)
    report = guest.run("cat /var/lib/vorel/profile/crashes/*.txt", 120)
    assert "app.js" in report, report[-1500:]


WRITER = """
const prefs = Components.classes["@mozilla.org/preferences-service;1"].getService(Components.interfaces.nsIPrefService);
const branch = Components.classes["@mozilla.org/preferences-service;1"].getService(Components.interfaces.nsIPrefBranch);
const read = (name) => { try { return branch.getIntPref("acceptance." + name); } catch (error) { return 0; } };
let n = read("first");
console.log("open " + JSON.stringify([n, read("last")]));
const step = () => {
  n += 1;
  branch.setIntPref("acceptance.first", n);
  for (let i = 0; i < 200; ++i) branch.setCharPref("acceptance.filling." + i, "x".repeat(n % 97));
  branch.setIntPref("acceptance.last", n);
  prefs.savePrefFile(null);
  console.log("saved " + n);
  setTimeout(step, 0);
};
step();
"""


class Disk:
    """A disk in a guest, mounted, on which settings are written."""

    def __init__(self, guest, image, number):
        self.guest, self.folder = guest, f"/mnt/disk{number}"
        self.name, device = guest.plug_disk(image)
        guest.run(f"{'mkfs.ext4 -q ' + device + ' &&' if not number else ''} mkdir -p {self.folder} && mount {device} {self.folder}", 120)
        self.writer = guest.start(f"exec vorel --profile {self.folder}/profile /run/writer.js")

    def opened(self):
        """The first and the last setting of what was read, and whether what lay there was damaged."""
        _, line = self.writer.expect(lambda text: text.startswith("open "), 60, "opened settings")
        return *json.loads(line.removeprefix("open ")), self.guest.succeeds(f"ls {self.folder}/profile/*.damaged")

    def last_saved(self, end):
        """What is told to be saved until that time; None for nothing."""
        last = None
        while (left := end - time.monotonic()) > 0:
            try:
                item = self.writer.lines.get(timeout=left)
            except queue.Empty:
                break
            assert item, "the writer has ended"
            if item[1].startswith("saved "):
                last = int(item[1].split()[1])
        return last

    def take_away(self):
        self.writer.signal(9)
        self.writer.wait()
        self.guest.run(f"umount {self.folder}")
        self.guest.unplug(self.name)


@scenario("The power is cut 50 times while settings are written: they open, old or new", long=True)
def service_power_cut(trial):
    image = trial.file("disk.img", 64 << 20)
    chance, saved, damaged, guest = random.Random(7), 0, [], None
    for cut in range(51):
        if not guest:
            guest = trial.guest()
            guest.put("/run/writer.js", WRITER)
        disk = Disk(guest, image, cut)
        first, last, was_damaged = disk.opened()
        assert first == last, f"after cut {cut}: half of a change, {first} and {last}"
        assert first >= saved, f"after cut {cut}: {saved} was saved, {first} was read"
        if was_damaged:
            damaged.append(cut)
        saved = disk.last_saved(time.monotonic() + chance.uniform(0.2, 1.5)) or saved
        if cut % 10 == 9:
            guest.cut_power()
            guest = None
            continue
        # The same without a new guest each time: what is on the disk while nothing runs, as another disk.
        former, image = image, trial.folder / f"disk{cut}.img"
        with guest.frozen():
            subprocess.run(["cp", "--sparse=always", former, image], check=True, capture_output=True)
        disk.take_away()
        former.unlink()
    assert not damaged, f"settings were damaged after cuts {damaged}"
    assert saved > 50, f"only {saved} settings were saved in all"
