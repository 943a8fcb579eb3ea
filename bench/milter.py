#!/usr/bin/env python3
"""Messages a second through Postfix with kavi-milter, as a ratio to a milter that does nothing.

Usage: bench/milter.py BIN_DIR [MESSAGES]. Five alternating runs of each; medians. The policy stamps,
tags and adds a header to every message. smtp-source sends in 20 sessions, smtp-sink takes. Needs
root, for Postfix.
"""
import os
import pathlib
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

BIN = pathlib.Path(sys.argv[1]).resolve()
MESSAGES = int(sys.argv[2]) if len(sys.argv) > 2 else 1000
RUNS = 5
SESSIONS = 20
BYTES = 10_000
POLICY = """
stamps: [{name: note, text: "stamped for %SENDER%"}]
rules:
- {id: 1, when: always, actions: [{stamp: note}, {tag_subject: "[t] "}, {x_header: "X-Seen: yes"}]}
"""

os.environ["KAVI_MILTER"] = str(BIN / "kavi-milter")
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "tests" / "stack"))
from mail_servers import Milter, Postfix, end_process, free_port, wait_until  # noqa: E402


def rate(postfix):
    """Messages a second until the last one was accepted."""
    begin = time.monotonic()
    subprocess.run(["smtp-source", "-s", str(SESSIONS), "-m", str(MESSAGES), "-l", str(BYTES),
                    "-f", "from@example.org", "-t", "to@example.net",
                    f"inet:127.0.0.1:{postfix.port}"], check=True, timeout=600)
    took = time.monotonic() - begin
    wait_until(lambda: not postfix.queued(), "the queue to become empty", 600)
    return MESSAGES / took


class NullMilter:
    def __init__(self, path):
        path.unlink(missing_ok=True)
        self.process = subprocess.Popen([BIN / "null_milter", f"unix:{path}"])
        wait_until(path.exists, "the null milter")
        path.chmod(0o666)

    def stop(self):
        end_process(self.process)


def main():
    base = pathlib.Path(tempfile.mkdtemp(prefix="kavi-bench-"))
    base.chmod(0o755)
    sink_port = free_port()
    sink = subprocess.Popen(["smtp-sink", "-u", "postfix", f"127.0.0.1:{sink_port}", "128"],
                            stderr=subprocess.DEVNULL)
    postfix = None
    try:
        path = base / "socket" / "milter"
        Milter(base, POLICY).stop()  # makes the folders
        postfix = Postfix(base, path, sink_port)
        rates = {"null milter": [], "kavi-milter": []}
        for _ in range(RUNS):
            for name, start in (("null milter", lambda: NullMilter(path)),
                                ("kavi-milter", lambda: Milter(base, POLICY))):
                milter = start()
                rates[name].append(rate(postfix))
                milter.stop()
        for name, found in rates.items():
            print(f"{name}: {statistics.median(found):.0f} messages/s (of {MESSAGES} messages of "
                  f"{BYTES} bytes; {', '.join(f'{each:.0f}' for each in found)})")
        ratio = statistics.median(rates["kavi-milter"]) / statistics.median(rates["null milter"])
        print(f"ratio: {ratio:.2f}")
    finally:
        if postfix is not None:
            postfix.stop()
        end_process(sink)
        shutil.rmtree(base, ignore_errors=True)


if __name__ == "__main__":
    main()
