#!/usr/bin/env python3
"""Many messages at once, and a daemon that is killed meanwhile: each arrives, and once.

KAVI_LOAD_MESSAGES is how many messages the load has; 600 without it.
"""
import os
import queue
import re
import threading
import time
import unittest

from mail_stack import PATIENCE, MailTest, SmtpClient, SmtpReply, wait_until

MESSAGES = int(os.environ.get("KAVI_LOAD_MESSAGES", "600"))
SESSIONS = 20
BODY = b"".join(b"%03d some text that fills a line of this message\r\n" % n for n in range(200))

POLICY = """
stamps: [{name: note, text: "stamped for %SENDER%"}]
rules:
- {id: 1, when: always, actions: [{stamp: note}, {tag_subject: "[t] "}, {x_header: "X-Seen: yes"}]}
- {id: 2, when: {subject: {matches: "00 of"}}, actions: [{bcc: hundredth@example.com}]}
"""


def mail(number, total):
    return (b"From: from@example.org\r\nTo: to@example.net\r\nSubject: %05d of %d\r\n"
            b"Message-ID: <%d@example.org>\r\nMIME-Version: 1.0\r\n"
            b"Content-Type: text/plain; charset=utf-8\r\n\r\n" % (number, total, number)) + BODY


class Senders:
    """Several sessions that send numbered messages, each until it was accepted."""

    def __init__(self, port, total):
        self.port = port
        self.total = total
        self.todo = queue.SimpleQueue()
        for number in range(total):
            self.todo.put(number)
        self.accepted = {}
        self.refusals = []
        self.faults = []
        self.lock = threading.Lock()
        self.threads = [threading.Thread(target=self.run) for _ in range(SESSIONS)]
        for thread in self.threads:
            thread.start()

    def run(self):
        client = None
        while True:
            try:
                number = self.todo.get_nowait()
            except queue.Empty:
                break
            end = time.monotonic() + PATIENCE
            while True:
                try:
                    client = client or SmtpClient(self.port)
                    reply = client.send(mail(number, self.total))
                    with self.lock:
                        self.accepted[number] = reply
                    break
                except (OSError, SmtpReply) as fault:
                    if client is not None:
                        client.close()
                        client = None
                    text = str(fault)
                    with self.lock:
                        self.refusals.append(text)
                    # What is refused for good, or for ever, is a fault of the test.
                    if text[:1] == "5" or time.monotonic() > end:
                        self.faults.append((number, text))
                        break
                    time.sleep(0.1)  # as a mail system would before it tries again
        if client is not None:
            client.close()

    def done(self):
        return len(self.accepted)

    def wait(self):
        for thread in self.threads:
            thread.join()


class LoadTest(MailTest):
    def numbers_at_sink(self, total):
        """How often each number arrived, once there are enough messages."""
        new = wait_until(
            lambda: self.sink.messages()[self.seen:]
            if self.sink.count() >= self.seen + total else None,
            f"{total} messages at the sink, of {self.sink.count() - self.seen}", 4 * PATIENCE)
        wait_until(lambda: not self.postfix.queued(), "the queue to become empty", 4 * PATIENCE)
        new = self.sink.messages()[self.seen:]
        counts = {}
        for _, _, data in new:
            number = int(re.search(rb"\r\nSubject: \[t\] (\d{5}) of", data).group(1))
            counts[number] = counts.get(number, 0) + 1
            self.assertEqual(data.count(b"stamped for from@example.org"), 1)
            self.assertEqual(data.count(b"X-Seen: yes"), 1)
        return counts

    def test_every_message_arrives_once_and_memory_stays_flat(self):
        milter = self.milter(POLICY)
        begin = time.monotonic()
        senders = Senders(self.postfix.port, MESSAGES)
        wait_until(lambda: senders.done() >= MESSAGES // 4, "a quarter of the messages", 1200)
        early = milter.resident_kb()
        wait_until(lambda: senders.done() >= MESSAGES // 2, "half of the messages", 1200)
        middle = milter.resident_kb()
        senders.wait()
        took = time.monotonic() - begin
        late = milter.resident_kb()
        print(f"{MESSAGES} messages in {took:.1f} s ({MESSAGES / took:.0f}/s); resident kB: "
              f"{early} after a quarter, {middle} in the middle, {late} at the end")
        self.assertEqual((senders.faults, senders.refusals), ([], []))
        self.assertEqual(self.numbers_at_sink(MESSAGES), dict.fromkeys(range(MESSAGES), 1))
        self.assertEqual(len(milter.lines("message queue=", "verdict=accept")), MESSAGES)
        if not os.environ.get("KAVI_SANITIZE"):  # sanitizers keep what was freed for a while
            self.assertLess(late, early + 20_000)

    def test_a_killed_daemon_loses_nothing_and_doubles_nothing(self):
        total = 300
        milter = self.milter(POLICY)
        senders = Senders(self.postfix.port, total)
        for share in (1, 2, 3):
            wait_until(lambda share=share: senders.done() >= share * total // 5, "some messages")
            milter.kill()
            milter.start()
        senders.wait()
        self.assertEqual(senders.faults, [])
        self.assertEqual(self.numbers_at_sink(total), dict.fromkeys(range(total), 1))
        self.assertNotEqual(senders.refusals, [], "the daemon was away, and nobody noticed")


if __name__ == "__main__":
    unittest.main()
