"""Runs the cases of a folder: what the golden runners have in common."""
import pathlib
import subprocess
import sys
from collections.abc import Callable

Check = Callable[[str, pathlib.Path, bool], list[str]]


def run(usage: str, folder: pathlib.Path, check: Check) -> int:
    """Takes PROGRAM [--update] [CASE...] from the command line; returns the exit status.

    `check(program, case, update)` returns what is wrong with a case.
    """
    arguments = [a for a in sys.argv[1:] if a != "--update"]
    update = "--update" in sys.argv[1:]
    if not arguments:
        print(usage)
        return 2
    program, names = arguments[0], arguments[1:]
    found = sorted(p.parent for p in folder.glob("*/in.eml") if not names or p.parent.name in names)
    if not found:
        print("no cases")
        return 1
    failed = 0
    for case in found:
        try:
            faults = check(program, case, update)
        except (RuntimeError, ValueError, subprocess.TimeoutExpired) as fault:
            faults = [str(fault)]
        if faults:
            failed += 1
            print(f"{case.name}: " + "\n  ".join(faults))
    print(f"{len(found)} cases, {failed} failed" + (", rewritten" if update else ""))
    return 1 if failed else 0
