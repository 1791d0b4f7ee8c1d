#!/usr/bin/env python3
"""Checks what the component library offers and needs: it exports the module record alone, and of the host it takes no
more than the functions of the headers that are named. It does not name the host's file, so that another host can load it.

usage: check_symbols.py NM LIBRARY HOST HEADER...
"""
import pathlib
import re
import subprocess
import sys


def symbols(nm, kind, library):
    lines = subprocess.run([nm, "-D", kind, library], check=True, capture_output=True, text=True).stdout.splitlines()
    return {line.split()[-1].split("@")[0] for line in lines}


def main(nm, library, host, *headers):
    declared = set()
    for header in headers:
        declared |= set(re.findall(r"\b(\w+)\(", pathlib.Path(header).read_text()))
    exported = symbols(nm, "--defined-only", library)
    taken = symbols(nm, "--undefined-only", library) & symbols(nm, "--defined-only", host)
    wrong = [f"it exports {name}" for name in sorted(exported - {"NSModule"})]
    wrong += [f"it does not export {name}" for name in {"NSModule"} - exported]
    wrong += [f"it takes {name} from the host" for name in sorted(taken - declared)]
    dynamic = subprocess.run(["readelf", "-d", library], check=True, capture_output=True, text=True).stdout
    if f"[{pathlib.Path(host).name}]" in dynamic:
        wrong.append(f"it names {pathlib.Path(host).name} as what it needs")
    if not taken:
        wrong.append("it takes nothing from the host: is this the library?")
    if wrong:
        sys.exit("\n".join(f"{library}: {what}" for what in wrong))


if __name__ == "__main__":
    if len(sys.argv) < 5:
        sys.exit(__doc__)
    main(*sys.argv[1:])
