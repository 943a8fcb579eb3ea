"""How the command is called, and the commands that only tell something."""
import json
import unittest

from kavi_process import EXAMPLES, KaviTest, kavi

MESSAGE = b"From: a@x.example\nTo: b@x.example\nSubject: hello\n\nbody\n"


class UsageTest(KaviTest):

    def test_version_and_help_succeed(self):
        version = kavi("--version")
        self.assertEqual(version.returncode, 0)
        self.assertRegex(version.stdout.decode(), r"^kavi \d+\.\d+\.\d+\n$")
        for arguments in (["--help"], ["run", "--help"], ["policy", "check", "--help"]):
            done = kavi(*arguments)
            self.assertEqual(done.returncode, 0)
        self.assertIn(b"Examples:", kavi("--help").stdout)

    def test_each_help_has_examples_of_its_own_only(self):
        for command in ("run", "expand", "notify", "policy check", "setting encode", "spool list"):
            text = kavi(*command.split(), "--help").stdout.decode()
            examples = [line for line in text.splitlines() if line.startswith("  kavi ")]
            self.assertGreater(len(examples), 0, command)
            first = command.split()[0]
            for line in examples:
                self.assertTrue(line.startswith(f"  kavi {first} "), f"{command}: {line}")
        self.assertNotIn(b"Examples:", kavi("actions", "--help").stdout)

    def test_usage_errors_end_with_2(self):
        policy, message = self.policy(), self.put("m.eml", MESSAGE)
        for arguments in ([], ["fly"], ["run"], ["run", message], ["run", "--policy", policy],
                          ["run", "--policy", policy, "--jobs", "0", message],
                          ["run", "--policy", policy, "--jobs", "many", message],
                          ["run", "--policy", policy, "--frm", "x", message],
                          ["run", "--policy", policy, "--from", "a\nb", message],
                          ["run", "--policy", policy, "--rcpt", "", message],
                          ["run", "--policy", policy, "--rcpt", "a@x.example,b@x.example", message],
                          ["run", "--policy", self.folder / "none.yaml", message],
                          ["run", "--policy", policy, "--config", self.folder / "none.ini", message],
                          ["policy"], ["policy", "check"], ["setting", "encode", "fly"],
                          ["setting", "encode", "postpone"], ["setting", "encode", "postpone", "x"],
                          ["setting", "encode", "delete", "x"],
                          ["setting", "encode", "tag_subject", "{tag: x"],
                          ["setting", "encode", "tag_subject", "{tga: x}"],
                          ["setting", "decode", "postpone", "x"]):
            done = kavi(*arguments)
            self.assertEqual(done.returncode, 2, arguments)
            self.assertTrue(done.stderr, arguments)

    def test_what_is_no_number_is_named(self):
        for arguments, option, value in ((["rule", "show", "abc"], "rule", "abc"),
                                         (["rule", "list", "--after", "-1"], "--after", "-1"),
                                         (["object", "list", "--owner", "99999999999"], "--owner",
                                          "99999999999")):
            done = kavi(*arguments)
            self.assertEqual(done.returncode, 2, arguments)
            self.assertIn(f"{option}: '{value}' is no number that can stand there (write a whole "
                          "number, such as 15)", done.stderr.decode())

    def test_an_unknown_command_is_named(self):
        for arguments, word in ((["polcy", "check"], "did you mean 'policy'?"),
                                (["store", "int"], "did you mean 'init'?"),
                                (["object", "fly"], "known: list, show, add")):
            done = kavi(*arguments)
            self.assertEqual((done.returncode, done.stdout), (2, b""))
            self.assertIn("unknown command", done.stderr.decode())
            self.assertIn(word, done.stderr.decode())

    def test_a_faulty_policy_runs_nothing(self):
        policy = self.put("policy.yaml", "rules:\n- id: 15\n  when: always\n  actions:\n  - delte\n")
        done = kavi("run", "--policy", policy, "--out", self.folder / "out",
                    self.put("m.eml", MESSAGE))
        self.assertEqual(done.returncode, 2)
        self.assertEqual(done.stderr.decode(),
                         f"{policy}:5: rule 15: unknown action 'delte' (did you mean 'delete'?)\n")
        self.assertEqual(done.stdout, b"")
        self.assertFalse((self.folder / "out").exists())

    def test_a_faulty_settings_file_is_named(self):
        config = self.put("kavi.ini", "[general\n")
        done = kavi("run", "--policy", self.policy(), "--config", config,
                    self.put("m.eml", MESSAGE))
        self.assertEqual(done.returncode, 2)
        self.assertIn(str(config), done.stderr.decode())


