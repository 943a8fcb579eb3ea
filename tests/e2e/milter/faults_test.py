#!/usr/bin/env python3
"""What breaks while mail flows: no message is lost, each is accounted for, and one that came twice
is one of which the log says so.

KAVI_FAULT_MESSAGES is how many messages flow past each fault; 105 without it. With --together the
tests named behind it run at the same time, each with a mail system of its own: what was cut off in
the middle is tried again after two minutes, and waiting takes no processor.
"""
import contextlib
import os
import pathlib
import random
import shutil
import socket
import sqlite3
import subprocess
import sys
import tempfile
import threading
import unittest

from administrator import Administrator
from ledger import Ledger, POLICY, kind_of, numbered
from mail_stack import MailTest, Sink, free_port, wait_until
from postgres_server import PostgresServer
from senders import SESSIONS, Senders
from trap_receiver import TrapReceiver

TOTAL = int(os.environ.get("KAVI_FAULT_MESSAGES", "105"))
# An effect that was cut off in the middle can be tried again after two minutes, a hand-off after one
# more than its deadline.
PATIENCE = 300


class FaultCase(MailTest):
    def setUp(self):
        super().setUp()
        self.handoff = self.another_handoff()
        self.listener = None
        self.administrator = None
        # A port that nobody listens to, and that nobody else gets meanwhile.
        self.nobody = socket.socket()
        self.addCleanup(self.nobody.close)
        self.nobody.bind(("127.0.0.1", 0))

    def another_handoff(self, script=None):
        sink = Sink(pathlib.Path(tempfile.mkdtemp(prefix="handoff-", dir=self.base)), script)
        self.addCleanup(sink.stop)
        return sink

    def forget_everything(self):
        """No test finds what an earlier one has left: its messages are the same."""
        cls = type(self)
        if cls.__dict__.get("running") is not None:
            cls.running.kill()
            cls.running = None
        for folder in ("state", "quarantine", "archive"):
            shutil.rmtree(cls.base / folder, ignore_errors=True)
        for path in cls.sink.folder.glob("*.eml"):
            path.unlink()
        (cls.sink.folder / "log.jsonl").write_bytes(b"")

    def policy(self):
        return POLICY % {"handoff": self.handoff.port, "nobody": self.nobody.getsockname()[1]}

    def start(self, scan=None, plain=None, delivery="", sections="", location=None):
        """The milter with ports for what it sends; the listeners of Postfix where none is given.
        \\param location  where the store with the policy is; None for a file"""
        self.forget_everything()
        if location is not None:
            sections += f"[store]\nlocation = {location}\n"
        return self.milter(
            self.policy() if location is None else None,
            settings="reinjection_listener = kavi-scan",
            delivery=f"scan_host = 127.0.0.1\nscan_port = {scan or self.postfix.scan}\n"
                     f"plain_host = 127.0.0.1\nplain_port = {plain or self.postfix.plain}\n"
                     "retry_first_seconds = 1\nretry_longest_seconds = 2\n"
                     "handoff_deadline_seconds = 5\n" + delivery,
            sections=sections, level=3)

    def senders(self, held=0):
        """Messages begin to flow, and to be released from quarantine."""
        self.administrator = Administrator(type(self).running, "held")
        self.addCleanup(self.administrator.stop)
        return Senders(self.postfix.port, TOTAL, numbered, PATIENCE, held)

    def wait_for_all(self, senders):
        """Until all messages are accepted, and released where they have to be."""
        senders.wait()
        self.assertEqual(senders.faults, [])
        self.assertEqual(sorted(senders.accepted), list(range(TOTAL)))
        self.administrator.finish(PATIENCE)

    def listen(self, name, script=None, port=0):
        """A listener for what the spool sends that does as the script says."""
        self.listener = Sink(self.base / name, script, port)
        self.addCleanup(self.listener.stop)
        return self.listener

    def wait_for(self, senders, share):
        wait_until(lambda: senders.done() >= share * TOTAL or senders.faults,
                   f"{share:.0%} of the messages", PATIENCE)
        self.assertEqual(senders.faults, [])

    def wait_for_refusals(self, senders, count=3):
        before = len(senders.refusals)
        wait_until(lambda: len(senders.refusals) >= before + count or senders.faults,
                   f"{count} messages to be refused", PATIENCE)
        self.assertEqual(senders.faults, [])

    def waiting(self, milter):
        """The spool's messages that wait for another attempt."""
        return [path.stem for path in (milter.state / "spool").glob("*.msg")]

    def failed(self, milter):
        found = []
        for path in (milter.state / "spool").glob("*.log"):
            with contextlib.suppress(FileNotFoundError):  # it went out meanwhile
                if '"failed"' in path.read_text():
                    found.append(path.stem)
        return found

    def finish(self, milter, senders):
        """All that is on its way arrives; then every message has to be where it belongs."""
        self.wait_for_all(senders)
        wait_until(lambda: set(self.waiting(milter)) <= set(self.failed(milter)),
                   "the spool to become empty", PATIENCE)
        wait_until(lambda: not self.postfix.queued(), "the queue to become empty", PATIENCE)
        ledger = Ledger(milter, self.sink, self.handoff, self.listener)
        print(f"{self._testMethodName}: {TOTAL} messages, {len(senders.refusals)} times refused for "
              f"now, {len(ledger.doubled())} said to be possibly doubled", flush=True)
        self.assertEqual(ledger.account(TOTAL), [])
        return ledger


