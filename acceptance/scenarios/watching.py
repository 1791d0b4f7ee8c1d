"""`vorel watch` on the file systems that a player has."""
import json
import time

from machine.scenario import scenario
from scenarios.storage import stick


def ext4(guest, where, name="disk", mib=64):
    guest.run(f"truncate -s {mib}M /run/{name}.img && mkfs.ext4 -q /run/{name}.img && mkdir -p {where} && mount -o loop /run/{name}.img {where}", 120)


def watch(guest, directory):
    process = guest.start(f"exec vorel watch {directory} --json")
    process.expect(lambda line: '"started"' in line, 60, "start")
    return process


def told(process, event, within=20, **facts):
    at, _ = process.expect(lambda line: all(json.loads(line).get(k) == v for k, v in dict(facts, event=event).items()), within, f"{event} {facts}")
    return at


def tour(trial, guest, directory, what, links=True):
    """The same changes on each file system; what differs between them must not show."""
    guest.run(f"mkdir -p {directory}/old/deep {directory}/kept && echo 1 > {directory}/old/deep/file && echo 1 > {directory}/kept/one")
    process = watch(guest, directory)
    at = time.monotonic()
    guest.run(f"echo 2 > {directory}/new")
    trial.time(f"{what}: new file to line", at, told(process, "added", path="new"))
    guest.run(f"mv {directory}/kept/one {directory}/old/two")
    told(process, "moved", **{"from": "kept/one", "to": "old/two"})
    guest.run(f"mv {directory}/old {directory}/moved")
    told(process, "moved", **{"from": "old/", "to": "moved/"})
    guest.run(f"echo 3 > {directory}/moved/deep/later")
    told(process, "added", path="moved/deep/later")
    # Numbers of files are used again at once on some file systems.
    guest.run(f"rm -rf {directory}/moved; mkdir -p {directory}/fresh/x/y; touch {directory}/fresh/x/y/deep")
    told(process, "added", path="fresh/x/y/deep", within=30)
    assert process.stop() in (0, -15, 143), process.status


@scenario("Changes below a directory of ext4")
def watching_ext4(trial):
    guest = trial.guest()
    ext4(guest, "/mnt/ext4")
    tour(trial, guest, "/mnt/ext4", "ext4")


@scenario("Changes below a directory of an overlay, the usual read-only player")
def watching_overlay(trial):
    guest = trial.guest()
    tour(trial, guest, "/var/content", "overlay")


@scenario("Changes below a directory of vfat, which has no numbers of files")
def watching_vfat(trial):
    guest = trial.guest()
    guest.run("truncate -s 64M /run/fat.img && mkfs.vfat /run/fat.img && mkdir -p /mnt/fat && mount -o loop /run/fat.img /mnt/fat", 120)
    tour(trial, guest, "/mnt/fat", "vfat")


@scenario("A stick is pulled while it is watched; what is watched beside it goes on")
def watching_pulled_stick(trial):
    guest = trial.guest()
    name, _ = guest.plug_stick(stick(trial, "stick"))
    guest.until(lambda: guest.succeeds("test -b /dev/sda1"), 30, "the stick's partition")
    guest.run("mkdir -p /mnt/stick /var/other && mount /dev/sda1 /mnt/stick && mkdir /mnt/stick/content && echo 1 > /mnt/stick/content/film")
    pulled, other = watch(guest, "/mnt/stick"), watch(guest, "/var/other")
    guest.unplug(name)
    guest.until(lambda: not guest.succeeds("test -b /dev/sda1"), 20, "the stick to go")
    at = time.monotonic()
    guest.run("umount -l /mnt/stick")
    pulled.expect(lambda line: '"stopped"' in line or '"error"' in line or '"removed"' in line, 30, "word that the root has gone")
    trial.time("unmount to line", at, time.monotonic())
    guest.run("echo 2 > /var/other/file")
    told(other, "added", path="file")
    if pulled.status is None:
        pulled.stop()
    assert pulled.status is not None, "the watch of a stick that was pulled can't be ended"
    other.stop()
