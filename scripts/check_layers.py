#!/usr/bin/env python3
"""Checks that every include keeps to the layers of ARCHITECTURE.md, that no two rooms use each other, and that none is crowded.

usage: check_layers.py SOURCE_DIRECTORY            prints what does not, one a line; status 1 if there is anything
       check_layers.py --rooms SOURCE_DIRECTORY    prints the rooms of the library and of the host, each above those that it uses
"""
import pathlib
import re
import sys

# A folder belongs to the layer of its longest prefix here. Below ROOMS each folder is a layer of its own name, and a
# folder of a platform belongs to that room's native backend, "native ROOM".
LAYERS = {
    "host/xpcom/public": "platform",
    "components/system/public": "public",
    "components/utils/src/glue": "glue",
    "components/utils/src/threads": "threads",
    "components/utils/src/native": "native",
    "components/system/src/base": "base",
    "components/system/src/module": "module",
    "components/system/simulated": "simulated",
    "components/system/script": "bindings",
    "components/system/tools": "tools",
    "host/public": "embedding",
    "host/xpcom": "host",
    "host/script": "bridge",
    "host/script/mozjs": "engine",
    "app": "program",
}
ROOMS = re.compile(r"components/system/src/((?:base|adapters|apb)/.+)$")
PLATFORMS = {"linux", "windows"}

# What a layer may include with quotation marks; "port" is a header nsPlatform*.h of any room, "*" all rooms and their
# backends. A room may always use itself, and a backend its own room's ports.
BASIC = {"platform", "glue"}
MAY = {
    "platform": {"platform", "glue"},
    "public": {"public", "platform", "glue"},
    "glue": BASIC,
    "threads": BASIC | {"threads"},
    "native": BASIC | {"threads", "native"},
    "base": BASIC | {"threads", "public"},
    "room": BASIC | {"threads", "public", "base"},
    "adapters/digitaltv": BASIC | {"threads", "public", "base", "adapters/digitaltv/ts"},
    "adapters/digitaltv/receiver": BASIC | {"threads", "public", "port", "base", "adapters/digitaltv", "adapters/digitaltv/ts"},
    "adapters/digitaltv/ts": BASIC,
    "base/backend": BASIC | {"threads", "port"},
    "base/discovery": BASIC | {"threads", "public", "base", "port", "adapters"},
    "adapters/digitaltv/graph": BASIC | {"threads", "public", "port", "adapters/digitaltv"},
    "backend": BASIC | {"threads", "native", "base/backend", "native base/backend", "adapters/digitaltv/ts"},
    "module": BASIC | {"threads", "public", "port", "simulated", "native", "*"},
    "simulated": BASIC | {"threads", "port", "base/backend", "simulated", "adapters/digitaltv/ts"},
    "tools": BASIC | {"threads", "public", "native", "adapters/digitaltv", "adapters/digitaltv/ts", "tools"},
    "bindings": BASIC | {"public", "embedding", "bindings"},
    "embedding": BASIC | {"embedding"},
    "host": BASIC | {"threads", "embedding", "native", "host"},
    "bridge": BASIC | {"threads", "embedding", "host", "bridge"},
    "engine": BASIC | {"threads", "embedding", "host", "bridge", "engine"},
    "program": BASIC | {"threads", "native", "public", "embedding", "bindings", "program"},
}


def may_use(mine, theirs, is_port):
    """Whether a file of the layer mine may include a header of the layer theirs."""
    if mine == theirs:
        return True
    if mine.startswith("native "):
        room = mine.removeprefix("native ")
        allowed = MAY["backend"]
        if is_port and (theirs in ("base", room) or room == "base/discovery"):
            return True
    else:
        allowed = MAY.get(mine) or MAY["room"]
    if is_port and ("port" in allowed or theirs in allowed):
        return True
    if theirs.startswith("adapters/") and "adapters" in allowed:
        return True
    if "*" in allowed and ("/" in theirs or theirs in ("base", "native base")):
        return True
    return theirs in allowed


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
ONLY_STANDARD = {"platform", "public", "glue", "threads", "base", "room", "module", "simulated", "bindings", "embedding", "host",
                 "bridge", "engine", "program"}
NSPR = re.compile(r"(nspr/)?(pr|pl)\w+\.h$")
MORE = {  # beside the standard library
    "glue": NSPR,
    "threads": NSPR,
    "module": NSPR,
    "host": re.compile(r"((nspr/)?(pr|pl)\w+|spdlog/.+|fmt/\w+|fontconfig/fontconfig)\.h$|nlohmann/json\.hpp$"),
    "base": re.compile(r"(nspr/)?(pr|pl)\w+\.h$"),
    "room": re.compile(r"((nspr/)?(pr|pl)\w+|ft2build)\.h$"),
    "adapters/digitaltv/ts": re.compile(r"immintrin\.h$"),  # what the processor has, not the system
    "engine": re.compile(r"(js/.+|jsapi|jsfriendapi|prio)\.h$"),
    "simulated": re.compile(r"nlohmann/json(_fwd)?\.hpp$"),
}
LOCKS = {"mutex", "shared_mutex", "condition_variable"}
ENGINE = re.compile(r"(js/|jsapi|jsfriendapi|mozilla/)")
INCLUDE = re.compile(r'\s*#\s*include\s+(["<])([^">]+)[">]')


