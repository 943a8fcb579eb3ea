#!/usr/bin/env python3
"""Policies in a store: `kavi policy`, and commands that take their rules from there."""
import json
import os
import sqlite3
import stat
import subprocess
import threading
import unittest

from kavi_process import KAVI, KaviTest, kavi

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


class StoreTest(KaviTest):
    def setUp(self):
        super().setUp()
        self.path = self.folder / "policy.sqlite"
        self.store = f"sqlite:{self.path}"
        self.good("store", "init", self.store)
        self.file = self.put("policy.yaml", POLICY)
        self.message = self.put("m.eml", MESSAGE)

    def good(self, *arguments, status=0):
        done = kavi(*arguments)
        self.assertEqual(done.returncode, status, (done.stdout + done.stderr).decode())
        return done.stdout.decode()

    def bad(self, *arguments, status):
        """What goes to standard error."""
        done = kavi(*arguments)
        self.assertEqual(done.returncode, status, (done.stdout + done.stderr).decode())
        return done.stderr.decode()

    def apply(self, text, *options, name="other.yaml"):
        return self.good("policy", "apply", self.put(name, text), "--store", self.store, *options)

    def revision(self):
        return json.loads(self.good("policy", "diff", self.file, "--store", self.store,
                                    "--json"))["revision"]


class ApplyTest(StoreTest):
    def test_shows_what_changes_and_then_changes_it(self):
        shown = self.good("policy", "diff", self.file, "--store", self.store)
        self.assertIn("added    rule 20 'stamped'", shown)
        self.assertIn("    + aging_days: 7\n", shown)
        self.assertTrue(shown.endswith(
            f"8 added, 0 removed, 0 changed\nstore {self.path}: nothing is changed (revision 0)\n"))
        dry = self.good("policy", "apply", self.file, "--store", self.store, "--dry-run")
        self.assertEqual(dry, shown)
        applied = self.good("policy", "apply", self.file, "--store", self.store)
        self.assertEqual(applied, shown.replace("nothing is changed (revision 0)",
                                                "applied, now at revision 1"))
        for _ in range(2):
            self.assertEqual(self.good("policy", "apply", self.file, "--store", self.store),
                             f"store {self.path}: nothing differs (revision 1)\n")

    def test_tells_programs_the_same(self):
        self.apply(POLICY)
        changed = POLICY.replace("aging_days: 7", "aging_days: 9").replace(
            "- {name: spam}\n", "").replace("name: big,", "name: large,")
        report = json.loads(self.apply(changed, "--json"))
        self.assertEqual([(one["change"], one["kind"], one["name"]) for one in report["changes"]],
                         [("removed", "quarantine area", "spam"),
                          ("changed", "quarantine area", "virus"), ("changed", "rule", "large")])
        self.assertEqual(report["changes"][1]["before"], {"name": "virus", "aging_days": 7})
        self.assertEqual(report["changes"][1]["after"], {"name": "virus", "aging_days": 9})
        self.assertEqual(report["changes"][0]["after"], None)
        self.assertEqual((report["added"], report["removed"], report["changed"]), (0, 1, 2))
        self.assertIs(report["applied"], True)
        self.assertEqual(report["revision"], 2)
        again = json.loads(self.apply(changed, "--json"))
        self.assertEqual((again["changes"], again["applied"], again["revision"]), ([], False, 2))

    def test_names_rules_that_only_moved(self):
        rules = ["- {id: %d, when: always, actions: [virus_clean]}\n" % i for i in (1, 2, 3, 4)]
        self.apply("rules:\n" + "".join(rules))
        report = self.apply("rules:\n" + "".join([rules[3]] + rules[:3]))
        self.assertTrue(report.startswith(
            "moved    rule 4 'rule 4'\n0 added, 0 removed, 1 changed\n"), report)
        self.assertIn("rule 4", kavi("run", "--store", self.store,
                                     self.message).stdout.decode().split("rule 1")[0])

    def test_a_policy_with_errors_changes_nothing(self):
        self.apply(POLICY)
        wrong = self.put("wrong.yaml", POLICY.replace("stamp: legal", "stamp: lost"))
        said = self.bad("policy", "apply", wrong, "--store", self.store, status=2)
        self.assertIn("wrong.yaml:10: rule 20: action 'stamp' names no stamp: 'lost'", said)
        self.assertEqual(self.revision(), 1)
        self.bad("policy", "apply", self.folder / "none.yaml", "--store", self.store, status=2)

    def test_a_store_that_cannot_be_used_is_named(self):
        said = self.bad("policy", "apply", self.file, "--store", f"sqlite:{self.folder}/none",
                        status=1)
        self.assertIn("kavi store init", said)
        self.assertFalse((self.folder / "none").exists())
        self.bad("policy", "apply", self.file, status=2)
        self.put("broken.sqlite", b"x" * 5000)
        self.assertIn("broken.sqlite", self.bad("policy", "export", "--store",
                                                f"sqlite:{self.folder}/broken.sqlite", status=1))

    def test_writes_down_who_did_it(self):
        self.apply(POLICY)
        with sqlite3.connect(self.path) as database:
            rows = database.execute("SELECT revision, actor, what FROM policy_audit").fetchall()
        self.assertEqual({row[0] for row in rows}, {1})
        self.assertTrue(all(row[1] for row in rows))
        self.assertIn(b"add quarantine area 'virus' (1)", [row[2] for row in rows])

    def test_several_at_once_leave_one_whole_policy(self):
        policies = [POLICY.replace("aging_days: 7", f"aging_days: {days}").replace(
            "name: big", f"name: big{days}") for days in range(1, 5)]
        files = [self.put(f"p{i}.yaml", text) for i, text in enumerate(policies)]
        failures = []

        def apply(file):
            for _ in range(5):
                done = kavi("policy", "apply", file, "--store", self.store)
                # Who meets the others again and again may give up, with nothing changed.
                if done.returncode != 0 and b"others keep changing" not in done.stderr:
                    failures.append(done.stderr)

        threads = [threading.Thread(target=apply, args=(file,)) for file in files]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(failures, [])
        same = [file for file in files if "nothing differs" in self.good(
            "policy", "diff", file, "--store", self.store)]
        self.assertEqual(len(same), 1)


