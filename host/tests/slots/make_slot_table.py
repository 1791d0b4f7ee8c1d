#!/usr/bin/env python3
"""Makes the rows of slot_test.cpp: what the platform's table says of each operation, beside the compiled headers.

usage: make_slot_table.py TABLE DEFINITIONS OUTPUT

Of an interface that is declared in part (see platform.def) the rows up to its last declared operation are taken;
those left out, and whole interfaces, are listed too, so that the test can say which they are.
"""
import collections
import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).parents[2] / "xpcom"))
import generate_interfaces  # noqa: E402


def main(table, definitions, output):
    declared = generate_interfaces.parse(definitions)
    rows, interfaces, left_out = [], [], collections.Counter()
    for line in pathlib.Path(table).read_text().splitlines()[1:]:
        name, iid, parent, slot, operation, result, arguments = line.split("\t")
        if name != "nsISupports" and name not in declared:
            left_out[name] += 1
            continue
        base = "void" if parent == "None" else parent
        header = f'INTERFACE({name}, {base}, "{iid}")'
        if header not in interfaces:
            interfaces.append(header)
        if operation == "-":
            continue
        if name != "nsISupports" and int(slot) >= declared[name].next:
            left_out[name] += 1
            continue
        types = ", ".join(arguments.split("; "))
        rows.append(f"OPERATION({name}, {slot}, {operation}, {result}, ({types}))")
    includes = [f'#include "{name}.h"' for name in declared]
    lists = interfaces + rows + [f'LEFT_OUT("{name}", {count})' for name, count in sorted(left_out.items())]
    text = "\n".join(["#ifdef INCLUDES", *includes, "#else", *lists, "#endif", ""])
    pathlib.Path(output).parent.mkdir(parents=True, exist_ok=True)
    pathlib.Path(output).write_text(text)


if __name__ == "__main__":
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    main(*sys.argv[1:])
