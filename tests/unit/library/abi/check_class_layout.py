#!/usr/bin/env python3
"""Compares the layout of every public class with the committed table.

The order of virtual slots and of data members is a contract with hosts that were compiled earlier.
The slots are read from the compiler's class dump (-fdump-lang-class), the members and the
signatures of the virtual operations from the debug information of the same compilation.

  check_class_layout.py --compiler g++ --source TOP --table class_layout.txt [--update]
"""

import argparse
import pathlib
import re
import subprocess
import sys
import tempfile

from abi_names import compare, demangled, shortened

CLASS_DECLARATION = re.compile(r"^(?:class|struct) (?:KAVI_API )?(\w+)[^;{]*\{", re.MULTILINE)
MACHINERY = re.compile(r"_vptr\.")


def public_headers(top):
    return sorted(path.relative_to(top).as_posix() for path in (top / "library").rglob("*.h"))


def public_classes(top, headers):
    """Names of the classes that are exported, or that are plain records of the platform."""
    names = set()
    for header in headers:
        text = (top / header).read_text()
        for match in CLASS_DECLARATION.finditer(text):
            if "KAVI_API" in match.group(0) or header.startswith("library/platform/"):
                names.add(match.group(1))
    return names


def compile_all(compiler, top, headers, folder):
    source = folder / "all_headers.cpp"
    source.write_text("".join(f'#include "{header}"\n' for header in headers)
                      + "template class Kavi::TokenMap<Kavi::ScanToken>;\n")
    subprocess.run(
        [compiler, "-std=c++20", f"-I{top}", "-gdwarf-4", "-femit-class-debug-always",
         "-fno-eliminate-unused-debug-types", "-fdump-lang-class=classes.txt", "-c", source.name],
        cwd=folder, check=True)
    debug = subprocess.run(["objdump", "--dwarf=info", "all_headers.o"], cwd=folder, check=True,
                           capture_output=True, text=True).stdout
    return (folder / "classes.txt").read_text(), debug


def read_vtables(dump):
    """class name -> the names in its slots, in order."""
    vtables = {}
    for block in re.findall(r"^Vtable for (\S+)\n.*\n((?:\d+ .*\n)+)", dump, re.MULTILINE):
        entries = re.findall(r"^\d+ +(?:\(int \(\*\)\(\.\.\.\)\))?(.*)$", block[1], re.MULTILINE)
        vtables[block[0]] = entries[2:]  # behind the offset to top and the type information
    return vtables


class Dwarf:
    """The entries of the debug information, as far as they are needed here."""

    ENTRY = re.compile(r"^ *<(\d+)><([0-9a-f]+)>: Abbrev Number: (?:0$|\d+ \((DW_TAG_\w+)\))")
    ATTRIBUTE = re.compile(r"^ *<[0-9a-f]+> +(DW_AT_\w+) *: (.*?)\s*$")

    def __init__(self, text):
        self.entries = {}
        stack = []
        current = None
        for line in text.splitlines():
            match = self.ENTRY.match(line)
            if match:
                depth, offset, tag = int(match[1]), int(match[2], 16), match[3]
                del stack[depth:]
                current = None
                if tag:
                    current = {"tag": tag, "children": [],
                               "parent": stack[-1] if stack else None}
                    self.entries[offset] = current
                    if stack:
                        stack[-1]["children"].append(current)
                    stack.append(current)
                continue
            match = self.ATTRIBUTE.match(line)
            if match and current is not None:
                value = re.sub(r"^\(indirect string, offset: 0x[0-9a-f]+\): ", "", match[2])
                current[match[1]] = value

    def classes(self):
        for entry in self.entries.values():
            if (entry["tag"] in ("DW_TAG_class_type", "DW_TAG_structure_type")
                    and "DW_AT_declaration" not in entry and "DW_AT_name" in entry
                    and entry["parent"]["tag"] in ("DW_TAG_compile_unit", "DW_TAG_namespace")):
                yield entry

    def type_name(self, entry):
        if "DW_AT_type" not in entry:
            inner = "void"
        else:
            target = self.entries[int(re.search(r"<0x([0-9a-f]+)>", entry["DW_AT_type"])[1], 16)]
            tag = target["tag"]
            if "DW_AT_name" in target:
                inner = target["DW_AT_name"]
            elif tag == "DW_TAG_pointer_type":
                inner = self.type_name(target) + "*"
            elif tag == "DW_TAG_reference_type":
                inner = self.type_name(target) + "&"
            elif tag == "DW_TAG_const_type":
                inner = self.type_name(target) + " const"
            elif tag == "DW_TAG_array_type":
                inner = self.type_name(target) + "[]"
            else:
                inner = tag
        return shortened(inner)


