#!/usr/bin/env python3
"""What Postfix does with a message by the answers of kavi-milter, byte for byte."""
import threading
import unittest

from mail_stack import MailTest, Sink, wait_until, without_trace

MAIL = (b"From: Sender <from@example.org>\r\nTo: to@example.net\r\nSubject: hello\r\n"
        b"X-Twice: one\r\nX-Folded: a\r\n\tb\r\n  c\r\nx-twice:two\r\nX-Blanks:   three  \r\n"
        b"MIME-Version: 1.0\r\n\r\n.dot\r\n\r\nbody \xe4\r\n..\r\n")

MIXED = (b"From: from@example.org\r\nSubject: files\r\nMIME-Version: 1.0\r\n"
         b"Content-Type: multipart/mixed; boundary=\"b\"\r\n\r\npreamble\r\n"
         b"--b\r\nContent-Type: text/plain\r\n\r\ntext\r\n"
         b"--b\r\nContent-Type: application/octet-stream; name=tool.exe\r\n"
         b"Content-Disposition: attachment; filename=tool.exe\r\n\r\nMZ\r\n"
         b"--b--\r\nepilogue\r\n")


OBJECTS = ("quarantine_areas: [{name: virus}]\narchive_areas: [{name: journal}]\n"
           "stamps: [{name: legal, text: Legal}]\n")


def rules(*rows):
    return "rules:\n" + "".join(f"- {row}\n" for row in rows)


def always(actions, number=1):
    return "{id: %d, name: rule %d, when: always, actions: [%s]}" % (number, number, actions)


