"""The campaign over mails made here, and that its checks find what they are there for."""
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

import campaign
import examine
import mails
import reader
from actions import ASCII_STAMP, all_actions

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "e2e" / "command"))
import torture

KAVI = os.environ["KAVI"]
# The sizes of hostile mail; the full ones take minutes.
FULL = os.environ.get("KAVI_FULL") == "1"
MOST_BYTES, MANY_PARTS, DEEP = (60_000_000, 100_000, 20_000) if FULL else (20_000, 2000, 500)
EXAMPLES = pathlib.Path(__file__).resolve().parents[2] / "examples" / "mail"
PLAIN = b"From: a@example.com\r\nSubject: hello\r\nContent-Type: text/plain\r\n\r\none\r\ntwo\r\n"
FILES = (b"Subject: files\r\nMIME-Version: 1.0\r\nContent-Type: multipart/mixed; boundary=b\r\n\r\n"
         b"--b\r\nContent-Type: text/plain\r\n\r\ntext\r\n--b\r\nContent-Type: image/png; name=a.png\r\n"
         b"\r\nx\r\n--b\r\nContent-Type: image/gif; name=b.gif\r\n\r\ny\r\n--b--\r\n")
STAMP = "\r\n".join(ASCII_STAMP).encode() + b"\r\n"


def action(name):
    return next(one for one in all_actions() if one.name == name)


def judged(name, before, after, verdict="changed"):
    return examine.examine(action(name), before, after, {"verdict": verdict})


class CampaignTest(unittest.TestCase):

    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="kavi-campaign-test-"))
        self.addCleanup(shutil.rmtree, self.folder)

    def results(self, name):
        return (self.folder / "results" / name).read_text(encoding="utf-8")

    def test_every_action_does_what_it_should_to_mails_of_all_forms(self):
        mail = self.folder / "mail"
        shutil.copytree(EXAMPLES, mail / "nested" / "deeper")
        for name, content in mails.mails():
            (mail / f"{name}.eml").write_bytes(content)
        (mail / "box.mbox").write_bytes(
            (b"From a@example.com Mon Mar 10 09:30:00 2025\n" + PLAIN + b"\n") * 3)
        done, unreadable = campaign.run(KAVI, mail, self.folder / "results")
        self.assertEqual((self.results("failures.txt"), unreadable), ("", 0))
        self.assertGreater(done.messages, 80)
        for one in all_actions():
            counts = done.counts[one.name]
            self.assertEqual(sum(counts.values()), done.messages, one.name)
            self.assertGreater(counts[examine.CHANGED], 15, one.name)
        stays = [line.split("\t") for line in self.results("not-changed.txt").splitlines()]
        self.assertTrue(all(len(line) == 4 and line[3] for line in stays), stays)
        self.assertIn(["signed-pgp.eml", "stamp top", "unchanged",
                       "signed (multipart/signed, application/pgp-signature)"], stays)
        self.assertIn(["tnef.eml", "stamp end", "unchanged", "TNEF part"], stays)

    def test_hostile_mail_comes_through_whole_or_as_it_was(self):
        mail = self.folder / "mail"
        mail.mkdir()
        for name, content in torture.messages():
            if len(content) < MOST_BYTES:
                (mail / f"{name}.eml").write_bytes(content)
        parts = b"--b\r\n\r\nx\r\n" * MANY_PARTS
        (mail / "parts.eml").write_bytes(b"Content-Type: multipart/mixed; boundary=b\r\n\r\n" + parts)
        (mail / "nested.eml").write_bytes(b"Content-Type: message/rfc822\r\n\r\n" * DEEP + b"A: b\r\n\r\nx")
        for one in all_actions():
            with self.subTest(action=one.name):
                self._run_hostile(one, sorted(mail.iterdir()))

    def _run_hostile(self, one, inputs):
        out = self.folder / one.name
        (self.folder / "policy.yaml").write_text(one.policy, encoding="utf-8")
        (self.folder / "settings.ini").write_text(one.settings, encoding="utf-8")
        done = subprocess.run([KAVI, "run", "--json", "--policy", self.folder / "policy.yaml",
                               "--config", self.folder / "settings.ini", "--out", out, *inputs],
                              capture_output=True, timeout=600, check=False)
        self.assertIn(done.returncode, (0, 1), done.stderr)
        reports = [json.loads(line) for line in done.stdout.splitlines()]
        self.assertEqual(len(reports), len(inputs))
        for path, report in zip(inputs, reports):
            before = path.read_bytes()
            after = pathlib.Path(report["output"]).read_bytes()
            self.assertEqual(before == after, report["verdict"] in ("unchanged", "failed"), path.name)
            if not one.removes:
                self.assertGreaterEqual(len(after), len(before), path.name)

    def test_what_cannot_be_read_is_reported(self):
        mail = self.folder / "mail"
        mail.mkdir()
        (mail / "good.eml").write_bytes(PLAIN)
        os.mkfifo(mail / "pipe.eml")
        (mail / "gone.eml").symlink_to("nowhere")
        script = pathlib.Path(campaign.__file__)
        done = subprocess.run([sys.executable, "-B", script, KAVI, mail, "--out",
                               self.folder / "results", "--action", "X-header"],
                              capture_output=True, timeout=120, check=False)
        self.assertEqual(done.returncode, 1, done.stderr)
        self.assertIn("1 messages, ", self.results("table.txt"))
        self.assertIn("2 not readable", self.results("table.txt"))
        self.assertIn("pipe.eml\treading\tnot a regular file", self.results("failures.txt"))
        self.assertIn("gone.eml\treading\tNo such file or directory", self.results("failures.txt"))

    def test_a_program_that_ends_early_fails_the_check_of_each_message(self):
        (self.folder / "mail").mkdir()
        (self.folder / "mail" / "good.eml").write_bytes(PLAIN)
        done, _ = campaign.run("/bin/false", self.folder / "mail", self.folder / "results")
        self.assertEqual(done.failed(), len(all_actions()))


