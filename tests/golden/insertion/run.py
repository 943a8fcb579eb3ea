#!/usr/bin/env python3
"""Compares messages with a text put into them with what was written down.

usage: run.py INSERT_TEXT [--update] [CASE...]

A case is a folder under cases/: in.eml, and what comes out, top.eml and end.eml. `text` (optional)
is the text in place of cases/text; `options` (optional) holds options of the program; `fails`
(optional) the reason of an insertion that fails, and then the message is to come out as it was.
Boundaries that are made anew are masked. --update rewrites top.eml and end.eml; its changes are
read before they are committed.
"""
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))
import cases  # noqa: E402

CASES = pathlib.Path(__file__).resolve().parent / "cases"
PLACES = ("top", "end")


def insert(program: str, case: pathlib.Path, place: str, out: pathlib.Path) -> str:
    """Writes the message with its text; returns the reason why it could not."""
    options = case / "options"
    text = case / "text"
    done = subprocess.run(
        [program, *(shlex.split(options.read_text()) if options.exists() else []), place,
         text if text.exists() else CASES / "text", case / "in.eml", out],
        capture_output=True, timeout=60, check=False)
    if done.returncode not in (0, 1):
        raise RuntimeError(done.stderr.decode(errors="replace"))
    return done.stderr.decode(errors="replace").rsplit(": ", 1)[-1].strip()


def masked(message: bytes) -> bytes:
    return re.sub(rb"=_[0-9a-z]{16,36}", b"=_BOUNDARY", message)


def check(program: str, case: pathlib.Path, update: bool) -> list[str]:
    faults = []
    fails = case / "fails"
    reason = fails.read_text().strip() if fails.exists() else ""
    for place in PLACES:
        expected = case / f"{place}.eml"
        with tempfile.TemporaryDirectory() as folder:
            out = pathlib.Path(folder) / "out.eml"
            said = insert(program, case, place, out)
            result = masked(out.read_bytes())
            out.write_bytes(result)
            if said != reason:
                faults.append(f"{place}: '{said}', expected '{reason}'")
            if reason:
                if result != (case / "in.eml").read_bytes():
                    faults.append(f"{place}: the message changed though it failed")
            elif update:
                expected.write_bytes(result)
            elif not expected.exists() or expected.read_bytes() != result:
                difference = subprocess.run(["diff", "-a", "-u", expected, out],
                                            capture_output=True, check=False).stdout
                faults.append(f"{place}: differs\n" + difference.decode(errors="replace"))
    return faults


sys.exit(cases.run(__doc__, CASES, check))
