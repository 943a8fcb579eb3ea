"""Readable names for symbols, and the comparison of a list with its committed state."""

import difflib
import re
import subprocess
import sys


def demangled(names):
    """mangled name -> name, in source form and without the standard library's default arguments."""
    names = list(names)
    output = subprocess.run(["c++filt"], input="\n".join(names), check=True, capture_output=True,
                            text=True).stdout
    return dict(zip(names, map(shortened, output.splitlines())))


def shortened(text):
    text = text.replace("std::__cxx11::basic_string<char, std::char_traits<char>, "
                        "std::allocator<char> >", "std::string")
    text = text.replace("[abi:cxx11]", "").replace("std::__cxx11::", "std::")
    text = re.sub(r", std::less<[^<>]*>", "", text)
    previous = None
    while previous != text:
        previous = text
        text = re.sub(r", std::allocator<(?:[^<>]|<[^<>]*>)*>", "", text)
    return re.sub(r" +>", ">", text)


def compare(table, present, update, advice):
    """Ends the program with a difference and \\p advice unless the file \\p table is \\p present."""
    if update:
        table.write_text(present)
        return
    committed = table.read_text()
    if committed != present:
        sys.stdout.writelines(difflib.unified_diff(
            committed.splitlines(True), present.splitlines(True), "committed", "present"))
        sys.exit(advice)
