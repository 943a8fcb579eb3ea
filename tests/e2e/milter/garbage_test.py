#!/usr/bin/env python3
"""kavi-milter and bytes that no mail system sends: they end their own connection at most, and bring
no message anywhere.

KAVI_GARBAGE_ROUNDS is how many random conversations there are; 300 without it. KAVI_GARBAGE_SEED
makes them those of an earlier run.
"""
import os
import random
import socket
import struct
import threading
import unittest

from mail_stack import PATIENCE, MilterTest, wait_until

ROUNDS = int(os.environ.get("KAVI_GARBAGE_ROUNDS", "300"))
ALL_ACTIONS = 0x1FF
ALL_STEPS = 0x1FFFFF
LEADING_BLANKS = 0x100000
POLICY = """
archive_areas: [{name: journal}]
rules:
- {id: 1, when: always, actions: [archive: journal, x_header: "X-Seen: yes", tag_subject: "[t] "]}
"""


def packet(command, data=b""):
    return struct.pack(">I", len(data) + 1) + command + data


OPTIONS = packet(b"O", struct.pack(">III", 6, ALL_ACTIONS, ALL_STEPS))
# Of a mail system that waits for the answer to each field, and to each piece of the body.
WAITING_OPTIONS = packet(b"O", struct.pack(">III", 6, ALL_ACTIONS, ALL_STEPS & ~0xff080))
UNANSWERED = (b"D", b"L", b"N", b"B")  # to others: macros, fields, the header's end, the body
CONVERSATION = [
    OPTIONS, packet(b"D", b"C" + b"j\0host\0{daemon_name}\0in\0"), packet(b"C", b"host\0" + b"4\0\x19192.0.2.1\0"),
    packet(b"H", b"client\0"), packet(b"M", b"<a@example.org>\0SIZE=10\0"),
    packet(b"R", b"<b@example.net>\0"), packet(b"L", b"Subject\0 s\0"), packet(b"L", b"X-A\0 1\n\t2\0"),
    packet(b"N"), packet(b"B", b"body\r\n"), packet(b"D", b"E" + b"i\0QUEUE\0"), packet(b"E")]


