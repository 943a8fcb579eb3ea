#!/usr/bin/env python3
"""Messages a second through Postfix with kavi-milter, as a ratio to a milter that does nothing, on
the same Unix socket.

Usage: bench/milter.py BIN_DIR [MESSAGES]. Alternating runs, medians. The policy stamps, tags and adds
a header to every message, and sends a notification for one in 100. Exit status: 1 when the ratio is
below 0.85. Needs root, for Postfix: without, it says that it was left out.
"""
import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
from filter_stand import KaviMilter, NullMilter, Stand, bench  # noqa: E402

BOUND = 0.85


def contenders(folder, bin_dir):
    stand = Stand(folder)
    return [lambda: NullMilter(stand, bin_dir), lambda: KaviMilter(stand, bin_dir)]


def main():
    medians = bench("bench", 2000, contenders)
    if medians is None:
        return 0
    ratio = medians[KaviMilter.name] / medians[NullMilter.name]
    print(f"ratio: {ratio:.2f} (at least {BOUND})")
    return 0 if ratio >= BOUND else 1


if __name__ == "__main__":
    sys.exit(main())
