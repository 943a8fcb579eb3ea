#!/usr/bin/env python3
"""Many messages of 10 kB at once: each arrives, and once, and memory stays flat.

KAVI_LOAD_MESSAGES is how many messages the load has; 600 without it.
"""
import collections
import os
import re
import time
import unittest

from mail_stack import PATIENCE, MailTest, wait_until
from senders import Senders

MESSAGES = int(os.environ.get("KAVI_LOAD_MESSAGES", "600"))
BODY = b"".join(b"%03d some text that fills a line of this message\r\n" % n for n in range(200))

POLICY = """
stamps: [{name: note, text: "stamped for %SENDER%"}]
notifications:
- {name: tell, sender: kavi@gw.example, recipients: [admin@a.example], subject: "%SUBJECT%",
   body: "Rule %RULENAME% matched."}
rules:
- {id: 1, when: always, actions: [{stamp: note}, {tag_subject: "[t] "}, {x_header: "X-Seen: yes"}]}
- {id: 2, when: {subject: {matches: "00 of"}}, actions: [{notify: tell}]}
"""


def mail(number):
    return (b"From: from@example.org\r\nTo: to@example.net\r\nSubject: %05d of %d\r\n"
            b"Message-ID: <%d@example.org>\r\nMIME-Version: 1.0\r\n"
            b"Content-Type: text/plain; charset=utf-8\r\n\r\n" % (number, MESSAGES, number)
            ) + BODY, {}


class LoadTest(MailTest):
    def at_sink(self, count):
        """How often each number arrived for each recipient, once there are enough messages."""
        wait_until(lambda: self.sink.count() >= self.seen + count,
                   f"{count} messages at the sink, of {self.sink.count() - self.seen}",
                   4 * PATIENCE)
        wait_until(lambda: not self.postfix.queued(), "the queue to become empty", 4 * PATIENCE)
        found = collections.Counter()
        for _, [recipient], data in self.sink.messages()[self.seen:]:
            number = int(re.search(rb"\r\nSubject: \[t\] (\d{5}) of", data).group(1))
            found[recipient, number] += 1
            if recipient == "to@example.net":
                self.assertEqual(data.count(b"stamped for from@example.org"), 1)
                self.assertEqual(data.count(b"X-Seen: yes"), 1)
        return found

    def test_every_message_arrives_once_and_memory_stays_flat(self):
        milter = self.milter(POLICY, delivery="plain_host = 127.0.0.1\n"
                                              f"plain_port = {self.postfix.plain}")
        begin = time.monotonic()
        senders = Senders(self.postfix.port, MESSAGES, mail)
        resident = [milter.resident_kb()]
        for share in (1, 2, 3):
            wait_until(lambda share=share: senders.done() >= share * MESSAGES // 4,
                       f"quarter {share} of the messages", 1200)
            resident.append(milter.resident_kb())
        senders.wait()
        took = time.monotonic() - begin
        resident.append(milter.resident_kb())
        print(f"{MESSAGES} messages in {took:.1f} s ({MESSAGES / took:.0f}/s); resident kB at the "
              f"begin, after each quarter, at the end: {resident}", flush=True)
        self.assertEqual((senders.faults, senders.refusals), ([], []))
        expected = collections.Counter(("to@example.net", number) for number in range(MESSAGES))
        expected.update(("admin@a.example", number) for number in range(0, MESSAGES, 100))
        self.assertEqual(self.at_sink(sum(expected.values())), expected)
        self.assertEqual(len(milter.lines("message queue=", "verdict=accept")), MESSAGES)
        if not os.environ.get("KAVI_SANITIZE"):  # sanitizers keep what was freed for a while
            self.assertLess(resident[-1], resident[1] + 20_000)


if __name__ == "__main__":
    unittest.main()
