#!/usr/bin/env python3
"""kavi-milter with its policy in a store, behind a real Postfix: changes, faults, a store that goes."""
import os
import signal
import sqlite3
import subprocess
import unittest
import urllib.request

from mail_stack import MailTest, Milter, free_port, wait_until, without_trace
from postgres_server import PostgresServer

MAIL = b"From: from@example.org\r\nSubject: hello\r\n\r\nbody\r\n"
AREAS = "quarantine_areas: [{name: virus}, {name: spam}]\n"


def tagging(word):
    return ("rules:\n- {id: 1, name: tag, when: always, actions: [{x_header: 'X-Policy: %s'}]}\n"
            % word)


class StoreMilter(Milter):
    """A milter whose policy is in the store at `location`, with a log of its own."""

    def __init__(self, folder, location, settings=""):
        log = folder / "milter.log"
        before = log.stat().st_size if log.exists() else 0
        super().__init__(folder, None, settings, sections=f"[store]\nlocation = {location}\n")
        self.log_begin = before


class StoreTest(MailTest):
    def kavi(self, *arguments):
        done = subprocess.run([os.environ["KAVI"], *map(str, arguments)], capture_output=True,
                              text=True, timeout=60, check=False)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        return done.stdout

    def store(self, location, policy):
        """Makes a store that holds `policy`."""
        self.location = location
        self.kavi("store", "init", "--store", location)
        self.apply(policy)

    def apply(self, policy):
        file = self.base / "applied.yaml"
        file.write_text(policy)
        self.kavi("policy", "apply", file, "--store", self.location)

    def serve(self, settings=""):
        milter = StoreMilter(self.base, self.location, settings)
        # To stop one takes libmilter up to five seconds.
        self.addCleanup(milter.kill)
        return milter

    def assert_tagged(self, word):
        self.send(MAIL)
        [(_, _, data)] = self.arrived()
        expected = MAIL.replace(b"\r\n\r\n", b"\r\nX-Policy: %s\r\n\r\n" % word.encode(), 1)
        self.assertEqual(without_trace(data), expected)


