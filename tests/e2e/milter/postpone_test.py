#!/usr/bin/env python3
"""Postponed mail behind a real Postfix: held back, given back to the listener that scans in its
time, and not held back there again.

The local time of the milter is set by its time zone.
"""
import os
import re
import sqlite3
import time
import unittest
import urllib.request

from mail_stack import PATIENCE, MailTest, Sink, free_port, wait_until, without_trace

MAIL = (b"From: Sender <from@example.org>\r\nTo: to@example.net\r\nSubject: hello\r\n"
        b"X-Folded: a\r\n\tb\r\nMIME-Version: 1.0\r\nContent-Type: text/plain; charset=iso-8859-1\r\n"
        b"Content-Transfer-Encoding: 8bit\r\n\r\n.dot\r\n\r\nbody \xe4\r\n..\r\n\r\n\r\n")
HEADER_ONLY = b"Subject: x\r\n"
SHAPES = (MAIL, b"no header\r\n", b"\r\nno header\r\n", b" a fold\r\nSubject: x\r\n\r\nbody\r\n",
          HEADER_ONLY, b"Subject: x\r\nno field\r\n\r\nbody\r\n", b"Subject: x\r\n\r\n",
          b"Subject : x\r\nX-8bit\xe4: y\r\n\r\nbody\r\n", b": empty\r\n\r\nbody\r\n",
          b">From x\r\nSubject: x\r\n\r\nbody\r\n", b"Subject: x\rTo: y\r\r\nbody\rend\r\n",
          b"Subject: " + b"long " * 1500 + b"\r\n\r\nb\r\n",
          b"X-kavi-reprocess-rules: 1\r\nX-kavi-reprocess-type: postpone\r\n\r\nforged\r\n",
          b"Subject: x\r\n\r\n" + b"a line that is longer than any should be " * 200 + b"\r\n")
ALWAYS_OPEN = "00:00"
NOON = 12 * 3600


def zone_in_which_it_is(seconds):
    """The name of a time zone whose clock shows so many seconds behind midnight now."""
    ahead = (seconds - int(time.time())) % 86400
    ahead -= 86400 if ahead > 43200 else 0
    west, part = divmod(abs(ahead), 3600)
    return f"XXX{'-' if ahead > 0 else '+'}{west}:{part // 60:02}:{part % 60:02}"


def rules(*texts):
    return "rules:\n" + "".join(f"- {text}\n" for text in texts)


def postpone(number, begin, when="always"):
    return "{id: %d, when: %s, actions: [{postpone: '%s'}]}" % (number, when, begin)