class GarbageTest(MilterTest):
    policy = POLICY

    def tearDown(self):
        self.assertIsNone(self.milter.process.poll(), self.milter.log()[-2000:])
        self.assert_serves()

    def raw(self, data):
        """Sends bytes as they are; answers what comes back until the other side hangs up."""
        answer = bytearray()

        def read():
            try:
                while piece := connection.recv(65536):
                    answer.extend(piece)
            except ConnectionResetError:
                pass  # hung up in the middle, as it may

        with self.connect() as connection:
            reader = threading.Thread(target=read)
            reader.start()
            try:
                connection.sendall(data)
                connection.shutdown(socket.SHUT_WR)
            except (BrokenPipeError, ConnectionResetError):
                pass
            reader.join(PATIENCE)
            self.assertFalse(reader.is_alive(), "the other side does not hang up")
        return bytes(answer)

    def answers(self, data):
        """The commands that come back."""
        answer = self.raw(data)
        commands = []
        while len(answer) >= 5:
            size = struct.unpack(">I", answer[:4])[0]
            commands.append(answer[4:5])
            answer = answer[4 + size:]
        return commands

    def assert_serves(self):
        self.assertEqual(self.answers(b"".join(CONVERSATION))[-1], b"c", "the message goes on")

    def archived(self):
        return sum(1 for _ in self.milter.folder.glob("archive/**/*.eml"))

    def test_a_conversation_that_is_cut_off_anywhere(self):
        whole = b"".join(CONVERSATION)
        before = self.archived()
        for end in range(len(whole)):
            self.assertNotIn(b"d", self.answers(whole[:end]))
        self.assertEqual(self.archived(), before, "no message without its end")

    def test_answers_each_step_where_a_mail_system_waits_for_it(self):
        waiting = self.answers(b"".join([WAITING_OPTIONS, *CONVERSATION[1:]]))
        steps = [part for part in CONVERSATION[1:] if part[4:5] != b"D"]
        self.assertEqual(waiting.count(b"c"), len(steps))
        told = [part for part in steps if part[4:5] not in UNANSWERED]
        self.assertEqual(self.answers(b"".join(CONVERSATION)).count(b"c"), len(told))

    def test_lengths_that_are_not_true(self):
        for command in CONVERSATION:
            for length in (0, 1, len(command) - 5, len(command) - 3, 0xFFFF, 0x10000, 0x7FFFFFFF,
                           0xFFFFFFFF):
                lie = struct.pack(">I", length) + command[4:]
                at = CONVERSATION.index(command)
                self.raw(b"".join(CONVERSATION[:at]) + lie + b"".join(CONVERSATION[at + 1:]))

    def test_a_command_without_an_end_takes_no_memory(self):
        before = self.milter.resident_kb()
        piece = bytes(1 << 20)
        for command in (b"L", b"B", b"M", b"X"):
            with self.connect() as connection:
                try:
                    connection.sendall(b"".join(CONVERSATION[:5]))
                    connection.sendall(struct.pack(">I", 0x7FFFFFFF) + command)
                    for _ in range(64):
                        connection.sendall(piece)
                except (BrokenPipeError, ConnectionResetError):
                    pass  # the better for it
        if not os.environ.get("KAVI_SANITIZE"):
            self.assertLess(self.milter.resident_kb(), before + 20_000)

    def test_fields_and_recipients_without_end_are_cut_off_at_the_limits(self):
        before = self.milter.resident_kb()
        many = {"recipients": packet(b"R", b"<b@example.net>\0"),
                "header fields": packet(b"L", b"X-A\0 " + b"x" * 60_000 + b"\0"),
                "bytes": packet(b"B", bytes(65_000))}
        for what, command in many.items():
            first = 9 if what == "bytes" else 6
            answers = self.answers(b"".join(CONVERSATION[:first]) + 3000 * command +
                                   b"".join(CONVERSATION[first:]))
            self.assertEqual(answers[-1], b"y", what)
        self.assertEqual(len(self.milter.lines("message queue=QUEUE", "verdict=tempfail",
                                               "more than")), len(many))
        if not os.environ.get("KAVI_SANITIZE"):
            self.assertLess(self.milter.resident_kb(), before + 20_000)

    def test_odd_versions_and_flags(self):
        rest = b"".join(CONVERSATION[1:])
        for version in (0, 1, 2, 5, 6, 7, 255, 0xFFFFFFFF):
            for actions in (0, 1, ALL_ACTIONS, 0xFFFFFFFF):
                for steps in (0, LEADING_BLANKS, ALL_STEPS, 0xFFFFFFFF):
                    options = packet(b"O", struct.pack(">III", version, actions, steps))
                    answers = self.answers(options + rest)
                    # Changes need all of it; without, no message gets an answer that lets it pass.
                    if actions & 0x3F != 0x3F or not steps & LEADING_BLANKS:
                        self.assertNotIn(b"c", answers[1:], (version, actions, steps))
        for size in range(12):
            self.raw(packet(b"O", bytes(size)) + rest)
        self.raw(OPTIONS * 50 + rest)
        self.raw(rest)

    def test_no_conversation_at_all(self):
        for data in (b"", b"\0", b"GET / HTTP/1.0\r\n\r\n", os.urandom(5000),
                     struct.pack(">I", 0xFFFFFFFF) + b"O" * 1000, OPTIONS + packet(b"E")):
            self.assertNotIn(b"c", self.answers(data)[1:])

    def test_random_conversations(self):
        seed = int(os.environ.get("KAVI_GARBAGE_SEED", random.randrange(1 << 32)))
        print(f"seed of the conversations: {seed}", flush=True)
        chance = random.Random(seed)
        odd = [packet(b"A"), packet(b"K"), packet(b"Q"), packet(b"T"), packet(b"U", b"NOOP\0"),
               packet(b"L", b"no end"), packet(b"L", b"\0\0"), packet(b"L", b" :\0x\0"),
               packet(b"L", b"Subject\0 a\nX-Evil: b\0"), packet(b"M", b""), packet(b"M", b"\0"),
               packet(b"R", b"<" + b"x" * 3000), packet(b"R", b"\0\0\0"), packet(b"C", b"h\0" + b"9"),
               packet(b"C", b"h\0" + b"6\0\x19not an address\0"), packet(b"C", b"h\0L\0\0/x\0"),
               packet(b"D", b"E"), packet(b"D", b"Ei\0\n\x1b[31m\0"),
               packet(b"\xff", b"?"), packet(b"B", b""), packet(b"N", b"more")]
        for _ in range(ROUNDS):
            commands = list(CONVERSATION)
            for _ in range(chance.randrange(1, 6)):
                at = chance.randrange(len(commands) + 1)
                deed = chance.randrange(4)
                if deed == 0 and commands:
                    del commands[min(at, len(commands) - 1)]
                elif deed == 1:
                    commands.insert(at, chance.choice(CONVERSATION))
                elif deed == 2:
                    commands.insert(at, chance.choice(odd))
                elif commands:
                    spoilt = bytearray(commands[min(at, len(commands) - 1)])
                    # A macro without a value makes libmilter itself read beyond its table.
                    if spoilt[4:5] != b"D":
                        spoilt[chance.randrange(len(spoilt))] = chance.randrange(256)
                    commands[min(at, len(commands) - 1)] = bytes(spoilt)
            self.raw(b"".join(commands))
        self.assertNotIn("\x1b", self.milter.log())

    def test_slow_connections_leave_room_for_others(self):
        def open_files():
            return len(os.listdir(f"/proc/{self.milter.process.pid}/fd"))

        before = open_files()
        slow = [self.connect() for _ in range(60)]
        for command in CONVERSATION[:-1]:
            for connection in slow:
                connection.sendall(command)
            self.assert_serves()
        # Half a packet keeps one of libmilter's threads; they come back when the other side goes.
        for connection in slow:
            connection.sendall(CONVERSATION[-1][:4])
        for connection in slow:
            connection.close()
        wait_until(lambda: open_files() <= before + 1, "the connections to be closed")


if __name__ == "__main__":
    unittest.main()
