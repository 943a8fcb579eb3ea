#!/usr/bin/env python3
"""The systemd unit: systemd finds nothing wrong with it, and its sandbox stays tight."""
import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

UNIT = pathlib.Path(os.environ["KAVI_UNIT"])


class UnitTest(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="kavi-unit-"))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        # The program where it was built, and a user that every machine has.
        text = re.sub(r"(ExecStart(?:Pre)?=)\S+", rf"\g<1>{os.environ['KAVI_MILTER']}",
                      UNIT.read_text())
        self.unit = self.folder / UNIT.name
        self.unit.write_text(text.replace("=kavi\n", "=daemon\n").replace(
            "StateDirectory=daemon", "StateDirectory=kavi"))

    def analyze(self, *arguments):
        return subprocess.run(["systemd-analyze", *arguments], capture_output=True, text=True,
                              timeout=60, check=False)

    def test_systemd_finds_nothing_wrong(self):
        done = self.analyze("verify", "--man=no", "--recursive-errors=no", str(self.unit))
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "", ""))

    def test_a_fault_would_be_found(self):
        self.unit.write_text(self.unit.read_text().replace("Type=notify", "Tpye=notify"))
        done = self.analyze("verify", "--man=no", "--recursive-errors=no", str(self.unit))
        self.assertIn("Tpye", done.stderr)

    def test_a_stop_may_take_as_long_as_the_daemon_takes(self):
        [stop] = re.findall(r"^TimeoutStopSec=(\d+)$", self.unit.read_text(), re.MULTILINE)
        self.assertGreaterEqual(int(stop), 5 + 240 + 10, "the signal, the deadline, breaking off")

    def test_the_sandbox_is_tight(self):
        done = self.analyze("security", "--offline=yes", "--threshold=20", str(self.unit))
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)


if __name__ == "__main__":
    unittest.main()
