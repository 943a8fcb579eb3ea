"""`kavi rule`: the rules of a store, and the named objects that their actions use."""
import json
import sqlite3
import subprocess
import unittest

from kavi_process import KAVI
from store_case import on_every_store, on_files, setUpModule, tearDownModule  # noqa: F401

POLICY = """
quarantine_areas: [{name: virus, aging_days: 7}]
stamps: [{name: legal, text: Confidential.}, {name: short, text: x}]
notifications: [{name: a, recipients: [a@x.example], body: b},
                {name: b, recipients: [b@x.example], body: b}]
rules:
- {id: 15, name: executables, when: {attachment_name: ["*.exe"]},
   actions: [{stamp: legal}, {notify: a}, {quarantine: virus}]}
- {id: 3, name: two stamps, enabled: false, when: always,
   actions: [{stamp: legal}, {stamp: short}, delete]}
- {id: 4, when: always, actions: [virus_clean]}
"""


class RuleCommand:

    def setUp(self):
        super().setUp()
        self.apply(POLICY)
        self.ids = {entry["name"]: entry["id"] for entry in self.json("object", "list")}

    def apply(self, text):
        self.text("policy", "apply", self.put("policy.yaml", text))

    def rules(self, *arguments):
        return [rule["id"] for rule in self.json("rule", "list", *arguments)]

    def bound(self, rule, *action):
        """The names that each action is bound to, by its place."""
        return {entry["place"]: [item["name"] for item in entry["objects"]]
                for entry in self.json("rule", "bindings", str(rule), *action)}

    def bind(self, *arguments, **options):
        return self.json("rule", "bind", *map(str, arguments), **options)

    # --- looking ---

    def test_lists_in_the_order_in_which_they_run(self):
        self.assertEqual(self.rules(), [15, 3, 4])
        self.assertEqual(self.rules("--limit=2"), [15, 3])
        self.assertEqual(self.rules("--after=15"), [3, 4])
        self.assertEqual(self.rules("--after=15", "--limit=1"), [3])
        self.assertEqual(self.rules("--after=4"), [])
        lines = self.text("rule", "list").splitlines()
        self.assertEqual(lines[0].split(), ["ID", "NAME", "ENABLED", "ACTIONS", "WHEN"])
        self.assertIn("stamp, notify, quarantine", lines[1])
        self.assertIn("there are more: --after 15", self.text("rule", "list", "--limit=1"))
        self.apply("rules: [{id: 9, when: always, verdict: {reject: no}, actions: [delete]}]")
        self.assertIn("delete, reject", self.text("rule", "list"))
        self.apply("rules: []")
        self.assertEqual(self.text("rule", "list"), "no rules\n")
        self.assertEqual(self.rules(), [])

    def test_shows_a_rule_as_in_a_policy_and_as_stored(self):
        shown = self.json("rule", "show", "15")
        self.assertEqual((shown["name"], shown["enabled"], shown["when"]),
                         ("executables", True, {"attachment_name": ["*.exe"]}))
        self.assertEqual([(action["action"], action["code"], action["setting"])
                          for action in shown["actions"]],
                         [("stamp", 8, f"1-{self.ids['legal']}"), ("notify", 10,
                                                                   f"1-{self.ids['a']}"),
                          ("quarantine", 2, f"1-{self.ids['virus']}")])
        text = self.text("rule", "show", "15")
        self.assertIn("  - stamp: legal\n", text)
        self.assertIn(f"# action 1, stamp, is stored as '1-{self.ids['legal']}'\n", text)
        # The text is an entry: as the only rule of a policy it is the same rule.
        indented = text.replace("\n", "\n  ")
        self.apply(POLICY.split("rules:")[0] + "rules:\n- " + indented)
        self.assertEqual(self.json("rule", "show", "15")["actions"], shown["actions"])

    def test_shows_what_actions_are_bound_to(self):
        self.assertEqual(self.bound(15), {1: ["legal"], 2: ["a"], 3: ["virus"]})
        self.assertEqual(self.bound(15, "notify"), {2: ["a"]})
        self.assertEqual(self.bound(15, "3"), {3: ["virus"]})
        self.assertEqual(self.bound(4), {})
        self.assertEqual(self.text("rule", "bindings", "4"),
                         "no action of rule 4 'rule 4' uses named objects\n")
        self.assertRegex(self.text("rule", "bindings", "3", "2"),
                         r"^PLACE +ACTION +RESULT +OBJECTS\n2 +stamp +0 Success +stamp 'short' ")

    # --- binding ---

    def test_binds_by_name_and_by_id(self):
        self.assertEqual(self.text("rule", "bind", "15", "stamp", "short"),
                         f"result 0 (Success): rule 15 'executables': action 1, stamp, uses stamp "
                         f"'short' ({self.ids['short']}), revision 2\n")
        self.assertEqual(self.bound(15), {1: ["short"], 2: ["a"], 3: ["virus"]})
        report = self.bind(15, 2, "b", self.ids["a"])
        self.assertEqual((report["result"], report["written"], report["revision"]), (0, True, 3))
        self.assertEqual(self.bound(15)[2], ["b", "a"])
        self.assertEqual(self.json("rule", "show", "15")["actions"][1]["setting"],
                         f"2-{self.ids['b']}-{self.ids['a']}")
        self.bind(3, 2, "legal")
        self.assertEqual(self.bound(3), {1: ["legal"], 2: ["legal"]})
        self.assertTrue(self.json("store", "check")["sound"])
        self.assertEqual([row["what"] for row in self.json("store", "audit")][-3:],
                         ["write rule 15 'executables'", "write rule 15 'executables'",
                          "write rule 3 'two stamps'"])

    def test_a_number_that_is_a_name_too_binds_nothing(self):
        legal = self.ids["legal"]
        added = self.json("object", "add", "stamp", str(legal), "text=x")["id"]
        complaint = self.complaint("rule", "bind", "15", "stamp", str(legal), status=2)
        self.assertIn(f"'{legal}' is both the name of stamp '{legal}' ({added}) and the id of "
                      f"stamp 'legal' ({legal})", complaint)
        self.assertEqual(self.bound(15, "stamp"), {1: ["legal"]})
        self.bind(15, "stamp", added)
        self.assertEqual(self.bound(15, "stamp"), {1: [str(legal)]})
        self.json("object", "add", "stamp", "4000", "text=x")
        self.bind(15, "stamp", "4000")
        self.assertEqual(self.bound(15, "stamp"), {1: ["4000"]})

    def test_the_same_binding_changes_nothing(self):
        self.assertEqual(self.bind(15, "stamp", "legal")["revision"], 1)

    def test_new_objects_are_not_looked_at_by_the_operation_but_before_writing(self):
        for wanted, word in ((999, "there is no object 999"),
                             (self.ids["a"], "is no stamp"), (4294967295, "there is no object")):
            done = self.kavi("rule", "bind", "15", "stamp", str(wanted), "--json", status=1)
            report = json.loads(done.stdout)
            self.assertEqual((report["result"], report["written"]), (0, False))
            self.assertIn(word, report["error"])
            self.assertIn("result 0 (Success), but not written: ", done.stderr.decode())
        self.assertEqual(self.bound(15)[1], ["legal"])

    def test_what_cannot_be_meant(self):
        for arguments, status, word in (
                (["bind", "99", "stamp", "legal"], 1, "there is no rule 99"),
                (["bind", "15", "stamp", "none"], 1, "there is no stamp 'none'"),
                (["bind", "15", "stamp", "a"], 1, "there is no stamp 'a'"),
                (["bind", "15", "stmp", "legal"], 2, "did you mean 'stamp'?"),
                (["bind", "15", "4", "legal"], 2, "has no action '4'"),
                (["bind", "15", "0", "legal"], 2, "has no action '0'"),
                (["bind", "3", "stamp", "short"], 2, "write the place of one: 1, 2"),
                (["bind", "3", "delete", "short"], 2, "uses no named objects"),
                (["bind", "15", "stamp", "legal", "short"], 2, "uses one stamp, not several"),
                (["bind", "15", "stamp"], 2, ""), (["bind", "x", "stamp", "legal"], 2, ""),
                (["bindings", "99"], 1, "there is no rule 99"),
                (["bindings", "3", "delete"], 2, "uses no named objects"),
                (["show", "99"], 1, "kavi rule list shows what is there"),
                (["list", "--after", "99"], 1, "there is no rule 99"),
                (["list", "--limit", "0"], 2, "")):
            self.assertIn(word, self.complaint("rule", *arguments, status=status), arguments)
        self.assertEqual(self.json("store", "audit")[-1]["revision"], 1)

    def test_an_object_in_use_stays_and_the_way_on_works(self):
        done = self.kavi("object", "remove", "stamp", "legal", "--json", status=1)
        report = json.loads(done.stdout)
        self.assertEqual((report["result"], report["result_name"], report["rules"]),
                         (4, "InUse", [15, 3]))
        self.assertIn("it is used by rule 15 'executables', rule 3 'two stamps'",
                      done.stderr.decode())
        self.assertEqual([rule["id"] for rule in
                          self.json("object", "show", "stamp", "legal")["rules"]], [15, 3])
        self.bind(15, "stamp", "short")
        self.bind(3, 1, "short")
        self.text("object", "remove", "stamp", "legal")
        self.assertTrue(self.json("store", "check")["sound"])

    def test_many_bindings_at_once_are_all_counted(self):
        processes = []
        for i in range(6):
            name = "short" if i % 2 else "legal"
            processes.append(subprocess.Popen(
                [KAVI, "rule", "bind", "3", str(1 + i % 2), name, "--store", self.location],
                stdout=subprocess.DEVNULL, stderr=subprocess.PIPE))
            processes.append(subprocess.Popen(
                [KAVI, "object", "add", "stamp", f"n{i}", "text=x", "--store", self.location],
                stdout=subprocess.DEVNULL, stderr=subprocess.PIPE))
        for process in processes:
            _, complaint = process.communicate(timeout=120)
            self.assertEqual(process.returncode, 0, complaint)
        self.assertEqual(self.bound(3), {1: ["legal"], 2: ["short"]})
        self.assertEqual(len(self.json("object", "list", "stamp")), 8)

    def test_names_of_any_bytes(self):
        awkward = "'; DROP TABLE rule; --\x1b[31m\n"
        self.json("object", "add", "stamp", awkward, "text=x")
        self.bind(15, "stamp", awkward)
        self.assertEqual(self.bound(15)[1], [awkward])
        for command in (["rule", "bindings", "15"], ["rule", "show", "15"], ["rule", "list"]):
            self.assertTrue(self.text(*command).replace("\n", "").isprintable())


on_every_store(RuleCommand)


class DamagedStore:
    """Spoilt behind the store's back, as only a file can be."""

    def test_an_action_whose_object_is_gone_cannot_be_bound(self):
        self.text("policy", "apply", self.put("policy.yaml", POLICY))
        number = self.json("object", "show", "stamp", "legal")["id"]
        connection = sqlite3.connect(self.location.removeprefix("sqlite:"))
        connection.execute("DELETE FROM named_object WHERE id = ?", (number,))
        connection.commit()
        connection.close()
        done = self.kavi("rule", "bind", "15", "stamp", "short", "--json", status=1)
        report = json.loads(done.stdout)
        self.assertEqual((report["result"], report["result_name"]), (1405, "ReadFailed"))
        self.assertIn("could not read an object", report["error"])
        self.assertIn("which is not there", self.text("rule", "bindings", "15"))
        report = json.loads(self.kavi("store", "check", "--json", status=1).stdout)
        self.assertFalse(report["sound"])
        self.assertTrue(any(f"rule 15 refers to object {number}" in fault
                            for fault in report["faults"]), report["faults"])


on_files(DamagedStore)

if __name__ == "__main__":
    unittest.main(verbosity=2)
