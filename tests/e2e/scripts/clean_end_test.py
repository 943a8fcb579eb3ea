#!/usr/bin/env python3
"""run_cleanly: whatever a body starts and however it ends, nothing of it stays."""
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

STACK = pathlib.Path(__file__).resolve().parents[2] / "stack"
sys.path.insert(0, str(STACK))
from mail_servers import PATIENCE, wait_until  # noqa: E402

# A server that became a daemon, hears no SIGTERM, and says who it is; then the body goes on.
PROGRAM = """
import pathlib, subprocess, sys, time
sys.path.insert(0, {stack!r})
from clean_end import run_cleanly
from mail_servers import wait_until
def body(folder):
    (folder / "deep" / "er").mkdir(parents=True)
    pid = pathlib.Path({pid!r})
    subprocess.run(["sh", "-c", "(trap '' TERM HUP; setsid sh -c 'echo $$ >" + str(pid) +
                    ".new; mv " + str(pid) + ".new " + str(pid) + "; while :; do sleep 1; done') &"],
                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    wait_until(pid.exists, "the daemon")
    print(folder, flush=True)
    {deed}
    return "done"
print(run_cleanly("kavi-clean-", body))
"""


class CleanEndTest(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="kavi-clean-test-"))
        self.addCleanup(shutil.rmtree, self.folder)
        self.pid = self.folder / "pid"

    def start(self, deed):
        program = PROGRAM.format(stack=str(STACK), pid=str(self.pid), deed=deed)
        self.process = subprocess.Popen(
            [sys.executable, "-B", "-c", program], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
            text=True, env={**os.environ, "TMPDIR": str(self.folder)})
        first = pathlib.Path(self.process.stdout.readline().strip())
        self.daemon = int(self.pid.read_text())
        return first

    def end(self, folder):
        """What it wrote, once it is clear that nothing is left."""
        out, err = self.process.communicate(timeout=PATIENCE)
        with self.assertRaises(ProcessLookupError):
            os.kill(self.daemon, 0)
        self.assertEqual(list(self.folder.glob("kavi-clean-*")), [])
        self.assertEqual(folder.parent, self.folder)
        return out, err

    def test_a_body_that_returns(self):
        folder = self.start("import clean_end; clean_end.PATIENCE = 0.1")
        out, err = self.end(folder)
        self.assertEqual((self.process.returncode, out, err), (0, "done\n", ""))

    def test_a_body_that_raises(self):
        folder = self.start("raise KeyError('a fault')")
        out, err = self.end(folder)
        self.assertEqual((self.process.returncode, out), (1, ""))
        self.assertIn("KeyError: 'a fault'", err)

    def test_a_body_that_is_interrupted_again_and_again(self):
        folder = self.start("time.sleep(600)")
        self.process.send_signal(signal.SIGTERM)

        def ended():
            if self.process.poll() is None:
                self.process.send_signal(signal.SIGINT)
            return self.process.returncode is not None

        wait_until(ended, "its end")
        _, err = self.end(folder)
        self.assertRegex(err, "Interrupted: SIG(TERM|INT)\n$")  # the first that was seen


if __name__ == "__main__":
    unittest.main()