class VerdictTest(MailTest):
    def test_unmatched_mail_arrives_as_it_was_sent(self):
        milter = self.milter(rules("{id: 1, when: {subject: {matches: nothing}}, actions: [delete]}"))
        self.send(MAIL, sender="a@example.org", recipients=("b@example.net", "c@example.net"))
        [(sender, recipients, data)] = self.arrived()
        self.assertEqual(sender, "a@example.org")
        self.assertEqual(recipients, ["b@example.net", "c@example.net"])
        self.assertEqual(without_trace(data), MAIL)
        [line] = milter.lines("message queue=", "verdict=accept")
        self.assertNotIn("changes=", line)

    def test_awkward_mail_arrives_as_it_was_sent(self):
        self.milter("rules: []\n")
        for data in (b"Subject: no body\r\n\r\n", b"A: b\r\n\r\n\r\n\r\n", b"X-Empty:\r\n\r\nx\r\n",
                     b"Subject: =?utf-8?q?=C3=A4?= \xff\r\n\r\n" + b"x" * 900 + b"\r\n"):
            with self.subTest(data=data[:40]):
                self.send(data)
                self.assertEqual(without_trace(self.arrived()[0][2]), data)

    def test_a_field_of_many_lines_arrives_as_it_was_sent(self):
        # Postfix cuts longer ones off as soon as it has a milter.
        lines = b"".join(b"\r\n\t%05d some text of a long field" % n for n in range(1700))
        mail = b"References: begin" + lines + b"\r\n" + MAIL
        self.assertGreater(len(mail), 55_000)
        self.milter(rules(always("x_header: 'X-New: yes'")))
        self.send(mail)
        self.assertEqual(without_trace(self.arrived()[0][2]),
                         mail.replace(b"MIME-Version: 1.0\r\n",
                                      b"MIME-Version: 1.0\r\nX-New: yes\r\n"))

    def test_x_header_adds_one_field_and_nothing_else(self):
        milter = self.milter(rules(always("x_header: 'X-New: yes'")))
        self.send(MAIL)
        [(_, _, data)] = self.arrived()
        self.assertEqual(without_trace(data),
                         MAIL.replace(b"MIME-Version: 1.0\r\n",
                                      b"MIME-Version: 1.0\r\nX-New: yes\r\n"))
        self.assertEqual(len(milter.lines("action queue=", "action=x_header", "result=ok")), 1)
        self.assertEqual(len(milter.lines("message queue=", "rules=1", '"insert X-New"')), 1)

    def test_x_header_changes_the_first_field_of_its_name(self):
        self.milter(rules(always("x_header: 'X-Twice: changed'")))
        self.send(MAIL)
        [(_, _, data)] = self.arrived()
        self.assertEqual(without_trace(data),
                         MAIL.replace(b"X-Twice: one\r\n", b"X-Twice: changed\r\n"))

    def test_a_received_field_of_the_message_is_told_from_that_of_postfix(self):
        self.milter(rules(always("x_header: 'Received: changed'")))
        received = b"Received: from a by b;\r\n\tMon, 1 Jan 2024 00:00:00 +0000\r\n"
        self.send(received + received.replace(b"from a", b"from c") + MAIL)
        [(_, _, data)] = self.arrived()
        self.assertEqual(without_trace(data), b"Received: changed\r\n" +
                         received.replace(b"from a", b"from c") + MAIL)

    def test_tag_changes_the_subject_where_it_stands(self):
        self.milter(rules(always("tag_subject: '[external] '")))
        self.send(MAIL)
        [(_, _, data)] = self.arrived()
        self.assertEqual(without_trace(data),
                         MAIL.replace(b"Subject: hello", b"Subject: [external] hello"))

    def test_a_part_that_goes_changes_the_body_only(self):
        milter = self.milter(rules(
            "{id: 1, when: {attachment_name: ['*.exe']}, actions: [{delete_attachments: matching}]}"))
        self.send(MIXED)
        [(_, _, data)] = self.arrived()
        begin, end = MIXED.index(b"--b\r\nContent-Type: application"), MIXED.index(b"--b--")
        self.assertEqual(without_trace(data), MIXED[:begin] + MIXED[end:])
        self.assertEqual(len(milter.lines("message queue=", "changes=body ")), 1)

    def test_delete_discards(self):
        milter = self.milter(rules(always("delete")))
        self.assertTrue(self.send(MAIL).startswith("250"))
        self.assert_nothing_arrives()
        self.assertEqual(len(milter.lines("message queue=", "verdict=discard")), 1)
        decisions = (milter.state / "decisions.jsonl").read_text()
        self.assertIn("to@example.net", decisions)

    def test_bcc_adds_a_recipient(self):
        self.milter(rules(always("bcc: extra@example.com")))
        self.send(MAIL, recipients=("b@example.net", "C@example.net"))
        [(_, recipients, data)] = self.arrived()
        self.assertEqual(sorted(recipients), ["C@example.net", "b@example.net", "extra@example.com"])
        self.assertEqual(without_trace(data), MAIL)

    def test_quarantine_files_and_discards(self):
        milter = self.milter("quarantine_areas: [{name: virus}]\n" +
                             rules(always("quarantine: virus")))
        before = set(milter.quarantine.rglob("*.DF"))
        self.send(MAIL)
        self.assert_nothing_arrives()
        self.assertTrue(milter.lines("action=quarantine", "result=ok", "disposed=yes"))
        [stored] = set(milter.quarantine.rglob("*.DF")) - before
        self.assertIn(b"\r\nbody \xe4\r\n", stored.read_bytes())

    def test_readdress_sends_by_the_spool_and_discards(self):
        milter = self.milter(rules(always("readdress: other@example.com")),
                             settings="reinjection_listener = kavi-scan",
                             delivery=f"scan_host = 127.0.0.1\nscan_port = {self.postfix.scan}")
        self.send(MAIL)
        [(sender, recipients, data)] = self.arrived()
        self.assertEqual((sender, recipients), ("from@example.org", ["other@example.com"]))
        # It came through a second time, where the sealed fields kept the rule from taking it again.
        self.assertNotIn(b"X-kavi", data)
        self.assertTrue(data.endswith(MAIL))
        self.assertEqual(len(milter.lines("message queue=", "verdict=discard", "rules=1 ")), 1)
        self.assertEqual(len(milter.lines("message queue=", "verdict=accept", "(skipped)")), 1)

    def test_a_failed_action_is_a_temporary_failure_that_names_the_message(self):
        # No server is set for what is to be sent again.
        milter = self.milter(rules(always("x_header: 'X-New: yes'", 1),
                                   always("readdress: other@example.com", 2)))
        reply = self.refused(MAIL)
        self.assert_nothing_arrives()
        self.assertRegex(reply, r"^451 4\.7\.1 .*\([0-9A-Za-z]+\)$")
        queue = reply.rsplit("(", 1)[1].rstrip(")")
        self.assertTrue(milter.lines(f"action queue={queue} rule=2", "result=failed"))
        self.assertTrue(milter.lines(f"message queue={queue}", "verdict=tempfail"))

    def archived(self):
        return len(list((self.base / "archive").rglob("*.eml")))

    def test_a_verdict_is_told_as_it_stands(self):
        # libmilter takes a text for a format, and Postfix makes one "%" of two.
        text = "Not 100% here: <%s> 5.7.1 %d%n"
        milter = self.milter(OBJECTS + rules(
            "{id: 1, when: always, actions: [{x_header: 'X-New: yes'}, {archive: journal}], "
            "verdict: {reject: '%s'}}" % text, always("delete", 2)))
        before = self.archived()
        self.assertEqual(self.refused(MAIL), f"550 5.7.1 {text}")
        self.assert_nothing_arrives()
        [line] = milter.lines("message queue=", "verdict=reject rule=1 ")
        self.assertNotIn("delete", line)
        self.assertEqual(self.archived(), before + 1)

    def test_a_verdict_for_now_names_the_message_and_keeps_its_effects(self):
        milter = self.milter(OBJECTS + rules(
            "{id: 1, when: always, actions: [{archive: journal}], verdict: {tempfail: Not yet}}"))
        before = self.archived()
        for _ in range(2):
            self.assertRegex(self.refused(MAIL, sender="again@example.org"),
                             r"^451 4\.7\.1 Not yet \([0-9A-Za-z]+\)$")
        self.assertEqual(len(milter.lines("message queue=", "verdict=tempfail rule=1 ")), 2)
        self.assertEqual(self.archived(), before + 1, "the second attempt finds it done")
        self.assert_nothing_arrives()

    def test_an_accepted_failure_leaves_the_mail_as_it_stood_before_its_rule(self):
        first = always("{x_header: 'X-First: yes'}, {bcc: kept@example.com}")
        # No server is set for what is to be sent again.
        fails = ("{id: 2, when: always, on_failure: accept, verdict: {reject: No}, actions: "
                 "[{x_header: 'X-Lost: yes'}, {tag_subject: '[LOST] '}, {stamp: legal}, "
                 "{delete_attachments: all}, {bcc: lost@example.com}, {archive: journal}, "
                 "{quarantine: virus}, {readdress: other@example.com}]}")
        last = ("{id: 3, when: {attachment_name: ['*.exe']}, actions: "
                "[{delete_attachments: matching}]}")
        milter = self.milter(OBJECTS + rules(first, last))
        self.send(MIXED)
        [(_, recipients, expected)] = self.arrived()
        milter = self.milter(OBJECTS + rules(first, fails, last))
        self.send(MIXED)
        [(_, reached, data)] = self.arrived()
        self.assertEqual(without_trace(data), without_trace(expected))
        self.assertEqual(sorted(reached), sorted(recipients))
        self.assertIn("kept@example.com", reached)
        self.assertNotIn(b"MZ", data)
        [line] = milter.lines(" L1 accepted queue=", "rule=2")
        self.assertIn('failure="action readdress of rule 2"', line)
        self.assertIn("stays=archive,quarantine", line)
        self.assertTrue(milter.lines("message queue=", "verdict=accept", "rules=1,2(accepted),3"))
        for _ in range(2):  # it was settled: nothing of it is left to be found by a retry
            self.send(MIXED)
            self.arrived()
        self.assertEqual(len(milter.lines("accepted queue=")), 3)

    def test_a_hand_off_that_may_have_been_taken_is_no_failure_to_accept(self):
        script = {"at": {"end": {"do": "hangup", "keep": True, "times": 1},
                         "data": {"do": "hangup", "times": 1, "after": 1}}}
        other = Sink(self.base / self.id(), script)
        self.addCleanup(other.stop)
        milter = self.milter(rules(
            f"{{id: 1, when: always, on_failure: accept, actions: [{{handoff: '127.0.0.1:{other.port}'}}]}}"))
        self.assertTrue(self.refused(MAIL).startswith("451"))
        self.assertEqual(other.count(), 1, "it was taken there")
        self.assert_nothing_arrives()
        self.assertTrue(milter.lines("possibly doubled"))
        self.assertFalse(milter.lines("accepted queue="))
        # Before the message went out, it is known to have failed.
        self.send(MAIL, sender="other@example.org")
        self.arrived()
        self.assertTrue(milter.lines("accepted queue=", "rule=1"))
        self.assertEqual(other.count(), 1)

    def test_forged_reprocessing_fields_do_not_count(self):
        milter = self.milter(rules(always("x_header: 'X-New: yes'")),
                             settings="reinjection_listener = kavi-scan")
        forged = (b"X-kavi-reprocess-rules: 1\r\nX-kavi-reprocess-type: quarantine\r\n"
                  b"X-kavi-reprocess-seal: 1 0000000000000000 9999999999 1 " + b"0" * 64 + b"\r\n")
        for port in (self.postfix.port, self.postfix.scan):
            self.send(forged + MAIL, port=port)
            [(_, _, data)] = self.arrived()
            self.assertNotIn(b"X-kavi", data)
            self.assertIn(b"X-New: yes\r\n", data)
        self.assertEqual(len(milter.lines("message queue=", "(skipped)")), 0)

    def test_mail_beyond_a_limit_gets_the_verdict_of_the_settings(self):
        self.milter("rules: []\n",
                    settings="max_header_fields = 20\nmax_parts = 3\nmax_recipients = 2")
        many = b"".join(b"X-%d: y\r\n" % number for number in range(25)) + MAIL
        self.assertRegex(self.refused(many), r"^451 .*more than 20 header fields")
        self.assertRegex(self.refused(MAIL, recipients=("a@b.c", "b@b.c", "c@b.c")),
                         r"^451 .*more than 2 recipients")
        parts = MIXED.replace(b"--b--", b"--b\r\n\r\nx\r\n--b\r\n\r\ny\r\n--b--")
        self.assertRegex(self.refused(parts), r"^451 ")
        self.milter("rules: []\n", settings="max_header_fields = 20\nbeyond_limits = reject")
        self.assertRegex(self.refused(many), r"^550 5\.7\.1 .*more than 20 header fields")
        self.assert_nothing_arrives()

    def test_a_large_message_goes_through_a_file(self):
        milter = self.milter(rules(always("x_header: 'X-New: yes'")), settings="memory_kb = 1")
        body = b"".join(b"line %d\r\n" % number for number in range(200_000))
        self.send(b"Subject: large\r\n\r\n" + body)
        [(_, _, data)] = self.arrived()
        self.assertEqual(without_trace(data), b"Subject: large\r\nX-New: yes\r\n\r\n" + body)
        self.assertEqual(list((milter.state / "incoming").iterdir()), [])

    def test_without_the_milter_postfix_keeps_the_sender_trying(self):
        milter = self.milter("rules: []\n")
        milter.stop()
        self.assertRegex(self.refused(MAIL), r"^4")
        milter.start()
        self.send(MAIL)
        self.assertEqual(without_trace(self.arrived()[0][2]), MAIL)


