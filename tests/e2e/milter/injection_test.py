#!/usr/bin/env python3
"""Senders who write line breaks, NULs and delimiters where tokens take their values from: no mail that
leaves has a header field, or a part, that nobody configured."""
import base64
import email
import email.policy
import pathlib
import re
import unittest

from mail_stack import MailTest, wait_until
from trap_receiver import TrapReceiver

TOKENS = pathlib.Path(__file__).resolve().parents[3] / "docs" / "tokens.md"
EVIL = "a\r\nX-Evil: 1\rX-Evil: 2\nX-Evil: 3\r\n\tfold\r\n\r\nX-Evil: 4\0\r\n--b\r\n\r\n<p>b\r\n--b--\r\n"


def quoted(text):
    return b"=?utf-8?q?" + b"".join(b"=%02X" % byte for byte in text.encode()) + b"?="


def encoded(text):
    return b"=?utf-8?b?" + base64.b64encode(text.encode()) + b"?="


def percent(text):
    return b"".join(b"%%%02X" % byte for byte in text.encode())


# A message whose every value that a token can hold has line breaks in it for whoever decodes it.
HEADER = (b"From: " + encoded(EVIL) + b" <from@example.org>\r\n"
          b"To: " + quoted(EVIL) + b" <to@example.net>, \"q\\\r\n\tX-Evil: 5\" <b@example.net>\r\n"
          b"Cc: " + encoded(EVIL) + b"\r\n\t<c@example.net>\r\n"
          b"Subject: " + quoted(EVIL[:40]) + b"\r\n " + encoded(EVIL[40:]) + b"\r\n"
          b"Message-ID: <" + encoded(EVIL) + b"@example.org>\r\n"
          b"X-Mailer-Id: " + encoded(EVIL) + b"\r\n"
          b"MIME-Version: 1.0\r\nContent-Type: multipart/mixed; boundary=b;\r\n"
          b"\tcharset*=utf-8''" + percent("utf-8\r\nX-Evil: 6") + b"\r\n")
NAMES = {name.lower() for name in re.findall(rb"^([\w-]+):", HEADER, re.M)}
MAIL = (HEADER + b"\r\n--b\r\nContent-Type: text/plain; charset=utf-8\r\n\r\ntext\r\n"
        b"--b\r\nContent-Type: application/octet-stream;\r\n\tname*=utf-8''" +
        percent("tool\r\nX-Evil: 7\0.exe") + b"\r\n"
        b"Content-Disposition: attachment;\r\n\tfilename*=utf-8''" +
        percent("tool\r\nX-Evil: 8\r\n\r\n--b--\r\n.exe") + b"\r\n\r\nMZ\r\n--b--\r\n")
SENDER = '"x: <y>--b\\"@q"@example.org'
NOTICE = {b"received", b"auto-submitted", b"from", b"to", b"subject", b"date", b"mime-version",
          b"content-type", b"content-transfer-encoding", b"message-id", b"x-mailer",
          b"content-disposition"}

POLICY = """
stamps: [{name: note, text: "<%(token)s>"}]
notifications:
- {name: tell, sender: kavi@gw.example, recipients: [admin@a.example], notify_sender: yes,
   subject: "<%(token)s>", body: "<%(token)s>", trap: "<%(token)s>"}
rules:
- id: 1
  name: "%(name)s"
  when: {attachment_name: ['*exe*']}
  actions: [{tag_subject: "<%(token)s> "}, {x_header: "X-New: %(token)s"}, {stamp: note},
            {notify: tell}]
"""


def fields_of(mail):
    """The names of the fields of a header, as anybody who divides at any line break sees them."""
    header = re.split(rb"\r\n\r\n|\n\n|\r\r", mail, maxsplit=1)[0]
    found = []
    for line in re.split(rb"\r\n|\r|\n|\0", header):
        if line[:1] not in (b" ", b"\t"):
            name, colon, _ = line.partition(b":")
            found.append(name.lower() if colon else line)
    return found


class InjectionTest(MailTest):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.traps = TrapReceiver(cls.base / "traps")
        cls.addClassCleanup(cls.traps.stop)

    def start(self, token, name="rule"):
        return self.milter(
            POLICY % {"token": token, "name": name},
            delivery=f"plain_host = 127.0.0.1\nplain_port = {self.postfix.plain}",
            sections=f"[General-Notification]\nSNMPServer = 127.0.0.1:{self.traps.port}\n"
                     "PreferredCharset = utf-8\n")

    def assert_clean(self, mail, notice):
        before = fields_of(MAIL)
        self.assertEqual([name for name in fields_of(mail) if name != b"received"],
                         before + [b"x-new"])
        self.assertLessEqual(set(fields_of(notice)), NOTICE)
        for data in (mail, notice):
            self.assertNotIn(b"\0", data)
            self.assertEqual(re.findall(rb"[^\r]\n|\r[^\n]", data), [])
        parts = email.message_from_bytes(mail, policy=email.policy.default)
        self.assertEqual(len(list(parts.walk())), 3)
        self.assertEqual([part.get_content_type() for part in parts.iter_parts()],
                         ["text/plain", "application/octet-stream"])
        self.assertEqual(len(list(email.message_from_bytes(notice).walk())), 1)

    def send_with(self, token, **policy):
        """The message and the notification that leave when each text holds the token."""
        self.start(token, **policy)
        traps = len(self.traps.texts())
        self.send(MAIL, sender=SENDER)
        new = self.arrived(2)
        [mail] = [data for _, recipients, data in new if recipients == ["to@example.net"]]
        [notice] = [data for _, recipients, data in new if "admin@a.example" in recipients]
        wait_until(lambda: len(self.traps.texts()) > traps, "the trap")
        self.assertEqual(len(self.traps.texts()), traps + 1)
        return mail, notice

    def test_no_token_brings_a_field_or_a_part(self):
        tokens = re.findall(r"^\| `(%[A-Z_&]+%)` \|", TOKENS.read_text(encoding="utf-8"), re.M)
        self.assertGreater(len(tokens), 25)
        for token in tokens:
            with self.subTest(token=token):
                mail, notice = self.send_with(token)
                self.assert_clean(mail, notice)
                if token in ("%SUBJECT%", "%FILENAME%"):  # the values did get that far
                    text = email.message_from_bytes(notice, policy=email.policy.default)
                    self.assertIn("X-Evil", text.get_content())

    def test_a_sender_whom_no_server_could_be_told_of_is_refused(self):
        self.start("%SENDER%")
        self.assertRegex(self.refused(MAIL, sender='"x\\\ty"@example.org'), "^451 ")
        self.assert_nothing_arrives()

    def test_no_name_of_a_rule_does(self):
        evil = r"n\r\nX-Evil: 9\r\n\r\n--b\r\n"
        try:
            mail, notice = self.send_with("%RULENAME%", name=evil)
        except AssertionError as refused:  # a name that the policy does not take is as good
            self.assertIn("NOT in force", str(refused))
        else:
            self.assert_clean(mail, notice)


if __name__ == "__main__":
    unittest.main()
