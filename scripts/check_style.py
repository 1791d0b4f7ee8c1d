#!/usr/bin/env python3
"""Checks what the sources are to look like, as far as a program can tell.

usage: check_style.py SOURCE_DIRECTORY CLANG_FORMAT    prints what is wrong, one a line; status 1 if anything is

Every header says in its first line what it is. Every method of a port (nsPlatform*.h) names, in the last line of its
documentation, the call of Windows that it stands for: "/// Windows: CALL." What a port calls back (OnSomething), and
what backends share, does not.
Sources are as clang-format lays them out.
"""
import pathlib
import re
import subprocess
import sys

METHOD = re.compile(r"^(.*)\n +virtual [^;{}()]*?\b(\w+)\([^;{}]*\)(?: const)? = 0;", re.M)
LAID_OUT_BY_HAND = {
    "components/utils/src/glue/nsError.h",  # a list of results in columns, which everything includes
}
AT_ONCE = 60


def sources(root):
    listed = subprocess.run(["git", "-C", root, "ls-files", "--cached", "--others", "--exclude-standard", "*.h", "*.cpp"],
                            capture_output=True, text=True)
    if listed.returncode == 0:
        found = [root / name for name in listed.stdout.split("\n") if name]
    else:
        found = [p for p in root.rglob("*") if p.suffix in (".h", ".cpp") and "build" not in p.relative_to(root).parts]
    return sorted(p for p in found if p.is_file())


def wrong_in(path, text):
    if path.suffix == ".h" and not re.match(r"// \S", text):
        yield "1: a header says in its first line what it is: // ..."
    if path.name.startswith("nsPlatform") and path.suffix == ".h" and path.parent.name != "backend":
        for m in METHOD.finditer(text):
            if not m[2].startswith("On") and not re.fullmatch(r"\s*/// Windows: .*\.", m[1]):
                line = text.count("\n", 0, m.start(2)) + 1
                yield f"{line}: {m[2]} does not name the call of Windows that it stands for: /// Windows: CALL."


def main(arguments):
    if len(arguments) != 2:
        sys.exit(__doc__)
    root = pathlib.Path(arguments[0]).resolve()
    files = sources(root)
    if not files:
        sys.exit(f"{root}: no sources found")
    bad = [f"{p.relative_to(root)}:{why}" for p in files for why in wrong_in(p, p.read_text(errors="replace"))]
    checked = [p for p in files if p.relative_to(root).as_posix() not in LAID_OUT_BY_HAND]
    for start in range(0, len(checked), AT_ONCE):
        done = subprocess.run([arguments[1], "--dry-run", *checked[start:start + AT_ONCE]], capture_output=True, text=True)
        found = re.findall(r"^(\S+?):(\d+):\d+: warning", done.stderr, re.M)
        first = {}
        for name, line in found:
            first.setdefault(name, line)
        bad += [f"{pathlib.Path(n).resolve().relative_to(root)}:{line}: not as clang-format -i lays it out"
                for n, line in first.items()]
        if done.returncode != 0 and not found:
            sys.exit(done.stderr)
    print("\n".join(bad))
    sys.exit(1 if bad else 0)


if __name__ == "__main__":
    main(sys.argv[1:])
