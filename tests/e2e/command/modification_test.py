"""Policies that change messages, as a person and a program see them."""
import email
import email.header
import email.policy
import unittest

from kavi_process import KaviTest, kavi

PLAIN = b"From: a@x.example\nTo: b@x.example\nSubject: hello\n\nbody\n"
FILES = b"""From: a@x.example
To: b@x.example
Subject: files
MIME-Version: 1.0
Content-Type: multipart/mixed; boundary=b

--b
Content-Type: text/plain

text
--b
Content-Type: application/octet-stream; name="tool.exe"
Content-Disposition: attachment; filename="tool.exe"

MZ
--b
Content-Type: application/pdf; name="a.pdf"
Content-Disposition: attachment; filename="a.pdf"

%PDF
--b--
"""


class ModificationTest(KaviTest):

    def result(self, policy, message, *options):
        """The resulting message, and the report."""
        out = self.folder / "out"
        path = self.put("m.eml", message)
        [report] = self.run_json("--policy", policy, "--out", out, *options, path)
        return (out / "m.eml").read_bytes(), report

    def test_a_tag_stands_in_front_of_the_subject(self):
        policy = self.always('{tag_subject: "[EXTERNAL] "}')
        message, report = self.result(policy, PLAIN)
        self.assertEqual(message, PLAIN.replace(b"Subject: hello", b"Subject: [EXTERNAL] hello"))
        [action] = report["rules"][0]["actions"]
        self.assertEqual((action["code"], action["setting"], action["value"]),
                         (7, "F[EXTERNAL] ", "[EXTERNAL] "))
        self.assertEqual(action["changes"],
                         [{"kind": "header_changed", "what": "Subject", "part": "1"}])

    def test_a_tag_in_other_letters_needs_no_settings(self):
        policy = self.always('{tag_subject: "【社外】"}')
        message, _ = self.result(policy, PLAIN)
        parsed = email.message_from_bytes(message)
        decoded = str(email.header.make_header(email.header.decode_header(parsed["subject"])))
        self.assertEqual(decoded, "【社外】hello")

    def test_matching_attachments_go(self):
        policy = self.policy("{id: 1, when: {attachment_name: '*.exe'}, "
                             "actions: [{delete_attachments: matching}]}")
        message, report = self.result(policy, FILES)
        parsed = email.message_from_bytes(message, policy=email.policy.default)
        self.assertEqual([part.get_filename() for part in parsed.iter_attachments()], ["a.pdf"])
        self.assertEqual(report["rules"][0]["actions"][0]["changes"],
                         [{"kind": "part_removed", "what": "tool.exe", "part": "1.2"}])

    def test_all_attachments_go_whatever_the_condition_found(self):
        policy = self.policy("{id: 1, when: {attachment_name: '*.exe'}, "
                             "actions: [{delete_attachments: all}]}")
        message, _ = self.result(policy, FILES)
        parsed = email.message_from_bytes(message, policy=email.policy.default)
        self.assertEqual(list(parsed.iter_attachments()), [])
        self.assertEqual(parsed.get_body().get_content(), "text")

    def test_a_copy_kept_before_the_removal_is_whole(self):
        policy = self.put("policy.yaml", "archive_areas: [{name: journal}]\nrules:\n"
                          "- {id: 1, when: {attachment_name: '*.exe'}, "
                          "actions: [{archive: journal}, {delete_attachments: matching}]}\n")
        message, report = self.result(policy, FILES)
        [call] = report["calls"]
        self.assertEqual((self.folder / "out" / call["file"]).read_bytes(), FILES)
        self.assertNotIn(b"tool.exe", message)

    def test_each_message_and_each_use_gets_the_stamp_as_declared(self):
        policy = self.put("policy.yaml", "stamps: [{name: s, text: stamp}]\n"
                          "rules:\n- {id: 1, when: always, actions: [{stamp: s}]}\n"
                          "- {id: 2, when: always, actions: [{stamp: s}]}\n")
        config = self.put("kavi.ini", "[general]\nNumOfBlankLineBeforeStampMessage=1\n")
        for number in range(20):
            self.put(f"in/{number}.eml", PLAIN)
        out = self.folder / "out"
        for jobs in (1, 4):
            self.run_json("--policy", policy, "--config", config, "--jobs", jobs, "--out", out,
                          self.folder / "in")
            for number in range(20):
                self.assertEqual((out / f"{number}.eml").read_bytes(),
                                 PLAIN + b"\nstamp\n\nstamp\n")

    def test_a_stamp_and_its_difference(self):
        policy = self.put("policy.yaml", "stamps: [{name: s, text: 'für %RCPTS%', position: top}]\n"
                          "rules:\n- {id: 1, when: always, actions: [{stamp: s}]}\n")
        message = self.put("m.eml", PLAIN)
        text = kavi("run", "--policy", policy, "--diff", message).stdout.decode()
        self.assertIn("  @ part 1, text/plain\n  +für b@x.example\n   body\n", text)
        parsed = email.message_from_bytes(self.result(policy, PLAIN)[0],
                                          policy=email.policy.default)
        self.assertEqual(parsed.get_content(), "für b@x.example\nbody\n")

    def test_the_report_says_what_changed_part_by_part(self):
        policy = self.policy("{id: 1, when: {attachment_name: '*.exe'}, actions: "
                             "[{delete_attachments: matching}, {tag_subject: '[社外] '}]}")
        message = self.put("m.eml", FILES)
        tool = "1.2"  # the second part of the root
        text = kavi("run", "--policy", policy, message).stdout.decode()
        self.assertIn("  changes  header    Subject changed\n"
                      f"           part {tool}  removed: tool.exe, application/octet-stream, 2 bytes\n",
                      text)
        self.assertNotIn("@ header", text)
        [report] = self.run_json("--policy", policy, message)
        self.assertEqual([(part["part"], part["change"]) for part in report["parts"]],
                         [("1", "changed"), (tool, "removed")])
        self.assertNotIn("diff", report)

    def test_the_difference_is_shown_decoded(self):
        policy = self.policy("{id: 1, when: {attachment_name: '*.exe'}, actions: "
                             "[{delete_attachments: matching}, {tag_subject: '[社外] '}]}")
        message = self.put("m.eml", FILES)
        text = kavi("run", "--policy", policy, "--diff", message).stdout.decode()
        self.assertIn("  @ header\n   From: a@x.example\n   To: b@x.example\n  -Subject: files\n"
                      "  +Subject: [社外] files\n", text)
        self.assertIn("  @ attachments\n"
                      "  -1.2  tool.exe  application/octet-stream  2 bytes\n"
                      "   1.3  a.pdf  application/pdf  4 bytes\n", text)
        coloured = kavi("run", "--policy", policy, "--diff", "--color", "always", message).stdout
        self.assertIn("\x1b[32m+Subject: [社外] files\x1b[0m", coloured.decode())
        [report] = self.run_json("--policy", policy, "--diff", message)
        self.assertEqual([section["title"] for section in report["diff"]],
                         ["header", "attachments"])
        self.assertIn("+Subject: [社外] files", report["diff"][0]["lines"])

    def test_an_unchanged_message_has_no_difference(self):
        message = self.put("m.eml", FILES)
        done = kavi("run", "--policy", self.policy(), "--diff", message)
        self.assertNotIn(b"@ ", done.stdout)
        [report] = self.run_json("--policy", self.policy(), "--diff", message)
        self.assertNotIn("parts", report)

    def test_a_difference_lets_no_control_bytes_through(self):
        message = self.put("m.eml", b"Subject: \x1b[2J\x07\nX-A: \x9b\n\nx\n")
        done = kavi("run", "--policy", self.always("{tag_subject: 'x'}"), "--diff", message)
        self.assertIn(b"x\\x1B[2J\\x07", done.stdout)
        self.assertFalse(any(byte < 32 and byte != 10 for byte in done.stdout))

    def test_a_stamp_is_read_from_a_file_beside_the_policy(self):
        self.put("texts/stamp.txt", "Care for %SENDER%\n")
        policy = self.put("policy.yaml", "stamps: [{name: s, file: texts/stamp.txt}]\n"
                          "rules:\n- {id: 1, when: always, actions: [{stamp: s}]}\n")
        self.assertEqual(kavi("policy", "check", policy).returncode, 0)
        self.assertEqual(kavi("policy", "check", "policy.yaml", cwd=self.folder).returncode, 0)
        (self.folder / "texts/stamp.txt").unlink()
        done = kavi("policy", "check", "policy.yaml", cwd=self.folder)
        self.assertEqual(done.returncode, 2)
        self.assertEqual(done.stdout.decode().splitlines()[0],
                         "policy.yaml:1: stamps: file 'texts/stamp.txt' cannot be read: No such file "
                         "or directory (a relative name starts from the folder of the policy)")


if __name__ == "__main__":
    unittest.main(verbosity=2)
