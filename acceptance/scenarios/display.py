"""Screens of a graphics card with heads that are connected and disconnected, and one that is asked over its own wire."""
import json
import time

from machine.scenario import scenario
from machine.vm import GuestError
from machine.vnc import Screen

HERE = "DISPLAY=:0"
FIRST, SECOND = "\\\\.\\DISPLAY1", "\\\\.\\DISPLAY2"
WIRE = "/sys/module/ddcmonitor/parameters"


def start_server(guest):
    """The X server, once it takes clients."""
    server = guest.start("exec Xorg :0 -novtswitch -sharevts -keeptty -noreset -nolisten tcp -logfile /tmp/Xorg.log vt1")
    try:
        guest.until(lambda: guest.succeeds(f"{HERE} xrandr --current >/dev/null 2>&1"), 90, "the X server")
    except GuestError as error:
        raise GuestError(f"{error}: {guest.run('tail -20 /tmp/Xorg.log', status=-1)}") from None
    return server


def follow_heads(guest):
    """What a desktop does, and a bare server does not: what is connected is turned on."""
    guest.start("while :; do DISPLAY=:0 xrandr --auto; sleep 0.3; done")


def outputs(guest):
    return {line.split()[0]: line for line in guest.run(f"{HERE} xrandr").splitlines() if "connected" in line}


def displays(guest, options=""):
    return {d["name"]: d for d in json.loads(guest.run(f"{HERE} vorel displays --json {options}"))}


@scenario("Heads of a graphics card are connected, resized and disconnected")
def display_heads(trial):
    guest = trial.guest()
    watch = guest.picture(environment=HERE)
    assert not [a for a in watch.first["adapters"] if "displayMode" in a], "displays without a server"
    at = time.monotonic()
    start_server(guest)
    seen, event = watch.event("adapter-added", within=60, sysPath=FIRST)
    trial.time("start of the X server to listener", at, seen)
    assert event["adapter"]["label"] == "QEMU Monitor (Virtual-1)", event
    follow_heads(guest)
    screen = Screen(guest.screen(1))
    for _ in range(2):
        at = screen.resize(1024, 768)
        seen, event = watch.event("adapter-added", within=45, sysPath=SECOND)
        trial.time("connected, and turned on by another program, to listener", at, seen)
        # Which mode that is, is the other program's choice.
        mode = event["adapter"]["displayMode"]
        line = outputs(guest)["Virtual-2"]
        assert f" {mode['width']}x{mode['height']}+" in line, f"{mode}, and {line}"
        at = screen.resize(0, 0)
        seen, _ = watch.event("adapter-removed", within=45, sysPath=SECOND)
        trial.time("disconnected to listener", at, seen)
    assert list(displays(guest)) == ["DISPLAY1"]


@scenario("A screen is turned, moved and set to another mode, and what it can't is refused")
def display_turned(trial):
    guest = trial.guest()
    start_server(guest)
    Screen(guest.screen(1)).resize(1024, 768)
    guest.until(lambda: " connected" in outputs(guest)["Virtual-2"], 30, "the second head")
    guest.run(f"{HERE} xrandr --output Virtual-2 --auto --right-of Virtual-1")
    watch = guest.picture(environment=HERE)
    for degrees, way in ((90, "left"), (180, "inverted"), (270, "right"), (0, "1280x720+0+0 (")):
        at = time.monotonic()
        guest.run(f"{HERE} vorel displays set Virtual-1 --rotate {degrees}")
        seen, event = watch.event("adapter-changed", within=30, sysPath=FIRST, rotation=degrees)
        trial.time(f"set to {degrees} degrees to listener", at, seen)
        if degrees:
            assert f" {way} (" in outputs(guest)["Virtual-1"], outputs(guest)
        assert event["adapter"]["displayMode"]["width"] == 1920, "a mode is that of the screen that is not turned"
    assert guest.run(f"{HERE} vorel displays set Virtual-1 --mode 1280x768@60 --position 0,100").strip() == ""
    watch.event("adapter-changed", within=30, sysPath=FIRST, displayMode=lambda mode: mode["name"] == "1280x768 60Hz")
    assert "1280x768+0+100" in outputs(guest)["Virtual-1"], outputs(guest)
    before = outputs(guest)
    refused = guest.run(f"{HERE} vorel displays set Virtual-1 --position 30000,0 2>&1", status=1)
    assert "stay as they are: the screen would be" in refused, refused
    assert outputs(guest) == before, "the screen is not as it was"
    guest.run(f"{HERE} vorel displays set Virtual-2 --position 0,0 --stored")
    assert outputs(guest) == before, "what is only stored was set"


