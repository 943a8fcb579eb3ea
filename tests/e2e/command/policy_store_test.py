#!/usr/bin/env python3
"""Policies in a store: `kavi policy`, and commands that take their rules from there."""
import contextlib
import json
import os
import sqlite3
import stat
import subprocess
import threading
import unittest

from kavi_process import KAVI, kavi
from store_case import StoreTest, on_every_store, setUpModule, tearDownModule  # noqa: F401

POLICY = """\
quarantine_areas:
- {name: virus, aging_days: 7}
- {name: spam}
stamps:
- {name: legal, text: "Handle with care."}
notifications:
- {name: tell-admin, sender: gw@a.example, recipients: [admin@a.example], subject: "%RULENAME%",
   body: "about %SUBJECT%"}
rules:
- {id: 20, name: stamped, when: always, actions: [{stamp: legal}, {notify: tell-admin}]}
- {id: 10, name: big, when: {size: {over: 1MB}}, actions: [{quarantine: virus}]}
- {id: 30, name: off, enabled: no, when: always, actions: [delete], on_failure: accept}
- {id: 40, name: last, when: {subject: {matches: "^spam"}}, actions: [],
   verdict: {reject: "No such mail here"}}
"""
MESSAGE = b"From: from@b.example\nTo: to@b.example\nSubject: hello\n\nbody\n"


class PolicyCase:
    """A store, a policy file and a message. StoreTest comes behind it in every test's class."""

    def setUp(self):
        super().setUp()
        self.file = self.put("policy.yaml", POLICY)
        self.message = self.put("m.eml", MESSAGE)

    def apply(self, text, **options):
        return self.text("policy", "apply", self.put("other.yaml", text), **options)

    def called(self, end):
        """The last line of a report on the store, which has a name without a password."""
        return f"store {self.difference()['store']}: {end}\n"

    def difference(self):
        return self.json("policy", "diff", self.file)


class FileCase(PolicyCase, StoreTest):
    """On a file that the test changes behind the command's back."""

    def new_location(self):
        self.path = self.folder / "policy.sqlite"
        return f"sqlite:{self.path}"


class HeldBackCase(FileCase):
    """A change that is held back until nobody reads the output any more."""

    def apply_unheard(self, *options):
        """The error output of an application whose reader leaves before the change is made."""
        held = sqlite3.connect(self.path, isolation_level=None)
        held.execute("BEGIN IMMEDIATE")
        command = [KAVI, "policy", "apply", self.file, "--store", self.location, *options]
        with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE) as running:
            self.assertTrue(running.stdout.read(1))
            running.stdout.close()
            held.execute("ROLLBACK")
            held.close()
            said = running.stderr.read().decode()
        self.assertEqual(running.returncode, 1, said)
        return said

    def test_a_change_that_was_made_is_not_reported_as_failed(self):
        for revision, options in ((1, []), (3, ["--json"])):
            said = self.apply_unheard(*options)
            self.assertIn("standard output cannot be written (Broken pipe); the change WAS made "
                          f"all the same: store {self.path}: applied, now at revision {revision}",
                          said)
            self.assertEqual(self.difference()["revision"], revision)
            self.assertEqual(self.difference()["changes"], [])
            self.kavi("policy", "apply", self.put("none.yaml", "rules: []\n"))

    def test_a_report_that_was_begun_says_what_failed(self):
        with contextlib.closing(sqlite3.connect(self.path)) as database:
            database.execute("CREATE TRIGGER no BEFORE INSERT ON rule "
                             "BEGIN SELECT RAISE(ABORT, 'not today'); END")
            database.commit()
        done = self.kavi("policy", "apply", self.file, "--json", status=1)
        report = json.loads(done.stdout)
        self.assertEqual(report["store"], str(self.path))
        self.assertIn("; nothing is changed", report["error"])
        self.assertNotIn("applied", report)
        self.assertEqual(self.difference()["revision"], 0)


