#!/usr/bin/env python3
"""Makes one C++ header for each interface of a definition file.

usage: generate_interfaces.py DEFINITIONS OUTPUT_DIRECTORY   writes the headers (only those that changed)
       generate_interfaces.py --list DEFINITIONS             prints the interface names, one a line

The format is told at the head of platform.def. A malformed line stops the build with file and line.
"""
import pathlib
import re
import sys

INCLUDE = re.compile(r"include (\w+\.h)$")  # of all interfaces below it, in place of nsXPCOMTypes.h
INTERFACE = re.compile(r"interface (\w+) ([0-9a-f-]{36}) : (\w+)((?: \w+)*)$")
CONSTANT = re.compile(r"  const (\w+) = (-?\w+)$")
OPERATION = re.compile(r"  (\d+) (\w+)\((.*)\)(?: -> (.+?))? = (-|[\w ]+)$")
ARGUMENT = re.compile(r"(.+?) ?(\w+)(?: \[([\w= ]+)\])?$")


class Interface:
    def __init__(self, name, iid, parent, flags, docs):
        self.name, self.iid, self.parent, self.flags, self.docs = name, iid, parent, flags.split(), docs
        self.constants, self.operations = [], []


class Operation:
    def __init__(self, slot, name, arguments, result, script):
        self.slot, self.name, self.arguments, self.result, self.script = slot, name, arguments, result, script


def parse(path):
    interfaces, docs, include = {}, [], "nsXPCOMTypes.h"
    for number, line in enumerate(pathlib.Path(path).read_text().split("\n"), 1):
        def bad(why):
            sys.exit(f"{path}:{number}: {why}: {line}")

        if line.startswith("## "):
            docs.append(line[3:])
        elif not line.strip() or line.startswith("#"):
            continue
        elif m := INCLUDE.match(line):
            include = m[1]
        elif m := INTERFACE.match(line):
            if m[1] in interfaces:
                bad("interface is there already")
            current = interfaces[m[1]] = Interface(m[1], m[2], m[3], m[4], docs)
            current.include = include
            parent = interfaces.get(current.parent)
            if not parent and current.parent != "nsISupports":
                bad("unknown parent")
            current.first = parent.next if parent else 3
            current.next = current.first
            docs = []
        elif m := CONSTANT.match(line):
            current.constants.append((m[1], m[2]))
        elif m := OPERATION.match(line):
            if int(m[1]) != current.next:
                bad(f"slot {current.next} expected")
            current.next += 1
            arguments = []
            for text in m[3].split(", ") if m[3] else []:
                a = ARGUMENT.match(text)
                if not a:
                    bad(f"argument '{text}'")
                arguments.append((a[1], a[2], (a[3] or "").split()))
            current.operations.append(Operation(int(m[1]), m[2], arguments, m[4] or "nsresult", m[5]))
        else:
            bad("line not understood")
    return interfaces


def header(interface):
    types = " ".join(t for o in interface.operations for t in [o.result] + [a[0] for a in o.arguments])
    names = sorted(set(re.findall(r"\b(?:ns)?I[A-Z]\w+", types)) - {interface.name, interface.parent, "nsIID", "nsISupports"})
    out = ["#pragma once", "", f'#include "{interface.include}"']
    if interface.parent != "nsISupports":
        out.append(f'#include "{interface.parent}.h"')
    out.append("")
    out += [f"class {n};" for n in names] + ([""] if names else [])
    out += [f"/// {d}".rstrip() for d in interface.docs]
    out += [f"class {interface.name} : public {interface.parent} {{", " public:",
            f"  using Self = {interface.name};", f"  using Base = {interface.parent};",
            f'  static constexpr std::string_view kName = "{interface.name}";',
            f'  static constexpr nsIID kIID = "{interface.iid}"_iid;']
    for name, value in interface.constants:
        kind = "int32_t" if value.startswith("-") else "uint32_t"
        out.append(f"  static constexpr {kind} {name} = {value};")
    out += ["", *[f"  virtual {o.result} {o.name}({', '.join(f'{t} {n}' for t, n, _ in o.arguments)}) = 0;"
                  for o in interface.operations]]
    out += ["", " protected:", f"  ~{interface.name}() = default;", "};", ""]
    return "\n".join(out)


def skeleton(interface):
    """A base that answers all operations with NS_ERROR_NOT_IMPLEMENTED, for classes that have few of them."""
    out = [f"// {interface.name} of which a class implements only what it has.", "#pragma once", "",
           f'#include "{interface.name}.h"', "",
           "/// Implements is the class's nsImplements<...>, or another skeleton.",
           "template <class Implements>", f"class {interface.name}Skeleton : public Implements {{", " public:"]
    for o in interface.operations:
        answer = {"nsresult": "return NS_ERROR_NOT_IMPLEMENTED;", "void": ""}.get(o.result, "return {};")
        out.append(f"  {o.result} {o.name}({', '.join(t for t, _, _ in o.arguments)}) override {{ {answer} }}")
    return "\n".join([*out, "};", ""])


def main(arguments):
    if len(arguments) != 2:
        sys.exit(__doc__)
    if arguments[0] == "--list":
        print("\n".join(parse(arguments[1])))
        return
    directory = pathlib.Path(arguments[1])
    directory.mkdir(parents=True, exist_ok=True)
    for interface in parse(arguments[0]).values():
        files = {f"{interface.name}.h": header(interface)}
        if "skeleton" in interface.flags:
            files[f"{interface.name}Skeleton.h"] = skeleton(interface)
        for name, text in files.items():
            file = directory / name
            if not file.exists() or file.read_text() != text:
                file.write_text(text)


if __name__ == "__main__":
    main(sys.argv[1:])
