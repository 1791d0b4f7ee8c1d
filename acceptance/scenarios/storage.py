"""Sticks, disks and cards on a real USB bus."""
import re
import subprocess
import time

from machine import image
from machine.scenario import SERVICE_MANAGER, scenario

MIB = 1 << 20


def stick(trial, name, partitions=("SIGNAGE",), size=48 * MIB, files=True):
    """An image of a stick; without partitions the file system begins at once. Made without mounting anything."""
    path = trial.file(name + ".img", size)
    if not partitions:
        subprocess.run(["mkfs.vfat", "-n", "WHOLE", path], check=True, capture_output=True)
        return path
    table, begin, length = "label: dos\n", 2048, (size // 512 - 2048) // len(partitions) // 2048 * 2048
    for i, label in enumerate(partitions):
        table += f"start={begin + i * length}, size={length}, type=c\n"
    subprocess.run(["sfdisk", "-q", path], input=table, text=True, check=True, capture_output=True)
    for i, label in enumerate(partitions):
        subprocess.run(["mkfs.vfat", "-F", "32" if length > 80000 else "16", "-n", label, "--offset", str(begin + i * length), path, str(length // 2)],
                       check=True, capture_output=True)
    return path


def has_usb(connectors):
    return [c["name"] for c in connectors or []] == ["usb"]


def watch_with_mounts(guest):
    """The picture, in a guest that mounts what is plugged in."""
    guest.run("mkdir -p /media && cp /guest/mount-stick.rules /etc/udev/rules.d/90-player.rules")
    # The device manager of a guest that has just been continued may let go of who asks.
    guest.until(lambda: guest.succeeds("udevadm control --reload"), 20, "the device manager")
    return guest.picture()


def comes(trial, guest, watch, image, what, **how):
    name, at = guest.plug_stick(image, **how)
    seen, event = watch.event("adapter-added", within=45, directory=lambda d: bool(d) and d.startswith("/media/"))
    trial.time(f"{what}: plug to listener", at, seen)
    assert event["adapter"]["device"]["name"] == "mass-storage", event
    assert has_usb(event["adapter"]["connectors"]), event
    return name, event["adapter"]["directory"]


def goes(trial, guest, watch, name, directory, what):
    at = guest.unplug(name)
    seen, _ = watch.event("adapter-removed", within=30, directory=directory)
    trial.time(f"{what}: pull to listener", at, seen)


@scenario("A stick with one partition comes and is pulled without unmounting")
def stick_one_partition(trial):
    guest = trial.guest()
    watch = watch_with_mounts(guest)
    name, directory = comes(trial, guest, watch, stick(trial, "stick"), "stick")
    guest.run(f"echo content > {directory}/file && sync")
    goes(trial, guest, watch, name, directory, "stick")
    after = guest.run("vorel --json")
    assert directory not in after, "a stick that was pulled is still in the picture"
    name, directory = comes(trial, guest, watch, trial.folder / "stick.img", "again")
    assert guest.run(f"cat {directory}/file").strip() == "content"
    goes(trial, guest, watch, name, directory, "again")


@scenario("Under systemd a stick is mounted by the rule of the handbook, and gone when it is pulled", init=SERVICE_MANAGER)
def stick_by_the_handbook(trial):
    rule = re.search(r"^# (/etc/udev/rules.d/\S+)\n((?:ACTION.*\n)+)", (image.ROOT / "docs" / "operating.md").read_text(), re.M)
    assert rule, "docs/operating.md gives no rule for sticks any more"
    guest = trial.guest()
    guest.put(rule[1], rule[2])
    guest.run("udevadm control --reload", 60)
    watch = guest.picture()
    name, directory = comes(trial, guest, watch, stick(trial, "stick"), "stick")
    goes(trial, guest, watch, name, directory, "stick")


@scenario("A stick without a partition table")
def stick_without_partitions(trial):
    guest = trial.guest()
    watch = watch_with_mounts(guest)
    name, directory = comes(trial, guest, watch, stick(trial, "stick", ()), "stick")
    goes(trial, guest, watch, name, directory, "stick")


@scenario("A stick with two partitions is two volumes")
def stick_two_partitions(trial):
    guest = trial.guest()
    watch = watch_with_mounts(guest)
    name, at = guest.plug_stick(stick(trial, "stick", ("ONE", "TWO"), 96 * MIB))
    directories = set()
    for _ in range(2):
        seen, event = watch.event("adapter-added", within=45, directory=lambda d: bool(d) and d.startswith("/media/"))
        directories.add(event["adapter"]["directory"])
    trial.time("both: plug to listener", at, seen)
    assert len(directories) == 2, directories
    at = guest.unplug(name)
    for _ in range(2):
        seen, event = watch.event("adapter-removed", within=30)
        directories.discard(event["adapter"]["directory"])
    trial.time("both: pull to listener", at, seen)
    assert not directories, directories


@scenario("Two sticks at once, pulled in the order in which they came")
def two_sticks(trial):
    guest = trial.guest()
    watch = watch_with_mounts(guest)
    names = [guest.plug_stick(stick(trial, n, (n.upper(),)))[0] for n in ("one", "two")]
    at = time.monotonic()
    directories = {watch.event("adapter-added", within=45, directory=lambda d: bool(d) and d.startswith("/media/"))[1]["adapter"]["directory"]
                   for _ in names}
    trial.time("both seen after the second plug", at, time.monotonic())
    assert len(directories) == 2, directories
    gone = set()
    for name in names:
        guest.unplug(name)
        gone.add(watch.event("adapter-removed", within=30)[1]["adapter"]["directory"])
    assert gone == directories, (gone, directories)


@scenario("A slow stick is seen as soon as it can be read")
def slow_stick(trial):
    guest = trial.guest()
    watch = watch_with_mounts(guest)
    name, directory = comes(trial, guest, watch, stick(trial, "stick"), "stick at 300 kB/s", throttle=300_000)
    goes(trial, guest, watch, name, directory, "stick at 300 kB/s")


@scenario("A USB disk is a volume of USB, though it is fixed")
def usb_disk(trial):
    guest = trial.guest()
    watch = watch_with_mounts(guest)
    name, directory = comes(trial, guest, watch, stick(trial, "disk"), "disk", removable=False)
    goes(trial, guest, watch, name, directory, "disk")


def plug_bridge(guest, name):
    """A bridge from USB is plugged in when what hangs on it is there; the time."""
    at = time.monotonic()
    guest.qmp("qom-set", path=f"/machine/peripheral/{name}", property="attached", value=True)
    return at


@scenario("A card reader: the card goes, the reader stays")
def card_reader(trial):
    guest = trial.guest()
    watch = watch_with_mounts(guest)
    card = stick(trial, "card")
    guest.qmp("device_add", driver="usb-bot", id="reader", bus="xhci.0")
    guest.qmp("blockdev-add", **{"driver": "raw", "node-name": "card", "file": {"driver": "file", "filename": str(card), "locking": "off"}})
    guest.qmp("device_add", driver="scsi-hd", id="slot", bus="reader.0", drive="card", removable=True)
    at = plug_bridge(guest, "reader")
    seen, event = watch.event("adapter-added", within=45, directory=lambda d: bool(d) and d.startswith("/media/"))
    trial.time("card to listener", at, seen)
    directory = event["adapter"]["directory"]
    at = time.monotonic()
    guest.run("echo 1 > $(ls -d /sys/block/sd?/device/delete | head -1)")
    seen, _ = watch.event("adapter-removed", within=30, directory=directory)
    trial.time("card pulled to listener", at, seen)


@scenario("An optical drive is no storage of the player's")
def optical_drive(trial):
    guest = trial.guest()
    watch = watch_with_mounts(guest)
    image = trial.file("disc.iso", 2 * MIB)
    subprocess.run(["mkfs.vfat", "-S", "2048", "-n", "DISC", image], check=True, capture_output=True)
    guest.qmp("device_add", driver="usb-bot", id="drive", bus="xhci.0")
    guest.qmp("blockdev-add", **{"driver": "raw", "node-name": "disc", "read-only": True,
                                 "file": {"driver": "file", "filename": str(image), "locking": "off"}})
    guest.qmp("device_add", driver="scsi-cd", id="disc0", bus="drive.0", drive="disc")
    guest.run("modprobe sr_mod")
    plug_bridge(guest, "drive")
    guest.until(lambda: guest.succeeds("test -b /dev/sr0"), 30, "the drive")
    guest.run("mkdir -p /media/disc && mount -o ro /dev/sr0 /media/disc")
    watch.none(lambda line: "adapter-added" in line, 4, "an adapter for a disc")