class AdministrationTest(KaviTest):

    def test_policy_check(self):
        good = kavi("policy", "check", EXAMPLES / "policy.yaml")
        self.assertEqual((good.returncode, good.stdout.decode()),
                         (0, f"{EXAMPLES}/policy.yaml: can be used, 6 rules\n"))
        doubtful = self.always("virus_clean", "delete", "{postpone: '8:30'}")
        done = kavi("policy", "check", doubtful)
        self.assertEqual(done.returncode, 0)
        self.assertEqual(done.stdout.decode(), f"""\
{doubtful}:2: warning: rule 1: action 'virus_clean' does nothing (remove it)
{doubtful}:2: warning: rule 1: action 'postpone' and 'delete' both dispose of the message (keep one)
{doubtful}: can be used, 1 rule, 2 warnings
""")
        report = json.loads(kavi("policy", "check", "--json", doubtful).stdout)
        self.assertTrue(report["usable"])
        self.assertEqual([f["severity"] for f in report["findings"]], ["warning", "warning"])
        broken = self.put("broken.yaml", "rules:\n- {id: 1, when: alwys, actions: [delte]}\n")
        done = kavi("policy", "check", broken)
        self.assertEqual(done.returncode, 2)
        self.assertTrue(done.stdout.decode().endswith(f"{broken}: 2 errors\n"))

    def test_every_action_is_listed(self):
        actions = json.loads(kavi("actions", "--json").stdout)
        self.assertEqual({a["action"]: (a["code"], a["named_objects"]) for a in actions},
                         {"archive": (0, True), "bcc": (9, False), "delete": (1, False),
                          "delete_attachments": (4, False), "feedback": (16, False),
                          "handoff": (11, False), "ibe_decrypt": (20, False),
                          "ibe_encrypt": (21, False), "ibe_reencrypt": (22, False),
                          "notify": (10, True), "postpone": (12, False), "quarantine": (2, True),
                          "readdress": (3, False), "stamp": (8, True), "tag_subject": (7, False),
                          "virus_clean": (5, False),
                          "x_header": (18, False)})
        text = kavi("actions").stdout.decode()
        for action in actions:
            self.assertIn(action["action"], text)

    def test_tokens_are_listed(self):
        tokens = json.loads(kavi("tokens", "--json").stdout)
        self.assertIn({"token": "%SENDER%", "code": 32, "computed": False}, tokens)
        self.assertEqual(len(kavi("tokens").stdout.splitlines()), len(tokens))

    def test_settings_go_there_and_back(self):
        for action, value, back in (("postpone", "8:30", "08:30"), ("12", "23:59", "23:59"),
                                    ("x_header", "X-A : b:c", "X-A: b:c"), ("stamp", "3", "3"),
                                    ("tag_subject", "[EXT] ", "[EXT] "),
                                    ("tag_subject", "{signed: tag, tag: 'a '}",
                                     '{tag: "a ", signed: tag}'),
                                    ("delete_attachments", "all", "all")):
            setting = kavi("setting", "encode", action, value)
            self.assertEqual(setting.returncode, 0, setting.stderr)
            decoded = kavi("setting", "decode", action, setting.stdout.decode().rstrip("\n"))
            self.assertEqual(decoded.stdout.decode(), back + "\n")
        self.assertEqual(kavi("setting", "encode", "delete").stdout, b"\n")
        self.assertEqual(kavi("setting", "encode", "x_header", "X-A: b").stdout, b"X-A:b\n")
        report = json.loads(kavi("setting", "decode", "--json", "x_header", "X-A:b").stdout)
        self.assertEqual(report, {"action": "x_header", "code": 18, "value": "X-A: b",
                                  "setting": "X-A:b"})


if __name__ == "__main__":
    unittest.main(verbosity=2)