class ExportTest(StoreTest):
    def test_applied_again_changes_nothing(self):
        self.apply(POLICY)
        text = self.good("policy", "export", "--store", self.store)
        self.assertIn("on_failure: accept\n", text)
        self.assertIn("    verdict:\n      reject: No such mail here\n", text)
        self.assertIn("nothing differs", self.apply(text))
        self.assertEqual(self.good("policy", "check", self.put("again.yaml", text)).split(": ")[-1],
                         "can be used, 4 rules, 2 warnings\n")

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
        done = kavi("policy", "export", "--store", self.store)
        text = done.stdout.decode()
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn("warning: the object 101 of type 2, 'OPP: stamp', cannot be built from "
                      "'rubbish?\\xC3'", done.stderr.decode())
        self.assertIn("nothing differs", self.apply(text))
        self.assertEqual(self.contents(), before)
        # The same in a store of its own, but for the ids.
        other = f"sqlite:{self.folder}/other.sqlite"
        self.good("store", "init", other)
        self.good("policy", "apply", self.put("export.yaml", text), "--store", other)
        self.assertEqual(self.good("policy", "export", "--store", other), text)
        self.assertEqual(sorted(row[1:] for row in self.contents(self.folder / "other.sqlite")),
                         sorted(row[1:] for row in before))

    def contents(self, path=None):
        with sqlite3.connect(path or self.path) as database:
            return database.execute(
                "SELECT id, type, name, content FROM named_object ORDER BY id").fetchall()

    def test_replaces_a_file_whole(self):
        self.apply(POLICY)
        text = self.good("policy", "export", "--store", self.store)
        target = self.folder / "export.yaml"
        self.good("policy", "export", target, "--store", self.store)
        self.assertEqual(target.read_text(), text)
        self.assertEqual(stat.S_IMODE(target.stat().st_mode), 0o600)
        target.write_text("before")
        target.chmod(0o644)
        self.good("policy", "export", target, "--store", self.store)
        self.assertEqual(target.read_text(), text)
        self.assertEqual(stat.S_IMODE(target.stat().st_mode), 0o644)
        self.assertIn("cannot be written", self.bad("policy", "export", self.folder, "--store",
                                                    self.store, status=1))
        self.assertEqual([one for one in os.listdir(self.folder) if one.startswith("export.yaml.")],
                         [])

    def test_refuses_what_no_file_can_say(self):
        self.apply(POLICY)
        with sqlite3.connect(self.path) as database:
            database.execute("UPDATE rule SET condition = ? WHERE id = 10", (b"rubbish",))
        self.assertIn("rule 10: stored condition: not JSON",
                      self.bad("policy", "export", "--store", self.store, status=1))
        self.assertIn("rule 10", self.good("policy", "check", "--store", self.store, status=2))
        self.bad("run", "--store", self.store, self.message, status=2)


class SourceTest(StoreTest):
    def setUp(self):
        super().setUp()
        self.apply(POLICY)
        self.config = self.put("kavi.ini", f"[store]\nlocation = {self.store}\n")

    def test_runs_as_from_the_file(self):
        expected = self.report("--policy", self.file)
        self.assertEqual(expected["rules"][0]["name"], "stamped")
        self.assertEqual(self.report("--store", self.store), expected)
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
            for source in (["--store", self.store], ["--config", self.config]):
                got = self.good(*command, *source)
                self.assertEqual(without_moment(got), without_moment(expected))

    def test_the_file_counts_before_the_settings(self):
        other = self.put("other.yaml", "rules: [{id: 99, when: always, actions: [delete]}]")
        reports = self.run_json("--config", self.config, "--policy", other, self.message)
        self.assertEqual(reports[0]["rules"][0]["id"], 99)

    def test_needs_one_source(self):
        self.bad("run", "--policy", self.file, "--store", self.store, self.message, status=2)
        self.assertIn("no policy is named", self.bad("run", self.message, status=2))
        self.assertIn("no policy is named", self.bad("notify", "x", self.message, status=2))
        self.assertIn("no policy is named", self.bad("policy", "check", status=2))
        self.assertEqual(self.good("expand", "%SUBJECT%", self.message), "hello\n")

    def test_sees_a_whole_policy_while_others_change_it(self):
        other = self.put("b.yaml", POLICY.replace("name: stamped", "name: renamed").replace(
            "name: legal", "name: lawful").replace("stamp: legal", "stamp: lawful"))
        writer = subprocess.Popen(
            ["/bin/sh", "-c", 'for i in 1 2 3 4 5 6 7 8 9 10; do "$0" policy apply "$1" --store '
             '"$3"; "$0" policy apply "$2" --store "$3"; done', KAVI, other, self.file, self.store],
            stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        pairs = set()
        while writer.poll() is None:
            rule = self.run_json("--store", self.store, self.message)[0]["rules"][0]
            pairs.add((rule["name"], rule["actions"][0]["value"]))
        self.assertEqual(writer.stderr.read(), b"")
        writer.stderr.close()
        self.assertLessEqual(pairs, {("stamped", "legal"), ("renamed", "lawful")})


def without_moment(mail):
    """The lines of a mail that are the same each time."""
    return [line for line in mail.splitlines() if not line.startswith(("Message-ID:", "Date:"))]


if __name__ == "__main__":
    unittest.main()