class PostponeTest(MailTest):
    def setUp(self):
        super().setUp()
        self.zone = os.environ.get("TZ")
        self.addCleanup(self.set_zone, self.zone)

    @staticmethod
    def set_zone(zone):
        """For milters that are started from now on."""
        if zone is None:
            os.environ.pop("TZ", None)
        else:
            os.environ["TZ"] = zone

    def start(self, policy, scan=None, extra="", settings=""):
        return self.milter(
            policy, settings=f"reinjection_listener = kavi-scan\n{settings}",
            delivery=f"scan_host = 127.0.0.1\nscan_port = {scan or self.postfix.scan}\n"
                     f"plain_host = 127.0.0.1\nplain_port = {self.postfix.plain}\n"
                     f"retry_first_seconds = 1\nretry_longest_seconds = 1\n{extra}")

    def start_at(self, seconds, *arguments, **named):
        """A milter of its own whose clock shows that time of the day."""
        self.set_zone(zone_in_which_it_is(seconds))
        running = type(self).__dict__.get("running")
        if running is not None:
            running.kill()
        type(self).running = None
        return self.start(*arguments, **named)

    def waiting(self, milter):
        return sorted((milter.state / "spool").glob("*.msg"))

    def rows(self, milter):
        store = sqlite3.connect(milter.state / "store.sqlite", timeout=30)
        try:
            return [bytes(path).decode() for path, in store.execute(
                "SELECT path FROM message_index WHERE kind = 3")]
        finally:
            store.close()

    def assert_nothing_waits(self, milter):
        wait_until(lambda: not self.waiting(milter) and not self.rows(milter),
                   "the spool to become empty:\n" + milter.log())

    def test_inside_its_window_it_is_scanned_by_the_other_rules_at_once(self):
        milter = self.start(rules(
            postpone(1, ALWAYS_OPEN),
            "{id: 2, when: always, actions: [{tag_subject: '[t] '}, {x_header: 'X-New: yes'}]}"))
        self.send(MAIL)
        [(sender, recipients, data)] = self.arrived()
        self.assertEqual((sender, recipients), ("from@example.org", ["to@example.net"]))
        header, body = without_trace(data).split(b"\r\n\r\n", 1)
        expected, expected_body = MAIL.split(b"\r\n\r\n", 1)
        self.assertEqual(header, expected.replace(b"hello", b"[t] hello") + b"\r\nX-New: yes")
        self.assertEqual(body, expected_body)
        self.assert_nothing_waits(milter)
        self.assertEqual(len(milter.lines("action=postpone")), 1)
        self.assertEqual(len(milter.lines("action=tag_subject")), 1)
        self.assertEqual(len(milter.lines("verdict=discard")), 1)
        self.assertEqual(len(milter.lines("verdict=accept")), 1)

    def test_two_rules_hold_it_back_one_after_the_other(self):
        milter = self.start(rules(postpone(1, ALWAYS_OPEN), postpone(2, ALWAYS_OPEN)))
        self.send(MAIL)
        [(_, _, data)] = self.arrived()
        self.assertTrue(data.endswith(MAIL))
        self.assertNotIn(b"X-kavi", data)
        self.assert_nothing_waits(milter)
        held = milter.lines("action=postpone", "result=ok")
        self.assertEqual([re.search(r"rule=(\d+)", line)[1] for line in held], ["1", "2"])

    def test_whatever_its_shape_it_comes_back_once_and_is_not_held_again(self):
        for number, mail in enumerate(SHAPES):
            self.start("rules: []\n")
            self.send(mail)
            [(_, _, plain)] = self.arrived()
            milter = self.start(rules(postpone(1, ALWAYS_OPEN)))
            self.send(mail)
            [(_, _, data)] = self.arrived()
            with self.subTest(number):
                # The protocol says nothing of the blank line behind a header.
                end = b"\r\n" if mail == HEADER_ONLY else b""
                self.assertEqual(without_trace(data), without_trace(plain) + end)
                self.assert_nothing_waits(milter)
                self.assertEqual(len(milter.lines("action=postpone")), 1)
                self.assertEqual(len(milter.lines("verdict=accept")), 1)

    def test_outside_its_window_it_waits_over_a_kill_until_the_window_opens(self):
        milter = self.start_at(NOON - 3600, rules(postpone(1, "12:00")))
        self.send(MAIL)
        self.assert_nothing_arrives()
        [entry] = self.waiting(milter)
        self.assertTrue(entry.read_bytes().endswith(b"\n" + MAIL), "as it came")
        self.assertEqual(self.rows(milter), [str(entry)])
        milter.kill()
        # Killed by its owner already; the next one looks three seconds before the window opens.
        opening = int(time.time()) + 3
        milter = self.start_at(NOON - 3, rules(postpone(1, "12:00")))
        self.assertEqual(len(self.sink.messages()), self.seen)
        [(_, _, data)] = self.arrived()
        self.assertGreaterEqual(time.time(), opening)
        self.assertTrue(data.endswith(MAIL))
        self.assert_nothing_waits(milter)

    def test_behind_its_window_it_waits_for_the_next_day(self):
        # The milter was not there from 23:59 to midnight.
        milter = self.start_at(NOON, rules(postpone(1, "23:59")))
        self.send(MAIL)
        self.assert_nothing_arrives()
        milter = self.start_at(60, rules(postpone(1, "23:59")))
        # It gives other mail back meanwhile, so it has looked at this one, too.
        self.assertIn("is in force", milter.reload(rules(postpone(2, "00:00"))))
        self.send(MAIL.replace(b"hello", b"other"))
        [(_, _, data)] = self.arrived()
        self.assertIn(b"Subject: other", data)
        self.assertEqual(len(self.waiting(milter)), 1)
        self.assertEqual(len(self.rows(milter)), 1)
        milter = self.start_at(24 * 3600 - 50, rules(postpone(1, "23:59")))
        [(_, _, data)] = self.arrived()
        self.assertIn(b"Subject: hello", data)
        self.assert_nothing_waits(milter)

    def sent_back_to(self, name, script, extra=""):
        """A milter that gives a message back to a server that misbehaves."""
        sink = Sink(self.base / name, script)
        self.addCleanup(sink.stop)
        milter = self.start(rules(postpone(1, ALWAYS_OPEN)), scan=sink.port, extra=extra)
        self.send(MAIL)
        return milter, sink

    def check_that_it_comes_back(self, name, at, extra=""):
        milter, sink = self.sent_back_to(name, {"at": at}, extra)
        wait_until(lambda: sink.count() == 1, "the message to go back:\n" + milter.log())
        self.assert_nothing_waits(milter)
        [(_, recipients, data)] = sink.messages()
        self.assertEqual(recipients, ["to@example.net"])
        self.assertIn(b"X-kavi-reprocess-rules: 1\r\n", data)
        self.assertIn(b"X-kavi-reprocess-type: postpone\r\n", data)
        self.assertTrue(data.endswith(MAIL))

    def test_refused_for_now_it_is_tried_again(self):
        for stage, action in (("mail", {"reply": "450 4.2.1 busy"}),
                              ("end", {"reply": "451 4.3.0 later"}),
                              ("connect", {"reply": "421 4.3.2 down"}),
                              ("data", {"do": "hangup"})):
            with self.subTest(stage):
                self.check_that_it_comes_back(stage, {stage: {**action, "times": 2}})

    def test_a_server_that_stalls_is_given_up_for_now(self):
        self.check_that_it_comes_back("stalling", {"mail": {"do": "stall", "times": 1}},
                                      extra="command_timeout_seconds = 1")

    def figures(self, port):
        with urllib.request.urlopen(f"http://127.0.0.1:{port}/metrics", timeout=PATIENCE) as answer:
            lines = answer.read().decode().splitlines()
        return dict(line.rsplit(" ", 1) for line in lines if not line.startswith("#"))

    def test_metrics_count_attempts_and_failures_of_the_store(self):
        port = free_port()
        sink = Sink(self.base / "counted", {"at": {"mail": {"reply": "450 4.2.1 x", "times": 2}}})
        self.addCleanup(sink.stop)
        milter = self.start(rules(postpone(1, ALWAYS_OPEN)), scan=sink.port,
                            settings=f"metrics_port = {port}")
        self.send(MAIL)
        wait_until(lambda: sink.count() == 1, "the message to go back")
        self.assert_nothing_waits(milter)
        figures = self.figures(port)
        name = 'kavi_smtp_submissions_total{result="%s",route="scan"}'
        self.assertEqual(float(figures[name % "deferred"]), 2)
        self.assertEqual(float(figures[name % "sent"]), 1)
        self.assertFalse([name for name in figures if name.startswith("kavi_store_errors")])
        store = sqlite3.connect(milter.state / "store.sqlite", isolation_level=None)
        try:
            store.execute("BEGIN EXCLUSIVE")  # for longer than anybody waits
            self.assertRegex(self.refused(MAIL), r"^451 4\.7\.1 ")
        finally:
            store.close()
        figures = self.figures(port)
        self.assertGreaterEqual(float(figures['kavi_store_errors_total{kind="busy"}']), 1)
        self.assertEqual(self.waiting(milter), [])

    def test_refused_for_good_it_stays_as_failed(self):
        milter, sink = self.sent_back_to("refusing",
                                         {"at": {"rcpt1": {"reply": "550 5.1.1 unknown"}}})
        wait_until(lambda: milter.lines("stays in the spool as failed", "550 5.1.1 unknown"),
                   "the refusal")
        [entry] = self.waiting(milter)
        self.assertEqual(self.rows(milter), [str(entry)])
        self.assertEqual(sink.count(), 0)
        entry.unlink()


if __name__ == "__main__":
    unittest.main()
