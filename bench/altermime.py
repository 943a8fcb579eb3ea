#!/usr/bin/env python3
"""Stamping with this library beside altermime, in processor time, altermime's start subtracted.

usage: altermime.py BIN_DIR

BIN_DIR holds bench_insert, which writes the messages and measures our side in the same run. Ends
with 1 when ours is not at least five times as fast for every message.
"""
import os
import pathlib
import re
import resource
import shutil
import statistics
import subprocess
import sys
import tempfile

BOUND = 5.0
RUNS = 60
STAMP = "This message is confidential.\nPlease delete it if it is not for you.\n"


def processor_time(command: list[str]) -> float:
    """Seconds of processor time that the command takes."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    process = subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                             timeout=60, check=False)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    if process.returncode < 0:
        raise RuntimeError(f"{command[0]} ended by signal {-process.returncode}")
    return after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime


def theirs(mail: pathlib.Path, folder: pathlib.Path) -> float:
    """Mean seconds of altermime on a fresh copy of the mail."""
    stamp, html = folder / "stamp.txt", folder / "stamp.html"
    stamp.write_text(STAMP)
    html.write_text("<p>" + STAMP.replace("\n", "<br>") + "</p>")
    times = []
    for _ in range(RUNS):
        copy = folder / "in.eml"
        shutil.copyfile(mail, copy)
        times.append(processor_time(["altermime", f"--input={copy}", f"--disclaimer={stamp}",
                                     f"--disclaimer-html={html}"]))
        if copy.read_bytes() == mail.read_bytes():
            raise RuntimeError(f"altermime did not change {mail.name}")
    return statistics.mean(times)


def ours(program: pathlib.Path) -> dict[str, float]:
    """Median seconds by size of the message, at the end of the body."""
    done = subprocess.run([program, "--benchmark_filter=stamp_end", "--benchmark_color=false"],
                          stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, timeout=300, check=False)
    plain = re.sub(r"\x1b\[[0-9;]*m", "", done.stdout.decode())
    rows = re.findall(r"^stamp_end/(\d+)/\S*_median +\S+ ns +(\d+) ns", plain, re.M)
    if not rows:
        raise RuntimeError("bench_insert gave no figures")
    return {size: int(nanoseconds) * 1e-9 for size, nanoseconds in rows}


def main() -> int:
    if len(sys.argv) != 2:
        print(__doc__)
        return 2
    program = pathlib.Path(sys.argv[1]) / "bench_insert"
    good = True
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        subprocess.run([program, "--write-mails", folder], check=True, timeout=60)
        start = statistics.mean(processor_time(["altermime", "--version"]) for _ in range(RUNS))
        print(f"altermime's start: {start * 1e6:.0f} us")
        for size, mine in sorted(ours(program).items(), key=lambda item: int(item[0])):
            other = theirs(folder / f"{size}.eml", folder) - start
            print(f"{size:>9} bytes: altermime {other * 1e6:.0f} us, ours {mine * 1e6:.0f} us, "
                  f"{other / mine:.1f} times as fast (at least {BOUND:.0f})")
            good = good and other >= BOUND * mine
    return 0 if good else 1


if __name__ == "__main__":
    os.environ["LC_ALL"] = "C"
    sys.exit(main())
