#!/usr/bin/env python3
"""Compares the binding tables of this folder with the interfaces' headers, or drafts a table.

usage: check_tables.py PUBLIC_DIRECTORY SCRIPT_DIRECTORY    every operation of every interface is bound or left out
       check_tables.py --draft HEADER...                    prints the tables of new headers, to start from
       check_tables.py --comments OUTPUT HEADER...          writes the headers' contract comments as a C++ table

What is compared are names: types are the compiler's business. An interface that script is not to see at all stands in
the list below, with the reason.
"""
import pathlib
import re
import sys

NOT_FOR_SCRIPT = {}

CLASS = re.compile(r"^class (nsI\w+) (?:final )?: public (nsI\w+) \{(.*?)^\};", re.M | re.S)
OPERATION = re.compile(r"virtual nsresult (\w+)\((.*?)\) = 0;", re.S)
CONSTANT = re.compile(r"^  static constexpr u?int\d+_t (\w+) = |^    (\w+) = [^,]+,", re.M)


def interfaces(path):
    text = path.read_text()
    for m in CLASS.finditer(text):
        body = re.sub(r"//.*", "", m[3])
        operations = []
        for o in OPERATION.finditer(body):
            arguments = [re.match(r"(.+?)\s*(\w+)$", a.strip()).groups() for a in re.sub(r"\s+", " ", o[2]).split(", ") if a]
            operations.append((o[1], arguments))
        yield m[1], m[2], operations, [a or b for a, b in CONSTANT.findall(body)]


def lower(name):
    return name if re.match(r"[A-Z0-9]{2}", name) else name[0].lower() + name[1:]


def is_out(type_):
    return not type_.startswith("const ") and (type_.endswith("**") or type_.endswith("&") or
                                               re.fullmatch(r"(u?int\d+_t|bool|float|double|nsresult|jsval)\*", type_))


def length(arguments, index):
    """[aCount] for an array that stands beside a count."""
    if not re.fullmatch(r"(const u?int\d+_t\*|u?int\d+_t\*\*|\w+\*\*\*)", arguments[index][0]):
        return ""
    near = [arguments[i] for i in (index - 1, index + 1) if 0 <= i < len(arguments)]
    return next((f"[{n}]" for t, n in near if t in ("uint32_t", "uint32_t*")), "")


def draft(path):
    for name, parent, operations, constants in interfaces(path):
        lines = [f'nsConstant<"{c}", {name}::{c}>' for c in constants]
        arguments_of = dict(operations)

        def attribute(prefix, rest, out):
            a = arguments_of.get(prefix + rest, [])
            return len(a) == 1 and bool(is_out(a[0][0])) == out and "void" not in a[0][0]

        for operation, arguments in operations:
            whole = f"&{name}::{operation}"
            rest = operation[3:]
            if operation.startswith("Reserved") or any("void*" in t and t != "void**" for t, _ in arguments):
                lines.append(f"nsLeftOut<{whole}>")
            elif operation.startswith("Get") and attribute("Get", rest, True):
                setter = f", &{name}::Set{rest}" if attribute("Set", rest, False) else ""
                lines.append(f'nsAttribute<"{lower(rest)}", {whole}{setter}>')
            elif operation.startswith("Set") and attribute("Get", rest, True) and attribute("Set", rest, False):
                continue
            else:
                names = "".join(f', "{n}{length(arguments, i)}"' for i, (_, n) in enumerate(arguments))
                lines.append(f'nsMethod<"{operation[0].lower() + operation[1:]}", {whole}{names}>')
        if name.endswith("Listener") or name.endswith("Binding"):
            print(f"class {name}Face : public nsScriptFace<{name}> {{\n public:\n  using nsScriptFace::nsScriptFace;")
            for operation, arguments in operations:
                typed = ", ".join(f"{t} {n}" for t, n in arguments)
                names = ", ".join(n for _, n in arguments)
                script = operation[0].lower() + operation[1:]
                if operation.startswith("Get") and attribute("Get", operation[3:], True):
                    script = lower(operation[3:])
                print(f'  nsresult {operation}({typed}) override {{ return Call<"{script}", &{name}::{operation}>({names}); }}')
            print("};\n")
            lines.append(f"nsImplementedBy<{name}Face>")
        print(f"constexpr auto k{name[9:] if name.startswith('nsISystem') else name[3:]} = nsBind<{name}"
              + "".join(",\n    " + l for l in lines) + ">();\n")


def check(public, script):
    tables = "\n".join(p.read_text() for p in sorted(pathlib.Path(script).glob("*.cpp")))
    bound = set(re.findall(r"&(nsI\w+::\w+)", tables))
    tabled = set(re.findall(r"\bnsBind<\s*(nsI\w+)", tables))
    constants_bound = set(re.findall(r"nsConstant<\s*\"\w+\",\s*(nsI\w+::\w+)", tables))
    missing, known = [], set()
    for path in sorted(pathlib.Path(public).glob("*.h")):
        for name, _, operations, constants in interfaces(path):
            known.add(name)
            if name in NOT_FOR_SCRIPT:
                continue
            if name not in tabled:
                missing.append(f"{name}: no table")
                continue
            missing += [f"{name}::{o}: neither bound nor left out" for o, _ in operations if f"{name}::{o}" not in bound]
            missing += [f"{name}::{c}: constant not bound" for c in constants if f"{name}::{c}" not in constants_bound]
    missing += [f"{name}: a table without a header" for name in tabled - known]
    if not known:
        missing.append("no interface was found: the headers are not read any more")
    for line in missing:
        print(line)
    return 1 if missing else 0


def comments(output, headers):
    rows = []
    for path in map(pathlib.Path, headers):
        text = path.read_text()
        for m in CLASS.finditer(text):
            rows.append((m[1], "", doc_before(text, m.start())))
            for o in re.finditer(r"^  virtual nsresult (\w+)\(", m[3], re.M):
                rows.append((m[1], o[1], doc_before(m[3], o.start())))
    out = ['#include "nsSystemScript.h"', "", "const nsScriptComment kSystemScriptComments[] = {"]
    for interface, operation, text in rows:
        if text:
            quoted = text.replace("\\", "\\\\").replace('"', '\\"').replace("\n", '\\n"\n     "')
            out.append(f'    {{"{interface}", "{operation}",\n     "{quoted}"}},')
    out += ['    {{}, {}, {}},', "};", f"const size_t kSystemScriptCommentCount = {sum(bool(r[2]) for r in rows)};", ""]
    file, text = pathlib.Path(output), "\n".join(out)
    if not file.exists() or file.read_text() != text:
        file.write_text(text)


def doc_before(text, end):
    lines = []
    for line in reversed(text[:end].rstrip("\n").split("\n")):
        m = re.match(r"\s*/// ?(.*)", line)
        if not m:
            break
        lines.insert(0, m[1])
    return "\n".join(lines)


def main(arguments):
    if len(arguments) >= 2 and arguments[0] == "--draft":
        for path in arguments[1:]:
            draft(pathlib.Path(path))
    elif len(arguments) >= 3 and arguments[0] == "--comments":
        comments(arguments[1], arguments[2:])
    elif len(arguments) == 2:
        sys.exit(check(*arguments))
    else:
        sys.exit(__doc__)


main(sys.argv[1:])
