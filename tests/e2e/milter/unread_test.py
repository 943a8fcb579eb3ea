#!/usr/bin/env python3
"""kavi-milter and a mail system that goes away before it has read the answer to a message: its
sender tries again, and what was done before is found done, or the log says that it may be doubled.
"""
import os
import unittest

from garbage_test import CONVERSATION, UNANSWERED, packet
from mail_stack import MilterTest, wait_until

POLICY = """
archive_areas: [{name: journal}]
rules:
- {id: 1, when: {subject: {matches: discarded}}, actions: [archive: journal, delete]}
- {id: 2, when: {subject: {matches: accepted}}, actions: [archive: journal]}
- {id: 3, when: {subject: {matches: changed}}, actions: [archive: journal, x_header: "X-New: yes"]}
"""
ANSWERS = {"discarded": b"d", "accepted": b"c", "changed": b"c"}
OPENING = 4  # packets of a conversation before its first message


def conversation(subject):
    return [packet(b"L", b"Subject\0 " + subject.encode() + b"\0")
            if part[4:12] == b"LSubject" else
            packet(b"D", b"Ei\0" + subject.replace(" ", "-").encode() + b"\0")
            if part[4:6] == b"DE" else part for part in CONVERSATION]


class UnreadTest(MilterTest):
    policy = POLICY

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.idle = cls.sockets()

    def archived(self):
        return sum(1 for _ in self.milter.folder.glob("archive/**/*.eml"))

    def ended(self, subject):
        """How often the message came to its end."""
        return len(self.milter.lines("message queue=" + subject.replace(" ", "-")))

    def doubled(self):
        return len(self.milter.lines("is possibly doubled"))

    @classmethod
    def sockets(cls):
        folder = f"/proc/{cls.milter.process.pid}/fd"
        found = 0
        for name in os.listdir(folder):
            try:
                found += os.readlink(f"{folder}/{name}").startswith("socket:")
            except FileNotFoundError:
                pass  # closed meanwhile
        return found

    def open_marks(self):
        return sum(1 for _ in self.milter.folder.glob("**/answers/*"))

    def read_packet(self, stream):
        def read(size):
            data = b""
            while len(data) < size:
                piece = stream.read(size - len(data))
                self.assertTrue(piece, "the gateway hung up")
                data += piece
            return data

        return read(int.from_bytes(read(4), "big"))

    def send(self, connection, subject):
        """Sends a message to its end, with all answers read but the last."""
        *parts, end = conversation(subject)
        connection.sendall(b"".join(parts))
        with connection.makefile("rb", buffering=0) as stream:
            for _ in [part for part in parts if part[4:5] not in UNANSWERED]:
                self.read_packet(stream)
        connection.sendall(end)

    def read_answer(self, connection):
        """Reads the last answer, and the signs of life and changes before it."""
        with connection.makefile("rb", buffering=0) as stream:
            answer = b"p"
            while answer[:1] in (b"p", b"i"):
                answer = self.read_packet(stream)
        return answer[:1]

    def deliver(self, kind, subject):
        def attempt():
            with self.connect() as connection:
                self.send(connection, subject)
                return self.read_answer(connection) == ANSWERS[kind]

        # It is refused for now while an attempt before is still at work.
        wait_until(attempt, "the answer")

    def test_gone_before_the_answer(self):
        for kind in ANSWERS:
            self.milter.forget_log()
            subject = kind + " without waiting"
            before = self.archived()
            with self.connect() as connection:
                self.send(connection, subject)
            # libmilter may see the end of the connection first, and not begin with the message.
            wait_until(lambda: self.sockets() <= self.idle, "the end of the connection")
            self.deliver(kind, subject)
            copies = self.archived() - before
            self.assertGreaterEqual(copies, 1, subject)
            self.assertLessEqual(copies, 1 + self.doubled(), subject)

    def test_gone_with_the_answer_unread(self):
        for kind in ANSWERS:
            self.milter.forget_log()
            subject = kind + " without reading"
            before = self.archived()
            with self.connect() as connection:
                self.send(connection, subject)
                # What lies in the socket is not read any more.
                wait_until(lambda: self.ended(subject) == 1, "the message")
            self.deliver(kind, subject)
            # Both were settled, so the effects happen again.
            self.assertEqual((self.archived() - before, self.doubled()), (2, 1), subject)

    def test_a_further_message_proves_that_the_answer_was_read(self):
        subject = "discarded twice"
        self.milter.forget_log()
        marks = self.open_marks()
        parts = conversation(subject)
        with self.connect() as connection:
            self.send(connection, subject)
            self.assertEqual(self.read_answer(connection), ANSWERS["discarded"])
            connection.sendall(b"".join(parts[OPENING:]))
            wait_until(lambda: self.ended(subject) == 2, "the second message")
        [told] = self.milter.lines("is possibly doubled")
        self.assertIn("it came before and was answered", told)
        self.assertLessEqual(self.open_marks(), marks + 1)


if __name__ == "__main__":
    unittest.main()