@scenario("The X server is killed and started anew, and the stored settings are set by the first application")
def display_server_killed(trial):
    guest = trial.guest()
    server = start_server(guest)
    guest.run(f"{HERE} vorel displays set DISPLAY1 --rotate 90 --stored")
    watch = guest.picture(environment=HERE)
    for _ in range(2):
        at = time.monotonic()
        server.signal(9)
        seen, _ = watch.event("adapter-removed", within=30, sysPath=FIRST)
        trial.time("killed to listener", at, seen)
        guest.run("rm -f /tmp/.X0-lock")
        at = time.monotonic()
        server = start_server(guest)
        seen, event = watch.event("adapter-added", within=30, sysPath=FIRST)
        trial.time("start to listener", at, seen)
        assert event["adapter"]["rotation"] == 0, "looking has set what is stored"
    guest.put("/tmp/app.js", "quit(0);")
    guest.run(f"{HERE} vorel /tmp/app.js")
    watch.event("adapter-changed", within=30, sysPath=FIRST, rotation=90)
    guest.run(f"{HERE} vorel displays set DISPLAY1 --rotate 180")
    guest.run(f"{HERE} vorel displays set DISPLAY1 --rotate 0 --stored && {HERE} vorel /tmp/app.js")
    assert displays(guest)["DISPLAY1"]["rotation"] == 180, "set a second time in one session"


def put_on_the_wire(guest):
    """The first head bears the description of the display on the wire, which is then that display's."""
    guest.run("mount -t debugfs debugfs /sys/kernel/debug && modprobe i2c-dev && modprobe ddcmonitor")
    bus = guest.run("basename $(dirname $(grep -l 'display bus for tests' /sys/bus/i2c/devices/*/name))").strip().removeprefix("i2c-")
    described = guest.run(f"i2ctransfer -y {bus} w1@0x50 0 r128")
    guest.put("/tmp/edid", bytes(int(byte, 16) for byte in described.split()))
    guest.run("cat /tmp/edid > /sys/kernel/debug/dri/0/Virtual-1/edid_override")
    # The card looks anew when its screen has another size, and refuses a first mode that is more than a little smaller than that.
    Screen(guest.screen(0)).resize(1928, 1088)
    same = 'test "$(head -c 128 /sys/class/drm/card0-Virtual-1/edid | md5sum)" = "$(md5sum < /tmp/edid)"'
    guest.until(lambda: guest.succeeds(same), 30, "the description")


@scenario("Brightness and contrast of a display that is asked over its own wire, also when it is slow or deaf")
def display_brightness(trial):
    guest = trial.guest()
    put_on_the_wire(guest)
    start_server(guest)
    shown = displays(guest)["DISPLAY1"]
    assert (shown["label"], shown["brightness"], shown["contrast"]) == ("Lobby Screen (Virtual-1)", 40, 60), shown
    at = time.monotonic()
    watch = guest.picture(environment=HERE)
    if next(a for a in watch.first["adapters"] if a["sysPath"] == FIRST)["brightness"] != 40:
        seen, event = watch.event("adapter-changed", within=20, sysPath=FIRST, brightness=40)
        assert event["adapter"]["contrast"] == 60, event
    trial.time("start to the brightness", at, time.monotonic())

    guest.run(f"{HERE} vorel displays set Virtual-1 --brightness 70 --contrast 35")
    assert guest.run(f"cat {WIRE}/brightness {WIRE}/contrast").split() == ["70", "35"]
    guest.run(f"echo 200 > {WIRE}/maximum; {HERE} vorel displays set Virtual-1 --brightness 0")
    assert guest.run(f"cat {WIRE}/brightness").strip() == "0"
    guest.run(f"{HERE} vorel displays set Virtual-1 --brightness 50")
    assert guest.run(f"cat {WIRE}/brightness").strip() == "100", "of a maximum of 200"

    def seconds(command, status=0):
        began = time.monotonic()
        out = guest.run(f"{HERE} {command}", status=status)
        return time.monotonic() - began, out

    usual = min(seconds("vorel --json")[0] for _ in range(4))
    guest.run(f"echo 700 > {WIRE}/delay_ms")
    slow = min(seconds("vorel --json")[0] for _ in range(4))
    trial.one.times += [("the picture", usual), ("the picture, with a display that takes seconds", slow)]
    assert slow < usual + 1.5, "the picture waits for the display"
    took, _ = seconds("vorel displays")
    assert took < usual + 2.5, f"vorel displays waits for {took:.1f} s"
    guest.run(f"echo 0 > {WIRE}/delay_ms; echo 1 > {WIRE}/deaf")
    took, out = seconds("vorel displays set Virtual-1 --brightness 30 2>&1", 1)
    assert "--brightness of DISPLAY1: the display does not take it" in out and took < usual + 3, (took, out)
    assert displays(guest)["DISPLAY1"]["brightness"] == 0
    guest.run(f"echo 0 > {WIRE}/deaf; {HERE} vorel displays set Virtual-1 --brightness 30")
    assert guest.run(f"cat {WIRE}/brightness").strip() == "60"