def signatures(dwarf, names):
    """(class name, slot) -> signature, for the virtual operations that each class declares."""
    mangled = {}
    for entry in dwarf.classes():
        if entry["DW_AT_name"] not in names:
            continue
        for child in entry["children"]:
            slot = re.search(r"DW_OP_constu: (\d+)", child.get("DW_AT_vtable_elem_location", ""))
            if slot and "~" not in child["DW_AT_name"]:
                mangled[entry["DW_AT_name"], int(slot[1])] = child["DW_AT_linkage_name"]
    plain = demangled(sorted(set(mangled.values())))
    return {key: plain[name] for key, name in mangled.items()}


def describe(entry, vtable, dwarf, signature):
    lines = [f"{entry['DW_AT_name']}: {entry['DW_AT_byte_size']} bytes"]
    for child in entry["children"]:
        if child["tag"] == "DW_TAG_inheritance":
            lines.append(f"  base {dwarf.type_name(child)} at {child['DW_AT_data_member_location']}")
    for slot, name in enumerate(vtable):
        text = name.replace("__cxa_pure_virtual", "pure")
        owner = name.split("::")[-2] if "::" in name else entry["DW_AT_name"]
        if text == "0":  # the compiler names no destructors for an abstract class
            text = f"{owner}::~{owner}"
        known = signature.get((owner, slot))
        if known:
            text = ("pure " if "pure" in text else "") + known
        lines.append(f"  slot {slot}: {text}")
    for child in entry["children"]:
        if (child["tag"] == "DW_TAG_member" and "DW_AT_data_member_location" in child
                and not MACHINERY.match(child["DW_AT_name"])):
            lines.append(f"  member at {child['DW_AT_data_member_location']}: "
                         f"{dwarf.type_name(child)} {child['DW_AT_name']}")
    return lines


def present_table(compiler, top):
    headers = public_headers(top)
    names = public_classes(top, headers)
    with tempfile.TemporaryDirectory() as folder:
        dump, debug = compile_all(compiler, top, headers, pathlib.Path(folder))
    vtables = {name.split("::")[-1]: slots for name, slots in read_vtables(dump).items()}
    dwarf = Dwarf(debug)
    signature = signatures(dwarf, names)
    blocks = {}
    for entry in dwarf.classes():
        name = entry["DW_AT_name"].split("<")[0]
        if name in names:
            blocks[name] = describe(entry, vtables.get(name, []), dwarf, signature)
    missing = names - blocks.keys()
    if missing:
        sys.exit(f"no layout found for {', '.join(sorted(missing))}")
    return "\n\n".join("\n".join(blocks[name]) for name in sorted(blocks)) + "\n"


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--compiler", required=True)
    parser.add_argument("--source", type=pathlib.Path, required=True)
    parser.add_argument("--table", type=pathlib.Path, required=True)
    parser.add_argument("--update", action="store_true", help="rewrite the table")
    arguments = parser.parse_args()

    table = present_table(arguments.compiler, arguments.source.resolve())
    compare(arguments.table, table, arguments.update,
            "The layout of a public class differs from the committed table. New classes and "
            "members at the end are fine: rewrite it with --update. Anything else breaks hosts "
            "that are compiled against the old layout.")


if __name__ == "__main__":
    main()
