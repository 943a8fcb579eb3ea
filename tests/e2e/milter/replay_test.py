#!/usr/bin/env python3
"""Mail that came back for scanning, and what others make of the fields that it carries."""
import re
import unittest

from mail_stack import MailTest, Sink, wait_until, without_trace

MAIL = (b"From: from@example.org\r\nTo: to@example.net\r\nSubject: hello\r\n\r\nbody\r\n")
LAST_PASS = 5


def readdress(*numbers):
    rows = "".join("- {id: %d, when: always, actions: [readdress: r%d@example.com]}\n" % (n, n)
                   for n in numbers)
    return "rules:\n" + rows


class ReplayTest(MailTest):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.listener = Sink(cls.base / "listener")  # sees what is sent back, as it is sent
        cls.addClassCleanup(cls.listener.stop)

    def start(self, policy, scan):
        return self.milter(policy, settings="reinjection_listener = kavi-scan",
                           delivery=f"scan_host = 127.0.0.1\nscan_port = {scan}\n"
                                    "retry_first_seconds = 1")

    def sent_back(self):
        """A genuine message of ours on its way to the scanning listener, and the milter."""
        milter = self.start(readdress(1), self.listener.port)
        before = self.listener.count()
        self.send(MAIL)
        [(_, _, sealed)] = wait_until(lambda: self.listener.messages()[before:], "the message")
        self.assertIn(b"X-kavi-reprocess-seal: ", sealed)
        milter.forget_log()
        return milter, sealed

    def assert_taken_again(self, milter, mail, port, passes=b"1", **envelope):
        """The rule takes the message as if it bore no seal, and sends it back on this pass."""
        before = self.listener.count()
        self.send(mail, port=port, **envelope)
        wait_until(lambda: self.listener.count() > before, "the message to be taken again")
        [line] = milter.lines("message queue=")
        self.assertIn("verdict=discard", line)
        self.assertNotIn("(skipped)", line)
        milter.forget_log()
        [(_, recipients, data)] = self.listener.messages()[before:]
        self.assertEqual(recipients, ["r1@example.com"])
        # It has a seal of its own, once.
        seals = re.findall(rb"X-kavi-reprocess-seal: \S+ \S+ \S+ (\d+) ", data)
        self.assertEqual(seals, [passes])

    def test_a_sealed_message_counts_at_its_listener_and_leaves_without_the_seal(self):
        milter, sealed = self.sent_back()
        for _ in range(2):  # who may send there can repeat it: to the same people, the same mail
            self.send(sealed, port=self.postfix.scan, recipients=("r1@example.com",))
            [(_, recipients, data)] = self.arrived()
            self.assertEqual(recipients, ["r1@example.com"])
            self.assertEqual(without_trace(data), MAIL)
        self.assertEqual(len(milter.lines("message queue=", "verdict=accept", "(skipped)")), 2)

    def test_a_captured_message_counts_nowhere_else(self):
        milter, sealed = self.sent_back()
        for _ in range(2):  # but for its passes: they only keep it from going round for ever
            self.assert_taken_again(milter, sealed, self.postfix.port, passes=b"2",
                                    recipients=("r1@example.com",))

    def test_a_seal_is_for_one_message(self):
        milter, sealed = self.sent_back()
        whole = {"sender": "from@example.org", "recipients": ("r1@example.com",)}
        others = {
            "other recipient": (sealed, {"recipients": ("victim@example.net",)}),
            "one more": (sealed, {"recipients": ("r1@example.com", "victim@example.net")}),
            "other sender": (sealed, {"sender": "boss@example.org"}),
            "other body": (sealed.replace(b"\r\n\r\nbody", b"\r\n\r\nother"), {}),
            "more rules": (sealed.replace(b"rules: 1\r\n", b"rules: 1 2\r\n"), {}),
            "other type": (sealed.replace(b"type: readdress", b"type: quarantine"), {}),
            "two seals": (re.sub(rb"(X-kavi-reprocess-seal: .*\r\n)", rb"\1\1", sealed), {}),
            "more passes": (re.sub(rb"(seal: \S+ \S+ \S+) \d+ ", rb"\1 2 ", sealed), {}),
            "later": (re.sub(rb"(seal: \S+ \S+) (\d+) ",
                             lambda seal: b"%s %d " % (seal[1], int(seal[2]) + 1), sealed), {}),
        }
        for name, (mail, envelope) in others.items():
            with self.subTest(change=name):
                self.assertNotEqual((mail, {**whole, **envelope}), (sealed, whole))
                self.assert_taken_again(milter, mail, self.postfix.scan, **{**whole, **envelope})
        self.assert_nothing_arrives()

    def test_so_it_does_when_the_listener_is_not_the_named_one(self):
        for setting, remedy in (("", "reinjection_listener in section milter is not set"),
                                ("reinjection_listener = kavi-scann", "at kavi-scann only")):
            with self.subTest(setting=setting):
                milter = self.milter(readdress(1), settings=setting,
                                     delivery="scan_host = 127.0.0.1\n"
                                              f"scan_port = {self.postfix.scan}\n")
                self.send(MAIL)
                wait_until(lambda: milter.lines("stays in the spool as failed"), "the last pass")
                self.assertEqual(len(milter.lines("message queue=", "verdict=discard")),
                                 LAST_PASS + 1)
                [told] = milter.lines("mail that was sent back", "at listener kavi-scan,")
                self.assertIn(remedy, told)
                self.assertIn("milter_macro_daemon_name", told)
                self.assert_nothing_arrives()

    def test_what_goes_round_comes_to_an_end(self):
        # Every pass meets another rule that sends the message back.
        milter = self.start(readdress(*range(1, 10)), self.postfix.scan)
        self.send(MAIL)
        [line] = wait_until(lambda: milter.lines("stays in the spool as failed"), "the last pass")
        self.assertIn("r%d@example.com" % (LAST_PASS + 1), line)
        self.assertEqual(len(milter.lines("message queue=", "verdict=discard")), LAST_PASS + 1)
        self.assert_nothing_arrives()


if __name__ == "__main__":
    unittest.main()
