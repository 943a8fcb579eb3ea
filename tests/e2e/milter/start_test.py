#!/usr/bin/env python3
"""What kavi-milter says when it cannot start: the fault first, and nothing in front of it."""
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest


class StartTest(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="kavi-start-"))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.policy = self.folder / "policy.yaml"
        self.policy.write_text("rules: []\n")
        (self.folder / "file").write_text("")

    def start(self, settings, milter="", *arguments):
        """The exit status, and the lines on standard error."""
        config = self.folder / "kavi.ini"
        user = "" if os.geteuid() != 0 else "user = root\n"
        config.write_text(f"{settings}\n[milter]\npolicy = {self.policy}\n{user}{milter}\n")
        done = subprocess.run([os.environ["KAVI_MILTER"], "--config", config, *arguments],
                              capture_output=True, text=True, timeout=60, check=False)
        self.assertEqual(done.stdout, "")
        return done.returncode, done.stderr.splitlines()

    def test_the_fault_is_the_first_line(self):
        state = f"[delivery]\nstate_folder = {self.folder}/state\n"
        cases = (
            (f"[delivery]\nstate_folder = {self.folder}/file/state\n", "", 1, "state_folder"),
            (state, f"socket = unix:{self.folder}/file/socket", 1, "socket"),
            (state, "metrics_port = 1\nbeyond_limits = drop", 2, "beyond_limits"),
            ("[log]\nLevel = loud\n", "", 2, "[log] Level: 'loud'"),
            (state + "[MessageModule]\nTagDirectly = yes\n", "", 2, "TagDirectly: 'yes'"),
        )
        for settings, milter, status, fault in cases:
            with self.subTest(fault):
                answered, lines = self.start(settings, milter)
                self.assertEqual(answered, status, lines)
                self.assertTrue(lines[0].startswith("kavi-milter: "), lines)
                self.assertIn(fault, lines[0])
                self.assertEqual(len(lines), 1, lines)

    def test_so_it_is_with_a_policy(self):
        self.policy.write_text("rules: [{id: 1, when: always, actions: [dleete]}]\n")
        for arguments in ((), ("--check",)):
            status, lines = self.start("", "", *arguments)
            self.assertEqual((status, len(lines)), (2, 1), lines)
            self.assertIn("dleete", lines[0])

    def test_the_faults_of_all_sections_are_told_at_once(self):
        status, lines = self.start("[log]\nFormat = xml\n[delivery]\nscan_port = 0\n",
                                   "socket = x", "--check")
        self.assertEqual((status, [line.split(":")[1].strip() for line in lines]),
                         (2, ["[log] Format", "[milter] socket", "[delivery] scan_port"]))

    def test_check_says_what_has_nowhere_to_go(self):
        notification = ("notifications: [{name: n, sender: g@example.com, recipients: [p@example.com],"
                        " subject: s, body: b%s}]\nrules: [{id: 7, when: always, actions: [notify: n]}]\n")
        rule = "rules: [{id: 7, when: always, actions: [%s]}]\n"
        scan = "[delivery]\nscan_host = 127.0.0.1\n"
        plain = "[delivery]\nplain_host = 127.0.0.1\n"
        named = "reinjection_listener = kavi-scan"
        skips = "[General-Notification]\nNotificationSkipScan = 1\n"
        cases = (
            (rule % "readdress: a@b.example", plain, "", "scan_host", "7 (readdress)"),
            (rule % "postpone: '08:00'", "", "", "scan_host", "7 (postpone)"),
            (rule % "readdress: a@b.example", scan, "", "reinjection_listener", "7 (readdress)"),
            (rule % "readdress: a@b.example", scan, named, "", ""),
            (rule % "feedback", scan, named, "plain_host", "7 (feedback)"),
            (rule % "delete", scan, "", "", ""),
            (notification % "", scan, named, "plain_host", "7 (notify)"),
            (notification % "", plain, "", "", ""),
            (notification % ", attach: received", plain, "", "scan_host", "7 (notify)"),
            (notification % ", attach: received", plain + skips, "", "", ""),
        )
        for policy, settings, milter, key, rules in cases:
            with self.subTest(policy=policy, settings=settings, milter=milter):
                self.policy.write_text(policy)
                status, lines = self.start(settings, milter, "--check")
                if not key:
                    self.assertEqual((status, lines), (0, []))
                    continue
                self.assertEqual((status, len(lines)), (2, 1), lines)
                self.assertIn(f"{key} in section", lines[0])
                self.assertIn(rules, lines[0])

    def test_good_settings_are_nothing_to_speak_of(self):
        state = f"[delivery]\nstate_folder = {self.folder}/state\n"
        self.assertEqual(self.start(state + "[log]\nLevel = 3\n", "", "--check"), (0, []))
        self.assertFalse((self.folder / "state").exists())

    def test_check_looks_at_the_folders_that_will_be_needed(self):
        self.policy.write_text("quarantine_areas: [{name: q}]\narchive_areas: [{name: a}]\n"
                               "rules: [{id: 1, when: always, actions: [{quarantine: q}]}]\n")
        settings = (f"[general]\nqueue_quarantine = {self.folder}/file/quarantine\n"
                    f"queue_archive = {self.folder}/file/archive\n"
                    f"[delivery]\nstate_folder = {self.folder}/file\n")
        status, lines = self.start(settings, "", "--check")
        self.assertEqual((status, len(lines)), (1, 2), lines)
        self.assertIn("state_folder in section delivery", lines[0])
        self.assertIn("is no folder (queue_quarantine in section general", lines[1])

    @unittest.skipUnless(os.geteuid() == 0, "only root can become another user")
    def test_check_looks_as_the_user_that_it_will_be(self):
        self.folder.chmod(0o755)
        config = self.folder / "kavi.ini"
        for user, status, said in (("nobody", 1, "permission denied"), ("root", 0, ""),
                                   ("no-such-user", 1, "there is no user 'no-such-user'")):
            config.write_text(f"[delivery]\nstate_folder = {self.folder}/state\n"
                              f"[milter]\npolicy = {self.policy}\nuser = {user}\n")
            done = subprocess.run([os.environ["KAVI_MILTER"], "--config", config, "--check"],
                                  capture_output=True, text=True, timeout=60, check=False)
            self.assertEqual(done.returncode, status, done.stderr)
            self.assertIn(said, done.stderr)

    def test_check_fails_for_a_comment_behind_a_value(self):
        state = f"[delivery]\nstate_folder = {self.folder}/state # here\n"
        status, lines = self.start(state, "", "--check")
        self.assertEqual((status, len(lines)), (2, 1), lines)
        self.assertIn("put comments on lines of their own", lines[0])


if __name__ == "__main__":
    unittest.main()
