"""What the tests behind a real Postfix share: a client that sends byte for byte, and their class.

The servers are in tests/stack. Everything lives in one temporary folder and ends with the test.
"""
import contextlib
import pathlib
import shutil
import socket
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "stack"))
from mail_servers import (  # noqa: E402, F401  (the tests take them from here)
    PATIENCE, Milter, Postfix, Sink, free_port, wait_until, without_trace)


class SmtpReply(Exception):
    """A reply that is no success."""

    def __init__(self, text):
        super().__init__(text)
        self.text = text


class SmtpClient:
    """Sends messages byte for byte."""

    def __init__(self, port, hello="client.example.org", patience=PATIENCE):
        self.socket = socket.create_connection(("127.0.0.1", port), timeout=patience)
        self.file = self.socket.makefile("rb")
        self.reply()
        self.command(f"EHLO {hello}")

    def close(self):
        with contextlib.suppress(SmtpReply, OSError):
            self.command("QUIT")
        self.file.close()
        self.socket.close()

    def reply(self):
        lines = []
        while True:
            line = self.file.readline().decode("latin-1").rstrip("\r\n")
            lines.append(line)
            if line[3:4] != "-":
                break
        if not lines[-1][:1] in ("2", "3"):
            raise SmtpReply("\n".join(lines))
        return "\n".join(lines)

    def command(self, text):
        self.socket.sendall(text.encode("latin-1") + b"\r\n")
        return self.reply()

    def send(self, message, sender="from@example.org", recipients=("to@example.net",)):
        """\\param message  with CR LF line breaks. \\return the last reply."""
        self.command(f"MAIL FROM:<{sender}>")
        for recipient in recipients:
            self.command(f"RCPT TO:<{recipient}>")
        self.command("DATA")
        lines = message.split(b"\r\n")
        stuffed = b"\r\n".join(b"." + line if line.startswith(b".") else line for line in lines)
        self.socket.sendall(stuffed + b".\r\n")
        return self.reply()


class MilterTest(unittest.TestCase):
    """A milter with the class's policy and no mail system."""

    policy = "rules: []\n"

    @classmethod
    def setUpClass(cls):
        cls.base = pathlib.Path(tempfile.mkdtemp(prefix="kavi-milter-"))
        cls.addClassCleanup(shutil.rmtree, cls.base, ignore_errors=True)
        cls.milter = Milter(cls.base, cls.policy, settings="max_message_mb = 1")
        cls.addClassCleanup(cls.milter.stop)

    def setUp(self):
        self.milter.forget_log()

    def connect(self):
        connection = socket.socket(socket.AF_UNIX)
        connection.settimeout(PATIENCE)
        connection.connect(str(self.milter.socket))
        return connection


class MailTest(unittest.TestCase):
    """Postfix and the sink once for a class; each test says which milter it needs."""

    maxDiff = None
    postfix_settings = None

    @classmethod
    def setUpClass(cls):
        cls.base = pathlib.Path(tempfile.mkdtemp(prefix="kavi-mail-"))
        cls.addClassCleanup(shutil.rmtree, cls.base, ignore_errors=True)
        cls.base.chmod(0o755)  # Postfix has to find its way through
        cls.sink = Sink(cls.base / "sink")
        cls.addClassCleanup(cls.sink.stop)
        cls.postfix = Postfix(cls.base, cls.base / "socket" / "milter", cls.sink.port,
                              cls.postfix_settings)
        cls.addClassCleanup(cls.postfix.stop)

    def setUp(self):
        self.seen = len(self.sink.messages())

    def milter(self, policy, settings="", delivery="", sections="", level=2):
        """A milter with these settings, and a log of this test's own. One that runs with the same
        settings gets the policy only, and one with others is killed: to stop one takes libmilter
        up to five seconds."""
        cls = type(self)
        running = cls.__dict__.get("running")
        if running is not None and running.settings == (settings, delivery, sections, level):
            running.forget_log()
            self.assertIn("is in force", running.reload(policy))
            return running
        if running is not None:
            running.kill()
        cls.running = Milter(self.base, policy, settings, delivery, sections=sections,
                             level=level)
        cls.running.forget_log()
        cls.addClassCleanup(cls.running.stop)
        return cls.running

    def send(self, message, port=None, **envelope):
        client = SmtpClient(port or self.postfix.port)
        try:
            return client.send(message, **envelope)
        finally:
            client.close()

    def refused(self, message, **envelope):
        """The reply to a message that must be refused."""
        with self.assertRaises(SmtpReply) as reply:
            self.send(message, **envelope)
        return reply.exception.text

    def arrived(self, count=1):
        """The next messages at the sink, as (sender, recipients, bytes)."""
        found = wait_until(
            lambda: self.sink.messages() if len(self.sink.messages()) >= self.seen + count else None,
            f"{count} messages at the sink; the mail system's log:\n" + self.postfix.log())
        new = found[self.seen:]
        self.assertEqual(len(new), count)
        self.seen += count
        return new

    def assert_nothing_arrives(self):
        """Postfix has nothing left, and the sink got nothing."""
        wait_until(lambda: not self.postfix.queued(), "the queue to become empty")
        self.assertEqual(len(self.sink.messages()), self.seen)