class ApplyCase(PolicyCase):
    def test_shows_what_changes_and_then_changes_it(self):
        shown = self.text("policy", "diff", self.file)
        self.assertIn("added    rule 20 'stamped'", shown)
        self.assertIn("    + aging_days: 7\n", shown)
        self.assertTrue(shown.endswith("8 added, 0 removed, 0 changed\n" +
                                       self.called("nothing is changed (revision 0)")), shown)
        self.assertEqual(self.text("policy", "apply", self.file, "--dry-run"), shown)
        applied = self.text("policy", "apply", self.file)
        self.assertEqual(applied, shown.replace("nothing is changed (revision 0)",
                                                "applied, now at revision 1"))
        for _ in range(2):
            self.assertEqual(self.text("policy", "apply", self.file),
                             self.called("nothing differs (revision 1)"))

    def test_has_the_doubts_that_check_has(self):
        doubtful = self.put("doubtful.yaml", "stamps: [{name: 'OPP:z', text: x}]\nrules: []\n")
        self.assertIn("warning: name 'OPP:z' is reserved",
                      self.kavi("policy", "apply", doubtful).stderr.decode())

    def test_changes_nothing_that_it_cannot_show(self):
        for json_too in ([], ["--json"]):
            command = [KAVI, "policy", "apply", self.file, "--store", self.location, *json_too]
            with open("/dev/full", "wb") as full:
                done = subprocess.run(command, stdout=full, stderr=subprocess.PIPE, timeout=60)
            self.assertEqual(done.returncode, 1)
            self.assertIn(b"the changes cannot be shown (No space left on device): "
                          b"nothing is changed", done.stderr)
            self.assertNotIn(b"WAS made", done.stderr)
            self.assertEqual(self.difference()["revision"], 0)
            nobody, output = os.pipe()
            os.close(nobody)
            with os.fdopen(output, "wb") as broken:
                done = subprocess.run(command, stdout=broken, stderr=subprocess.PIPE, timeout=60)
            self.assertNotEqual(done.returncode, 0)
            self.assertEqual(self.difference()["revision"], 0)

    def test_other_changes_are_not_taken_for_failures(self):
        self.apply(POLICY)
        for arguments, words in ((["object", "add", "stamp", "s", "text=x"], b"stamp 's' added"),
                                 (["object", "remove", "stamp", "s"], b"removed"),
                                 (["rule", "bind", "10", "quarantine", "spam"], b"uses "),
                                 (["rule", "bind", "10", "quarantine", "virus", "--json"],
                                  b"uses ")):
            with open("/dev/full", "wb") as full:
                done = subprocess.run([KAVI, *arguments, "--store", self.location], stdout=full,
                                      stderr=subprocess.PIPE, timeout=60)
            self.assertEqual(done.returncode, 1)
            self.assertRegex(done.stderr, b"cannot be written .No space left on device.; the "
                                          b"change WAS made all the same: .*" + words)
        self.assertEqual(self.json("store", "audit")[-1]["revision"], 5)

    def test_waits_for_pipes_of_the_command_line_only(self):
        os.mkfifo(self.folder / "pipe")
        self.assertIn("is no regular file: name one", self.complaint(
            "policy", "apply", self.put("o.yaml", "stamps: [{name: a, file: pipe}]\nrules: []\n"),
            status=2))
        self.text("policy", "apply", "/dev/stdin", stdin=POLICY.encode())
        self.assertEqual(self.difference()["changes"], [])
        self.text("object", "add", "stamp", "piped", "file=/dev/stdin", stdin=b"from a pipe")
        self.assertEqual(self.json("object", "show", "stamp", "piped")["fields"]["text"],
                         "from a pipe")

    def test_waits_for_no_stranger(self):
        pipe = self.folder / "pipe"
        os.mkfifo(pipe)
        for arguments in (["policy", "apply", pipe], ["policy", "check", pipe],
                          ["policy", "apply", "/dev/zero"],
                          ["object", "add", "stamp", "s", "--from", pipe],
                          ["object", "add", "stamp", "s", "--setting-file", pipe]):
            done = kavi(*arguments, *([] if "check" in arguments else ["--store", self.location]))
            self.assertEqual(done.returncode, 2, arguments)
            said = (done.stdout + done.stderr).decode()
            self.assertIn("is no regular file: name one, or /dev/stdin", said)
        self.assertIn("it is no regular file",
                      self.complaint("policy", "diff", self.file, "--config", pipe, status=2))

    def test_takes_the_policy_from_standard_input(self):
        report = self.json("policy", "apply", "-", stdin=POLICY.encode())
        self.assertEqual((report["applied"], report["policy"]), (True, "-"))
        self.assertEqual(self.difference()["changes"], [])
        self.assertIn("-:1: ", self.complaint("policy", "apply", "-", stdin=b"ruls: []", status=2))
        # A pipe that the shell gives is no stranger's.
        command = [KAVI, "policy", "diff", "/dev/fd/0", "--store", self.location]
        done = subprocess.run(command, input=b"rules: []", capture_output=True, timeout=60)
        self.assertIn(b"0 added, 8 removed", done.stdout)

    def test_tells_programs_the_same(self):
        self.apply(POLICY)
        changed = POLICY.replace("aging_days: 7", "aging_days: 9").replace(
            "- {name: spam}\n", "").replace("name: big,", "name: large,")
        changed = self.put("changed.yaml", changed)
        report = self.json("policy", "apply", changed)
        self.assertEqual([(one["change"], one["kind"], one["name"]) for one in report["changes"]],
                         [("removed", "quarantine area", "spam"),
                          ("changed", "quarantine area", "virus"), ("changed", "rule", "large")])
        self.assertEqual(report["changes"][1]["before"], {"name": "virus", "aging_days": 7})
        self.assertEqual(report["changes"][1]["after"], {"name": "virus", "aging_days": 9})
        self.assertEqual(report["changes"][0]["after"], None)
        self.assertEqual((report["added"], report["removed"], report["changed"]), (0, 1, 2))
        self.assertIs(report["applied"], True)
        self.assertEqual(report["revision"], 2)
        again = self.json("policy", "apply", changed)
        self.assertEqual((again["changes"], again["applied"], again["revision"]), ([], False, 2))

    def test_names_rules_that_only_moved(self):
        rules = ["- {id: %d, when: always, actions: [virus_clean]}\n" % i for i in (1, 2, 3, 4)]
        self.apply("rules:\n" + "".join(rules))
        report = self.apply("rules:\n" + "".join([rules[3]] + rules[:3]))
        self.assertTrue(report.startswith(
            "moved    rule 4 'rule 4'\n0 added, 0 removed, 1 changed\n"), report)
        ran = self.json("run", self.message)["rules"]
        self.assertEqual([rule["id"] for rule in ran], [4, 1, 2, 3])

    def test_a_policy_with_errors_changes_nothing(self):
        self.apply(POLICY)
        wrong = self.put("wrong.yaml", POLICY.replace("stamp: legal", "stamp: lost"))
        said = self.complaint("policy", "apply", wrong, status=2)
        self.assertIn("wrong.yaml:10: rule 20: action 'stamp' names no stamp: 'lost'", said)
        self.assertEqual(self.difference()["revision"], 1)
        self.complaint("policy", "apply", self.folder / "none.yaml", status=2)

    def test_writes_down_who_did_it(self):
        self.apply(POLICY)
        audit = self.text("store", "audit")
        self.assertIn("add quarantine area 'virus' (1)", audit)
        self.assertIn("write rule 40 'last'", audit)

    def test_several_at_once_leave_one_whole_policy(self):
        policies = [POLICY.replace("aging_days: 7", f"aging_days: {days}").replace(
            "name: big", f"name: big{days}") for days in range(1, 5)]
        files = [self.put(f"p{i}.yaml", text) for i, text in enumerate(policies)]
        failures = []

        def apply(file):
            for _ in range(5):
                done = kavi("policy", "apply", file, "--store", self.location)
                # Who meets the others again and again may give up, with nothing changed.
                if done.returncode != 0 and b"others keep changing" not in done.stderr:
                    failures.append(done.stderr)

        threads = [threading.Thread(target=apply, args=(file,)) for file in files]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(failures, [])
        same = [file for file in files if "nothing differs" in self.text("policy", "diff", file)]
        self.assertEqual(len(same), 1)

    def test_what_was_exported_and_is_applied_changes_nothing(self):
        self.apply(POLICY)
        text = self.text("policy", "export")
        self.assertIn("on_failure: accept\n", text)
        self.assertIn("    verdict:\n      reject: No such mail here\n", text)
        self.assertIn("nothing differs", self.apply(text))
        self.assertEqual(self.text("policy", "check").split(": ")[-1],
                         "can be used, 4 rules, 2 warnings\n")