class CheckTest(unittest.TestCase):
    """Each check lets the right result pass and refuses wrong ones."""

    def good(self, name, before, after):
        finding = judged(name, before, after)
        self.assertEqual((finding.verdict, finding.reason), (examine.CHANGED, ""))

    def wrong(self, name, before, after, reason, verdict="changed"):
        finding = judged(name, before, after, verdict)
        self.assertEqual(finding.verdict, examine.WRONG)
        self.assertIn(reason, finding.reason)

    def test_stamps(self):
        good = PLAIN.replace(b"one\r\n", STAMP + b"one\r\n")
        self.good("stamp top", PLAIN, good)
        self.wrong("stamp top", PLAIN, good.replace(b"two\r\n", b""), "the text around the stamp")
        self.wrong("stamp top", PLAIN, good + STAMP, "in it 2 times")
        self.wrong("stamp top", PLAIN, PLAIN.replace(b"one", b"One"), "in it 0 times")
        self.wrong("stamp top", PLAIN, good.replace(b"hello", b"hullo"), "fields changed")
        self.wrong("stamp top", PLAIN, good.replace(b"one\r\n", b"x" * 999 + b"one\r\n"),
                   "a line of 1002 bytes")
        self.wrong("stamp top", PLAIN, PLAIN, "unchanged without a reason", "unchanged")
        self.wrong("stamp top", PLAIN, good, "the bytes say otherwise", "unchanged")
        self.wrong("stamp top", PLAIN, None, "nothing came out")

    def test_stamps_in_one_part_only(self):
        good = FILES.replace(b"text\r\n--b", STAMP + b"text\r\n--b")
        self.good("stamp top", FILES, good)
        self.wrong("stamp top", FILES, good.replace(b"\r\ny\r\n", b"\r\nz\r\n"),
                   "was changed though the stamp does not belong there")
        self.wrong("stamp top", FILES, good.replace(b"--b\r\nContent-Type: image/gif; name=b.gif\r\n"
                                                    b"\r\ny\r\n", b""), "had 3 parts, has 2")
        self.wrong("stamp top", FILES, good.replace(b"--b--\r\n", b""), "what stands before its part")

    def test_tags(self):
        good = PLAIN.replace(b": hello", b": [CAMPAIGN] hello")
        self.good("tag ASCII", PLAIN, good)
        self.wrong("tag ASCII", PLAIN, good.replace(b"hello", b"hell"), "the rest of the subject")
        self.wrong("tag ASCII", PLAIN, PLAIN.replace(b"hello", b"hello [CAMPAIGN] "),
                   "the subject begins with")
        self.wrong("tag ASCII", PLAIN, good + b"x", "more than the subject changed")
        self.wrong("tag ASCII", PLAIN, good.replace(b": [CAMPAIGN]", b": =?utf-8?Q?[CAMPAIGN]_?=" +
                                                    b" =?utf-8?Q?" + b"_" * 70 + b"?="), "a line of")

    def test_fields(self):
        good = PLAIN.replace(b"\r\n\r\n", b"\r\nX-Campaign: was here\r\n\r\n", 1)
        self.good("X-header", PLAIN, good)
        self.wrong("X-header", PLAIN, good.replace(b"was", b"is"), "the field is")
        self.wrong("X-header", PLAIN, good.replace(b"one", b"won"), "more than that field")

    def test_removals(self):
        good = FILES[:FILES.index(b"--b\r\nContent-Type: image/png")] + b"--b--\r\n"
        self.good("delete all attachments", FILES, good)
        self.wrong("delete all attachments", FILES, good.replace(b"text\r\n--b", b"txt\r\n--b"),
                   "its content changed")
        self.wrong("delete all attachments", FILES, FILES.replace(b"y\r\n", b"z\r\n"),
                   "is still there")

    def test_the_reader_knows_where_parts_stand(self):
        root = reader.read(FILES)
        self.assertEqual([part.content for part in root.children],
                         [b"text\r\n", b"x\r\n", b"y\r\n"])
        self.assertEqual(root.gaps(), [b"--b\r\n", b"--b\r\n", b"--b\r\n", b"--b--\r\n"])
        self.assertEqual(root.children[1].header, b"Content-Type: image/png; name=a.png\r\n\r\n")
        self.assertEqual(root.children[2].path(), "1.3")


if __name__ == "__main__":
    unittest.main(verbosity=2)
