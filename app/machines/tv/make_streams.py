#!/usr/bin/env python3
"""Makes the recorded streams of the machine tv.json: two frequencies, three services each, of generated pictures and sounds.

usage: make_streams.py [FOLDER]     writes 506000.ts and 538000.ts there, by default beside this script; needs ffmpeg

The bytes are kept in the tree, since other versions of ffmpeg write others. The table of the network, which it does not write, is put in
place of packets that only fill the stream, and that of the services in place of its own. Where the stream begins anew, its clocks say so.
"""
import pathlib
import subprocess
import sys
import tempfile

PACKET = 188
SECONDS = 4
NETWORK = 0x20FA  # of terrestrial television in France
SIZE, FRAMES = "160x90", 12
PICTURE, SOUND = "70k", "32k"
PROVIDER = "Démo"

# Frequency in kHz, identifier of the stream, and the services: number on the remote control, identifier, name, picture, sounds by language.
STREAMS = [
    (506000, 1, [
        (1, 0x101, "Vorel Un", "testsrc2=s={size}:r={rate}", [("fra", "mp2", 440), ("eng", "mp2", 330)]),
        (2, 0x102, "Vorel Deux", "smptehdbars=s={size}:r={rate}", [("fra", "mp2", 392), ("deu", "ac3", 294)]),
        (3, 0x103, "Météo", "testsrc=s={size}:r={rate}", [("fra", "mp2", 523)]),
    ]),
    (538000, 2, [
        (4, 0x201, "Ciné", "pal75bars=s={size}:r={rate}", [("fra", "mp2", 349), ("qaa", "ac3", 262)]),
        (5, 0x202, "Sport", "rgbtestsrc=s={size}:r={rate}", [("fra", "mp2", 587)]),
        (6, 0x203, "Radio Sud", None, [("fra", "mp2", 659)]),
    ]),
]


def record(path, stream_id, services):
    inputs, maps, coders, programs = [], [], [], []
    count = 0
    for _, service, name, picture, sounds in services:
        program = [f"program_num={service}", f"title={name}"]
        sources = [(picture.format(size=SIZE, rate=FRAMES), None)] if picture else []
        for source, sound in sources + [(f"sine=f={tone}:r=32000", (language, coder)) for language, coder, tone in sounds]:
            inputs += ["-f", "lavfi", "-t", str(SECONDS), "-i", source]
            maps += ["-map", str(count)]
            if sound:
                language, coder = sound
                coders += [f"-c:{count}", coder, f"-b:{count}", SOUND, f"-metadata:s:{count}", f"language={language}"]
            else:
                coders += [f"-c:{count}", "libx264", f"-b:{count}", PICTURE, f"-maxrate:{count}", PICTURE, f"-bufsize:{count}", PICTURE,
                           f"-pix_fmt:{count}", "yuv420p", f"-g:{count}", "25", f"-preset:{count}", "slow"]
            program.append(f"st={count}")
            count += 1
        programs += ["-program", ":".join(program)]
    subprocess.run(["ffmpeg", "-v", "fatal", "-y", *inputs, *maps, *coders, *programs, "-mpegts_transport_stream_id", str(stream_id), "-mpegts_original_network_id", str(NETWORK),
                    "-mpegts_flags", "system_b", "-muxrate", "700k", "-pat_period", "0.4", "-sdt_period", "1",
                    "-fflags", "+bitexact", "-flags:v", "+bitexact", "-flags:a", "+bitexact", "-f", "mpegts", path], check=True)


def crc(data):
    value = 0xFFFFFFFF
    for byte in data:
        value ^= byte << 24
        for _ in range(8):
            value = (value << 1 ^ (0x04C11DB7 if value & 0x80000000 else 0)) & 0xFFFFFFFF
    return value


def descriptor(tag, data):
    return bytes([tag, len(data)]) + data


