#!/usr/bin/env python3
"""Notifications and samples, composed on the real platform and read by Python's email package.

  composed_mail_test.py COMPOSER MAIL_FOLDER

With KAVI_MAIL_DIR set to a folder of messages, fifty of those are scanned and attached, too.
"""

import email
import email.policy
import email.utils
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

COMPOSER = None
MAILS = None

JAPANESE = "日本語の通知です。\nかぎ: キー"
TEXTS = {
    "us-ascii": "plain text\nsecond line",
    "utf-8": "naïve 日本語 📧\nsecond",
    "iso-2022-jp": JAPANESE,
    "iso-8859-1": "café naïve\nÄÖÜ",
    "shift_jis": JAPANESE,
}
FIELDS = ["Auto-Submitted", "From", "Content-Type", "Subject", "Date", "MIME-Version", "To"]


def run(*requests):
    """The answers to some requests."""
    lines = "".join(json.dumps(request) + "\n" for request in requests)
    output = subprocess.run([COMPOSER], input=lines, capture_output=True, text=True, check=True,
                            timeout=120).stdout
    return [json.loads(line) for line in output.splitlines()]


def request(file, charset="us-ascii", settings="", **record):
    """A request to notify the administrator."""
    fields = {"sender": "Gate <kavi@gw.example>", "recipients": "admin@a.example",
              "subject": "rule matched", "body": "a rule matched"}
    fields.update(record)
    fields["body"] = (fields["body"] if isinstance(fields["body"], bytes)
                      else fields["body"].encode()).hex()
    return {"file": str(file), "record": fields,
            "settings": f"[General-Notification]\nPreferredCharset={charset}\n{settings}"}