class SqlitePolicyTest(StoreTest):
    def setUp(self):
        super().setUp()
        self.file = self.base / f"{self._testMethodName}.sqlite"
        self.store(f"sqlite:{self.file}", tagging("first"))

    def change(self, *statements):
        """Changes the store behind everybody's back."""
        with sqlite3.connect(self.file) as database:
            for statement in (*statements, "UPDATE policy_state SET revision = revision + 1"):
                database.execute(statement)
        database.close()

    def test_a_change_holds_from_the_next_message_on(self):
        milter = self.serve()
        self.assert_tagged("first")
        for word in ("second", "third"):
            self.apply(tagging(word))
            self.assert_tagged(word)
        self.assertEqual(len(milter.lines("is in force, with 1 rules")), 3)

    def test_folders_of_a_changed_policy_are_there_with_its_first_message(self):
        milter = self.serve()
        self.assert_tagged("first")
        self.apply(AREAS + "rules:\n- {id: 2, name: q, when: always, actions: [{quarantine: "
                           "spam}]}\n")
        self.send(MAIL)
        self.assert_nothing_arrives()
        self.assertTrue(milter.lines("action=quarantine", "result=ok"))
        self.assertEqual(len(list(milter.quarantine.rglob("*.DF"))), 1)

    def test_a_policy_that_cannot_be_used_leaves_the_one_before_it(self):
        port = free_port()
        milter = self.serve(settings=f"metrics_port = {port}")
        self.assert_tagged("first")
        self.change("UPDATE rule SET condition = x'7B7D'")
        for _ in range(3):
            self.assert_tagged("first")
        self.assertEqual(len(milter.lines("is NOT in force: the one before it stays")), 1)
        self.assertTrue(milter.lines(" L1 policy: ", "rule 1"))
        with urllib.request.urlopen(f"http://127.0.0.1:{port}/metrics", timeout=30) as answer:
            self.assertIn(b'kavi_policy_loads_total{result="refused"} 1', answer.read())
        self.apply(tagging("mended"))
        self.assert_tagged("mended")

    def test_a_store_that_goes_away_tempfails_and_comes_back(self):
        milter = self.serve()
        self.assert_tagged("first")
        away = self.file.with_suffix(".away")
        self.file.rename(away)
        for _ in range(2):
            self.assertRegex(self.refused(MAIL), r"^451 4\.7\.1 .*\([0-9A-Za-z]+\)$")
        self.assertFalse(self.file.exists())
        self.assertEqual(len(milter.lines("cannot be read, and mail is refused for now")), 1)
        self.assertEqual(len(milter.lines("verdict=tempfail", "the store cannot be opened")), 2)
        away.rename(self.file)
        self.assert_tagged("first")
        self.assertEqual(len(milter.lines("can be read again")), 1)

    def test_another_store_in_its_place_is_read(self):
        milter = self.serve()
        self.assert_tagged("first")
        other = self.base / "other.sqlite"
        self.location = f"sqlite:{other}"
        self.store(self.location, tagging("other"))
        os.replace(other, self.file)
        for end in ("-wal", "-shm"):
            self.file.with_name(self.file.name + end).unlink(missing_ok=True)
        # Its revision is that of the one before: nobody could know.
        milter.process.send_signal(signal.SIGUSR1)
        wait_until(lambda: len(milter.lines("is in force")) == 2, "the other policy")
        self.assert_tagged("other")

    def test_starts_while_others_keep_the_store_locked_and_serves_when_they_let_go(self):
        other = sqlite3.connect(self.file, isolation_level=None)
        self.addCleanup(other.close)
        other.execute("PRAGMA locking_mode = EXCLUSIVE")
        other.execute("BEGIN IMMEDIATE")
        other.execute("UPDATE policy_state SET revision = revision")
        milter = self.serve()
        self.assertTrue(milter.lines("until then mail is refused for now"))
        self.assertRegex(self.refused(MAIL), r"^451 4\.7\.1 ")
        other.execute("ROLLBACK")
        other.close()
        self.assert_tagged("first")

    def test_starts_without_its_store_and_makes_none(self):
        self.location = f"sqlite:{self.base}/missing.sqlite"
        milter = self.serve()
        self.assertTrue(milter.lines("there is no store; kavi store init makes it"))
        self.assertRegex(self.refused(MAIL), r"^451 4\.7\.1 ")
        self.assertFalse((self.base / "missing.sqlite").exists())
        self.store(self.location, tagging("late"))
        self.assert_tagged("late")

    def test_a_file_and_a_store_are_one_too_many(self):
        config = self.base / "both.ini"
        config.write_text(f"[store]\nlocation = {self.location}\n[milter]\npolicy = /p.yaml\n")
        done = subprocess.run([os.environ["KAVI_MILTER"], "--check", "--config", str(config)],
                              capture_output=True, text=True, timeout=60, check=False)
        self.assertEqual(done.returncode, 2)
        self.assertIn("only one of them can hold the policy", done.stderr)

    def test_check_reads_the_policy_of_the_store(self):
        config = self.base / "check.ini"
        config.write_text(f"[store]\nlocation = {self.location}\n[log]\nLevel = 1\n")
        command = [os.environ["KAVI_MILTER"], "--check", "--config", str(config)]
        done = subprocess.run(command, capture_output=True, text=True, timeout=60, check=False)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.change("UPDATE rule SET condition = x'7B7D'")
        done = subprocess.run(command, capture_output=True, text=True, timeout=60, check=False)
        self.assertEqual(done.returncode, 2)
        self.assertIn("rule 1", done.stderr)


class PostgresPolicyTest(StoreTest):
    def test_the_server_goes_and_comes_back_under_the_daemon(self):
        server = PostgresServer()
        self.addCleanup(server.end)
        self.store(server.location(), tagging("first"))
        milter = self.serve()
        self.assert_tagged("first")
        self.apply(tagging("second"))
        self.assert_tagged("second")
        server.stop()
        for _ in range(2):
            self.assertRegex(self.refused(MAIL), r"^451 4\.7\.1 .*\([0-9A-Za-z]+\)$")
        server.start()
        self.assert_tagged("second")
        self.apply(tagging("third"))
        self.assert_tagged("third")
        self.assertEqual(len(milter.lines("can be read again")), 1)


if __name__ == "__main__":
    unittest.main()
