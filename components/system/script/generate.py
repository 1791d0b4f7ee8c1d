#!/usr/bin/env python3
"""Makes, of the public interfaces and of what classes state of themselves, all that is said of them elsewhere.

usage: generate.py PUBLIC_DIRECTORY SOURCE_DIRECTORY PLATFORM_DEFINITIONS OUTPUT_DIRECTORY

Writes system_N.cpp, the binding tables of the interfaces and the faces of those that script may implement;
system_tables.cpp, the list of the tables, the headers' comments, and the TypeScript of the global names; and
nsSystemModuleTables.h, the classes and categories of the module in their order.

An interface is a class of a header of PUBLIC_DIRECTORY. What its C++ does not tell script stands in comments that begin
with "script:", between its documentation and what they are about. Before an interface:

  // script: leave out              script does not see it
  // script: implementable          script may implement it, as all whose names end in Listener or Binding
  // script: not implementable
  // script: takes a function       script may give a function where an object is wanted
  // script: global NAME, row N     the global name of the interface; N, its place among these, may be left out
  // script: new (ARGUMENTS)        TypeScript: what new NAME takes; goes on in the comment lines that follow

Before an operation:

  // script: leave out              for what has no way into script. Kept places (Reserved5) and void* are left out anyway
  // script: as NAME                the name in script
  // script: method                 GetThing is a method and not the attribute thing
  // script: aBytes[aCount]         aCount is the length of aBytes. Need not be told of a uint32_t beside it
  // script: aTimeout?              callers may leave it out

A class states itself by kModuleClass and kClassInfo (nsModuleClass.h). Whatever is not understood stops the build.
"""
import pathlib
import re
import sys
import zlib

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[3] / "host/script"))
from generate_bindings import Operation, Interface, face, parse, table, write  # noqa: E402

FILES = 6
INTERFACE = re.compile(r"^class (nsI\w+)(?:\s+final)?\s*:\s*public\s+(nsI\w+)\s*\{(.*?)^\};", re.M | re.S)
OPERATION = re.compile(r"virtual\s+nsresult\s+(\w+)\(([^)]*)\)\s*=\s*0;")
ARGUMENT = re.compile(r"(.+?)\s*(\w+)$")
NUMBER = r"(?:u?int\d+_t|bool|float|double)"
HINT = re.compile(r"(\w+)(?:\[(\w+)\])?(\?)?$")
CLASS = re.compile(r"^(?:class|struct) (\w+)\b[^;{]*\{", re.M)
MODULE_CLASS = re.compile(r"nsModuleClass kModuleClass\{(.*?)\};", re.S)
IMPLEMENTS = re.compile(r"\bpublic nsImplements(?:OnOneThread)?<\s*\w+,([^<>]*)>")
CLASS_INFO = re.compile(r'kClassInfo\s*=\s*NS_ClassInfo(OfAll)?<"(\w*)",([^>]*)>')


class Stop(Exception):
    pass


def before(text, end):
    """The documentation and the annotations in the comments that end at a place of the text."""
    docs, notes = [], []
    for line in reversed(text[:end].rstrip("\n ").split("\n")):
        if m := re.match(r"\s*/// ?(.*)", line):
            docs.insert(0, m[1])
        elif m := re.match(r"\s*// ?(.*)", line):
            notes.insert(0, m[1])
        else:
            break
    joined = []
    for note in notes:
        if m := re.match(r"script: (.*)", note):
            joined.append(m[1])
        elif joined:
            joined[-1] += "\n" + note
    return "\n".join(docs), joined


def lower(name):
    return name if re.match(r"[A-Z0-9]{2}", name) else name[0].lower() + name[1:]


def is_out(type_):
    return not type_.startswith("const ") and (type_.endswith("**") or type_.endswith("&")
                                               or re.fullmatch(rf"({NUMBER}|nsresult|jsval)\*", type_))


def beside(arguments, index):
    """The count that an array stands beside."""
    if not re.fullmatch(rf"(const {NUMBER}\*|{NUMBER}\*\*|\w+\*\*\*)", arguments[index][0]):
        return None
    near = [arguments[i] for i in (index - 1, index + 1) if 0 <= i < len(arguments)]
    return next((n for t, n, _ in near if t in ("uint32_t", "uint32_t*")), None)


