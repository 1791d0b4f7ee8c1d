#!/usr/bin/env python3
"""How fast, and at what cost, does one service of two come out of a transport stream that is there already?

    bench/beside/television.py [--vorel build/release/bin/vorel] [TOOL...]

Tools: vorel ffmpeg filter; without any, all of them. What is not installed is named as absent. ffmpeg is a package of the distribution and makes
the stream too; filter is the choice of packets alone, BM_BareFilter of build/release/bin/bench_receiver, with nothing behind it.

vorel plays a simulated tuner that gives packets as fast as they are read (`vorel tv play`), ffmpeg reads the same file round and round
and copies the service's streams. Both write to a pipe that is read in pieces of 64 KiB for five seconds. Columns: megabytes of the service a second,
and seconds of processor a gigabyte.
"""
import argparse
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time

SECONDS = 5
CHANNEL = ("One(P):506000000:INVERSION_AUTO:BANDWIDTH_8_MHZ:FEC_2_3:FEC_1_2:QAM_64:TRANSMISSION_MODE_8K:GUARD_INTERVAL_1_32:"
           "HIERARCHY_NONE:256+4096:257=fra;;:1\n")


class Absent(Exception):
    pass


def make(folder):
    """Two services of pictures and sound, 12 Mbit/s each; where the first one stands among the stored ones."""
    if not shutil.which("ffmpeg"):
        raise Absent("there is no ffmpeg to make the stream")
    command = ["ffmpeg", "-v", "fatal", "-y"]
    for tone in (440, 880):
        command += ["-f", "lavfi", "-i", "testsrc2=s=1280x720:r=25,noise=alls=80:allf=t", "-f", "lavfi", "-i", f"sine=f={tone}"]
    for stream in range(4):
        command += ["-map", str(stream)]
    command += ["-t", "3", "-c:v", "mpeg2video", "-b:v", "12M", "-maxrate", "12M", "-bufsize", "4M", "-c:a", "mp2",
                "-program", "title=One:st=0:st=1", "-program", "title=Two:st=2:st=3", "-f", "mpegts", folder / "two.ts"]
    subprocess.run(command, check=True)
    (folder / "tv.json").write_text(json.dumps({"tuners": [{"path": "tuner", "rate": "fast", "frequencies": [
        {"frequency": 506000, "lockDelay": 0, "stream": "two.ts"}]}]}))
    stored = folder / "defaults" / "channelconf" / "dvb-t"
    stored.mkdir(parents=True)
    (stored / "channels.conf").write_text(CHANNEL)
    (folder / "application.ini").write_text("")


def command_of(tool, options, folder):
    if tool == "ffmpeg":
        return ["ffmpeg", "-v", "error", "-stream_loop", "-1", "-i", folder / "two.ts", "-map", "0:p:1", "-c", "copy", "-f", "mpegts", "-"]
    if not pathlib.Path(options.vorel).exists():
        raise Absent(f"{options.vorel} has not been built")
    return [options.vorel, "--log", "off", "--profile", folder / "profile", "--app", folder, "--machine", folder / "tv.json", "tv", "play", "One"]


def played(command):
    """Megabytes a second, and seconds of processor a gigabyte."""
    def processor(pid):
        paths = pathlib.Path(f"/proc/{pid}/task").glob("*/schedstat")
        return sum(int(path.read_text().split()[0]) for path in paths) / 1e9
    with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL) as process:
        out = process.stdout.fileno()
        if not os.read(out, 1 << 16):
            raise Absent("it plays nothing")
        size, start, spent = 0, time.monotonic(), processor(process.pid)
        while time.monotonic() < start + SECONDS:
            size += len(os.read(out, 1 << 16))
        took, spent = time.monotonic() - start, processor(process.pid) - spent
        process.kill()
    return size / took / 1e6, spent / size * 1e9


def filtered(options):
    bench = pathlib.Path(options.vorel).with_name("bench_receiver")
    if not bench.exists():
        raise Absent(f"{bench} has not been built")
    run = subprocess.run([bench, "--benchmark_filter=BareFilter/others:5", "--benchmark_format=json"], check=True, capture_output=True)
    figure = json.loads(run.stdout)["benchmarks"][0]
    rate = figure["bytes_per_second"]
    return rate / 1e6, 1e9 / rate * figure["cpu_time"] / figure["real_time"]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vorel", default="build/release/bin/vorel")
    parser.add_argument("tools", nargs="*", metavar="TOOL")
    options = parser.parse_args()
    known = ["vorel", "ffmpeg", "filter"]
    if unknown := set(options.tools) - set(known):
        sys.exit(f"unknown tool {unknown.pop()}: {' '.join(known)} are known")
    print(f"{'':>10}{'MB/s':>10}{'CPU s/GB':>10}")
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        try:
            make(folder)
        except Absent as absent:
            sys.exit(str(absent))
        for tool in options.tools or known:
            try:
                rate, cost = filtered(options) if tool == "filter" else played(command_of(tool, options, folder))
                print(f"{tool:>10}{rate:>10.0f}{cost:>10.2f}")
            except Absent as absent:
                print(f"{tool:>10}  absent: {absent}")


if __name__ == "__main__":
    main()