def layer(path):
    text = path.as_posix()
    room = ROOMS.match(path.parent.as_posix())
    if room:
        parts = room[1].split("/")
        return "native " + "/".join(parts[:-1]) if parts[-1] in PLATFORMS else "/".join(parts)
    fits = [p for p in LAYERS if text.startswith(p + "/")]
    return LAYERS[max(fits, key=len)] if fits else None


CROWDED = 25  # files in one folder
TREES = ("components/system/src", "host")


def read_rooms(root, tree):
    """The sources of a tree; and its rooms, folders with their platforms: what each uses, with an include that shows it."""
    files = [p for p in (root / tree).rglob("*") if p.suffix in (".h", ".cpp") and "tests" not in p.parts]
    room = lambda p: p.parent.parent if p.parent.name in PLATFORMS else p.parent
    where = {p.name: room(p) for p in files if p.suffix == ".h"}
    uses = {room(p): {} for p in files}
    for path in files:
        for line in path.read_text(errors="replace").split("\n"):
            m = INCLUDE.match(line)
            theirs = m and where.get(m[2].rsplit("/", 1)[-1])
            if theirs and theirs != room(path):
                uses[room(path)].setdefault(theirs, f"{path.name} includes {m[2]}")
    return files, uses


def draw_rooms(root, tree):
    """Prints the rooms of a tree floor by floor, the top one first, with what each uses: all of that stands below it."""
    _, uses = read_rooms(root, tree)
    name = lambda room: room.relative_to(root / tree).as_posix()
    floors = {}
    while len(floors) < len(uses):
        ready = {r for r in uses if r not in floors and uses[r].keys() <= floors.keys()}
        if not ready:
            sys.exit("in a circle: " + " ".join(sorted(name(r) for r in uses.keys() - floors.keys())))
        floors.update(dict.fromkeys(ready, 1 + max(floors.values(), default=0)))
    print(tree)
    for room in sorted(uses, key=lambda r: (-floors[r], r)):
        print(f"{floors[room]:3}  {name(room)}: " + " ".join(sorted(map(name, uses[room]))))


def check_rooms(root, tree):
    """Prints the rooms of a tree that use each other in a circle, and crowded folders."""
    files, uses = read_rooms(root, tree)
    bad = 0

    def below(start):
        seen, todo = set(), [start]
        while todo:
            todo += [r for r in uses[todo.pop()] if r not in seen and not seen.add(r)]
        return seen

    for mine in sorted(uses):
        for theirs, why in sorted(uses[mine].items()):
            if mine in below(theirs):
                print(f"{mine.relative_to(root)}: {why}: {theirs.relative_to(root)} uses this room, too")
                bad += 1
    for folder in sorted({p.parent for p in files}):
        count = sum(p.parent == folder for p in files)
        if count > CROWDED:
            print(f"{folder.relative_to(root)}: {count} files, more than {CROWDED}")
            bad += 1
    return bad


def main(root):
    files = [p.relative_to(root) for p in root.rglob("*") if p.suffix in (".h", ".cpp") and "build" not in p.parts]
    files = [p for p in files if "tests" not in p.parts and layer(p)]
    where = {p.name: layer(p) for p in files if p.suffix == ".h"}
    bad = 0
    for path in files:
        mine = layer(path)
        kind = "backend" if mine.startswith("native") else mine if mine in MAY and "/" not in mine else "room"
        for number, line in enumerate((root / path).read_text(errors="replace").split("\n"), 1):
            m = INCLUDE.match(line)
            if not m:
                continue
            quoted, name = m[1] == '"', m[2]
            base = name.rsplit("/", 1)[-1]
            why = None
            if name in LOCKS and path.name != "nsLock.h":
                why = "locks are those of nsLock.h, which the compiler checks"
            elif ENGINE.match(name) and mine != "engine":
                why = "the script engine is seen in host/script/mozjs only"
            elif quoted:
                theirs = where.get(base, "platform")  # made by the build: a platform interface
                if mine == "host" and base == "nsScriptHost.h":
                    why = "the host does not call the bridge"
                elif not may_use(mine, theirs, base.startswith("nsPlatform")):
                    why = f"{mine} may not use {theirs}"
            elif kind in ONLY_STANDARD and not PLATFORMS & set(path.parts) and name not in STANDARD and not any(MORE[k].match(name) for k in (mine, kind) if k in MORE):
                why = f"{mine} may not see this header"
            if why:
                print(f"{path}:{number}: {line.strip()}: {why}")
                bad += 1
    if not files:
        sys.exit("no sources found")
    bad += sum(check_rooms(root, tree) for tree in TREES)
    sys.exit(1 if bad else 0)


if __name__ == "__main__":
    if len(sys.argv) == 3 and sys.argv[1] == "--rooms":
        for each in TREES:
            draw_rooms(pathlib.Path(sys.argv[2]).resolve(), each)
    elif len(sys.argv) == 2:
        main(pathlib.Path(sys.argv[1]).resolve())
    else:
        sys.exit(__doc__)
