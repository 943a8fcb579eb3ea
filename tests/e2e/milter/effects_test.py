#!/usr/bin/env python3
"""Each action that does something, behind Postfix: what became of the message, byte for byte, and
what the action did beside it. Postponed mail is in actions_test.py."""
import email
import email.policy
import json
import unittest

from mail_stack import MailTest, Sink, free_port, wait_until, without_trace
from trap_receiver import TrapReceiver

MAIL = (b"From: Sender <from@example.org>\r\nTo: to@example.net\r\nSubject: hello\r\n"
        b"X-Twice: one\r\nX-Folded: a\r\n\tb\r\n  c\r\nx-twice:two\r\nX-Blanks:   three  \r\n"
        b"MIME-Version: 1.0\r\nContent-Type: text/plain; charset=iso-8859-1\r\n"
        b"Content-Transfer-Encoding: 8bit\r\n\r\n.dot\r\n\r\nbody \xe4\r\n..\r\n")
TEXT = b"--b\r\nContent-Type: text/plain\r\n\r\ntext\r\n"
TOOL = (b"--b\r\nContent-Type: application/octet-stream; name=tool.exe\r\n"
        b"Content-Disposition: attachment; filename=tool.exe\r\n\r\nMZ\r\n")
OTHER = (b"--b\r\nContent-Type: application/pdf; name=other.pdf\r\n"
         b"Content-Disposition: attachment; filename=other.pdf\r\n\r\n%PDF\r\n")
HEAD = (b"From: from@example.org\r\nSubject: files\r\nMIME-Version: 1.0\r\n"
        b"Content-Type: multipart/mixed; boundary=\"b\"\r\n\r\npreamble\r\n")
TAIL = b"--b--\r\nepilogue\r\n"
FILES = HEAD + TEXT + TOOL + OTHER + TAIL
FIELDS = (b"X-kavi-reprocess-rules: 1\r\n", b"X-kavi-reprocess-type: ")

OBJECTS = """
quarantine_areas: [{name: virus}]
archive_areas: [{name: journal}]
stamps: [{name: note, text: stamped}]
notifications:
- name: tell
  sender: Gateway <kavi@gw.example>
  recipients: [admin@a.example]
  subject: "Rule %RULENAME% matched"
  body: "%SENDER% sent it."
  trap: "%RULENAME% for %SENDER%"
  type: 27
- {name: copy, sender: kavi@gw.example, recipients: [admin@a.example], subject: copy, body: text,
   attach: received}
"""


def rule(*actions, when="always"):
    return OBJECTS + "rules: [{id: 1, name: first, when: %s, actions: [%s]}]\n" % (
        when, ", ".join(actions))