class ExportTest(FileCase):
    def test_a_store_that_cannot_be_used_is_named(self):
        none = f"sqlite:{self.folder}/none"
        done = kavi("policy", "apply", self.file, "--store", none)
        self.assertEqual((done.returncode, b"kavi store init" in done.stderr), (1, True))
        self.assertFalse((self.folder / "none").exists())
        self.assertEqual(kavi("policy", "apply", self.file).returncode, 2)
        self.put("broken.sqlite", b"x" * 5000)
        done = kavi("policy", "export", "--store", f"sqlite:{self.folder}/broken.sqlite")
        self.assertEqual((done.returncode, b"broken.sqlite" in done.stderr), (1, True))

    def test_carries_what_no_keys_say(self):
        self.apply(POLICY)
        odd = [(3, b"\x00\xff\n", b"07:3:abc:"), (2, b"OPP: stamp", b"rubbish\x00\xc3"),
               (1, "Zo\u00eb \U0001f4e8".encode(), b"1:x:0::0::0::0::0::0:0:0:0:0:0:0:"),
               (4, b"- [quoted] \"'#: ", b"3:2:ab:")]
        with sqlite3.connect(self.path) as database:
            for number, (kind, name, content) in enumerate(odd, 100):
                database.execute("INSERT INTO named_object VALUES (?, 0, ?, ?, ?, 0, 0, 0)",
                                 (number, kind, name, content))
            database.execute("UPDATE policy_state SET last_object = 200")
        before = self.contents()
        done = self.kavi("policy", "export")
        text = done.stdout.decode()
        self.assertIn("warning: the object 101 of type 2, 'OPP: stamp', cannot be built from "
                      "'rubbish?\\xC3'", done.stderr.decode())
        self.assertIn("nothing differs", self.apply(text))
        self.assertEqual(self.contents(), before)
        # The same in a store of its own, but for the ids.
        self.location = f"sqlite:{self.folder}/other.sqlite"
        self.kavi("store", "init")
        self.apply(text)
        self.assertEqual(self.text("policy", "export"), text)
        self.assertEqual(sorted(row[1:] for row in self.contents(self.folder / "other.sqlite")),
                         sorted(row[1:] for row in before))

    def contents(self, path=None):
        with sqlite3.connect(path or self.path) as database:
            return database.execute(
                "SELECT id, type, name, content FROM named_object ORDER BY id").fetchall()

    def test_replaces_a_file_whole(self):
        self.apply(POLICY)
        text = self.text("policy", "export")
        target = self.folder / "export.yaml"
        self.kavi("policy", "export", target)
        self.assertEqual(target.read_text(), text)
        self.assertEqual(stat.S_IMODE(target.stat().st_mode), 0o600)
        target.write_text("before")
        target.chmod(0o644)
        self.kavi("policy", "export", target)
        self.assertEqual(target.read_text(), text)
        self.assertEqual(stat.S_IMODE(target.stat().st_mode), 0o644)
        self.assertIn("cannot be written", self.complaint("policy", "export", self.folder))
        self.assertEqual([one for one in os.listdir(self.folder) if one.startswith("export.yaml.")],
                         [])

    def test_refuses_what_no_file_can_say(self):
        self.apply(POLICY)
        with sqlite3.connect(self.path) as database:
            database.execute("UPDATE rule SET condition = ? WHERE id = 10", (b"rubbish",))
        self.assertIn("rule 10: stored condition: not JSON", self.complaint("policy", "export"))
        self.assertIn("rule 10", self.text("policy", "check", status=2))
        self.kavi("run", self.message, status=2)


