#!/usr/bin/env python3
"""Compares the media interfaces that this tree declares with the headers of the platform that they come from.

usage: compare_media_interfaces.py HEADER_DIRECTORY [SOURCE_DIRECTORY]

HEADER_DIRECTORY is that of the package mingw-w64-common, /usr/share/mingw-w64/include. For each interface: identifier,
parent, and the name, slot and number of arguments of each operation; for each constant of nsDirectShowTypes.h that is an
identifier: its value. Headers that say of themselves that their layout has not been verified list operations by name: of
those the slots are not compared. Prints what differs, what is not in those headers, and the sum; status 1 when anything
differs.
"""
import pathlib
import re
import sys

HEADERS = """strmif control tuner bdaiface mpeg2data qedit objidl objidlbase unknwn unknwnbase oaidl ocidl uuids ksuuids bdamedia
bdatypes ksmedia ks ksproxy dmodshow segment""".split()
# Names in the tree -> there.
ROOT = {"nsISupports": "IUnknown"}

CLASS = re.compile(r"^(\w+) : public (\w+)\n\{(.*?)^\};", re.S | re.M)
VIRTUAL = re.compile(r"virtual\s+[\w ]+?\*?\s*STDMETHODCALLTYPE\s+(\w+)\((.*?)\)\s*(?:const)?\s*=\s*0;", re.S)
DECLARED = re.compile(r"DECLARE_INTERFACE_\((\w+),\s*(\w+)\)\s*\{(.*?)^\};", re.S | re.M)
METHOD = re.compile(r"STDMETHOD(?:_\([\w ]+,\s*(\w+)\)|\((\w+)\))\s*\(THIS(_?)\s*(.*?)\)\s*PURE", re.S)
IID = re.compile(r"(?:DEFINE_GUID|OUR_GUID_ENTRY)\s*\(\s*(\w+)\s*,\s*((?:0x[0-9a-fA-F]+\s*,\s*){10}0x[0-9a-fA-F]+)\s*\)")
STRUCT = re.compile(r'DEFINE_GUIDSTRUCT\(\s*"([0-9A-Fa-f-]{36})"\s*,\s*(\w+)\s*\)')
OURS = re.compile(r'inline constexpr ns[IC]I?D\s+(\w+)\s*=\s*"([0-9a-f-]{36})"_iid', re.S)


def guid(numbers):
    n = [int(x, 16) for x in numbers.replace(" ", "").split(",")]
    return "%08x-%04x-%04x-%02x%02x-" % tuple(n[:5]) + "%02x" * 6 % tuple(n[5:])


def arguments(text):
    text = re.sub(r"/\*.*?\*/", "", text, flags=re.S).strip()
    return 0 if text in ("", "void") else text.count(",") + 1


def read(folder):
    interfaces, identifiers, unordered = {}, {}, set()
    for name in HEADERS:
        path = folder / f"{name}.h"
        if not path.exists():
            continue
        text = path.read_text(errors="replace").replace("\r", "")
        for m in IID.finditer(text):
            identifiers[m[1]] = guid(m[2])
        for m in STRUCT.finditer(text):
            identifiers[m[2]] = m[1].lower()
        for m in CLASS.finditer(text):
            interfaces.setdefault(m[1], (m[2], [(o[1], arguments(o[2])) for o in VIRTUAL.finditer(m[3])]))
        for m in DECLARED.finditer(text):
            own = [(o[1] or o[2], arguments(o[4]) if o[3] else 0) for o in METHOD.finditer(m[3])]
            # Written by hand, these repeat what they inherit.
            interfaces.setdefault(m[1], (m[2], own[3:]))
            if "has not been verified" in text:
                unordered.add(m[1])
    return interfaces, identifiers, unordered


def main(folder, root):
    sys.path.insert(0, str(root / "host/xpcom"))
    import generate_interfaces

    public = root / "components/system/public/directshow"
    ours = generate_interfaces.parse(public / "directshow.def")
    theirs, identifiers, unordered = read(folder)
    differs, missing, operations = [], [], 0
    for name, interface in ours.items():
        if name not in theirs:
            missing.append(f"interface {name}")
            continue
        parent, own = theirs[name]
        if ROOT.get(interface.parent, interface.parent) != parent:
            differs.append(f"{name}: parent {interface.parent}, there {parent}")
        if f"IID_{name}" not in identifiers:
            missing.append(f"identifier of {name}")
        elif identifiers[f"IID_{name}"] != interface.iid:
            differs.append(f"{name}: {interface.iid}, there {identifiers[f'IID_{name}']}")
        # A slot is a place behind the parent's, whose own are compared with it.
        here = [(o.name, len(o.arguments)) for o in interface.operations]
        if name in unordered:
            missing.append(f"order of {name}")
            here, own = sorted(here), sorted(own)
        for index in range(max(len(here), len(own))):
            a = here[index] if index < len(here) else None
            b = own[index] if index < len(own) else None
            operations += 1
            if a != b:
                differs.append(f"{name}, slot {interface.first + index}: {a}, there {b}")
    constants = OURS.findall((public / "nsDirectShowTypes.h").read_text())
    for name, value in constants:
        if name not in identifiers:
            missing.append(f"identifier {name}")
        elif identifiers[name] != value:
            differs.append(f"{name}: {value}, there {identifiers[name]}")
    for line in differs:
        print("differs:", line)
    for line in missing:
        print("not there:", line)
    print(f"{len(ours)} interfaces, {operations} operations, {len(constants)} identifiers: {len(differs)} differ, "
          f"{len(missing)} not in those headers")
    return 1 if differs else 0


if __name__ == "__main__":
    if len(sys.argv) not in (2, 3):
        sys.exit(__doc__)
    here = pathlib.Path(__file__).resolve().parent.parent
    sys.exit(main(pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]) if len(sys.argv) == 3 else here))