class EffectsTest(MailTest):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.traps = TrapReceiver(cls.base / "traps")
        cls.addClassCleanup(cls.traps.stop)
        cls.other = Sink(cls.base / "other")
        cls.addClassCleanup(cls.other.stop)

    def setUp(self):
        super().setUp()
        for folder in ("quarantine", "archive"):
            for path in (self.base / folder).rglob("*.*"):
                if path.is_file() and path.suffix in (".DF", ".eml"):
                    path.unlink()

    def start(self, *actions, when="always"):
        return self.milter(
            rule(*actions, when=when), settings="reinjection_listener = kavi-scan",
            delivery=f"scan_host = 127.0.0.1\nscan_port = {self.postfix.scan}\n"
                     f"plain_host = 127.0.0.1\nplain_port = {self.postfix.plain}\n"
                     "retry_first_seconds = 1",
            sections=f"[General-Notification]\nSNMPServer = 127.0.0.1:{self.traps.port}\n"
                     "SNMPVersion = snmpv2c")

    def goes_on(self, mail, expected):
        """Sends a message that goes on to whom it was for, as `expected`."""
        self.send(mail)
        [(sender, recipients, data)] = self.arrived()
        self.assertEqual((sender, recipients), ("from@example.org", ["to@example.net"]))
        self.assertEqual(without_trace(data), expected)

    def arrived_for(self, *recipients):
        """What came for each of these recipients, one message each, in this order."""
        new = self.arrived(len(recipients))
        found = {to[0]: data for _, to, data in new}
        self.assertEqual(sorted(found), sorted(recipients))
        return [found[recipient] for recipient in recipients]

    def assert_one_trap(self, before, text):
        wait_until(lambda: len(self.traps.texts()) > before, "the trap")
        self.assertEqual(self.traps.texts()[before:], [text])

    def test_actions_that_do_nothing_change_nothing(self):
        milter = self.start("virus_clean", "ibe_encrypt", "ibe_decrypt", "ibe_reencrypt")
        self.goes_on(MAIL, MAIL)
        for action in ("virus_clean", "ibe_encrypt", "ibe_decrypt", "ibe_reencrypt"):
            self.assertEqual(len(milter.lines("action queue=", f"action={action}", "result=ok")), 1)
        [line] = milter.lines("message queue=", "verdict=accept")
        self.assertNotIn("changes=", line)

    def test_stamp(self):
        self.start("stamp: note")
        self.goes_on(MAIL, MAIL + b"stamped\r\n")

    def test_tag_subject(self):
        self.start("tag_subject: '[t] '")
        self.goes_on(MAIL, MAIL.replace(b"Subject: hello", b"Subject: [t] hello"))
        no_subject = MAIL.replace(b"Subject: hello\r\n", b"")
        self.goes_on(no_subject, no_subject.replace(b"\r\n\r\n", b"\r\nSubject: [t]\r\n\r\n", 1))

    def test_x_header(self):
        self.start("x_header: 'X-New: yes'", "x_header: 'X-TWICE: set'")
        self.goes_on(MAIL, MAIL.replace(b"X-Twice: one", b"X-Twice: set")
                     .replace(b"\r\n\r\n", b"\r\nX-New: yes\r\n\r\n", 1))

    def test_delete_attachments(self):
        self.start("delete_attachments: matching", when="{attachment_name: ['*.exe']}")
        self.goes_on(FILES, HEAD + TEXT + OTHER + TAIL)
        self.start("delete_attachments: all")
        self.goes_on(FILES, HEAD + TEXT + TAIL)
        self.goes_on(MAIL, MAIL)

    def test_bcc(self):
        self.start("bcc: [one@example.com, two@example.com]")
        self.send(MAIL)
        [(_, recipients, data)] = self.arrived()
        self.assertEqual(sorted(recipients), ["one@example.com", "to@example.net",
                                              "two@example.com"])
        self.assertEqual(without_trace(data), MAIL)

    def test_delete(self):
        milter = self.start("delete")
        self.send(MAIL)
        self.assert_nothing_arrives()
        [line] = (milter.state / "decisions.jsonl").read_text().splitlines()[-1:]
        decision = json.loads(line)
        self.assertEqual(decision["decision"], "delete")
        self.assertEqual(decision["bytes"], len(MAIL))
        self.assertEqual(len(milter.lines("message queue=", "verdict=discard")), 1)

    def test_quarantine(self):
        milter = self.start("quarantine: virus")
        self.send(MAIL)
        self.assert_nothing_arrives()
        [stored] = [path.read_bytes() for path in milter.quarantine.rglob("*.DF")]
        # The fields that let it be released past its rule, and nothing else.
        for field in FIELDS:
            at = stored.index(b"\r\n" + field) + 2
            stored = stored[:at] + stored[stored.index(b"\r\n", at) + 2:]
        self.assertTrue(stored.endswith(MAIL), stored)
        self.assertEqual(len(milter.lines("message queue=", "verdict=discard")), 1)

    def test_archive(self):
        self.start("x_header: 'X-New: yes'", "archive: journal", "tag_subject: '[t] '")
        changed = MAIL.replace(b"\r\n\r\n", b"\r\nX-New: yes\r\n\r\n", 1)
        self.goes_on(MAIL, changed.replace(b"Subject: hello", b"Subject: [t] hello"))
        [stored] = [path.read_bytes() for path in (self.base / "archive").rglob("*.eml")]
        self.assertTrue(stored.endswith(changed), stored)

    def test_readdress(self):
        milter = self.start("tag_subject: '[t] '", "readdress: [a@example.com, b@example.com]")
        self.send(MAIL)
        [(sender, recipients, data)] = self.arrived()
        self.assertEqual((sender, sorted(recipients)),
                         ("from@example.org", ["a@example.com", "b@example.com"]))
        self.assertEqual(without_trace(data),
                         MAIL.replace(b"Subject: hello", b"Subject: [t] hello"))
        self.assertEqual(len(milter.lines("message queue=", "verdict=accept", "(skipped)")), 1)

    def test_handoff_passes_the_message_on_and_nowhere_else(self):
        milter = self.start("x_header: 'X-New: yes'", f"handoff: '127.0.0.1:{self.other.port}'")
        before = len(self.other.messages())
        self.send(MAIL)
        self.assert_nothing_arrives()
        [(sender, recipients, data)] = self.other.messages()[before:]
        self.assertEqual((sender, recipients), ("from@example.org", ["to@example.net"]))
        self.assertEqual(data, MAIL.replace(b"\r\n\r\n", b"\r\nX-New: yes\r\n\r\n", 1))
        self.assertEqual(len(milter.lines("message queue=", "verdict=discard")), 1)

    def test_handoff_that_fails_leaves_the_mail_with_its_sender(self):
        answers = {"busy": {"rcpt1": {"reply": "451 4.2.1 busy", "times": 1}},
                   "no": {"end": {"reply": "554 5.7.1 no", "times": 1}},
                   "gone": {"data": {"do": "hangup", "times": 1}}}
        for name, script in answers.items():
            with self.subTest(server=name):
                server = Sink(self.base / name, {"at": script})
                self.addCleanup(server.stop)
                milter = self.start(f"handoff: '127.0.0.1:{server.port}'")
                mail = MAIL.replace(b"hello", name.encode())
                self.assertRegex(self.refused(mail), r"^451 4\.7\.1 ")
                self.assertEqual(server.messages(), [])
                self.assertEqual(len(milter.lines("action=handoff", "result=failed")), 1)
                self.send(mail)
                self.assertEqual([data for _, _, data in server.messages()], [mail])
        self.start(f"handoff: '127.0.0.1:{free_port()}'")
        self.assertRegex(self.refused(MAIL), r"^451 4\.7\.1 ")
        self.assert_nothing_arrives()

    def test_notify_sends_a_mail_and_a_trap_and_lets_the_message_go_on(self):
        self.start("notify: tell")
        before = len(self.traps.texts())
        self.send(MAIL)
        mail, notice = self.arrived_for("to@example.net", "admin@a.example")
        self.assertEqual(without_trace(mail), MAIL)
        notice = email.message_from_bytes(notice, policy=email.policy.default)
        self.assertEqual(notice["Subject"], "Rule first matched")
        self.assertEqual(notice["From"], "Gateway <kavi@gw.example>")
        self.assertEqual(notice.get_content().strip(), "from@example.org sent it.")
        self.assert_one_trap(before, b"first for from@example.org")

    def test_notify_that_carries_the_message_is_scanned_and_carries_every_byte(self):
        milter = self.start("notify: copy")
        self.send(MAIL)
        mail, notice = self.arrived_for("to@example.net", "admin@a.example")
        self.assertEqual(without_trace(mail), MAIL)
        self.assertIn(b"\r\n\r\n" + MAIL, notice)
        self.assertNotIn(b"X-kavi", notice)
        self.assertEqual(len(milter.lines("message queue=", "(skipped)")), 1)

    def test_notify_then_delete(self):
        milter = self.start("notify: tell", "delete")
        before = len(self.traps.texts())
        self.send(MAIL)
        self.arrived_for("admin@a.example")
        self.assert_one_trap(before, b"first for from@example.org")
        self.assertEqual(len(milter.lines("message queue=", "verdict=discard")), 1)
        self.assert_nothing_arrives()

    def test_feedback_sends_the_parts_that_matched(self):
        self.start("feedback", when="{attachment_name: ['*.exe']}")
        self.send(FILES)
        mail, sample = self.arrived_for("to@example.net", "feedback@localhost.invalid")
        self.assertEqual(without_trace(mail), FILES)
        parts = list(email.message_from_bytes(sample, policy=email.policy.default).walk())
        self.assertEqual([part.get_payload(decode=True).strip() for part in parts
                          if part.get_filename() == "tool.exe"], [b"MZ"])
        self.assertNotIn("other.pdf", [part.get_filename() for part in parts])


if __name__ == "__main__":
    unittest.main()