def read_operation(o, body):
    arguments = []
    for text in re.sub(r"\s+", " ", o[2]).strip().split(", "):
        if text:
            m = ARGUMENT.match(text)
            if not m:
                raise Stop(f"{o[1]}: argument '{text}' has no name")
            arguments.append((m[1], m[2], []))
    docs, notes = before(body, o.start())
    script = "-" if o[1].startswith("Reserved") or any(re.fullmatch(r"void\*", t) for t, _, _ in arguments) else None
    method = False
    for i, (_, _, flags) in enumerate(arguments):
        if count := beside(arguments, i):
            flags.append("size_is=" + count)
    flags_of = {n: f for _, n, f in arguments}
    for note in notes:
        if note == "leave out":
            script = "-"
        elif note == "method":
            method = True
        elif m := re.fullmatch(r"as (\w+)", note):
            script = m[1]
        else:
            for hint in note.split(", "):
                m = HINT.match(hint)
                if not m or m[1] not in flags_of or (m[2] and m[2] not in flags_of) or not (m[2] or m[3]):
                    raise Stop(f"{o[1]}: '{note}' is not understood")
                if m[2]:
                    flags_of[m[1]][:] = ["size_is=" + m[2]]
                if m[3]:
                    flags_of[m[1]].append("optional")
    operation = Operation(0, o[1], arguments, "nsresult", script)
    operation.docs, operation.method = docs, method
    return operation


def name_operations(operations):
    """What is no attribute is a method."""
    by_name = {o.name: o for o in operations if not o.method and o.script is None}

    def accessor(prefix, name, out):
        o = by_name.get(prefix + name)
        return o if o and len(o.arguments) == 1 and bool(is_out(o.arguments[0][0])) == out else None

    for o in operations:
        if o.script is not None:
            continue
        kind, name = o.name[:3], o.name[3:]
        if kind in ("Get", "Set") and name[:1].isupper() and accessor("Get", name, True) and accessor(kind, name, kind == "Get"):
            o.script = "attribute " + lower(name)
        else:
            o.script = lower(o.name)


def read_interfaces(path):
    text = path.read_text()
    found = list(INTERFACE.finditer(text))
    if len(found) != len(re.findall(r"\bnsIID kIID =", text)):
        raise Stop("an interface has not the form `class nsIName : public nsIBase {`")
    head = re.match(r"((?:// .*\n)*)", text)[1].replace("// ", "").replace("\n", " ").strip()
    for m in found:
        docs, notes = before(text, m.start())
        iid = re.search(r'kIID =\s*"([0-9a-f-]{36})"', m[3])
        if not iid:
            raise Stop(f"{m[1]} has no identifier")
        i = Interface(m[1], iid[1], m[2], "scriptable", docs)
        i.header, i.head, i.globals, i.new = path.name, head, [], ""
        if re.search(r"(Listener\d*|Binding)$", i.name):
            i.flags.append("implementable")
        for note in notes:
            if note == "leave out":
                i.flags = []
            elif note == "implementable":
                i.flags.append("implementable")
            elif note == "not implementable":
                i.flags.remove("implementable")
            elif note == "takes a function":
                i.flags.append("function")
            elif g := re.fullmatch(r"global (\w+)(?:, row (\d+))?", note):
                i.globals.append((int(g[2] or sys.maxsize), g[1], i))
            elif g := re.fullmatch(r"new (\(.*\))", note, re.S):
                i.new = g[1]
            else:
                raise Stop(f"{i.name}: '{note}' is not understood")
        code = re.sub(r"//.*", "", m[3])
        i.constants = [(n, None) for n in re.findall(r"static constexpr u?int\d+_t (\w+) =", code)]
        for block in re.findall(r"\benum\b[^{;]*\{(.*?)\}", code, re.S):
            i.constants += [(n, None) for n in re.findall(r"(\w+)(?:\s*=[^,]*)?(?:,|\s*$)", block.strip())]
        i.operations = [read_operation(o, m[3]) for o in OPERATION.finditer(m[3])]
        if len(i.operations) != len(re.findall(r"=\s*0;", code)):
            raise Stop(f"{i.name}: an operation has not the form `virtual nsresult Name(...) = 0;`")
        name_operations(i.operations)
        yield i