class PolicyTest(MailTest):
    def test_a_new_policy_holds_from_the_next_message_on(self):
        milter = self.milter(rules(always("x_header: 'X-Policy: first'")))
        self.send(MAIL)
        self.assertIn(b"X-Policy: first\r\n", self.arrived()[0][2])
        self.assertIn("is in force", milter.reload(rules(always("x_header: 'X-Policy: second'"))))
        self.send(MAIL)
        self.assertIn(b"X-Policy: second\r\n", self.arrived()[0][2])

    def test_a_policy_with_errors_leaves_the_old_one(self):
        milter = self.milter(rules(always("x_header: 'X-Policy: first'")))
        self.assertIn("NOT in force", milter.reload("rules: [{id: 1, actions: [explode]}]\n"))
        self.assertTrue(milter.lines("policy: ", "policy.yaml:1", "explode"))
        self.send(MAIL)
        self.assertIn(b"X-Policy: first\r\n", self.arrived()[0][2])

    def test_ends_when_the_message_at_work_has_its_answer(self):
        slow = Sink(self.base / "slow", {"at": {"end": {"do": "stall"}}})
        self.addCleanup(slow.stop)
        milter = self.milter(rules(always(f"handoff: '127.0.0.1:{slow.port}'")),
                             delivery="handoff_deadline_seconds = 8")
        replies = []
        sender = threading.Thread(target=lambda: replies.append(self.refused(MAIL)))
        sender.start()
        wait_until(lambda: [event for event in slow.events() if event["event"] == "deed"],
                   "the hand-off to stall")
        self.assertEqual(milter.stop(), 0)
        sender.join()
        [line] = milter.lines("message queue=", "verdict=tempfail")
        queue = line.split("queue=")[1].split()[0]
        # The daemon's own words: Postfix would have others for a milter that went away.
        self.assertRegex(replies[0], rf"^451 4\.7\.1 .*\({queue}\)$")
        milter.start()

    def test_ends_properly(self):
        milter = self.milter("rules: []\n")
        self.assertEqual(milter.stop(), 0)
        self.assertTrue(milter.lines("stopped"))
        milter.start()


if __name__ == "__main__":
    unittest.main()
