#!/usr/bin/env python3
"""A second kavi-milter leaves the first one alone."""
import pathlib
import shutil
import socket
import subprocess
import tempfile
import unittest

from mail_stack import Milter


class InstanceTest(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="kavi-instance-"))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.folder.chmod(0o755)
        self.first = Milter(self.folder, "rules: []\n")
        self.addCleanup(self.first.stop)

    def start_second(self, **changes):
        """What a second one says, which has the same settings but for some words of them."""
        text = self.first.config.read_text()
        for before, after in changes.values():
            self.assertIn(before, text)
            text = text.replace(before, after)
        config = self.folder / "second.ini"
        config.write_text(text)
        done = subprocess.run([self.first.program, "--config", config], capture_output=True,
                              text=True, timeout=60, check=False)
        self.assertEqual(done.returncode, 1, done.stderr)
        return done.stderr

    def check_served(self):
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as client:
            client.connect(str(self.first.socket))

    def test_with_the_same_state_folder(self):
        incoming = self.first.state / "incoming" / "body.abcdef"
        incoming.write_text("a large message")
        error = self.start_second()
        self.assertIn(f"{self.first.state}: another kavi-milter, process "
                      f"{self.first.process.pid}, serves with this state folder already", error)
        self.assertEqual(incoming.read_text(), "a large message")
        self.check_served()

    def test_with_the_same_socket(self):
        error = self.start_second(state=(f"= {self.first.state}", f"= {self.folder}/other"))
        self.assertIn(f"{self.first.socket}: somebody serves there already", error)
        self.check_served()

    def test_what_a_killed_one_left_is_taken_over(self):
        self.first.kill()
        self.assertTrue(self.first.socket.exists())
        self.first.start()
        self.check_served()


if __name__ == "__main__":
    unittest.main()
