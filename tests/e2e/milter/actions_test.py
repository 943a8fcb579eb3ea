#!/usr/bin/env python3
"""Several actions on one message behind Postfix, and mail that must arrive as it was signed."""
import pathlib
import shutil
import subprocess
import time
import unittest

from mail_stack import PATIENCE, MailTest, wait_until, without_trace

DKIM_TOOL = pathlib.Path(__file__).with_name("dkim_tool.py")
AREA = "quarantine_areas: [{name: virus}]\n"
NOTE = "stamps: [{name: note, text: stamped}]\n"
MAIL = (b"From: Sender <from@example.org>\r\nTo: to@example.net\r\nSubject: hello\r\n"
        b"X-Twice: one\r\nx-twice:two\r\nX-Twice: three\r\nDate: Mon, 1 Jan 2024 00:00:00 +0000\r\n"
        b"MIME-Version: 1.0\r\nContent-Type: text/plain; charset=utf-8\r\n\r\nbody\r\n")


def rule(*actions, number=1):
    return "rules: [{id: %d, when: always, actions: [%s]}]\n" % (number, ", ".join(actions))


class ActionsTest(MailTest):
    def setUp(self):
        super().setUp()
        self.delivery = (f"scan_host = 127.0.0.1\nscan_port = {self.postfix.scan}\n"
                         f"plain_host = 127.0.0.1\nplain_port = {self.postfix.plain}\n"
                         "retry_first_seconds = 1")
        for folder in ("quarantine", "archive"):
            for path in (self.base / folder).rglob("*.DF"):
                path.unlink()

    def start(self, policy):
        return self.milter(policy, settings="reinjection_listener = kavi-scan",
                           delivery=self.delivery)

    def stored(self, milter):
        return [path.read_bytes() for path in sorted(milter.quarantine.rglob("*.DF"))]

    def test_quarantine_then_tag_stores_without_the_tag(self):
        milter = self.start(AREA + rule("quarantine: virus", "tag_subject: '[t] '"))
        self.send(MAIL)
        self.assert_nothing_arrives()
        [stored] = self.stored(milter)
        self.assertIn(b"\r\nSubject: hello\r\n", stored)
        self.assertEqual(len(milter.lines("action=tag_subject", "result=ok")), 1)

    def test_tag_then_quarantine_stores_with_the_tag(self):
        milter = self.start(AREA + rule("tag_subject: '[t] '", "quarantine: virus"))
        self.send(MAIL)
        self.assert_nothing_arrives()
        [stored] = self.stored(milter)
        self.assertIn(b"\r\nSubject: [t] hello\r\n", stored)

    def test_a_quarantine_that_fails_leaves_the_mail_with_its_sender(self):
        milter = self.start(AREA + rule("tag_subject: '[t] '", "quarantine: virus"))
        # A file stands where the folder was.
        shutil.move(milter.quarantine, self.base / "aside")
        milter.quarantine.write_text("")
        try:
            self.assertRegex(self.refused(MAIL), r"^451 4\.7\.1 ")
        finally:
            milter.quarantine.unlink()
            shutil.move(self.base / "aside", milter.quarantine)
        self.assert_nothing_arrives()
        self.assertEqual(self.stored(milter), [])
        # The sender tries again, and now it goes well: once.
        self.send(MAIL)
        self.assertEqual(len(self.stored(milter)), 1)

    def test_stamp_tag_and_header_together(self):
        self.start(NOTE + rule("stamp: note", "tag_subject: '[t] '", "x_header: 'X-Twice: new'"))
        self.send(MAIL)
        [(_, _, data)] = self.arrived()
        header, body = without_trace(data).split(b"\r\n\r\n", 1)
        expected, _ = MAIL.split(b"\r\n\r\n", 1)
        self.assertEqual(header, expected.replace(b"Subject: hello", b"Subject: [t] hello")
                         .replace(b"X-Twice: one", b"X-Twice: new"))
        self.assertTrue(body.startswith(b"body\r\n"))
        self.assertEqual(body.count(b"stamped"), 1)

    def test_bcc_then_readdress_keeps_the_blind_copy(self):
        self.start(rule("bcc: blind@example.com", "readdress: other@example.com"))
        self.send(MAIL)
        [(_, recipients, data)] = self.arrived()
        self.assertEqual(sorted(recipients), ["blind@example.com", "other@example.com"])
        self.assertTrue(data.endswith(MAIL))

    def test_readdress_leaves_mail_without_date_and_id_without(self):
        mail = b"Subject: bare\r\n\r\nbody\r\n"
        self.start(rule("readdress: other@example.com"))
        self.send(mail)
        [(_, _, data)] = self.arrived()
        self.assertTrue(data.endswith(mail))
        for name in (b"\r\nDate:", b"\r\nMessage-I", b"\r\nFrom:", b"\r\nTo:", b"X-kavi"):
            self.assertNotIn(name, b"\r\n" + data)

    def test_postponed_mail_that_comes_inside_its_window_goes_at_once(self):
        self.start(rule("postpone: '00:00'"))
        self.send(MAIL)
        [(_, recipients, data)] = self.arrived()
        self.assertEqual(recipients, ["to@example.net"])
        self.assertTrue(data.endswith(MAIL))

    def test_postponed_mail_waits_for_its_window(self):
        # A window that has not begun; in the last two minutes of a day there is none.
        wait_until(lambda: time.strftime("%H:%M") < "23:58", "the next day", 180)
        milter = self.start(rule("postpone: '23:59'"))
        self.send(MAIL)
        self.assert_nothing_arrives()
        self.assertEqual(len(list((milter.state / "spool").glob("*.msg"))), 1)

    def test_a_signed_message_that_is_not_changed_still_verifies(self):
        private = self.base / "dkim.pem"
        subprocess.run(["openssl", "genrsa", "-traditional", "-out", str(private), "1024"],
                       check=True, capture_output=True, timeout=PATIENCE)
        public = subprocess.run(["openssl", "rsa", "-in", str(private), "-pubout"], check=True,
                                capture_output=True, timeout=PATIENCE).stdout
        record = b"".join(public.splitlines()[1:-1]).decode()
        mail = MAIL.replace(b"Subject: hello", b"Subject: a\r\n\tfolded  =?utf-8?q?=C3=A4?=")

        def tool(word, key, data):
            return subprocess.run(["/usr/bin/python3", "-B", str(DKIM_TOOL), word, key], input=data,
                                  capture_output=True, timeout=PATIENCE, check=False)

        signed = tool("sign", str(private), mail).stdout + mail
        self.assertTrue(signed.startswith(b"DKIM-Signature:"))
        self.start("rules: [{id: 1, when: {subject: {matches: nothing}}, actions: [delete]}]\n")
        self.send(signed)
        self.assertEqual(tool("verify", record, self.arrived()[0][2]).returncode, 0)
        # A field that the signature does not cover may be added; one that it covers may not change.
        self.start(rule("x_header: 'X-New: yes'"))
        self.send(signed)
        self.assertEqual(tool("verify", record, self.arrived()[0][2]).returncode, 0)
        self.start(rule("tag_subject: '[t] '"))
        self.send(signed)
        self.assertEqual(tool("verify", record, self.arrived()[0][2]).returncode, 1)


if __name__ == "__main__":
    unittest.main()
