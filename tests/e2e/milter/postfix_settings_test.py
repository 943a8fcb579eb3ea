#!/usr/bin/env python3
"""The settings of Postfix that docs/milter.md gives, under which mail that the gateway sends meets no
restriction or limit that is meant for others, and mail from the machine itself meets the policy."""
import subprocess
import unittest

from mail_stack import PATIENCE, MailTest, SmtpReply

LIMIT = 4000
MAIL = b"From: from@example.org\r\nSubject: s\r\n\r\nbody\r\n"
POLICY = """
notifications: [{name: tell, sender: kavi@gw.example, recipients: [admin@a.example], subject: s, body: b}]
rules:
- {id: 1, when: {subject: {matches: tell}}, actions: [notify: tell, delete]}
- {id: 2, when: always, actions: [readdress: other@example.com]}
"""


class RestrictionsTest(MailTest):
    """A 5xx at a listener of our own would be final, though somebody's mail was taken already."""

    # They let the test's own client in, and nothing that the gateway sends.
    postfix_settings = {
        "message_size_limit": str(LIMIT),
        "smtpd_helo_required": "yes",
        "smtpd_helo_restrictions": "reject_non_fqdn_helo_hostname",
        "smtpd_sender_restrictions":
            "check_sender_access inline:{ {kavi@gw.example = REJECT} }",
        "smtpd_recipient_restrictions":
            "check_recipient_access inline:{ {other@example.com = REJECT}, {admin@a.example = REJECT} }"
            ", permit_mynetworks, reject",
        "smtpd_data_restrictions": "check_helo_access inline:{ {gateway = REJECT} }",
        "smtpd_end_of_data_restrictions": "check_helo_access inline:{ {gateway = REJECT} }",
    }

    def start(self):
        return self.milter(POLICY, settings="reinjection_listener = kavi-scan",
                           delivery=f"scan_host = 127.0.0.1\nscan_port = {self.postfix.scan}\n"
                                    f"plain_host = 127.0.0.1\nplain_port = {self.postfix.plain}\n"
                                    "hello_name = gateway\n")

    def test_they_do_not_meet_what_is_sent_back_or_told(self):
        self.start()
        self.send(MAIL)
        [(_, recipients, _)] = self.arrived()
        self.assertEqual(recipients, ["other@example.com"])
        self.send(MAIL.replace(b"Subject: s", b"Subject: tell"))
        [(_, recipients, _)] = self.arrived()
        self.assertEqual(recipients, ["admin@a.example"])

    def test_a_message_at_the_limit_comes_back_longer(self):
        milter = self.start()
        # About the longest that Postfix takes from others; a Received field makes it too long.
        for size in range(LIMIT, 0, -50):
            try:
                self.send(MAIL + b"x" * (size - len(MAIL) - 2) + b"\r\n")
                break
            except SmtpReply as refused:
                self.assertRegex(refused.text, "^552 |^451 ")
                self.assertGreater(size, LIMIT // 2, refused.text)
        [(_, recipients, data)] = self.arrived()
        self.assertEqual(recipients, ["other@example.com"])
        self.assertGreater(len(data), size + 50)
        self.assertEqual(milter.lines("stays in the spool"), [])


class LocalMailTest(MailTest):
    postfix_settings = {"non_smtpd_milters": "$smtpd_milters"}

    def test_what_a_command_sends_meets_the_policy(self):
        milter = self.milter("rules: [{id: 1, when: always, actions: [x_header: 'X-New: yes']}]\n")
        subprocess.run(["sendmail", "-C", str(self.postfix.config), "-f", "me@example.org",
                        "to@example.net"], input=MAIL.replace(b"\r\n", b"\n"), check=True,
                       timeout=PATIENCE)
        [(_, recipients, data)] = self.arrived()
        self.assertEqual(recipients, ["to@example.net"])
        self.assertIn(b"\r\nX-New: yes\r\n", data)
        self.assertEqual(len(milter.lines("message queue=", "verdict=accept")), 1)


if __name__ == "__main__":
    unittest.main()