def read_public(directory):
    interfaces = {}
    for path in sorted(directory.glob("*.h")):
        try:
            for i in read_interfaces(path):
                interfaces[i.name] = i
        except Stop as stop:
            sys.exit(f"{path}: {stop}")
    ordered = {}

    def add(i):
        if i.parent in interfaces:
            add(interfaces[i.parent])
        ordered[i.name] = i

    for i in interfaces.values():
        add(i)
    return ordered


class ModuleClass:
    def __init__(self, name, header, fields, body):
        info = CLASS_INFO.search(body)
        listed = info and (IMPLEMENTS.search(body) if info[1] else info)
        if info and not listed:
            raise Stop(f"the class info of {name} is of all that it implements, and it has no nsImplements")
        self.name, self.header = name, header
        self.row, self.contract = int(fields["mRow"]), fields["mContractID"].strip('"')
        self.dom_row = int(fields.get("mDOMRow", -1))
        self.property = fields.get("mGlobal", "").strip('"')
        self.startup = fields.get("mAtStartup") == "true"
        self.script_name, self.interfaces = (info[2], re.findall(r"\w+", listed[listed.lastindex])) if info else ("", [])
        self.type = " & ".join(self.interfaces)
        if self.dom_row >= 0 and not self.script_name:
            raise Stop(f"{name} is a class of script without a name in its kClassInfo")


def read_classes(directory):
    classes = []
    for path in sorted(directory.rglob("*.h")):
        text = path.read_text()
        starts = [(m.start(), m[1]) for m in CLASS.finditer(text)] + [(len(text), None)]
        for (start, name), (end, _) in zip(starts, starts[1:]):
            body = text[start:end]
            if m := MODULE_CLASS.search(body):
                fields = dict(re.findall(r'\.(\w+)\s*=\s*("[^"]*"|[\w-]+)', m[1]))
                try:
                    classes.append(ModuleClass(name, path.name, fields, body))
                except (KeyError, ValueError, Stop) as why:
                    sys.exit(f"{path}: kModuleClass of {name}: {why}")
    rows = [c.row for c in classes]
    if len(set(rows)) != len(rows):
        sys.exit(f"{directory}: two classes have one row: {sorted(rows)}")
    return sorted(classes, key=lambda c: c.row)


# ---- What is written


def tables(interfaces, platform, output):
    known = {**platform, **interfaces}

    def headers(i):
        names = {"nsISupports"}
        chain = i
        while chain:
            names.add(chain.name)
            for o in chain.operations:
                names |= {n for t, _, _ in o.arguments for n in re.findall(r"\bnsI[A-Z]\w+", t)}
            chain = known.get(chain.parent)
        for n in names - {"nsIID", "nsISupports"}:
            if n not in known:
                sys.exit(f"{i.header}: {i.name} uses {n}, which is no known interface")
            yield f'#include "{getattr(known[n], "header", n + ".h")}"'

    for n in range(FILES):
        mine = [i for i in interfaces.values() if zlib.crc32(i.name.encode()) % FILES == n]
        out = ['#include "nsScriptTable.h"', "", *sorted({h for i in mine for h in headers(i)}), "", "namespace {", ""]
        for i in mine:
            if "implementable" in i.flags:
                out += face(i, known)
        write(output / f"system_{n}.cpp", out + ["}  // namespace", ""] + [table(i, lambda o: o.script == "-") for i in mine])


def quoted(text):
    return '"' + text.replace("\\", "\\\\").replace('"', '\\"').replace("\n", '\\n"\n     "') + '"'


