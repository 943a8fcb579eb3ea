"""What a policy does not ask for does not happen, byte for byte."""
import json
import os
import pathlib
import shutil
import subprocess
import unittest

import torture
from kavi_process import EXAMPLES, KaviTest, kavi

FIELD = b"X-Kavi-Identity: yes"


def inserted_piece(before, after):
    """Every text whose insertion into `before` gives `after`; none when more than that differs."""
    length = len(after) - len(before)
    if length <= 0:
        return []
    # Byte strings compare fast; a search by halves finds the first difference.
    low, high = 0, len(before)
    while low < high:
        middle = (low + high + 1) // 2
        if before[:middle] == after[:middle]:
            low = middle
        else:
            high = middle - 1
    if before[low:] != after[low + length:]:
        return []
    return [after[i:i + length] for i in range(max(0, low - length), low + 1)
            if before[i:low] == after[i + length:low + length]]


class IdentityTest(KaviTest):

    def check_unmatched(self, folder):
        out = self.folder / "out"
        reports = self.run_json("--policy", self.policy(), "--out", out, folder)
        self.assertTrue(reports)
        for report in reports:
            self.assertEqual(report["verdict"], "unchanged", report["input"])
            same = pathlib.Path(report["input"]).read_bytes() == pathlib.Path(
                report["output"]).read_bytes()
            self.assertTrue(same, report["input"])
        shutil.rmtree(out)

    def check_header(self, folder):
        out = self.folder / "out"
        policy = self.always('{x_header: "%s"}' % FIELD.decode())
        done = kavi("run", "--policy", policy, "--json", "--out", out, folder)
        self.assertIn(done.returncode, (0, 1), done.stderr)
        pieces = {end.join(p) for end in (b"\r\n", b"\n") for p in ((FIELD, b""), (b"", FIELD))}
        for line in done.stdout.splitlines():
            report = json.loads(line)
            before = pathlib.Path(report["input"]).read_bytes()
            after = pathlib.Path(report["output"]).read_bytes()
            if report["verdict"] == "failed":
                # A message without a root entity: it stands as it came.
                self.assertTrue(before == after, report["input"])
                self.assertTrue(any("no header" in d["text"] for d in report["defects"]),
                                report["input"])
                continue
            self.assertEqual(report["verdict"], "changed", report["input"])
            found = pieces.intersection(inserted_piece(before, after))
            self.assertTrue(found, f"{report['input']}: more than one field differs")
        shutil.rmtree(out)

    def check(self, folder):
        self.check_unmatched(folder)
        self.check_header(folder)

    def test_examples(self):
        self.check(EXAMPLES / "mail")

    def test_torture(self):
        for name, message in torture.messages():
            with self.subTest(name):
                path = self.put(f"torture/{name}.eml", message)
                self.check(path)
                path.unlink()

    def test_mail_folder(self):
        folder = os.environ.get("KAVI_MAIL_DIR")
        if not folder:
            self.skipTest("KAVI_MAIL_DIR names no folder of real mail")
        self.check(pathlib.Path(folder))

    def test_a_signature_stays_valid(self):
        if shutil.which("openssl") is None:
            self.skipTest("no openssl program to verify with")
        out = self.folder / "out"
        self.run_json("--policy", self.always('{x_header: "X-A: b"}'), "--out", out,
                      EXAMPLES / "mail/signed.eml")
        verified = subprocess.run(
            ["openssl", "cms", "-verify", "-noverify", "-in", out / "signed.eml"],
            capture_output=True, check=False)
        self.assertEqual(verified.returncode, 0, verified.stderr)


if __name__ == "__main__":
    unittest.main(verbosity=2)
