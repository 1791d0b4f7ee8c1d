#!/usr/bin/env python3
"""Checks that every include keeps to the layers of ARCHITECTURE.md.

usage: check_layers.py SOURCE_DIRECTORY      prints each include that does not, one a line; status 1 if there are any
"""
import pathlib
import re
import sys

# A folder belongs to the layer of its longest prefix here.
LAYERS = {
    "host/xpcom/public": "platform",
    "components/system/public": "public",
    "components/utils/src/glue": "glue",
    "components/utils/src/threads": "threads",
    "components/system/src/base": "logic",
    "components/system/src/adapters": "logic",
    "components/system/src/apb": "logic",
    "components/system/src/base/linux": "native",
    "components/system/src/adapters/linux": "native",
    "components/system/src/base/windows": "native",
    "components/system/src/adapters/windows": "native",
    "components/system/src/module": "module",
    "components/system/simulated": "simulated",
    "components/system/script": "bindings",
    "host/public": "embedding",
    "host/xpcom": "host",
    "host/script": "bridge",
    "host/script/mozjs": "engine",
    "app": "program",
}

# What a layer may include with quotation marks. A port is a header of the logic named nsPlatform*.h.
BASIC = {"platform", "glue"}
MAY = {
    "platform": {"platform", "glue"},
    "public": {"public", "platform", "glue"},
    "glue": BASIC,
    "threads": BASIC | {"threads"},
    "logic": BASIC | {"threads", "public", "logic", "port"},
    "native": BASIC | {"port", "native"},
    "module": BASIC | {"threads", "public", "logic", "port", "native", "simulated", "module"},
    "simulated": BASIC | {"port", "simulated"},
    "bindings": BASIC | {"public", "embedding", "bindings"},
    "embedding": BASIC | {"embedding"},
    "host": BASIC | {"threads", "embedding", "host"},
    "bridge": BASIC | {"threads", "embedding", "host", "bridge"},
    "engine": BASIC | {"threads", "embedding", "host", "bridge", "engine"},
    "program": BASIC | {"threads", "public", "embedding", "bindings", "program"},
}

# What may stand in angle brackets where the system and other libraries may not be seen.
STANDARD = set(
    """algorithm any array atomic bit bitset cassert cctype cerrno cfloat charconv chrono cinttypes climits clocale
    cmath compare concepts condition_variable csignal cstdarg cstddef cstdint cstdio cstdlib cstring ctime cwchar deque
    exception filesystem forward_list fstream functional future initializer_list iomanip ios iosfwd iostream istream
    iterator limits list locale map memory memory_resource mutex new numbers numeric optional ostream queue random
    ranges ratio regex semaphore set shared_mutex source_location span sstream stack stdexcept stop_token streambuf
    string string_view system_error thread tuple type_traits typeindex typeinfo unordered_map unordered_set utility
    valarray variant vector version""".split()
)
ONLY_STANDARD = {"platform", "public", "glue", "threads", "logic", "module", "simulated", "bindings", "embedding"}
NSPR = re.compile(r"(nspr/)?(pr|pl)\w+\.h$")
MORE = {  # beside the standard library
    "glue": NSPR,
    "threads": NSPR,
    "module": NSPR,
    "logic": re.compile(r"((nspr/)?(pr|pl)\w+|ft2build)\.h$"),
    "simulated": re.compile(r"nlohmann/json(_fwd)?\.hpp$"),
}
ENGINE = re.compile(r"(js/|jsapi|jsfriendapi|mozilla/)")
INCLUDE = re.compile(r'\s*#\s*include\s+(["<])([^">]+)[">]')


def layer(path):
    text = path.as_posix()
    fits = [p for p in LAYERS if text.startswith(p + "/")]
    return LAYERS[max(fits, key=len)] if fits else None


def main(root):
    files = [p.relative_to(root) for p in root.rglob("*") if p.suffix in (".h", ".cpp") and "build" not in p.parts]
    files = [p for p in files if "tests" not in p.parts and layer(p)]
    where = {p.name: layer(p) for p in files if p.suffix == ".h"}
    where = {n: "port" if l == "logic" and n.startswith("nsPlatform") else l for n, l in where.items()}
    bad = 0
    for path in files:
        mine = layer(path)
        for number, line in enumerate((root / path).read_text(errors="replace").split("\n"), 1):
            m = INCLUDE.match(line)
            if not m:
                continue
            quoted, name = m[1] == '"', m[2]
            base = name.rsplit("/", 1)[-1]
            why = None
            if ENGINE.match(name) and mine != "engine":
                why = "the script engine is seen in host/script/mozjs only"
            elif quoted:
                theirs = where.get(base, "platform")  # made by the build: a platform interface
                if theirs not in MAY[mine]:
                    why = f"{mine} may not use {theirs}"
            elif mine in ONLY_STANDARD and name not in STANDARD and not (mine in MORE and MORE[mine].match(name)):
                why = f"{mine} may not see this header"
            if why:
                print(f"{path}:{number}: {line.strip()}: {why}")
                bad += 1
    if not files:
        sys.exit("no sources found")
    sys.exit(1 if bad else 0)


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    main(pathlib.Path(sys.argv[1]).resolve())
