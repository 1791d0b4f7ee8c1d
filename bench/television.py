#!/usr/bin/env python3
"""What television costs the program, on simulated tuners: from a selection to its first packet, a scan where nothing is on the air, playing a
stream of 30 Mbit/s, and doing nothing.

usage: television.py VOREL [scan]     VOREL is the program of the release preset; with "scan" also the scan, which takes a minute

Needs ffmpeg, for the stream.
"""
import glob
import json
import pathlib
import subprocess
import sys
import tempfile
import time

SELECT = """
const { classes, interfaces } = Components;
const receiver = systemManager.getAdaptersByIId(interfaces.nsISystemAdapterDigitalTvReceiver)[0];
const times = [];
for (let i = 0; i < 20; ++i) {
  const begin = Date.now();
  receiver.selectChannelByName("Large", "", 0);
  const input = classes["@mozilla.org/binaryinputstream;1"].createInstance(interfaces.nsIBinaryInputStream);
  input.setInputStream(receiver.stream);
  input.readBytes(188);
  times.push(Date.now() - begin);
}
console.log(JSON.stringify(times));
quit(0);
"""
SCAN = """
const { interfaces } = Components;
const receiver = systemManager.getAdaptersByIId(interfaces.nsISystemAdapterDigitalTvReceiver)[0];
const country = Array.from(receiver.supportedCountries).find((one) => one.code === arguments[0]);
const begin = Date.now();
receiver.startScan(country);
const timer = setInterval(() => {
  const { state, total, locked } = receiver.getScanProgress();
  if (state === 0) return;
  console.log(JSON.stringify({ state, total, locked, seconds: (Date.now() - begin) / 1000 }));
  quit(0);
}, 20);
"""
CHANNEL = ("Large(P):506000000:INVERSION_AUTO:BANDWIDTH_8_MHZ:FEC_2_3:FEC_1_2:QAM_64:TRANSMISSION_MODE_8K:GUARD_INTERVAL_1_32:"
           "HIERARCHY_NONE:256+4096:257=fra;;:1\n")


def prepare(folder):
    """A machine with a stream of 30 Mbit/s and one with nothing on the air, an application, and the stored service."""
    subprocess.run(["ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", "testsrc2=s=1280x720:r=25,noise=alls=80:allf=t",
                    "-f", "lavfi", "-i", "sine=f=440", "-t", "2", "-c:v", "mpeg2video", "-b:v", "28M", "-minrate", "28M", "-maxrate", "28M",
                    "-bufsize", "9M", "-c:a", "mp2", "-muxrate", "30M", "-f", "mpegts", folder / "large.ts"], check=True)
    on_air = [{"frequency": 506000, "lockDelay": 50, "stream": "large.ts"}]
    for name, frequencies in (("large", on_air), ("empty", [])):
        (folder / f"{name}.json").write_text(json.dumps({"tuners": [{"path": "tuner", "frequencies": frequencies}]}))
    stored = folder / "defaults" / "channelconf" / "dvb-t"
    stored.mkdir(parents=True)
    (stored / "channels.conf").write_text(CHANNEL)
    (folder / "application.ini").write_text("")
    (folder / "select.js").write_text(SELECT)
    (folder / "scan.js").write_text(SCAN)
    (folder / "idle.js").write_text("setTimeout(() => quit(0), 60000);")


def cost(command, settle, during=10):
    """The share of a core that it takes, and how often its threads are woken a second."""
    with subprocess.Popen(command, stdout=subprocess.DEVNULL) as process:
        def look():
            woken = 0
            for path in glob.glob(f"/proc/{process.pid}/task/*/status"):
                woken += sum(int(line.split()[1]) for line in open(path) if line.startswith("voluntary_ctxt"))
            total = sum(int(pathlib.Path(path).read_text().split()[0]) for path in glob.glob(f"/proc/{process.pid}/task/*/schedstat"))
            return woken, total / 1e9
        time.sleep(settle)
        first = look()
        time.sleep(during)
        last = look()
        process.terminate()
    return (last[1] - first[1]) / during, (last[0] - first[0]) / during


def main(arguments):
    if not arguments or arguments[1:] not in ([], ["scan"]):
        sys.exit(__doc__)
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        prepare(folder)

        def vorel(machine, *rest):
            return [arguments[0], "--log", "off", "--profile", folder / "profile", "--app", folder, "--machine", folder / f"{machine}.json", *rest]

        times = sorted(json.loads(subprocess.run(vorel("large", folder / "select.js"), check=True, capture_output=True).stdout))
        print(f"selection to first packet, 50 ms to lock: p50 {times[10]} ms, longest {times[-1]} ms")
        share, woken = cost(vorel("large", "tv", "play", "Large"), 2)
        print(f"playing 30 Mbit/s: {share * 100:.2f} % of a core, {woken:.0f} wake-ups a second")
        share, woken = cost(vorel("large", folder / "idle.js"), 3)
        print(f"idle: {share * 100:.2f} % of a core, {woken:.1f} wake-ups a second")
        if arguments[1:]:
            print("scan:", subprocess.run(vorel("empty", folder / "scan.js", "ZA"), check=True, capture_output=True, text=True).stdout.strip())


if __name__ == "__main__":
    main(sys.argv[1:])
