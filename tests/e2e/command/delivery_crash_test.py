"""Runs of `kavi run --deliver` that are killed anywhere, and what is there when all is done.

KAVI_ROUNDS says how many rounds of up to three kills there are.
"""
import collections
import os
import random
import re
import sqlite3
import subprocess
import time
import unittest

from gateway_case import GatewayTest, Sink
from kavi_process import KAVI, kavi

ROUNDS = int(os.environ.get("KAVI_ROUNDS", "8"))
MESSAGES = 6


class DeliveryCrashTest(GatewayTest):
    ACTIONS = "{archive: journal}, {readdress: c@y.example}, {quarantine: virus}"
    KEPT_IN = ("archive", "quarantine")  # the last one is what the last action keeps

    def setUp(self):
        super().setUp()
        self.random = random.Random(20)
        self.sink = Sink(self, "scan")
        self.sends_to(scan=self.sink, retry_first_seconds=1, retry_longest_seconds=1)
        self.put("policy.yaml", "quarantine_areas: [{name: virus}]\n"
                 "archive_areas: [{name: journal}]\nrules:\n- {id: 3, when: always, actions: "
                 f"[{self.ACTIONS}]}}\n")

    @staticmethod
    def mail(subject):
        return (f"From: a@x.example\r\nTo: b@x.example\r\nSubject: {subject}\r\n\r\n"
                + subject * 4000 + "\r\n").encode()

    @staticmethod
    def subject(mail):
        return re.search(rb"^Subject: (\S+)\r$", mail, re.M)[1].decode()

    def subjects(self, mails):
        return collections.Counter(self.subject(mail) for mail in mails)

    def run_for(self, seconds):
        """The exit status, or None when it had to be killed."""
        process = subprocess.Popen([KAVI, *map(str, self.arguments(self.inputs))],
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            return process.wait(timeout=seconds)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait(timeout=30)
            return None

    def query(self, statement):
        """What the store answers; nothing before it has its tables."""
        if not (self.state / "store.sqlite").exists():
            return []
        store = sqlite3.connect(self.state / "store.sqlite", timeout=30)
        try:
            with store:
                tables = store.execute("SELECT count(*) FROM sqlite_master WHERE name IN "
                                       "('message_index', 'effect_ledger')").fetchone()
                return store.execute(statement).fetchall() if tables == (2,) else []
        finally:
            store.close()

    def check_what_is_stored(self):
        """Every copy is whole, and every row of the index has its copy."""
        for path in self.stored("quarantine") + self.stored("archive"):
            data = path.read_bytes()
            kept = re.sub(rb"X-kavi-reprocess-[^\n]*\n", b"", data)
            self.assertEqual(kept, self.mail(self.subject(data)), path)
        # A postponed message may have gone just before the kill; the next start takes its row away.
        for path, in self.query("SELECT path FROM message_index WHERE kind <> 3"):
            self.assertTrue(os.path.exists(bytes(path).decode()), path)

    def is_settled(self, turn):
        """Whether a killed run had given its messages their answer already, which it does for all
        of them at once; the kill came between that and its end."""
        stored = [path for path in self.stored(self.KEPT_IN[-1])
                  if self.subject(path.read_bytes()).startswith(f"r{turn}-")]
        return len(stored) == MESSAGES and not self.query("SELECT 1 FROM effect_ledger")

    def finish(self, turn):
        """Repeats the command until all is done."""
        for _ in range(20):
            # As if the time were over in which a killed attempt might still be alive.
            self.query("UPDATE effect_ledger SET leased_until = 0 WHERE done = 0")
            kavi("spool", "retry", "--all", "--config", self.config)
            if self.is_settled(turn) or self.run_for(60) == 0:
                return
        self.fail("never done")

    def test_nothing_is_lost_and_nothing_is_stored_twice(self):
        whole, kills = 0.5, 0
        wanted = []
        for turn in range(ROUNDS):
            self.inputs = self.folder / f"in{turn}"
            self.out = self.folder / f"out{turn}"
            for number in range(MESSAGES):
                wanted.append(f"r{turn}-{number}")
                self.put(f"in{turn}/{number}.eml", self.mail(wanted[-1]))
            began = time.monotonic()
            status = None
            for _ in range(3):
                status = self.run_for(self.random.uniform(0, whole))
                self.check_what_is_stored()
                if status == 0:
                    whole = 0.8 * (time.monotonic() - began)
                kills += status is None
                if status == 0 or self.is_settled(turn):
                    break
                began = time.monotonic()
            else:
                self.finish(turn)
            self.check_what_is_stored()
        self.put("last/0.eml", self.mail("last"))
        wanted.append("last")
        self.inputs, self.out = self.folder / "last", self.folder / "out-last"
        self.assertEqual(self.run_for(60), 0)
        once = collections.Counter(wanted)
        for folder in self.KEPT_IN:
            stored = self.subjects(path.read_bytes() for path in self.stored(folder))
            self.assertEqual(stored, once, folder)
        sent = self.subjects(self.sink.messages())
        self.assertEqual(set(sent), set(wanted))
        self.assertLessEqual(sent.total() - once.total(), kills, "at most one doubled by a kill")
        self.assertEqual(self.waiting(), [])
        self.assertGreaterEqual(kills, ROUNDS // 2)
        rows = self.query("SELECT count(*) FROM message_index")
        self.assertEqual(rows, [(len(self.KEPT_IN) * len(wanted),)])


class PostponeCrashTest(DeliveryCrashTest):
    """Mail that is postponed inside its window, and so goes back at the end of the run."""
    ACTIONS = "{archive: journal}, {postpone: '00:00'}"
    KEPT_IN = ("archive",)


if __name__ == "__main__":
    unittest.main()