def scanned_files():
    """What is scanned: the tree's own mails, and fifty others where there are any."""
    files = sorted(MAILS.glob("*.eml"))
    other = os.environ.get("KAVI_MAIL_DIR")
    if other:
        present = sorted(path for path in pathlib.Path(other).rglob("*.eml"))
        files += present[:: max(1, len(present) // 50)][:50]
    return files


def token(text):
    """A token's value as a request has it."""
    return (text if isinstance(text, bytes) else text.encode()).hex()


class ComposedMailTest(unittest.TestCase):
    """What a mail program makes of our mails."""

    def only_mail(self, answer):
        """The one mail of an answer, raw and parsed."""
        self.assertTrue(answer["result"], answer["log"])
        self.assertEqual(len(answer["mails"]), 1)
        raw = bytes.fromhex(answer["mails"][0]["bytes"])
        return raw, email.message_from_bytes(raw, policy=email.policy.default)

    def assert_true_declarations(self, raw, mail):
        """Whether what the mail declares is what it holds."""
        self.assertEqual(mail.defects, [])
        self.assertEqual(mail["MIME-Version"], "1.0")
        eight_bit = any(byte >= 0x80 for byte in raw)
        declared = (mail["Content-Transfer-Encoding"] or "7bit").lower()
        if mail.is_multipart():
            self.assertIn(declared, ("7bit", "8bit", "binary"))
            if eight_bit:
                self.assertNotEqual(declared, "7bit")
        if max(len(line) for line in raw.split(b"\n")) > 999 and mail.is_multipart():
            self.assertEqual(declared, "binary")

    def text_part(self, mail):
        """The notification's own text, its line breaks ours."""
        part = mail.get_payload(0) if mail.is_multipart() else mail
        self.assertEqual(part.get_content_type(), "text/plain")
        self.assertEqual(part["Content-Transfer-Encoding"], "base64")
        charset = part.get_content_charset()
        text = part.get_payload(decode=True).decode(charset)
        return charset, text.replace("\r\n", "\n")

    def test_every_charset_with_and_without_the_scanned_message(self):
        file = MAILS / "plain.eml"
        for charset, text in TEXTS.items():
            for attach in (False, True):
                with self.subTest(charset=charset, attach=attach):
                    subject = text.split("\n")[0]
                    raw, mail = self.only_mail(run(request(
                        file, charset, "AddMsgIdInPolicyNotify=1", subject=subject, body=text,
                        attach=attach))[0])
                    self.assert_true_declarations(raw, mail)
                    self.assertEqual(self.text_part(mail), (charset, text))
                    self.assertEqual(mail["Subject"], subject)
                    self.assertEqual(email.utils.parseaddr(mail["From"])[1], "kavi@gw.example")
                    self.assertIsNotNone(email.utils.parsedate_tz(mail["Date"]))
                    self.assertRegex(mail["Message-ID"], r"^<0-[0-9A-F]+-[0-9a-z]+@[^<>@]+>$")
                    self.assertEqual(mail["To"], "admin@a.example")
                    self.assertEqual(mail.is_multipart(), attach)

    def test_texts_that_the_charset_cannot_carry_are_sent_in_utf8(self):
        for charset in ("us-ascii", "iso-8859-1", "iso-2022-jp"):
            with self.subTest(charset=charset):
                _, mail = self.only_mail(run(request(
                    MAILS / "plain.eml", charset, subject="📧", body="📧 日本語 é"))[0])
                self.assertEqual(self.text_part(mail), ("utf-8", "📧 日本語 é"))
                self.assertEqual(mail["Subject"], "📧")

    def test_scanned_messages_are_attached_byte_for_byte(self):
        files = scanned_files()
        self.assertGreaterEqual(len(files), 5)
        requests = [request(file, "utf-8", body="text", attach=True) for file in files]
        for file, answer in zip(files, run(*requests)):
            with self.subTest(file=file.name):
                raw, mail = self.only_mail(answer)
                original = file.read_bytes()
                self.assertEqual(answer["mails"][0]["how"], "resend")
                self.assertEqual(mail.get_content_type(), "multipart/mixed")
                boundary = mail.get_boundary().encode()
                head, body = raw.split(b"\r\n\r\n", 1)
                parts = body.split(b"--" + boundary)
                self.assertEqual(len(parts), 4)
                attached = parts[2].split(b"\r\n\r\n", 1)
                self.assertIn(b"Content-Type: message/rfc822", attached[0])
                self.assertEqual(attached[1], original + b"\r\n")
                self.assert_true_declarations(raw, mail)
                self.assertEqual(self.text_part(mail), ("utf-8", "text"))
                self.assertNotIn(b"base64", head)

    def test_a_changed_message_is_attached_as_it_stands_or_as_received(self):
        file = MAILS / "plain.eml"
        wanted = request(file, body="text", attach=True)
        wanted["change"] = "X-Changed: yes"
        modified = dict(wanted, record=dict(wanted["record"], attach_modified=True))
        received, stands = run(wanted, modified)
        self.assertNotIn(b"X-Changed: yes", self.only_mail(received)[0])
        self.assertIn(b"X-Changed: yes", self.only_mail(stands)[0])

    def test_sender_and_recipients_of_the_scanned_mail_are_told(self):
        wanted = request(MAILS / "plain.eml", notify_sender=True, notify_recipients=True)
        wanted["to"] = ["one@b.example", "two@b.example"]
        wanted["tokens"] = {"32": token("from@b.example"), "33": token("one@b.example;two@b.example")}
        shown = dict(wanted, settings="[General-Notification]\nNotificationHideRecipients=0\n")
        hidden_answer, shown_answer = run(wanted, shown)
        everyone = ["admin@a.example", "from@b.example", "one@b.example", "two@b.example"]
        for answer in (hidden_answer, shown_answer):
            self.assertEqual(answer["mails"][0]["recipients"], everyone)
        raw = self.only_mail(hidden_answer)[0]
        self.assertIn(b"To: admin@a.example;from@b.example;"
                      b"\"NotificationRecipients\"<NotificationRecipients>",
                      re.sub(rb"\r\n[ \t]+", b"", raw))
        self.assertNotIn(b"one@b.example", raw)
        self.assertIn(b"admin@a.example;from@b.example;one@b.example;two@b.example",
                      self.only_mail(shown_answer)[0])

    def test_text_from_the_scanned_mail_adds_no_field_and_no_recipient(self):
        evil = ("x\r\nBcc: victim@v.example\r\n\r\nbody", "x\nTo: victim@v.example",
                "\r\n.\r\nRCPT TO:<victim@v.example>\r\n", "x\r\n \r\nBcc: victim@v.example",
                b"\xff\xfe\r\nBcc: victim@v.example", "victim@v.example;other@v.example",
                "a@b.example>\r\nBcc: <victim@v.example", "a@b.example,victim@v.example",
                "\"a;victim@v.example;b\"@c.example", "=?utf-8?B?DQpCY2M6IHZAdi5leGFtcGxl?=",
                "x\0\r\nBcc: victim@v.example")
        requests = []
        for text in evil:
            wanted = request(MAILS / "plain.eml", "utf-8", subject="%SUBJECT%",
                             body="%SENDER% %FILENAME% %VIRUSNAME%", notify_sender=True)
            wanted["tokens"] = {code: token(text) for code in ("32", "36", "45", "51")}
            requests.append(wanted)
        for text, answer in zip(evil, run(*requests)):
            with self.subTest(text=text):
                raw, mail = self.only_mail(answer)
                self.assertEqual(sorted(mail.keys()),
                                 sorted(FIELDS + ["Content-Transfer-Encoding"]))
                recipients = answer["mails"][0]["recipients"]
                self.assertEqual(recipients[0], "admin@a.example")
                self.assertNotIn("victim@v.example", recipients)
                self.assertNotIn("other@v.example", recipients)
                for recipient in recipients:
                    self.assertNotRegex(recipient, r"[\r\n<>]")
                self.assert_true_declarations(raw, mail)

    def test_a_from_field_of_the_scanned_mail_adds_one_recipient_at_most(self):
        fields = [b"a@b.example, victim@v.example", b"<a@b.example;victim@v.example>",
                  b"x: victim@v.example;, a@b.example", b"a@b.example;victim@v.example",
                  b"\"a\" <\"x;victim@v.example;y\"@b.example>", b"<a@b.example\x01>", b"", b"@",
                  b"=?utf-8?B?YUBiLmV4YW1wbGU=?="]
        with tempfile.TemporaryDirectory() as folder:
            requests = []
            for number, field in enumerate(fields):
                file = pathlib.Path(folder) / f"{number}.eml"
                file.write_bytes(b"From: " + field + b"\r\nSubject: s\r\n\r\nbody\r\n")
                requests.append(request(file, settings="NotificationGetSenderFromMIME=1",
                                        notify_sender=True))
            for field, answer in zip(fields, run(*requests)):
                with self.subTest(field=field):
                    self.only_mail(answer)
                    self.assertLessEqual(len(answer["mails"][0]["recipients"]), 2)

    def test_recipients_that_are_blank_are_told_of_and_no_failure(self):
        lists = {"": [], ";": [],
                 "   ": ["No valid recipient in notification message."],
                 " ; ": ["No valid recipient in notification message."]}
        answers = run(*(request(MAILS / "plain.eml", recipients=text) for text in lists))
        for (text, log), answer in zip(lists.items(), answers):
            with self.subTest(recipients=text):
                self.assertTrue(answer["result"])
                self.assertEqual(answer["mails"], [])
                self.assertEqual(answer["log"], log)

    def test_bad_texts_are_sent_all_the_same(self):
        wanted = [request(MAILS / "plain.eml", "utf-8", body=b"caf\xe9 \xff\xfe"),
                  request(MAILS / "plain.eml", "us-ascii", body=b"caf\xe9"),
                  request(MAILS / "plain.eml", "utf-8", subject="日" * 350000),
                  request(MAILS / "plain.eml", "us-ascii", subject="s" * 1000000),
                  request(MAILS / "plain.eml", "iso-2022-jp", body="")]
        answers = run(*wanted)
        self.assertEqual(self.text_part(self.only_mail(answers[0])[1]), ("utf-8", "caf? ??"))
        self.assertEqual(self.text_part(self.only_mail(answers[1])[1])[1], "caf?")
        raw = self.only_mail(answers[2])[0]
        self.assertLessEqual(max(len(line) for line in raw.split(b"\r\n")), 76 + 2)
        self.assertEqual(self.text_part(self.only_mail(answers[4])[1])[1], " ")

    def test_display_names_of_the_sender(self):
        for charset in TEXTS:
            for name in ("Gate", "日本", "café", "a \\\"b\\\" c"):
                with self.subTest(charset=charset, name=name):
                    _, mail = self.only_mail(run(request(
                        MAILS / "plain.eml", charset, sender=f"\"{name}\" <kavi@gw.example>"))[0])
                    self.assertEqual(email.utils.parseaddr(mail["From"])[1], "kavi@gw.example")

    def test_samples_hold_the_marked_part(self):
        for file in scanned_files():
            with self.subTest(file=file.name):
                answer = run({"file": str(file)})[0]
                self.assertTrue(answer["result"])
                original = email.message_from_bytes(file.read_bytes())
                for sent in answer["mails"]:
                    self.assertEqual(sent["recipients"], ["feedback@localhost.invalid"])
                    self.assertEqual(sent["sender"], "KAVI")
                    mail = email.message_from_bytes(bytes.fromhex(sent["bytes"]))
                    self.assertEqual(mail["Subject"], "KAVI Lurebox Feedback")
                    self.assertEqual(mail["TO"], "feedback@localhost.invalid")
                    self.assertEqual(mail.get_content_type(), "multipart/mixed")
                if not (original.is_multipart() or original.defects) and answer["mails"]:
                    mail = email.message_from_bytes(bytes.fromhex(answer["mails"][0]["bytes"]))
                    self.assertEqual(mail.get_payload(1).get_payload(decode=True).strip(),
                                     original.get_payload(decode=True).strip())


if __name__ == "__main__":
    COMPOSER, MAILS = sys.argv[1], pathlib.Path(sys.argv[2])
    unittest.main(argv=sys.argv[:1])
