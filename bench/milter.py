#!/usr/bin/env python3
"""Messages a second through Postfix with kavi-milter, as a ratio to a milter that does nothing, on
the same Unix socket.

Usage: bench/milter.py BIN_DIR [MESSAGES]. Alternating runs, medians. The policy stamps, tags and adds
a header to every message, and sends a notification for one in 100. Exit status: 1 when the ratio is
below 0.85. Needs root, for Postfix: without, it says that it was left out.
"""
import os
import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
from filter_stand import (  # noqa: E402
    KaviMilter, NullMilter, Stand, measure, report, run_cleanly)

BOUND = 0.85


def main():
    if os.geteuid() != 0:
        print("left out: Postfix can be started by root only (sudo make bench)")
        return 0
    bin_dir = pathlib.Path(sys.argv[1]).resolve()
    count = int(sys.argv[2]) if len(sys.argv) > 2 else 2000

    def run(folder):
        stand = Stand(folder)
        return measure([lambda: NullMilter(stand, bin_dir), lambda: KaviMilter(stand, bin_dir)],
                       count)

    medians = report(run_cleanly("kavi-bench-", run), count)
    ratio = medians[KaviMilter.name] / medians[NullMilter.name]
    print(f"ratio: {ratio:.2f} (at least {BOUND})")
    return 0 if ratio >= BOUND else 1


if __name__ == "__main__":
    sys.exit(main())
