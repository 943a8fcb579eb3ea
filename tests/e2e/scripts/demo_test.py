#!/usr/bin/env python3
"""`make demo`: what it shows, that it says when it could not, and that it leaves nothing behind.

KAVI_BIN is the folder of the built programs. Postfix needs root to start.
"""
import os
import pathlib
import random
import re
import select
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[3]
sys.path.insert(0, str(ROOT / "tests" / "stack"))
from mail_servers import PATIENCE, wait_until  # noqa: E402

BIN = os.environ["KAVI_BIN"]
HEADINGS = ("A gateway between", "Its policy", "messages, sent with swaks", "What changed", "In quarantine",
            "Who was told", "Released from there")


def uses(process, folder):
    """Whether a process has to do with a folder: by its words, where it stands, or its files."""
    needle = os.fsencode(str(folder))
    try:
        if needle in (process / "cmdline").read_bytes():
            return True
        links = [process / "cwd", *(process / "fd").iterdir()]
    except OSError:
        return False
    for link in links:
        try:
            if needle in os.fsencode(os.readlink(link)):
                return True
        except OSError:
            pass
    return False


class DemoTest(unittest.TestCase):
    def setUp(self):
        if os.geteuid() != 0:
            self.fail("Postfix can be started by root only")
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="kavi-demo-test-"))
        self.addCleanup(shutil.rmtree, self.folder)
        self.folder.chmod(0o755)
        self.temporary = self.folder / "tmp"
        self.temporary.mkdir()

    def start(self, tree=ROOT, programs=BIN, path=None, hour=12):
        """The demo, in a session of its own as at a terminal, and at a time of the day."""
        environment = {**os.environ, "TMPDIR": str(self.temporary), "LC_ALL": "C.UTF-8",
                       "TZ": f"HERE{time.gmtime().tm_hour - hour:+d}"}
        if path is not None:
            environment["PATH"] = path
        return subprocess.Popen(
            [tree / "examples/demo.sh", programs], stdin=subprocess.DEVNULL, env=environment,
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, start_new_session=True)

    def end(self, process, status):
        """What it wrote, and that it left nothing."""
        out, err = process.communicate(timeout=2 * PATIENCE)
        out, err = out.decode(), err.decode()
        self.assertEqual(process.returncode, status, out + err)
        self.assert_nothing_is_left()
        return out, err

    def assert_nothing_is_left(self):
        left = [process.joinpath("cmdline").read_bytes()
                for process in pathlib.Path("/proc").glob("[0-9]*") if uses(process, self.temporary)]
        self.assertEqual(left, [])
        self.assertEqual(list(self.temporary.iterdir()), [])

    def copy(self):
        """The part of the tree that the demo needs, to be changed."""
        tree = self.folder / "tree"
        for name in ("examples", "tests/stack"):
            shutil.copytree(ROOT / name, tree / name)
        (tree / "tests/e2e/smtp").mkdir(parents=True)
        shutil.copy(ROOT / "tests/e2e/smtp/smtp_sink.py", tree / "tests/e2e/smtp")
        return tree

    def fake(self, **programs):
        """A PATH on which these programs come first."""
        folder = self.folder / "bin"
        folder.mkdir()
        for name, text in programs.items():
            (folder / name).write_text("#!/bin/sh\n" + text)
            (folder / name).chmod(0o755)
        return f"{folder}:{os.environ['PATH']}"

    def test_tells_its_story(self):
        out, err = self.end(self.start(), 0)
        self.assertEqual(err, "")
        for text in HEADINGS:
            self.assertRegex(out, f"\n== .*{text}.* ==\n")
        for text in (
                "applied, now at revision 1\n",
                "notification     tell-postmaster  yes",
                "plain.eml            arrived, byte for byte as it was sent\n",
                "signed.eml           arrived, byte for byte as it was sent (",
                "japanese.eml         arrived, changed by rules 30 and 40\n",
                "html-attachment.eml  arrived, changed by rules 10 and 40\n",
                "macros.eml           accepted, and put into quarantine (rule 15)\n",
                "    +Subject: [EXTERNAL] New price list\n", "    +X-Topic: quotation\n",
                '    -Content-Disposition: attachment; filename="price-list.pdf.exe"\n',
                "area        documents\n", "from        <billing@invoices.example>\n",
                'arrived: "[EXTERNAL] Overdue invoice", with invoice.docm\n',
                "\n    In quarantine: Overdue invoice\n", "because of invoice.docm.\n",
                'STRING: "documents with macros: invoice.docm from billing@invoices.example"\n',
                "forged.eml           refused: 550 5.7.1 Mail from example.com comes from our own",
                "broken.eml           accepted, and held back until 22:00 (rule 20)\n",
                "verdict=accept rules=30,40", "All seen as promised"):
            self.assertIn(text, out)
        out = out.replace(str(self.temporary), "/tmp")
        self.assertLessEqual(max(map(len, out.splitlines())), 100)
        self.assertLessEqual(out.count("\n"), 125)

    def test_late_in_the_evening_nothing_is_held_back(self):
        out, _ = self.end(self.start(hour=22), 0)
        self.assertIn("broken.eml           arrived at once: it is past 22:00 (rule 20)\n", out)

    def test_leaves_nothing_when_it_is_interrupted(self):
        # While servers start, and in chapters after a moment of its own each time.
        for number, text in enumerate(("", HEADINGS[0], HEADINGS[1], HEADINGS[2], HEADINGS[-1])):
            which = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)[number % 3]
            pause = random.uniform(0, 0.5)
            with self.subTest(text=text, signal=which.name, pause=pause):
                process = self.start()
                if text:
                    while text.encode() not in process.stdout.readline():
                        self.assertIsNone(process.poll())
                else:
                    wait_until(lambda: any(self.temporary.iterdir()), "the demo's folder")
                select.select([], [], [], pause)
                os.killpg(process.pid, which)  # as a terminal does
                out, err = process.communicate(timeout=2 * PATIENCE)
                self.assert_nothing_is_left()
                if b"as promised" not in out:  # it had not come to its end before
                    self.assertEqual(process.returncode, 128 + which, err)
                    self.assertIn(f"{which.name}: everything was stopped", err.decode())

    def test_a_second_interruption_does_not_cut_the_end_short(self):
        process = self.start()
        while HEADINGS[2].encode() not in process.stdout.readline():
            self.assertIsNone(process.poll())
        os.killpg(process.pid, signal.SIGINT)
        while process.poll() is None:
            try:
                process.wait(0.1)
            except subprocess.TimeoutExpired:
                os.killpg(process.pid, signal.SIGINT)
        self.end(process, 128 + signal.SIGINT)

    def test_a_reader_that_goes_away_leaves_nothing(self):
        process = self.start()
        process.stdout.readline()
        process.stdout.close()
        self.assertNotEqual(process.wait(2 * PATIENCE), 0)
        process.stderr.close()
        self.assert_nothing_is_left()

    def test_a_server_that_does_not_start_fails_it(self):
        programs = self.folder / "programs"
        programs.mkdir()
        (programs / "kavi").symlink_to(pathlib.Path(BIN) / "kavi")
        (programs / "kavi-milter").write_text("#!/bin/sh\necho out of order >&2\nexit 1\n")
        (programs / "kavi-milter").chmod(0o755)
        out, err = self.end(self.start(programs=programs), 1)
        self.assertNotIn("as promised", out)
        self.assertIn("demo: FAILED: kavi-milter does not start: out of order", err)

    def test_what_it_could_not_show_fails_it(self):
        tree = self.copy()
        policy = tree / "examples/policy.yaml"
        text = policy.read_text()
        for what, pattern, said in (
                ("quarantine", r"      - quarantine: documents\n", "is not in quarantine"),
                ("tag", r"      - tag_subject: .*\n", "did not change as it should"),
                ("limit", r"(?s)(- id: 40.*?when: ).*?\n", "plain.eml did not change as")):
            with self.subTest(missing=what):
                changed = re.sub(pattern, r"\1always\n" if "id: 40" in pattern else "", text)
                self.assertNotEqual(changed, text)
                policy.write_text(changed)
                out, err = self.end(self.start(tree=tree), 1)
                self.assertIn(said, err)
                self.assertNotIn("as promised", out)

    def test_a_user_who_is_not_root_sees_the_policy_and_what_to_do(self):
        path = self.fake(id="echo 1000\n", sudo="exit 1\n")
        out, _ = self.end(self.start(path=path), 0)
        self.assertIn("+Subject: [EXTERNAL] 見積書の件\n", out)
        self.assertIn("This was a part only", out)
        self.assertIn("Postfix can be started by root only: `sudo make demo`", out)
        self.assertNotIn("missing", out)

    def test_a_user_who_may_use_sudo_sees_all_of_it(self):
        path = self.fake(id="echo 1000\n", sudo='[ "$1" = -n ] && exit 0\nexec "$@"\n')
        process = self.start(path=path)
        self.assertEqual(process.stdout.readline(),
                         b"Postfix can be started by root only: going on with sudo.\n")
        while HEADINGS[0].encode() not in process.stdout.readline():
            self.assertIsNone(process.poll())
        os.killpg(process.pid, signal.SIGTERM)
        self.end(process, 128 + signal.SIGTERM)

    def test_programs_that_are_missing_are_named(self):
        tools = self.folder / "tools"
        tools.mkdir()
        for name in ("sh", "realpath", "dirname", "id", "mktemp", "grep", "find", "sort", "sed",
                     "diff", "rm", "python3"):
            (tools / name).symlink_to(shutil.which(name))
        tree = self.copy()
        script = tree / "examples/demo.sh"
        script.write_text(script.read_text().replace(":/usr/sbin:/sbin", ""))
        out, _ = self.end(self.start(tree=tree, path=str(tools)), 0)
        self.assertIn("these programs are missing: postfix swaks snmptrapd\n", out)
        self.assertNotIn("root only", out)

    def test_a_rehearsal_that_fails_is_a_failure(self):
        tree = self.copy()
        (tree / "examples/policy.yaml").write_text("rules: [{id: 1, when: nonsense}]\n")
        process = self.start(tree=tree, path=self.fake(id="echo 1000\n", sudo="exit 1\n"))
        out, err = self.end(process, 2)
        self.assertNotIn("This was a part only", out)
        self.assertIn("nonsense", out + err)


if __name__ == "__main__":
    unittest.main()