def network_table():
    """The table of the network: both streams, how they are sent, and their services' numbers."""
    name = descriptor(0x40, b"Vorel")
    streams = b""
    for khz, stream_id, services in STREAMS:
        # 8 MHz, 64-QAM, code rate 2/3, guard interval 1/32, 8k; as it is told in France.
        sent = descriptor(0x5A, (khz * 100).to_bytes(4, "big") + bytes([0x1F, 0x81, 0x02, 0xFF, 0xFF, 0xFF, 0xFF]))
        kinds = descriptor(0x41, b"".join(one[1].to_bytes(2, "big") + bytes([1 if one[3] else 2]) for one in services))
        numbers = descriptor(0x5F, bytes(4)) + descriptor(
            0x83, b"".join(one[1].to_bytes(2, "big") + (0xFC00 | one[0]).to_bytes(2, "big") for one in services))
        told = sent + kinds + numbers
        streams += stream_id.to_bytes(2, "big") + NETWORK.to_bytes(2, "big") + (0xF000 | len(told)).to_bytes(2, "big") + told
    body = (NETWORK.to_bytes(2, "big") + bytes([0xC1, 0, 0]) + (0xF000 | len(name)).to_bytes(2, "big") + name
            + (0xF000 | len(streams)).to_bytes(2, "big") + streams)
    return section(0x40, 0xB000, body)


def section(table, flags, body):
    data = bytes([table]) + (flags | len(body) + 4).to_bytes(2, "big") + body
    data += crc(data).to_bytes(4, "big")
    assert len(data) <= PACKET - 5
    return data


def service_table(stream_id, services):
    """What the services are called, in the alphabet of Western Europe."""
    told = b""
    for _, service, name, picture, _ in services:
        texts = [b"\x05" + text.encode("iso-8859-9") for text in (PROVIDER, name)]
        one = descriptor(0x48, bytes([1 if picture else 2]) + b"".join(bytes([len(text)]) + text for text in texts))
        told += service.to_bytes(2, "big") + b"\xfc" + (0x8000 | len(one)).to_bytes(2, "big") + one
    return section(0x42, 0xF000, stream_id.to_bytes(2, "big") + bytes([0xC1, 0, 0]) + NETWORK.to_bytes(2, "big") + b"\xff" + told)


def finish(stream, services):
    """Puts in both tables, and says at each clock's first value that it begins anew."""
    packets = [bytearray(stream[at:at + PACKET]) for at in range(0, len(stream), PACKET)]
    network = network_table()
    fillers = [i for i, packet in enumerate(packets) if packet[1] & 0x1F == 0x1F and packet[2] == 0xFF]
    times = 16  # so that its counter goes on where the stream begins anew
    assert len(fillers) >= times, "no room for the network's table"
    for count in range(times):
        place = fillers[count * len(fillers) // times]
        packets[place] = bytearray((b"\x47\x40\x10" + bytes([0x10 | count & 15, 0]) + network).ljust(PACKET, b"\xff"))
    for packet in packets:
        if packet[1] & 0x1F == 0 and packet[2] == 0x11:
            packet[4:] = (b"\0" + services).ljust(PACKET - 4, b"\xff")
    begun = set()
    for packet in packets:
        pid = (packet[1] & 0x1F) << 8 | packet[2]
        if packet[3] & 0x20 and packet[4] > 0 and packet[5] & 0x10 and pid not in begun:
            begun.add(pid)
            packet[5] |= 0x80
    return b"".join(packets)


def main(arguments):
    if len(arguments) > 1 or arguments[:1] == ["--help"]:
        sys.exit(__doc__)
    folder = pathlib.Path(arguments[0]) if arguments else pathlib.Path(__file__).resolve().parent
    for khz, stream_id, services in STREAMS:
        with tempfile.NamedTemporaryFile(suffix=".ts") as recorded:
            record(recorded.name, stream_id, services)
            stream = finish(pathlib.Path(recorded.name).read_bytes(), service_table(stream_id, services))
        (folder / f"{khz}.ts").write_bytes(stream)
        print(f"{folder / f'{khz}.ts'}: {len(stream)} bytes")


if __name__ == "__main__":
    main(sys.argv[1:])
