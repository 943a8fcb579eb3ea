#!/usr/bin/env python3
"""Compares what a policy makes of messages with what was written down.

usage: run.py KAVI [--update] [CASE...]

A case is a folder beside this file: in.eml, policy.yaml, and what comes out: out.eml, or nothing
when the message does not go on. `verdict` holds the verdict's word, `options` (optional) further
options of `kavi run`, `settings.ini` (optional) its settings. What would be sent or filed stands
under `filed`, as in the out folder. What differs from run to run is masked: boundaries that the
message library makes, and fields, whose names stand in `masked_fields`, one to a line. --update
rewrites out.eml and verdict; its changes are read before they are committed.
"""
import json
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import tempfile

import cases

HERE = pathlib.Path(__file__).resolve().parent


def mask(message: bytes, fields: list[str]) -> bytes:
    for field in fields:
        pattern = rb"(?im)^(%s[ \t]*:)[^\n]*\n(?:[ \t][^\n]*\n)*" % re.escape(field.encode())
        message = re.sub(pattern, rb"\1 (masked)\n", message)
    return re.sub(rb"=_[0-9a-z]{32}\b", b"=_masked", message)


def run_case(kavi: str, case: pathlib.Path) -> tuple[str, bytes | None, dict[str, bytes]]:
    options = case / "options"
    extra = shlex.split(options.read_text()) if options.exists() else []
    if (case / "settings.ini").exists():
        extra += ["--config", case / "settings.ini"]
    with tempfile.TemporaryDirectory() as out:
        done = subprocess.run(
            [kavi, "run", "--policy", case / "policy.yaml", "--json", "--out", out, *extra,
             case / "in.eml"],
            capture_output=True, timeout=120, check=False)
        if done.returncode not in (0, 1):
            raise RuntimeError(done.stderr.decode(errors="replace"))
        report = json.loads(done.stdout)
        if done.returncode != (1 if report["verdict"] == "failed" else 0):
            raise RuntimeError(f"exit status {done.returncode} with verdict {report['verdict']}")
        result = pathlib.Path(out) / "in.eml"
        filed = {call["file"]: (pathlib.Path(out) / call["file"]).read_bytes()
                 for call in report["calls"] if "file" in call}
        return report["verdict"], result.read_bytes() if result.exists() else None, filed


def difference(expected: pathlib.Path, actual: bytes) -> str:
    with tempfile.NamedTemporaryFile() as file:
        file.write(actual)
        file.flush()
        return subprocess.run(["diff", "-a", "-u", expected, file.name],
                              capture_output=True, check=False).stdout.decode(errors="replace")


def check_filed(case: pathlib.Path, filed: dict[str, bytes], masked: list[str]) -> list[str]:
    folder = case / "filed"
    expected = {str(path.relative_to(folder)): path for path in folder.rglob("*.eml")}
    if not folder.exists():
        return []
    if expected.keys() != filed.keys():
        return [f"filed {sorted(filed)}, expected {sorted(expected)}"]
    return [f"the filed message differs from {name}:\n" + difference(expected[name], filed[name])
            for name in sorted(filed) if filed[name] != mask(expected[name].read_bytes(), masked)]


def update_filed(case: pathlib.Path, filed: dict[str, bytes]) -> None:
    if not (case / "filed").exists():
        return
    shutil.rmtree(case / "filed")
    for name, message in filed.items():
        path = case / "filed" / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(message)


def check(kavi: str, case: pathlib.Path, update: bool) -> list[str]:
    fields = case / "masked_fields"
    masked = fields.read_text().split() if fields.exists() else []
    verdict, result, filed = run_case(kavi, case)
    filed = {name: mask(message, masked) for name, message in filed.items()}
    result = None if result is None else mask(result, masked)
    out, word = case / "out.eml", case / "verdict"
    if update:
        word.write_text(verdict + "\n")
        if result is None:
            out.unlink(missing_ok=True)
        else:
            out.write_bytes(result)
        update_filed(case, filed)
        return []
    faults = []
    expected = word.read_text().strip() if word.exists() else "(no verdict file)"
    if verdict != expected:
        faults.append(f"verdict {verdict}, expected {expected}")
    if result is None and out.exists():
        faults.append("nothing came out, expected out.eml")
    elif result is not None and not out.exists():
        faults.append("a message came out, expected none")
    elif result is not None and result != mask(out.read_bytes(), masked):
        faults.append("the message differs from out.eml:\n" + difference(out, result))
    faults += check_filed(case, filed, masked)
    return faults


sys.exit(cases.run(__doc__, HERE, check))