class FaultsTest(FaultCase):
    def test_reinjection_refused(self):
        port = free_port()
        milter = self.start(scan=port, plain=port)
        senders = self.senders()
        self.wait_for_all(senders)
        waiting = sum(kind_of(number) in ("readdress", "notify", "postpone", "release")
                      for number in range(TOTAL))
        self.assertEqual(len(self.waiting(milter)), waiting)
        self.listen("refused", port=port)
        ledger = self.finish(milter, senders)
        self.assertEqual(ledger.doubled(), set(), "nobody took anything")

    def test_reinjection_put_off(self):
        listener = self.listen("put-off", {"at": {
            "connect": {"reply": "421 4.3.2 later", "times": 2},
            "mail": {"reply": "451 4.3.0 later", "times": 3},
            "rcpt1": {"reply": "450 4.2.0 later", "times": 3},
            "end": {"reply": "452 4.3.1 later", "times": 3}}})
        milter = self.start(scan=listener.port, plain=listener.port)
        ledger = self.finish(milter, self.senders())
        self.assertEqual(ledger.doubled(), set(), "nobody took anything")
        refusals = [event for event in listener.events()
                    if event["event"] == "reply" and event["text"].startswith("4")]
        self.assertEqual(len(refusals), 2 + 3 + 3 + 3)
        self.assertTrue(milter.lines("waits", "for the next attempt"))

    def test_reinjection_refused_for_good_keeps_the_mail_for_an_administrator(self):
        listener = self.listen("for-good", {"at": {
            "rcpt1": {"reply": "550 5.1.1 nobody", "after": 2, "times": 3}}})
        milter = self.start(scan=listener.port, plain=listener.port)
        senders = self.senders()
        self.wait_for_all(senders)
        wait_until(lambda: len(self.failed(milter)) == 3 == len(self.waiting(milter)),
                   "three messages that failed and no others", PATIENCE)
        for entry in self.failed(milter):
            self.assertEqual(len(milter.lines(f"Message {entry} stays in the spool as failed")), 1)
        # The administrator sends them once more.
        for entry in self.failed(milter):
            (milter.state / "spool" / f"{entry}.log").unlink()
        self.finish(milter, senders)

    def test_reinjection_and_handoff_that_stall_or_hang_up(self):
        listener = self.listen("stalls", {"at": {
            "connect": {"do": "stall", "times": 1},
            "data": {"do": "stall", "times": 1},
            "end": {"do": "stall", "keep": True, "after": 2, "times": 1},
            "quit": {"do": "hangup", "times": 1}}})
        self.handoff = self.another_handoff({"at": {
            "rcpt1": {"do": "stall", "times": 1},
            "end": {"do": "hangup", "keep": True, "after": 3, "times": 2}}})
        milter = self.start(scan=listener.port, plain=listener.port,
                            delivery="connect_timeout_seconds = 2\ncommand_timeout_seconds = 2\n")
        ledger = self.finish(milter, self.senders())
        # Both took mail and did not say so.
        self.assertGreaterEqual(len(ledger.doubled()), 3)

    def test_receiver_of_traps_gone(self):
        receiver = TrapReceiver(self.base / "traps")
        self.addCleanup(receiver.stop)
        milter = self.start(sections="[General-Notification]\n"
                                     f"SNMPServer = 127.0.0.1:{receiver.port}\n")
        senders = self.senders(held=TOTAL // 2)
        wait_until(receiver.texts, "a trap")
        receiver.stop()
        senders.release()
        self.finish(milter, senders)
        for text in receiver.texts():
            self.assertRegex(text, rb"^notify of \d{5}$")


class KillTest(FaultCase):
    def test_killed_at_random_moments(self):
        milter = self.start()
        seed = random.randrange(1 << 32)
        print(f"seed of the kills: {seed}", flush=True)
        chance = random.Random(seed)
        senders = self.senders()
        for share in sorted(chance.uniform(0, 0.9) for _ in range(6)):
            self.wait_for(senders, share)
            threading.Event().wait(chance.uniform(0, 0.05))  # so that it is any moment
            milter.kill()
            milter.start()
        self.finish(milter, senders)
        self.assertNotEqual(senders.refusals, [], "the daemon was away, and nobody noticed")


class StoreTest(FaultCase):
    def test_store_locked_by_somebody_else(self):
        milter = self.start()
        senders = self.senders(held=TOTAL // 2)
        self.wait_for(senders, 0.2)
        lock = sqlite3.connect(milter.state / "store.sqlite", timeout=60, isolation_level=None)
        lock.execute("BEGIN EXCLUSIVE")
        senders.release()
        self.wait_for_refusals(senders)
        lock.execute("ROLLBACK")
        lock.close()
        self.finish(milter, senders)
        self.assertTrue(milter.lines("message queue=", "verdict=tempfail"))

    def test_disk_full(self):
        milter = self.start()
        milter.kill()
        disk = self.base / "state"
        shutil.rmtree(disk)
        disk.mkdir()
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=16m", "tmpfs", disk], check=True)
        try:
            milter.start()
            senders = self.senders(held=TOTAL // 2)
            self.wait_for(senders, 0.2)
            full = disk / "full"
            with open(full, "wb", buffering=0) as file:
                try:
                    while file.write(bytes(4096)):
                        pass
                except OSError:
                    pass
            senders.release()
            self.wait_for_refusals(senders)
            full.unlink()
            self.finish(milter, senders)
        finally:
            milter.kill()
            subprocess.run(["umount", disk], check=True)
            milter.start()

    def test_store_gone(self):
        milter = self.start()
        senders = self.senders(held=TOTAL // 2)
        self.wait_for(senders, 0.2)
        store, aside = milter.state / "store.sqlite", milter.state / "aside"
        with self.administrator.absent:  # kavi quarantine makes a store that is missing
            store.rename(aside)
            store.mkdir()
            senders.release()
            self.wait_for_refusals(senders)
            store.rmdir()
            aside.rename(store)
        self.finish(milter, senders)


class PolicyStoreTest(FaultCase):
    """The policy and its objects in PostgreSQL."""

    def kavi(self, *arguments):
        done = subprocess.run([os.environ["KAVI"], *map(str, arguments)], capture_output=True,
                              text=True, timeout=PATIENCE, check=False)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)

    def test_server_gone_and_back(self):
        server = PostgresServer()
        self.addCleanup(server.end)
        self.kavi("store", "init", "--store", server.location())
        policy = self.base / "applied.yaml"
        policy.write_text(self.policy())
        self.kavi("policy", "apply", policy, "--store", server.location())
        milter = self.start(location=server.location())
        senders = self.senders(held=TOTAL // 2)
        self.wait_for(senders, 0.2)
        server.stop()
        accepted = senders.done()
        senders.release()
        self.wait_for_refusals(senders, 2 * SESSIONS)
        # What had its policy already goes on, and nothing else.
        self.assertLessEqual(senders.done(), accepted + SESSIONS)
        server.start()
        self.finish(milter, senders)
        self.assertTrue(any(text.startswith("451 4.7.1 ") for text in senders.refusals))
        self.assertTrue(milter.lines("message queue=", "verdict=tempfail"))
        self.assertEqual(len(milter.lines("cannot be read, and mail is refused for now")), 1)
        self.assertEqual(len(milter.lines("can be read again")), 1)


def run_together(names):
    """\\return the exit status: 0 when all of these tests pass."""
    runs = [subprocess.Popen([sys.executable, "-B", __file__, name], stdin=subprocess.DEVNULL,
                             stdout=subprocess.PIPE, stderr=subprocess.STDOUT) for name in names]
    for name, run in zip(names, runs):
        output, _ = run.communicate()
        print(f"== {name}\n{output.decode(errors='replace')}", flush=True)
    return max(run.returncode for run in runs)


if __name__ == "__main__":
    if sys.argv[1:2] == ["--together"]:
        sys.exit(run_together(sys.argv[2:]))
    unittest.main()
