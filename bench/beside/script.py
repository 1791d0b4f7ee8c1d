#!/usr/bin/env python3
"""How does crossing between script and compiled code compare with other engines' ways?

    bench/beside/script.py [--vorel build/release/bin/vorel] [TOOL...]

Tools: vorel gjs node; without any, all of them. What is not installed is named as absent. For node a small addon is
compiled with g++ from script_node.cc, against the headers that stand beside node.

Each tool runs the same loops, which stand in script, and the best of five runs counts. Columns, in nanoseconds:

    number    an attribute of a compiled object is read, a number or a boolean
    text in   a text of 22 characters is given to compiled code
    text out  and read from there
    event     compiled code, called by script, calls a function of script
    object    a compiled object is made for script
"""
import argparse
import json
import pathlib
import shutil
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
COLUMNS = ["number", "text in", "text out", "event", "object"]
CALLS = 1000000

# Behind the loops of each tool.
HARNESS = """
const times = {};
for (const [name, loop] of Object.entries(loops)) {
  const calls = CALLS / (name === "object" ? 10 : 1);
  let best = Infinity;
  for (let run = 0; run < 5; ++run) {
    const start = Date.now();
    loop(calls);
    best = Math.min(best, Date.now() - start);
  }
  times[name] = best * 1e6 / calls;
}
(typeof print === "function" ? print : console.log)(JSON.stringify(times));
"""


class Absent(Exception):
    pass


def program(name):
    found = shutil.which(name)
    if not found:
        raise Absent(f"there is no {name}")
    return found


def run(command, directory, loops, head=""):
    script = directory / "loops.js"
    script.write_text(f"{head}const CALLS = {CALLS};\n{(HERE / loops).read_text()}{HARNESS}")
    done = subprocess.run([*command, script], check=True, stdout=subprocess.PIPE, text=True, cwd=directory)
    return json.loads(done.stdout)


def vorel(directory, options):
    binary = pathlib.Path(options.vorel).resolve()
    if not binary.exists():
        raise Absent(f"{options.vorel} has not been built")
    return run([binary, "--profile", directory / "profile"], directory, "script_vorel.js")


def gjs(directory, _):
    return run([program("gjs")], directory, "script_gjs.js")


def node(directory, _):
    binary = program("node")
    beside = pathlib.Path(binary).resolve().parents[1] / "include/node"
    headers = next((path for path in (beside, pathlib.Path("/usr/include/node")) if (path / "node_api.h").exists()), None)
    if not headers:
        raise Absent("node's headers are not installed")
    addon = directory / "addon.node"
    subprocess.run([program("g++"), "-std=c++20", "-O2", "-shared", "-fPIC", f"-I{headers}", HERE / "script_node.cc", "-o",
                    addon], check=True)
    return run([binary], directory, "script_node.js", f"const addon = require({json.dumps(str(addon))});\n")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vorel", default="build/release/bin/vorel")
    parser.add_argument("tools", nargs="*", metavar="TOOL")
    options = parser.parse_args()
    known = {"vorel": vorel, "gjs": gjs, "node": node}
    if unknown := set(options.tools) - set(known):
        sys.exit(f"unknown tool {unknown.pop()}: {' '.join(known)} are known")
    print("".join(f"{column:>10}" for column in ["ns", *COLUMNS]))
    for name in options.tools or known:
        with tempfile.TemporaryDirectory() as directory:
            try:
                times = known[name](pathlib.Path(directory), options)
            except Absent as absent:
                print(f"{name:>10}  absent: {absent}")
            else:
                print(f"{name:>10}" + "".join(f"{times[column]:>10.0f}" for column in COLUMNS), flush=True)


if __name__ == "__main__":
    main()
