#!/usr/bin/env python3
"""Compares the dynamic symbols of the library with the committed lists.

  check_symbols.py exported  LIBRARY LIST [--update]   what the library offers
  check_symbols.py undefined LIBRARY LIST [--update]   what it asks of the process that loads it

Of the undefined symbols, those of the C and C++ runtimes and of ICU are known by their versions and
left out; the list holds the rest, the platform's operations.
"""

import argparse
import pathlib
import re
import subprocess

from abi_names import compare, demangled

RUNTIME = re.compile(r"@@?(GLIBC|GLIBCXX|CXXABI|GCC)_[\w.]+$")
ICU = re.compile(r"(^u\w+_\d+$)|(^_ZNK?6icu_\d+)")
TOOLCHAIN = {"_ITM_deregisterTMCloneTable", "_ITM_registerTMCloneTable", "__gmon_start__"}

ADVICE = {
    "exported": "The library offers something else than committed. The public interface may grow "
                "(rewrite the list with --update); it may not shrink, and nothing internal may "
                "leak out (library/exports.map).",
    "undefined": "The library asks for something else than committed. It may only call the "
                 "platform, as declared in library/platform, ICU and the C and C++ runtimes.",
}


def symbols(library, kind):
    option = "--defined-only" if kind == "exported" else "--undefined-only"
    output = subprocess.run(["nm", "-D", option, str(library)], check=True, capture_output=True,
                            text=True).stdout
    names = {line.split()[-1] for line in output.splitlines()}
    if kind == "undefined":
        names = {name for name in names
                 if not RUNTIME.search(name) and not ICU.search(name) and name not in TOOLCHAIN}
    return sorted(set(demangled(sorted(names)).values()))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("kind", choices=sorted(ADVICE))
    parser.add_argument("library", type=pathlib.Path)
    parser.add_argument("list", type=pathlib.Path)
    parser.add_argument("--update", action="store_true", help="rewrite the list")
    arguments = parser.parse_args()
    present = "".join(name + "\n" for name in symbols(arguments.library, arguments.kind))
    compare(arguments.list, present, arguments.update, ADVICE[arguments.kind])


if __name__ == "__main__":
    main()
