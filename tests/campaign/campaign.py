#!/usr/bin/env python3
"""Runs every message of a folder through each modifying action and examines what comes out.

usage: campaign.py KAVI FOLDER --out RESULTS [--skip GLOB] [--action NAME]

KAVI is the built command. FOLDER is read with everything below it; each file is a message or an
mbox; those that --skip names are counted as left out. RESULTS gets table.txt (the figures), not-changed.txt (a line for each message that an action
left as it was, with the reason), failures.txt (a line for each failed check and each unreadable
file) and notes.txt (what is allowed, but worth a look). Messages go through in batches, so that
memory and room on disk stay bounded. Exit status: 0, 1 when a check failed or a file could not be
read, 2 when the campaign could not run.
"""
import argparse
import collections
import fnmatch
import json
import os
import pathlib
import subprocess
import sys
import tempfile

from actions import all_actions
from examine import FAILED, UNCHANGED, VERDICTS, WRONG, Finding, examine
from inputs import mails

BATCH_MESSAGES = 100
BATCH_BYTES = 64 * 1024 * 1024
TIMEOUT_SECONDS = 900


class Campaign:
    """The counts and the open result files."""

    def __init__(self, kavi, results, actions):
        self.kavi = kavi
        self.actions = actions
        self.results = results
        self.messages = 0
        self.bytes = 0
        self.left_out = 0
        self.counts = {action.name: collections.Counter() for action in actions}
        self.reasons = {action.name: collections.Counter() for action in actions}
        self.files = {name: open(results / name, "w", encoding="utf-8", errors="backslashreplace")
                      for name in ("not-changed.txt", "failures.txt", "notes.txt")}

    def line(self, file, *columns):
        text = "\t".join(" ".join(str(column).split()) for column in columns)
        print(text, file=self.files[file])

    def wanted(self, found, skip):
        for mail in found:
            if fnmatch.fnmatch(os.path.basename(mail.path), skip):
                self.left_out += 1
            else:
                yield mail

    def run(self, batch):
        self.messages += len(batch)
        self.bytes += sum(os.path.getsize(mail.path) for mail in batch)
        for action in self.actions:
            with tempfile.TemporaryDirectory(prefix="kavi-campaign-") as folder:
                self._run_action(action, batch, pathlib.Path(folder))

    def _run_action(self, action, batch, folder):
        policy, out = folder / "policy.yaml", folder / "out"
        policy.write_text(action.policy, encoding="utf-8")
        settings = []
        if action.settings:
            (folder / "settings.ini").write_text(action.settings, encoding="utf-8")
            settings = ["--config", folder / "settings.ini"]
        done = subprocess.run(
            [self.kavi, "run", "--json", "-v", "--policy", policy, "--out", out, *settings, "--",
             *(mail.path for mail in batch)],
            capture_output=True, timeout=TIMEOUT_SECONDS, check=False)
        reports = [json.loads(line) for line in done.stdout.splitlines()]
        if done.returncode not in (0, 1) or len(reports) != len(batch):
            # Which message it was is not known: each of them alone tells.
            if len(batch) > 1:
                for mail in batch:
                    with tempfile.TemporaryDirectory(prefix="kavi-campaign-") as alone:
                        self._run_action(action, [mail], pathlib.Path(alone))
                return
            reason = (f"exit status {done.returncode}, {len(reports)} reports: "
                      f"{done.stderr.decode(errors='replace')[-600:]}")
            self._note(action, batch[0], Finding(WRONG, reason))
            return
        for mail, report in zip(batch, reports):
            before = pathlib.Path(mail.path).read_bytes()
            output = report.get("output")
            after = pathlib.Path(output).read_bytes() if output else None
            self._note(action, mail, examine(action, before, after, report))

    def _note(self, action, mail, finding):
        self.counts[action.name][finding.verdict] += 1
        if finding.verdict in (UNCHANGED, FAILED):
            self.reasons[action.name][(finding.verdict, finding.reason)] += 1
            self.line("not-changed.txt", mail.name, action.name, finding.verdict, finding.reason)
        elif finding.verdict == WRONG:
            self.line("failures.txt", mail.name, action.name, finding.reason)
        for note in finding.notes:
            self.line("notes.txt", mail.name, action.name, note)

    def table(self, unreadable):
        lines = [f"{self.messages} messages, {self.bytes} bytes; {unreadable} not "
                 f"readable, {self.left_out} left out on request", "",
                 f"{'action':26}" + "".join(f"{verdict:>14}" for verdict in VERDICTS)]
        for action in self.actions:
            counts = self.counts[action.name]
            lines.append(f"{action.name:26}" +
                         "".join(f"{counts[verdict]:>14}" for verdict in VERDICTS))
        lines += ["", "Why messages stayed as they were:"]
        for action in self.actions:
            for (verdict, reason), count in self.reasons[action.name].most_common():
                lines.append(f"  {action.name}: {count} {verdict}: {reason}")
        return "\n".join(lines) + "\n"

    def failed(self):
        return sum(counts[WRONG] for counts in self.counts.values())


def batches(found):
    """Groups of messages, small enough for a command line and for the disk."""
    batch, size = [], 0
    for mail in found:
        batch.append(mail)
        size += os.path.getsize(mail.path)
        if len(batch) == BATCH_MESSAGES or size >= BATCH_BYTES:
            yield batch
            batch, size = [], 0
    if batch:
        yield batch


def run(kavi, folder, results, skip="", only=None):
    """The finished campaign, and the number of files that could not be read."""
    actions = [action for action in all_actions() if only in (None, action.name)]
    if not actions:
        raise SystemExit(f"campaign: there is no action '{only}'")
    results.mkdir(parents=True, exist_ok=True)
    campaign = Campaign(kavi, results, actions)
    unreadable = []
    with tempfile.TemporaryDirectory(prefix="kavi-campaign-mails-") as staging:
        found = campaign.wanted(mails(folder, staging, unreadable), skip)
        for batch in batches(found):
            campaign.run(batch)
            for mail in batch:
                if mail.path.startswith(staging):
                    os.unlink(mail.path)
    for path, reason in unreadable:
        campaign.line("failures.txt", path, "reading", reason)
    (results / "table.txt").write_text(campaign.table(len(unreadable)), encoding="utf-8",
                                       errors="backslashreplace")
    for file in campaign.files.values():
        file.close()
    return campaign, len(unreadable)


def main():
    options = argparse.ArgumentParser(usage=__doc__)
    options.add_argument("kavi")
    options.add_argument("folder")
    options.add_argument("--out", type=pathlib.Path, required=True)
    options.add_argument("--skip", default="")
    options.add_argument("--action")
    given = options.parse_args()
    if not os.path.isdir(given.folder):
        print(f"campaign: {given.folder} is no folder", file=sys.stderr)
        return 2
    campaign, unreadable = run(given.kavi, given.folder, given.out, given.skip, given.action)
    print((given.out / "table.txt").read_text(encoding="utf-8"), end="")
    print((given.out / "failures.txt").read_text(encoding="utf-8"), end="", file=sys.stderr)
    print(f"\nresults: {given.out}")
    if campaign.messages == 0:
        print(f"campaign: no message in {given.folder}", file=sys.stderr)
        return 2
    return 1 if campaign.failed() or unreadable else 0


if __name__ == "__main__":
    sys.exit(main())
