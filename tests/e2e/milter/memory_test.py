#!/usr/bin/env python3
"""What connections take that hold a message and wait: the daemon's memory is bounded by their number."""
import contextlib
import os
import unittest

from garbage_test import CONVERSATION, WAITING_OPTIONS, packet
from mail_stack import MilterTest, wait_until

CONNECTIONS = 60
PIECE = packet(b"B", (b"x" * 98 + b"\r\n") * 655)
PIECES = 14  # together below the megabyte that is this milter's limit
HELD_KB = 14 * 655 * 100 // 1024
END = b"".join(CONVERSATION[10:])


class MemoryTest(MilterTest):
    def start(self, settings):
        """The daemon anew, with the settings behind the others."""
        self.milter.kill()
        config = self.milter.config.read_text()
        self.milter.config.write_text(config.replace("user = root\n", f"user = root\n{settings}\n"))
        self.addCleanup(self.milter.config.write_text, config)
        self.milter.start()
        self.milter.forget_log()

    def holding(self, stack):
        """As many connections as there are to be, each with a message that lacks its end."""
        connections = [stack.enter_context(self.connect()) for _ in range(CONNECTIONS)]
        for connection in connections:
            connection.sendall(b"".join([WAITING_OPTIONS, *CONVERSATION[1:9]]))
        for connection in connections:
            for _ in range(PIECES):
                connection.sendall(PIECE)
                self.assertNotEqual(connection.recv(65536), b"")  # so it was taken
        return connections

    def kb_for_each(self):
        """What a connection takes while it waits; every message ends well afterwards."""
        before = self.milter.resident_kb()
        with contextlib.ExitStack() as stack:
            connections = self.holding(stack)
            taken = (self.milter.resident_kb() - before) / CONNECTIONS
            for connection in connections:
                connection.sendall(END)
            wait_until(lambda: len(self.milter.lines("verdict=accept")) == CONNECTIONS,
                       "every message to be answered")
        print(f"{CONNECTIONS} messages of {HELD_KB} kB: {taken:.0f} kB each", flush=True)
        return taken

    @unittest.skipIf(os.environ.get("KAVI_SANITIZE"), "sanitizers take memory of their own")
    def test_a_message_in_memory_takes_its_size(self):
        self.start("memory_kb = 1024")
        taken = self.kb_for_each()
        self.assertGreater(taken, 0.7 * HELD_KB, "where is it?")
        self.assertLess(taken, HELD_KB + 100)

    @unittest.skipIf(os.environ.get("KAVI_SANITIZE"), "sanitizers take memory of their own")
    def test_a_message_in_a_file_takes_none_beyond_the_setting(self):
        self.start("memory_kb = 64")
        self.assertLess(self.kb_for_each(), 64 + 100)


if __name__ == "__main__":
    unittest.main()