def declarations(interfaces, classes, globals_):
    """The global names: services, then the names of classes and interfaces."""
    out, done = [], set()
    dom = sorted((c for c in classes if c.dom_row >= 0), key=lambda c: c.dom_row)
    for c in dom:
        if c.property:
            out += [f"/** {interfaces[c.interfaces[0]].head} */", f"declare const {c.property}: {c.type};"]
    names = [(c.script_name, c.type, interfaces[c.interfaces[0]], c.property) for c in dom]
    for name, type_, i, told in names + [(name, i.name, i, "") for _, name, i in globals_]:
        if name in done:
            continue
        done.add(name)
        takes = i.new.replace("\n", "\n  ")
        new = takes and f" & {{\n  new {takes}: {type_};\n}}"
        out += [] if told else [f"/** {i.head} */"]
        out.append(f"declare const {name}: nsInterfaceID<{type_}>{new};")
    return out


def script(interfaces, classes, globals_, output):
    out = ['#include "nsSystemScript.h"', "", *[f"extern const nsScriptInterface* const k{n}Table;" for n in interfaces]]
    out += ["", "std::vector<const nsScriptInterface*> NS_SystemScriptInterfaces() {", "  return {"]
    out += [f"      k{n}Table," for n in interfaces] + ["  };", "}", ""]
    rows = [r for i in interfaces.values() for r in [(i.name, "", i.docs)] + [(i.name, o.name, o.docs) for o in i.operations] if r[2]]
    out += ["const nsScriptComment kSystemScriptComments[] = {"]
    out += [f'    {{"{i}", "{o}",\n     {quoted(text)}}},' for i, o, text in rows]
    out += ["    {{}, {}, {}},", "};", f"const size_t kSystemScriptCommentCount = {len(rows)};", ""]
    out += ['const char kSystemScriptDeclarations[] = R"TS(', *declarations(interfaces, classes, globals_), ')TS";']
    write(output / "system_tables.cpp", out)


def module(classes, globals_, output):
    extension = next((c.contract for c in classes if c.name == "kCIExtension"), None)
    dom = sorted((c for c in classes if c.dom_row >= 0), key=lambda c: c.dom_row)
    categories = [("JavaScript-DOM-class", c.script_name, extension) for c in dom]
    categories += [("app-startup", c.script_name, "service," + c.contract) for c in dom if c.startup]
    categories += [("JavaScript-global-property", c.property, c.contract) for c in dom if c.property]
    categories += [("JavaScript-DOM-interface", name, i.iid) for _, name, i in globals_]
    out = ["// The classes and categories of the module, in their order. Made by the build: do not edit.", "#pragma once", ""]
    out += ['#include "Module.h"', *sorted({f'#include "{c.header}"' for c in classes}), ""]
    out += ["template <template <class...> class List>", "using nsModuleClasses = List<"]
    out += [",\n".join(f"    {c.name}" for c in classes) + ">;", ""]
    out += ["struct nsModuleDOMClass {", "  const char* mName;", "  const nsClassInfoRecord* mInfo;", "  const nsCID* mCID;", "};"]
    out += ["inline constexpr nsModuleDOMClass kDOMClasses[] = {"]
    out += [f'    {{"{c.script_name}", &{c.name}::kClassInfo, &{c.name}::kModuleClass.mCID}},' for c in dom] + ["};", ""]
    out += ["inline constexpr vorel::Module::CategoryEntry kCategories[] = {"]
    out += ["    {" + ", ".join(f'"{t}"' for t in row) + "}," for row in categories]
    out += ["    {nullptr, nullptr, nullptr},", "};"]
    write(output / "nsSystemModuleTables.h", out)


def main(arguments):
    if len(arguments) != 4:
        sys.exit(__doc__)
    public, source, definitions, output = map(pathlib.Path, arguments)
    output.mkdir(parents=True, exist_ok=True)
    interfaces = read_public(public)
    shown = {n: i for n, i in interfaces.items() if i.flags}
    if not shown:
        sys.exit(f"{public}: no interface was found")
    classes = read_classes(source)
    globals_ = sorted((g for i in interfaces.values() for g in i.globals), key=lambda g: g[:2])
    tables(shown, parse(definitions), output)
    script(shown, classes, globals_, output)
    module(classes, globals_, output)


if __name__ == "__main__":
    main(sys.argv[1:])
