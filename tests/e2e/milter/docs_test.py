#!/usr/bin/env python3
"""The examples of docs/milter.md work as they are printed."""
import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[3]
BLOCK = re.compile(r"^```(\w*)\n(.*?)^```$", re.MULTILINE | re.DOTALL)


class DocsTest(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="kavi-docs-"))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        (self.folder / "etc").mkdir()
        blocks = BLOCK.findall((ROOT / "docs" / "milter.md").read_text(encoding="utf-8"))
        self.settings = [text for kind, text in blocks if kind == "ini"]
        self.listeners = [text for _, text in blocks if text.startswith("127.0.0.1:10025 inet")]
        self.commands = [line for kind, text in blocks if kind == "sh"
                         for line in text.splitlines()]
        shutil.copy(ROOT / "examples" / "policy.yaml", self.folder / "etc" / "policy.yaml")
        self.config = self.folder / "etc" / "kavi.ini"

    def here(self, text):
        """The same with the paths of the machine in the test's folder, and without another user."""
        text = text.replace("/etc/kavi/", f"{self.folder}/etc/")
        text = text.replace("/var/", f"{self.folder}/var/")
        return text.replace("user = kavi\n", "user = root\n" if os.geteuid() == 0 else "")

    def command(self, begin):
        """The one command that begins like this, for the programs that were built."""
        [found] = [line for line in self.commands if line.startswith(begin)]
        words = self.here(found).split()
        return [os.environ["KAVI"] if words[0] == "kavi" else words[0], *words[1:]]

    def run_well(self, command):
        done = subprocess.run(command, capture_output=True, text=True, timeout=60, check=False)
        self.assertEqual((done.returncode, done.stderr), (0, ""))

    def check_settings(self, text):
        self.config.write_text(text, encoding="utf-8")
        self.assertIn("kavi-milter --check", self.commands)
        self.run_well([os.environ["KAVI_MILTER"], "--check", "--config", self.config])

    def test_the_settings_hold(self):
        self.assertEqual(len(self.settings), 2)
        self.check_settings(self.here(self.settings[0]))

    def test_the_settings_of_a_store_hold(self):
        first = re.sub(r"^policy = .*\n", "", self.here(self.settings[0]), flags=re.MULTILINE)
        self.config.write_text(first + self.here(self.settings[1]), encoding="utf-8")
        self.run_well(self.command("kavi store init"))
        self.run_well(self.command("kavi policy apply"))
        self.assertTrue((self.folder / "var/lib/kavi/policy.sqlite").exists())
        self.check_settings(self.config.read_text(encoding="utf-8"))

    def test_postfix_takes_its_settings(self):
        postfix = self.folder / "postfix"
        postfix.mkdir()
        (postfix / "main.cf").write_text("compatibility_level = 3.7\n")
        (postfix / "master.cf").write_text("smtp inet n - y - - smtpd\n")
        commands = [line for line in self.commands if line.startswith("postconf ")]
        self.assertEqual(len(commands), 7)
        for line in commands:
            done = subprocess.run(line.replace("postconf ", f"postconf -c {postfix} ", 1), shell=True,
                                  capture_output=True, text=True, timeout=60, check=False)
            self.assertEqual((done.returncode, done.stderr), (0, ""), line)

        def asked(*arguments):
            done = subprocess.run(["postconf", "-c", postfix, *arguments], capture_output=True,
                                  text=True, timeout=60, check=False)
            self.assertEqual((done.returncode, done.stderr), (0, ""))
            return done.stdout.splitlines()

        self.assertEqual(asked("-h", "smtpd_milters", "milter_default_action"),
                         ["unix:/kavi/milter", "tempfail"])
        self.assertEqual(
            sorted(asked("-P")),
            ["127.0.0.1:10025/inet/local_header_rewrite_clients =",
             "127.0.0.1:10025/inet/milter_macro_daemon_name = kavi-scan",
             "127.0.0.1:10026/inet/local_header_rewrite_clients =",
             "127.0.0.1:10026/inet/smtpd_milters ="])
        self.assertEqual([line.split()[0] for line in asked("-M")],
                         ["smtp", "127.0.0.1:10025", "127.0.0.1:10026"])

    def test_postfix_takes_the_listeners_in_full(self):
        [listener] = self.listeners
        (self.folder / "main.cf").write_text("compatibility_level = 3.7\n")
        (self.folder / "master.cf").write_text(listener)
        for what in ("-M", "-P", "-n"):
            done = subprocess.run(["postconf", "-c", self.folder, what], capture_output=True,
                                  text=True, timeout=60, check=False)
            self.assertEqual((done.returncode, done.stderr), (0, ""))
            self.assertNotIn("#", done.stdout)

    def test_the_folders_of_the_settings_are_made(self):
        made = {word for line in self.commands if line.startswith("install ")
                for word in line.split() if word.startswith("/")}
        for folder in ("/var/lib/kavi", "/var/spool/kavi", "/var/spool/postfix/kavi"):
            self.assertIn(folder, made)
            self.assertRegex(self.settings[0], rf"(?m)= (unix:)?{folder}(/\w+)?$")


if __name__ == "__main__":
    unittest.main()
