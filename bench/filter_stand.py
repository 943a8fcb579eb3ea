"""A stand for mail filters: a private Postfix with a filter in it, smtp-source before it, smtp-sink
behind it. Messages of 10,000 bytes in 20 sessions. Needs root, for Postfix."""
import os
import pathlib
import statistics
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "tests" / "stack"))
from clean_end import run_cleanly  # noqa: E402
from mail_servers import (  # noqa: E402, F401  (the benchmarks take them from here)
    Milter, Postfix, Sink, end_process, free_port, socket_folder, wait_until)

RUNS = 5
SESSIONS = 20
BYTES = 10_000
PATIENCE = 600  # seconds for a run
NOTE = "Stamped by the gateway that this message passed."  # what a filter's stamp or disclaimer says
PROBE = "probe@probe.example"  # mail to there can be looked at
POLICY = """
stamps: [{name: note, text: "%s"}]
notifications:
- {name: tell, sender: gateway@example.org, recipients: [admin@example.org],
   subject: "A hundredth message", body: "%%SENDER%% wrote to %%RCPTS%%."}
rules:
- {id: 1, when: always, actions: [{stamp: note}, {tag_subject: "[t] "}, {x_header: "X-Seen: yes"}]}
- {id: 2, when: {recipient: {matches: "^[0-9]*00to@"}}, actions: [{notify: tell}]}
""" % NOTE


class Stand:
    """Postfix and what is before and behind it."""

    def __init__(self, folder, **settings):
        self.folder = folder
        self.socket = socket_folder(folder) / "milter"
        self.sink_port = free_port()
        self.sink = subprocess.Popen(
            ["smtp-sink", "-u", "postfix", f"127.0.0.1:{self.sink_port}", "128"],
            stderr=subprocess.DEVNULL, start_new_session=True)
        self.probes = Sink(folder / "probes")
        domain = PROBE.split("@")[1]
        self.postfix = Postfix(folder, self.socket, self.sink_port, {
            "transport_maps": f"inline:{{{domain}=smtp:[127.0.0.1]:{self.probes.port}}}",
            **settings})

    def send(self, count, recipient, *options):
        subprocess.run(
            ["smtp-source", "-s", str(min(count, SESSIONS)), "-m", str(count), "-l", str(BYTES),
             "-S", "a message", "-f", "from@example.org", "-t", recipient, *options,
             f"inet:127.0.0.1:{self.postfix.port}"],
            check=True, timeout=PATIENCE, stdin=subprocess.DEVNULL)

    def rate(self, count):
        """Messages a second until the last one was accepted."""
        begin = time.monotonic()
        self.send(count, "to@example.net", "-N")
        took = time.monotonic() - begin
        wait_until(lambda: not self.postfix.queued(), "the queue to become empty", PATIENCE)
        return count / took

    def probe(self):
        """One message, as it arrived."""
        before = self.probes.count()
        self.send(1, PROBE)
        wait_until(lambda: self.probes.count() > before, "the probe")
        return self.probes.messages()[-1][2]


class NullMilter:
    """A milter that does nothing."""

    name = "null milter"

    def __init__(self, stand, bin_dir):
        self.stand = stand
        stand.socket.unlink(missing_ok=True)
        self.process = subprocess.Popen([bin_dir / "null_milter", f"unix:{stand.socket}"],
                                        start_new_session=True)
        wait_until(stand.socket.exists, "the null milter")
        stand.socket.chmod(0o666)

    def check(self, count):
        """That it was at work; `count` messages were measured."""

    def stop(self):
        end_process(self.process)


class KaviMilter:
    """Stamps, tags and marks every message, and sends a notification for one in 100."""

    name = "kavi-milter"

    def __init__(self, stand, bin_dir):
        self.stand = stand
        self.milter = Milter(
            stand.folder, POLICY, program=bin_dir / "kavi-milter",
            delivery=f"plain_host = 127.0.0.1\nplain_port = {stand.postfix.plain}\n")
        self.milter.forget_log()

    def check(self, count):
        accepted = len(self.milter.lines("message queue=", "verdict=accept", "rules=1"))
        told = len(self.milter.lines("action=notify result=ok"))
        text = self.stand.probe()
        if accepted != count or told != count // 100 or NOTE.encode() not in text:
            raise AssertionError(f"kavi-milter took {accepted} of {count} messages and sent {told} "
                                 "notifications:\n" + self.milter.log()[-2000:])

    def stop(self):
        self.milter.stop()


def measure(contenders, count):
    """The contenders in turn, RUNS times. \\param contenders  functions that start one.
    \\return {name: rates}"""
    rates = {}
    for _ in range(RUNS):
        for start in contenders:
            filter_ = start()
            rates.setdefault(filter_.name, []).append(filter_.stand.rate(count))
            filter_.check(count)
            filter_.stop()
    return rates


def report(rates, count):
    """Prints medians. \\return {name: median}"""
    medians = {name: statistics.median(found) for name, found in rates.items()}
    for name, found in rates.items():
        print(f"{name}: {medians[name]:.0f} messages/s (median of {RUNS} runs of {count} messages of "
              f"{BYTES} bytes: {', '.join(f'{each:.0f}' for each in found)})", flush=True)
    return medians


def bench(target, default_count, contenders):
    """A benchmark's whole run, from the words of its command line: BIN_DIR [MESSAGES].
    \param contenders  (folder, bin_dir) -> what measure() takes. \return {name: median}, or None
    when it was left out"""
    if os.geteuid() != 0:
        print(f"left out: Postfix can be started by root only (sudo make {target})")
        return None
    bin_dir = pathlib.Path(sys.argv[1]).resolve()
    count = int(sys.argv[2]) if len(sys.argv) > 2 else default_count
    return report(run_cleanly("kavi-bench-",
                              lambda folder: measure(contenders(folder, bin_dir), count)), count)
