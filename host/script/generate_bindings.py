#!/usr/bin/env python3
"""Makes the binding tables of the platform's interfaces from their definitions.

usage: generate_bindings.py DEFINITIONS OUTPUT_DIRECTORY

Writes platform_N.cpp, compiled side by side, and platform_tables.cpp, which lists the tables. What script can't have
(the definitions say "-", or a type has no way into script) becomes a line nsLeftOut, so that every operation stands
in its table.
"""
import pathlib
import re
import sys

sys.path.insert(0, str(pathlib.Path(__file__).parent.parent / "xpcom"))
from generate_interfaces import Interface, Operation, parse  # noqa: E402, F401

FILES = 6
VALUE = r"(bool|u?int\d+_t|float|double|nsresult)"
PLAIN = re.compile(
    rf"{VALUE}|{VALUE}\*|(const )?ns(A|AC)String&|const ns[IC]?I?D&|const nsID\*|nsI?C?ID\*\*\*?"
    r"|const (char|char16_t)\*|(char|char16_t)\*\*\*?|jsval\*?|uint8_t\*\*")
INTERFACE = re.compile(r"(nsI\w+)\*{1,3}")


def crosses(type_, flags, interfaces):
    if type_ == "void**":
        return any(f.startswith("iid_is=") for f in flags)
    if type_ in ("nsIID&", "nsISupports*", "nsISupports**"):
        return True
    m = INTERFACE.fullmatch(type_)
    if m and not re.fullmatch(r"nsI?C?ID", m[1]):
        return m[1] in interfaces
    return bool(PLAIN.fullmatch(type_))


def parameter(type_, name, flags):
    size = next((f.split("=")[1] for f in flags if f.startswith("size_is=")), None)
    optional = "optional" in flags and "out" not in flags
    return '"' + name + (f"[{size}]" if size else "") + ("?" if optional else "") + '"'


def face(interface, interfaces):
    chain, operations = interface, []
    while chain:
        operations = [(chain.name, o) for o in chain.operations] + operations
        chain = interfaces.get(chain.parent)
    out = [f"class {interface.name}Face final : public nsScriptFace<{interface.name}> {{", " public:",
           "  using nsScriptFace::nsScriptFace;"]
    for owner, o in operations:
        if o.script == "-":
            out.append(f'  nsresult {o.name}({", ".join(t for t, _, _ in o.arguments)}) override {{ return NS_ERROR_NOT_IMPLEMENTED; }}')
            continue
        arguments = ", ".join(f"{t} {n}" for t, n, _ in o.arguments)
        names = ", ".join(n for _, n, _ in o.arguments)
        call, name = "Call", o.script
        if m := re.match(r"attribute (\w+)", o.script):
            name, call = m[1], "Call" if o.name.startswith("Get") else "Set"
        out.append(f'  nsresult {o.name}({arguments}) override {{ return this->{call}<"{name}", &{owner}::{o.name}>({names}); }}')
    return out + ["};", ""]


def is_left_out(operation, interfaces):
    return (operation.script == "-" or operation.result != "nsresult"
            or not all(crosses(t, f, interfaces) for t, _, f in operation.arguments))


def table(interface, left_out):
    lines = [f'nsConstant<"{n}", {interface.name}::{n}>' for n, _ in interface.constants]
    attributes = {}
    for o in interface.operations:
        whole = f"&{interface.name}::{o.name}"
        if left_out(o):
            lines.append(f"nsLeftOut<{whole}>")
        elif m := re.match(r"attribute (\w+)", o.script):
            if m[1] in attributes:
                lines[attributes[m[1]]] = lines[attributes[m[1]]][:-1] + f", {whole}>"
            else:
                attributes[m[1]] = len(lines)
                lines.append(f'nsAttribute<"{m[1]}", {whole}>')
        else:
            lines.append(f'nsMethod<{", ".join([chr(34) + o.script + chr(34), whole] + [parameter(*a) for a in o.arguments])}>')
    if "function" in interface.flags:
        lines.append("nsTakesFunction")
    if "implementable" in interface.flags:
        lines.append(f"nsImplementedBy<{interface.name}Face>")
    arguments = ",\n    ".join([interface.name] + lines)
    return f"extern const nsScriptInterface* const k{interface.name}Table = nsBind<\n    {arguments}>();\n"


def write(file, lines):
    text = "\n".join(lines) + "\n"
    if not file.exists() or file.read_text() != text:
        file.write_text(text)


def main(arguments):
    if len(arguments) != 2:
        sys.exit(__doc__)
    interfaces = parse(arguments[0])
    directory = pathlib.Path(arguments[1])
    directory.mkdir(parents=True, exist_ok=True)
    shown = [i for i in interfaces.values() if "scriptable" in i.flags]
    for n in range(FILES):
        mine = shown[n::FILES]
        out = ['#include "nsScriptTable.h"', ""]
        out += [f'#include "{name}.h"' for name in interfaces]
        out += ["", "namespace {", ""]
        for i in mine:
            if "implementable" in i.flags:
                out += face(i, interfaces)
        out += ["}  // namespace", ""]
        out += [table(i, lambda o: is_left_out(o, interfaces)) for i in mine]
        write(directory / f"platform_{n}.cpp", out)
    out = ['#include "nsScriptTables.h"', ""]
    out += [f"extern const nsScriptInterface* const k{i.name}Table;" for i in shown]
    out += ["", "std::vector<const nsScriptInterface*> NS_PlatformScriptInterfaces() {", "  return {"]
    out += [f"      k{i.name}Table," for i in shown]
    out += ["  };", "}"]
    write(directory / "platform_tables.cpp", out)


if __name__ == "__main__":
    main(sys.argv[1:])
