#!/usr/bin/env python3
"""Mail that an administrator releases, behind a real Postfix: it arrives as it once came, and neither
we nor Postfix add what it never had."""
import json
import os
import subprocess
import unittest

from mail_stack import MailTest, wait_until, without_trace
from postpone_test import NOON, zone_in_which_it_is

# Without Date and Message-ID, which a mail system adds to mail that it takes for one of its own.
BARE = (b"From: Sender <from@example.org>\r\nTo: to\r\nSubject: hello\r\nX-Folded: a\r\n\tb\r\n  c\r\n"
        b"X-Blanks:   three  \r\n\r\n.dot\r\n\r\nbody \xe4\r\n..\r\n\r\n")
SHAPES = (BARE, b"Subject: x\r\n\r\nbody\r\n", b"X-Only: y\r\n\r\n",
          b"From: local\r\nTo: also-local\r\nCc: undisclosed:;\r\n\r\nno domain anywhere\r\n")
NO_HEADER = b"\r\nno header\r\n"
RECIPIENTS = ("to@example.net", "other@example.com")
POLICY = """
quarantine_areas: [{name: virus}]
archive_areas: [{name: journal}]
rules: [{id: 1, when: always, actions: [%s]}]
"""


class ReleaseTest(MailTest):
    def start(self, action):
        return self.milter(
            POLICY % action, settings="reinjection_listener = kavi-scan",
            delivery=f"scan_host = 127.0.0.1\nscan_port = {self.postfix.scan}\n"
                     f"plain_host = 127.0.0.1\nplain_port = {self.postfix.plain}\n")

    def kavi(self, what, command, *words):
        done = subprocess.run(
            [os.environ["KAVI"], what, command, "--config", str(self.base / "kavi.ini"), *words],
            stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=60, check=False)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        return done.stdout

    def listed(self, what):
        return json.loads(self.kavi(what, "list", "--json"))

    def release(self, what, *options):
        """Releases everything there is."""
        numbers = [str(entry["number"]) for entry in self.listed(what)]
        self.assertIn(f"{len(numbers)} message", self.kavi(what, "release", *numbers, *options))

    def send_all(self, mails, sender="from@example.org"):
        for mail in mails:
            self.send(mail, sender=sender, recipients=RECIPIENTS)

    def send_and_hold(self, mails, sender="from@example.org"):
        self.send_all(mails, sender)
        self.assert_nothing_arrives()

    def assert_arrive(self, mails, sender="from@example.org"):
        """As they were sent, behind the one trace field of the Postfix that took them from us."""
        found = []
        for came_from, recipients, data in self.arrived(len(mails)):
            self.assertEqual((came_from, sorted(recipients)), (sender, sorted(RECIPIENTS)))
            self.assertRegex(data, rb"\AReceived: from ")
            found.append(without_trace(data))
        self.assertEqual(sorted(found), sorted(mails))
        wait_until(lambda: not list((self.base / "state" / "spool").glob("*.msg")),
                   "the spool to become empty")

    def test_from_quarantine_through_the_scan(self):
        milter = self.start("quarantine: virus")
        for sender in ("from@example.org", ""):
            with self.subTest(sender=sender):
                self.send_and_hold(SHAPES, sender)
                self.release("quarantine")
                self.assert_arrive(SHAPES, sender)
                self.assertEqual(list(milter.quarantine.rglob("*.DF")), [])

    def test_from_quarantine_past_the_scan(self):
        self.start("quarantine: virus")
        self.send_and_hold((*SHAPES, NO_HEADER))
        self.release("quarantine", "--unscanned")
        self.assert_arrive((*SHAPES, NO_HEADER))

    def test_from_the_archive(self):
        self.start("archive: journal")
        self.send_all(SHAPES)
        self.assert_arrive(SHAPES)
        self.release("archive", "--unscanned")
        self.assert_arrive(SHAPES)
        # All rules scan what is released, so it is archived once more.
        self.release("archive")
        self.assert_arrive(SHAPES)
        self.assertEqual(len(self.listed("archive")), 2 * len(SHAPES))

    def test_from_the_spool_before_its_window_opens(self):
        zone = os.environ.get("TZ")
        self.addCleanup(lambda: os.environ.pop("TZ") if zone is None else
                        os.environ.update(TZ=zone))
        os.environ["TZ"] = zone_in_which_it_is(NOON)
        running = type(self).__dict__.get("running")
        if running is not None:
            running.kill()  # its clock shows another time
            type(self).running = None
        self.start("postpone: '23:00'")
        self.send_and_hold((*SHAPES, NO_HEADER))
        entries = self.listed("spool")
        self.assertEqual({(entry["kind"], entry["state"]) for entry in entries},
                         {("postpone", "waiting")})
        self.kavi("spool", "retry", *(entry["id"] for entry in entries))
        self.assert_arrive((*SHAPES, NO_HEADER))


if __name__ == "__main__":
    unittest.main()
