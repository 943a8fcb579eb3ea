"""What `--json` prints when a command fails: one JSON object, which says what failed."""
import json
import os
import subprocess
import unittest

from kavi_process import KAVI, KaviTest, kavi
from store_case import on_every_store, setUpModule, tearDownModule  # noqa: F401


class JsonFailure:
    """The one object that a failing command prints."""

    def failure(self, *arguments, status=1, **options):
        done = kavi(*arguments, "--json", **options)
        self.assertEqual(done.returncode, status, (arguments, done.stderr))
        report = json.loads(done.stdout)
        self.assertIsInstance(report, dict, arguments)
        self.assertTrue(report["error"], arguments)
        # People are told the same.
        for line in report["error"].splitlines():
            self.assertIn(line, done.stderr.decode(), arguments)
        return report


class OnAStore(JsonFailure):

    def in_store(self, *arguments, **options):
        return self.failure(*arguments, "--store", self.location, **options)["error"]

    def test_what_is_not_there(self):
        for arguments, words in ((["object", "show", "stamp", "none"], "there is no stamp 'none'"),
                                 (["object", "remove", "stamp", "none"], "no stamp 'none'"),
                                 (["object", "update", "stamp", "none", "text=x"], "'none'"),
                                 (["rule", "show", "7"], "there is no rule 7"),
                                 (["rule", "list", "--after", "7"], "there is no rule 7"),
                                 (["rule", "bindings", "7"], "there is no rule 7"),
                                 (["rule", "bind", "7", "stamp", "x"], "there is no rule 7")):
            self.assertIn(words, self.in_store(*arguments), arguments)

    def test_policies_with_errors(self):
        bad = self.put("bad.yaml", "rules:\n- {id: 1, name: n, whn: always}\n- {id: 1}\n")
        for command in ("apply", "diff"):
            error = self.in_store("policy", command, bad, status=2)
            self.assertIn(f"{bad}:2: ", error)
            self.assertGreater(len(error.splitlines()), 1)
            self.assertIn("nofile.yaml", self.in_store("policy", command, "nofile.yaml", status=2))
        # A report of its own says it already.
        done = kavi("policy", "check", bad, "--json")
        self.assertEqual(done.returncode, 2)
        self.assertFalse(json.loads(done.stdout)["usable"])

    def test_warnings_are_no_errors(self):
        doubtful = self.put("p.yaml", "rules:\n- {id: 1, name: n, when: always, "
                                      "actions: [{x_header: 'X-A: %SENDR%'}]}\n")
        done = self.kavi("policy", "apply", doubtful, "--json")
        self.assertNotIn("error", json.loads(done.stdout))

    def test_a_success_prints_its_report_only(self):
        self.assertEqual(self.json("object", "list"), [])
        self.assertTrue(self.json("store", "check")["sound"])


class WithoutAStore(JsonFailure, KaviTest):

    def test_a_store_that_is_missing(self):
        location = f"sqlite:{self.folder}/none"
        policy = self.put("p.yaml", "rules: []\n")
        for command in (["store", "check"], ["store", "audit"], ["store", "migrate"],
                        ["object", "list"], ["object", "show", "1"],
                        ["object", "add", "stamp", "a", "text=x"], ["rule", "list"],
                        ["rule", "show", "1"], ["policy", "apply", policy],
                        ["policy", "check"]):
            error = self.failure(*command, "--store", location)["error"]
            self.assertIn("kavi store init makes it", error, command)

    def test_no_store_and_no_settings(self):
        self.assertIn("no store is named", self.failure("rule", "list", status=2)["error"])
        self.assertIn("none.ini", self.failure("store", "check", "--config", "none.ini",
                                               status=2)["error"])

    def test_wrong_command_lines(self):
        for arguments in (["rule", "show"], ["rule", "list", "--limit", "0"], ["object", "shw"],
                          ["objct"], ["object", "show", "--nonsense"], []):
            self.failure(*arguments, status=2)
        # What stands behind -- is no option.
        done = kavi("object", "show", "--store", "x", "--", "--json")
        self.assertEqual((done.returncode, done.stdout), (2, b""))

    def test_filed_messages_that_are_not_there(self):
        state = self.folder / "state"
        config = self.put("kavi.ini", f"[delivery]\nstate_folder = {state}\n")
        for kind in ("quarantine", "archive"):
            for command in ("list", "purge"):
                self.failure(kind, command, "--config", config)
        state.mkdir(mode=0o700)
        for kind in ("quarantine", "archive"):
            self.assertIn("no such message", self.failure(kind, "show", "17", "--config",
                                                          config)["error"])
            report = self.failure(kind, "release", "17", "18", "--config", config)
            self.assertEqual(report["released"], 0)
            self.assertEqual(len(report["error"].splitlines()), 2)
            self.failure(kind, "delete", "--yes", "17", "--config", config)
            self.failure(kind, "release", "17", "--rcpt", "nobody at all", "--config", config,
                         status=2)

    def test_what_cannot_be_written_hides_nothing(self):
        with open("/dev/full", "w", encoding="ascii") as full:
            done = subprocess.run([KAVI, "rule", "show", "1", "--json", "--store",
                                   f"sqlite:{self.folder}/none"], stdout=full,
                                  stderr=subprocess.PIPE, check=False, timeout=60)
        self.assertEqual(done.returncode, 1)
        self.assertIn(b"kavi store init makes it", done.stderr)

    def test_a_very_long_list_of_faults_is_cut(self):
        os.mkdir(self.folder / "state", mode=0o700)
        config = self.put("kavi.ini", f"[delivery]\nstate_folder = {self.folder}/state\n")
        rows = [str(row) for row in range(1, 301)]
        done = kavi("quarantine", "release", *rows, "--config", config, "--json")
        lines = json.loads(done.stdout)["error"].splitlines()
        self.assertEqual(len(lines), 101)
        self.assertEqual(lines[-1], "… and 200 more")
        self.assertEqual(len(done.stderr.splitlines()), 300)


on_every_store(OnAStore)

if __name__ == "__main__":
    unittest.main()