class SourceCase(PolicyCase):
    def setUp(self):
        super().setUp()
        self.apply(POLICY)
        self.config = self.put("kavi.ini", f"[store]\nlocation = {self.location}\n")

    def good(self, *arguments):
        done = kavi(*arguments)
        self.assertEqual(done.returncode, 0, (done.stdout + done.stderr).decode())
        return done.stdout.decode()

    def bad(self, *arguments):
        """What goes to standard error."""
        done = kavi(*arguments)
        self.assertEqual(done.returncode, 2, (done.stdout + done.stderr).decode())
        return done.stderr.decode()

    def test_runs_as_from_the_file(self):
        expected = self.report("--policy", self.file)
        self.assertEqual(expected["rules"][0]["name"], "stamped")
        self.assertEqual(self.report("--store", self.location), expected)
        self.assertEqual(self.report("--config", self.config), expected)

    def report(self, *source):
        """The report on the message, without the moment of its notification."""
        report = self.run_json(*source, self.message)[0]
        del report["id"]
        mail = report["rules"][0]["actions"][1]["mails"][0]
        mail["content"] = without_moment(mail["content"])
        return report

    def test_expands_and_notifies_as_from_the_file(self):
        for command in (["expand", "%RULENAME% %SUBJECT%", self.message],
                        ["notify", "tell-admin", self.message]):
            expected = self.good(*command, "--policy", self.file)
            self.assertIn("stamped", expected)
            for source in (["--store", self.location], ["--config", self.config]):
                got = self.good(*command, *source)
                self.assertEqual(without_moment(got), without_moment(expected))

    def test_the_file_counts_before_the_settings(self):
        other = self.put("other.yaml", "rules: [{id: 99, when: always, actions: [delete]}]")
        reports = self.run_json("--config", self.config, "--policy", other, self.message)
        self.assertEqual(reports[0]["rules"][0]["id"], 99)

    def test_needs_one_source(self):
        self.bad("run", "--policy", self.file, "--store", self.location, self.message)
        self.assertIn("no policy is named", self.bad("run", self.message))
        self.assertIn("no policy is named", self.bad("notify", "x", self.message))
        self.assertIn("no policy is named", self.bad("policy", "check"))
        self.assertEqual(self.good("expand", "%SUBJECT%", self.message), "hello\n")

    def test_sees_a_whole_policy_while_others_change_it(self):
        other = self.put("b.yaml", POLICY.replace("name: stamped", "name: renamed").replace(
            "name: legal", "name: lawful").replace("stamp: legal", "stamp: lawful"))
        writer = subprocess.Popen(
            ["/bin/sh", "-ec", 'for i in 1 2 3 4 5 6 7 8 9 10; do "$0" policy apply "$1" --store '
             '"$3"; "$0" policy apply "$2" --store "$3"; done', KAVI, other, self.file, self.location],
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        pairs = set()
        while writer.poll() is None:
            rule = self.run_json("--store", self.location, self.message)[0]["rules"][0]
            pairs.add((rule["name"], rule["actions"][0]["value"]))
        self.assertEqual(writer.returncode, 0)
        self.assertTrue(pairs)
        self.assertLessEqual(pairs, {("stamped", "legal"), ("renamed", "lawful")})


def without_moment(mail):
    """The lines of a mail that are the same each time."""
    return [line for line in mail.splitlines() if not line.startswith(("Message-ID:", "Date:"))]


on_every_store(ApplyCase, SourceCase)

if __name__ == "__main__":
    unittest.main()
