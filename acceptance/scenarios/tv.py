"""Digital television with a tuner of the kernel that plays the streams of app/machines/tv."""
import json
import time

from machine import image
from machine.scenario import Skip, scenario

STREAMS = image.ROOT / "app" / "machines" / "tv"
PLUGGED = "/sys/module/dvbtuner/parameters/plugged"
NODE = "/dev/dvb/adapter0/frontend0"


def plug_in(guest, rate=700000):
    guest.run("mkdir -p /run/streams /run/app")
    for path in STREAMS.glob("*.ts"):
        guest.put(f"/run/streams/{path.name}", path.read_bytes())
    guest.run(f"modprobe dvbtuner rate={rate} && udevadm settle -t 10", 60)
    guest.until(lambda: guest.succeeds(f"ls {NODE}"), 20, "the tuner")


@scenario("A tuner is found, scanned, its services stored, selected and played, and it is pulled out", long=True)
def tv_tuner(trial):
    guest = trial.guest()
    plug_in(guest)
    listed = json.loads(guest.run("vorel --log off --app /run/app tv --json"))
    assert len(listed) == 1 and listed[0]["name"] == "Test tuner DVB-T" and listed[0]["system"] == "terrestrial", listed
    assert json.loads(guest.run("vorel --log off --app /run/app tv services --json 2>/dev/null")) == []

    began = time.monotonic()
    found = json.loads(guest.run("vorel --log off --app /run/app tv scan FR --store --json 2>/run/errors || { cat /run/errors >&2; false; }", 300))
    trial.time("scan of 28 frequencies, two with a signal", began, time.monotonic())
    assert [one["name"] for one in found] == ["Vorel Un", "Vorel Deux", "Météo", "Ciné", "Sport", "Radio Sud"], found
    assert {one["frequency"] for one in found} == {506000, 538000}, found
    assert all(one["level"] == -45000 and one["quality"] == 83 for one in found), found
    stored = json.loads(guest.run("vorel --log off --app /run/app tv services --json"))
    assert [(one["name"], one["videoPid"], one["audio"]) for one in stored] == [
        (one["name"], one["videoPid"], one["audio"]) for one in found], stored

    guest.run("vorel --log off --app /run/app tv play 'vorel deux' --language fra --seconds 8 --info > /run/deux.ts 2> /run/info", 60)
    info = guest.run("cat /run/info")
    assert "level -45.0 dB, quality 83 %" in info, info
    report = json.loads(guest.run("vorel --log off --app /run/app tv inspect --json /run/deux.ts", 30, status=-1))
    assert report["totals"]["packets"] > 500 and report["totals"]["skippedBytes"] == 0, report["totals"]
    # Table, map, picture and the French sound of this service, and nothing else.
    deux = found[1]
    assert {one["pid"] for one in report["pids"]} == {0, deux["pmtPid"], deux["videoPid"], deux["audio"][0]["pid"]}, report["pids"]

    holder = guest.start(f"exec python3 -c 'import time; f = open(\"{NODE}\", \"r+b\", buffering=0); print(\"held\", flush=True); time.sleep(1000)'")
    holder.expect(lambda text: text == "held", 20)
    refused = guest.run("vorel --log warning --app /run/app tv play Sport --seconds 1 2>&1", status=1)
    assert "is used by the process" in refused and "(python3)" in refused, refused
    holder.stop()

    player = guest.start("vorel --log off --app /run/app tv play Sport 2>&1 > /run/sport.ts; echo ended $?")
    guest.until(lambda: guest.succeeds("test -s /run/sport.ts"), 20, "the first packets")
    at = time.monotonic()
    guest.run(f"echo 0 > {PLUGGED}")
    seen, _ = player.expect(lambda text: "the receiver has gone" in text, 20)
    trial.time("pulled out until it is told", at, seen)
    _, ended = player.expect(lambda text: text.startswith("ended"), 20)
    assert ended == "ended 1", ended
    assert guest.run("vorel --log off --app /run/app tv").strip() == "no receivers"
    guest.run(f"echo 1 > {PLUGGED} && udevadm settle -t 10")
    assert json.loads(guest.run("vorel --log off --app /run/app tv --json"))[0]["path"] == listed[0]["path"], "it has another path than before"


@scenario("The port of tuners keeps what it promises with the kernel's demultiplexer")
def tv_contract(trial):
    tests = image.ROOT / "build" / "release" / "bin" / "system_contract"
    if not tests.exists():
        raise Skip("build/release/bin/system_contract is not built")
    guest = trial.guest()
    plug_in(guest, rate=20000000)
    guest.bring(tests, "/run/system_contract")
    guest.run("LD_LIBRARY_PATH=$(dirname $(readlink -f $(command -v vorel))) "
              "/run/system_contract --gtest_brief=1 --gtest_filter='Linux/TunersContract*' > /run/log 2>&1 || "
              "{ cat /run/log; false; }", 300)
    passed = guest.run("cat /run/log")
    assert "SKIPPED" not in passed, passed
