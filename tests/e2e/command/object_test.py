"""`kavi object`: named objects in a store, one operation for each command."""
import concurrent.futures
import json
import os
import unittest
import urllib.parse

from kavi_process import kavi
from store_case import on_every_store, setUpModule, tearDownModule  # noqa: F401

# Texts that somebody may try, or that may simply be called so.
AWKWARD_NAMES = ["'; DROP TABLE named_object; --", "\" OR 1=1 --", "$1", "%s", "{bytes}", "a\tb\nc",
                 "\x01\x1b[31m", "日本語 \U0001F600", "x" * 5000, " ", "opp:x", "Opp:x", "oPP:",
                 "OPP", "-", "NULL", "\\x00", "a=b"]


def bytes_of(entry, key):
    """A text of a JSON report, whatever its bytes."""
    encoded = entry.get(f"{key}_encoded")
    return entry[key].encode() if encoded is None else urllib.parse.unquote_to_bytes(encoded)


class ObjectCommand:

    def add(self, kind, name, *fields, **options):
        return self.json("object", "add", kind, name, *fields, **options)["id"]

    def show(self, *target):
        return self.json("object", "show", *target)

    def listed(self, *arguments):
        return [entry["name"] for entry in self.json("object", "list", *arguments)]

    def refused(self, code, word, *arguments):
        """The report of an operation that answers `code`, and that people are told the same."""
        done = self.kavi(*arguments, "--json", status=1)
        report = json.loads(done.stdout)
        self.assertEqual((report["result"], report["result_name"]), (code, word), report)
        self.assertIn(f"kavi: result {code} ({word}): ", done.stderr.decode())
        return report["error"]

    # --- one of each ---

    def test_fields_become_a_record_and_come_back(self):
        cases = [("stamp", ["text=Confidential.", "position=top", "signed_and_tnef=stamp", "note=n"],
                  {"text": "Confidential.", "position": "top", "signed_and_tnef": "stamp",
                   "note": "n"}, "1:2:13:Confidential.:1:n:"),
                 ("quarantine-area", ["aging_days=7"], {"aging_days": "7"}, "7:1:n:"),
                 ("archive_area", [], {}, "0:1:n:"),
                 ("notification", ["recipients=a@x.example", "recipients=b@x.example", "body=b",
                                   "subject=s=t"],
                  {"recipients": ["a@x.example", "b@x.example"], "body": "b", "subject": "s=t"},
                  "1:n:0::23:a@x.example;b@x.example:3:s=t:1:b:0::0:0:0:0:0:0:0:")]
        for kind, fields, expected, setting in cases:
            number = self.add(kind, "n", *fields)
            shown = self.show(kind, "n")
            self.assertEqual(shown, self.show(number))
            self.assertEqual(shown["setting"], setting)
            for key, value in expected.items():
                self.assertEqual(shown["fields"][key], value, kind)
            self.assertEqual((shown["id"], shown["owner"], shown["rules"], shown["usable"]),
                             (number, 0, [], True))

    def test_results_are_told_with_their_numbers(self):
        self.assertEqual(self.text("object", "add", "stamp", "a", "text=x"),
                         "result 0 (Success): stamp 'a' added, id 1\n")
        self.assertEqual(self.text("object", "update", "1", "text=y", "--name", "b"),
                         "result 0 (Success): stamp 'a' (1) changed, now 'b'\n")
        self.assertEqual(self.text("object", "remove", "stamp", "b"),
                         "result 0 (Success): stamp 'b' (1) removed\n")

    def test_an_empty_store_is_said_in_words(self):
        self.assertEqual(self.text("object", "list"), "no objects\n")
        self.assertEqual(self.text("object", "list", "--limit", "3"), "no objects\n")
        self.assertEqual(self.json("object", "list"), [])

    # --- what an operation refuses ---

    def test_missing_texts(self):
        for arguments in (["add", "stamp", "", "text=x"], ["add", "stamp", "a", "--setting", ""],
                          ["add", "quarantine-area", ""], ["add", "stamp", "", "--setting", ""]):
            self.assertIn("missing or empty",
                          self.refused(1004, "MissingArgument", "object", *arguments))
        self.add("stamp", "a", "text=x")
        self.refused(1004, "MissingArgument", "object", "update", "1", "--name", "")
        self.refused(1004, "MissingArgument", "object", "update", "1", "--setting", "")
        # An empty text is looked at before the name's beginning.
        self.refused(1004, "MissingArgument", "object", "add", "stamp", "OPP:x", "--setting", "")

    def test_reserved_names_in_capitals_only(self):
        for name in ("OPP:", "OPP:x", "OPP:'; --"):
            self.assertIn("choose another", self.refused(1015, "ReservedName", "object", "add",
                                                         "stamp", name, "text=x"))
        self.assertEqual(self.listed(), [])
        for name in ("opp:x", "Opp:x", "oPP:x", "OPP", "xOPP:", " OPP:"):
            self.add("stamp", name, "text=x")
        self.refused(1015, "ReservedName", "object", "update", "1", "--name", "OPP:x")

    def test_taken_names(self):
        self.add("stamp", "a", "text=x")
        self.add("quarantine-area", "a")
        self.add("stamp", "b", "text=x")
        self.assertIn("another one has this name",
                      self.refused(1401, "AddRefused", "object", "add", "stamp", "a", "text=y"))
        self.assertIn("choose another name",
                      self.refused(1402, "ModifyRefused", "object", "update", "stamp", "b", "--name",
                                   "a"))
        self.assertEqual(self.show("stamp", "a")["setting"], "2:1:1:x:0::")

    def test_objects_that_are_not_there(self):
        for target in (["77"], ["stamp", "none"], ["stamp", ""], ["4294967295"]):
            for command in ("show", "remove", "update"):
                rest = ["text=x"] if command == "update" else []
                self.assertIn("kavi object list shows what is there",
                              self.complaint("object", command, *target, *rest))
        # One of another owner, too.
        self.add("stamp", "mine", "text=x", "--owner=7")
        self.assertEqual(self.listed(), [])
        self.assertEqual(self.listed("--owner=7"), ["mine"])
        self.complaint("object", "show", "stamp", "mine")
        self.complaint("object", "remove", "1", "--owner=0")
        self.text("object", "remove", "1", "--owner=7")

    def test_ids_that_are_not_there_are_the_operations_to_tell(self):
        for number in ("77", "0", "4294967295"):
            for arguments, code, word in ((["show", number], 1405, "ReadFailed"),
                                          (["show", number, "--entry"], 1405, "ReadFailed"),
                                          (["update", number, "text=x"], 1405, "ReadFailed"),
                                          (["update", number, "--name", "b"], 1405, "ReadFailed"),
                                          (["remove", number], 2, "NotFound")):
                error = self.refused(code, word, "object", *arguments)
                self.assertIn(f"object {number}", error)
                self.assertIn("kavi object list shows what is there", error)
        self.assertEqual(self.json("store", "audit"), [])

    def test_an_id_of_another_owner(self):
        self.add("stamp", "mine", "text=x", "--owner=7")
        for arguments, code, word in ((["update", "1", "text=y"], 1402, "ModifyRefused"),
                                      (["remove", "1"], 2, "NotFound")):
            self.refused(code, word, "object", *arguments, "--owner=0")
        self.assertIn("object 1 is none of owner 0", self.complaint("object", "show", "1",
                                                                    "--owner=0"))
        # Whoever names no owner means the object itself.
        self.json("object", "update", "1", "text=y")
        self.assertEqual(self.show("1")["fields"]["text"], "y")
        self.json("object", "remove", "1")

    # --- usage ---

    def test_what_cannot_be_meant(self):
        self.add("stamp", "a", "text=x")
        cases = [(["add", "stmp", "a", "text=x"], "did you mean 'stamp'?"),
                 (["add", "stamp"], "NAME"), (["add", "stamp", "b"], "no text"),
                 (["add", "stamp", "b", "txt=x"], "did you mean 'text'?"),
                 (["add", "stamp", "b", "text"], "write KEY=VALUE"),
                 (["add", "stamp", "b", "=x"], "write KEY=VALUE"),
                 (["add", "stamp", "b", "name=c"], "an argument of its own"),
                 (["add", "stamp", "b", "text=x", "text=y"], "text"),
                 (["add", "stamp", "b", "text=x", "--setting", "y"], "more than one way"),
                 (["add", "stamp", "b", "text=x", "position=left"], "write top or end"),
                 (["add", "stamp", "b", "--setting", "0:1:1:x:0::"], "refuses the settings string"),
                 (["add", "quarantine-area", "b", "aging_days=-1"], "whole number"),
                 (["add", "notification", "b", "type=x"], "type"),
                 (["add", "stamp", "b", "--from", "/nonexistent"], "cannot be read"),
                 (["add", "stamp", "b", "--setting-file", "/"], "is a folder"),
                 (["update", "1"], "nothing to change"), (["show", "stamp"], "which stamp?"),
                 (["show", "1", "2"], "one object at a time"),
                 (["remove", "stamp", "a", "b"], "one object at a time"),
                 (["list", "stmp"], "did you mean 'stamp'?")]
        for arguments, word in cases:
            self.assertIn(word, self.complaint("object", *arguments, status=2), arguments)
        for arguments in (["list", "--limit", "0"], ["list", "--after", "-1"], ["show"], ["add"],
                          ["list", "--owner", "x"], ["list", "--after", "4294967296"]):
            self.complaint("object", *arguments, status=2)
        self.assertEqual(self.listed(), ["a"])

    # --- update ---

    def test_only_what_is_given_changes(self):
        self.add("stamp", "a", "text=x", "position=top", "note=n")
        self.json("object", "update", "stamp", "a", "text=y")
        self.assertEqual(self.show("1")["setting"], "1:1:1:y:1:n:")
        self.json("object", "update", "1", "position=", "note=")
        self.assertEqual(self.show("1")["setting"], "2:1:1:y:0::")
        self.put("text.txt", "from a file\n")
        self.json("object", "update", "1", "file=text.txt", cwd=self.folder)
        self.assertEqual(self.show("1")["fields"]["text"], "from a file")
        self.assertIn("the stamp has no text", self.complaint("object", "update", "1", "text=",
                                                              status=2))

    def test_two_at_once_lose_nothing(self):
        self.add("stamp", "a", "text=t", "note=n")
        for turn in range(6):
            fields = (f"text=t{turn}", f"note=n{turn}", f"position={('top', 'end')[turn % 2]}")
            with concurrent.futures.ThreadPoolExecutor(len(fields)) as pool:
                list(pool.map(lambda field: self.json("object", "update", "stamp", "a", field),
                              fields))
            kept = self.show("1")["fields"]
            self.assertEqual([f"{key}={kept[key]}" for key in ("text", "note", "position")],
                             list(fields))

    def test_what_got_another_name_meanwhile_is_not_removed(self):
        for turn in range(8):
            self.add("stamp", "a", "text=t")
            commands = (["update", "stamp", "a", "--name", f"kept{turn}"], ["remove", "stamp", "a"])
            with concurrent.futures.ThreadPoolExecutor(len(commands)) as pool:
                renamed, removed = [each.returncode == 0 for each in pool.map(
                    lambda words: kavi("object", *words, "--store", self.location), commands)]
            self.assertNotEqual(renamed, removed)
            self.assertEqual(f"kept{turn}" in self.listed(), renamed)

    def test_a_record_that_repeats_the_name_follows_a_new_one(self):
        self.add("quarantine-area", "a", "aging_days=3")
        self.json("object", "update", "1", "--name", "b")
        self.assertEqual(self.show("1")["setting"], "3:1:b:")
        self.add("notification", "n", "recipients=a@x.example", "body=b")
        self.json("object", "update", "notification", "n", "--name", "m")
        self.assertTrue(self.show("notification", "m")["setting"].startswith("1:m:"))

    def test_a_settings_string_that_fields_cannot_say_is_replaced_whole(self):
        self.add("stamp", "a", "--setting", "7:2:1:x:0::")
        shown = self.show("1")
        self.assertNotIn("fields", shown)
        self.assertTrue(shown["usable"])
        self.assertIn("none say the same", self.text("object", "show", "1"))
        self.assertIn("says more than fields can",
                      self.complaint("object", "update", "1", "text=y", status=2))
        self.json("object", "update", "1", "--name", "b")
        self.assertEqual(self.show("1")["setting"], "7:2:1:x:0::")
        self.add("quarantine-area", "q", "--setting", "07:1:q:")
        renamed = self.kavi("object", "update", "quarantine-area", "q", "--name", "r")
        self.assertIn(b"is called 'q' in its settings string", renamed.stderr)
        self.json("object", "update", "1", "--setting", "1:1:1:y:0::")
        self.assertEqual(self.show("1")["fields"]["position"], "top")

    # --- any bytes ---

    def test_awkward_names_are_names(self):
        for name in AWKWARD_NAMES:
            number = self.add("stamp", name, "text=x")
            shown = self.show("stamp", name)
            self.assertEqual((shown["id"], shown["name"]), (number, name))
            text = self.text("object", "show", str(number))
            self.assertTrue(text.replace("\n", "").isprintable(), text)
        self.assertEqual(self.listed("stamp"), AWKWARD_NAMES)
        table = self.text("object", "list")
        self.assertEqual(len(table.splitlines()), len(AWKWARD_NAMES) + 1)
        for row in self.json("store", "audit"):
            self.assertNotIn("\x1b", row["what"])
        for name in AWKWARD_NAMES:
            self.json("object", "remove", "stamp", name)
        self.assertTrue(self.json("store", "check")["sound"])

    def test_names_that_are_no_utf8(self):
        name = b"a\xff\xc3\x28\xed\xa0\x80"
        self.json("object", "add", "stamp", name.decode(errors="surrogateescape"), "text=x")
        [entry] = self.json("object", "list")
        self.assertEqual(bytes_of(entry, "name"), name)
        self.assertIn(r"a\xFF\xC3(\xED\xA0\x80", self.text("object", "list"))
        self.put("entry.yaml", "{name: !!binary gIE=, text: x}")
        self.json("object", "add", "stamp", "--from", self.folder / "entry.yaml")
        self.assertEqual(bytes_of(self.show("2"), "name"), b"\x80\x81")

    def test_a_nul_is_refused_and_never_cuts(self):
        entry = self.put("entry.yaml", '{name: "a\\0b", text: x}')
        self.assertIn("holds a NUL", self.complaint("object", "add", "stamp", "--from", entry,
                                                    status=2))
        setting = self.put("setting", b"2:1:3:a\0b:0::")
        self.assertIn("holds a NUL", self.complaint("object", "add", "stamp", "a", "--setting-file",
                                                    setting, status=2))
        self.assertEqual(self.listed(), [])

    def test_settings_strings_of_any_other_bytes_and_a_megabyte(self):
        every = bytes(range(1, 256)) * 4200
        setting = b"2:1:%d:%s:0::" % (len(every), every)
        self.assertGreater(len(setting), 1 << 20)
        path = self.put("setting", setting)
        self.json("object", "add", "stamp", "big", "--setting-file", path)
        shown = self.show("stamp", "big")
        self.assertEqual(bytes_of(shown, "setting"), setting)
        self.assertTrue(self.text("object", "show", "1").isascii())
        self.json("object", "update", "1", "--setting-file", path)
        self.assertEqual(bytes_of(self.show("1"), "setting"), setting)

    # --- entries ---

    def test_an_entry_of_a_policy(self):
        self.put("body.txt", "A rule matched.\n")
        entry = self.put("entry.yaml", "- name: tell\n  recipients: [a@x.example]\n"
                                       "  body_file: body.txt\n  attach: received\n")
        self.json("object", "add", "notification", "--from", entry)
        fields = self.show("notification", "tell")["fields"]
        self.assertEqual((fields["body"], fields["attach"]), ("A rule matched.\n", "received"))
        self.json("object", "add", "stamp", "s", "--from", "-", stdin=b"text: |\n  two\n  lines\n")
        self.assertEqual(self.show("stamp", "s")["fields"]["text"], "two\nlines")
        # The fields of an object are an entry, too.
        again = self.put("again.json", json.dumps(fields))
        self.json("object", "add", "notification", "twin", "--from", again)
        self.assertEqual(self.show("notification", "twin")["fields"], fields)
        self.json("object", "update", "notification", "twin", "--from", "-",
                  stdin=b"{name: other, recipients: [b@x.example], body: c}")
        self.assertEqual(self.show("notification", "other")["fields"]["body"], "c")

    def test_an_entry_goes_out_and_comes_back(self):
        self.add("stamp", "a", "text=two\nlines: 'x'", "position=top")
        self.add("stamp", "b", "--setting", "7:2:1:x:0::")
        self.json("object", "add", "stamp", b"\xff".decode(errors="surrogateescape"), "text=ä")
        for number in ("1", "2", "3"):
            before = self.show(number)
            entry = self.kavi("object", "show", "--entry", number).stdout
            self.json("object", "remove", number)
            again = self.json("object", "add", "stamp", "--from", "-", stdin=entry)
            after = self.show(str(again["id"]))
            self.assertEqual((bytes_of(after, "name"), after["setting"]),
                             (bytes_of(before, "name"), before["setting"]))

    def test_entries_that_are_none(self):
        deep = "[" * 10_000 + "]" * 10_000
        bomb = "a: &a [x, x]\n" + "".join(
            f"{chr(98 + i)}: &{chr(98 + i)} [*{chr(97 + i)}, *{chr(97 + i)}]\n" for i in range(25))
        for text, word in (("", "no entry"), ("[]", "no entry"), ("just a text", "no entry"),
                           ("[{name: a}, {name: b}]", "no entry"), ("{name: [a], text: x}", "name"),
                           ("{name: b, text: x}", "calls it 'b', the command 'a'"),
                           ("{text: x, text: y}", "twice"), ("{txt: x}", "did you mean 'text'?"),
                           ("{text: [x", "entry.yaml"), (deep, "entry.yaml"), (bomb, "entry.yaml"),
                           ("{text: \"\\x01\"}", "control byte")):
            path = self.put("entry.yaml", text)
            complaint = self.complaint("object", "add", "stamp", "a", "--from", path, status=2)
            self.assertIn(word, complaint, text[:60])
        large = self.put("large.yaml", b"text: " + b"x" * (17 << 20))
        self.assertIn("longer than", self.complaint("object", "add", "stamp", "a", "--from", large,
                                                    status=2))
        self.assertEqual(self.listed(), [])

    # --- listings ---

    def test_pages_and_types(self):
        for i in range(5):
            self.add("stamp", f"s{i}", "text=x")
            self.add("archive-area", f"a{i}")
        self.assertEqual(self.listed("archive-areas"), [f"a{i}" for i in range(5)])
        self.assertEqual(self.listed("2"), [f"s{i}" for i in range(5)])
        self.assertEqual(self.listed("--limit=3"), ["s0", "a0", "s1"])
        self.assertEqual(self.listed("stamp", "--limit=2", "--after=3"), ["s2", "s3"])
        self.assertEqual(self.listed("--after=9"), ["a4"])
        self.assertIn("there may be more: --after 3\n", self.text("object", "list", "--limit=3"))
        self.assertEqual(self.listed("--after=10"), [])

    def test_a_list_of_every_type_is_of_one_policy(self):
        size = 400
        for letter in "ab":
            self.put(f"{letter}.yaml", "rules: []\n" + "".join(
                f"{key}:\n" + "".join(f"- {{name: {letter}{i}{text}}}\n" for i in range(size))
                for key, text in (("stamps", ", text: x"), ("archive_areas", ""))))
        self.text("policy", "apply", self.folder / "a.yaml")
        with concurrent.futures.ThreadPoolExecutor(1) as pool:
            changes = pool.submit(lambda: [
                self.kavi("policy", "apply", self.folder / f"{'ba'[i % 2]}.yaml") for i in range(8)])
            while not changes.done():
                names = self.listed()
                self.assertEqual((len(names), len({name[0] for name in names})), (2 * size, 1))
            changes.result()

    def test_the_list_of_changes_says_who_and_what(self):
        self.add("stamp", "a", "text=x")
        self.json("object", "update", "1", "text=y")
        self.json("object", "remove", "1")
        rows = self.json("store", "audit")
        self.assertEqual([row["what"] for row in rows],
                         ["add stamp 'a' (1)", "change stamp 'a' (1)", "remove stamp 'a' (1)"])
        self.assertEqual([row["revision"] for row in rows], [1, 2, 3])
        self.assertEqual(len({row["who"] for row in rows}), 1)
        self.assertEqual(len(self.json("store", "audit", "--after", str(rows[0]["row"]))), 2)
        text = self.text("store", "audit", "--limit", "2")
        self.assertIn("there may be more: --after ", text)

    def test_the_one_behind_sudo_is_written_down(self):
        self.json("object", "add", "stamp", "a", "text=x",
                  env={**os.environ, "SUDO_USER": "alice\n\x1b[31m"})
        [row] = self.json("store", "audit")
        self.assertIn("(sudo: alice\\n\\x1B[31m)", row["who"])

    def test_doubts_are_told_and_do_no_harm(self):
        done = self.kavi("object", "add", "stamp", "a", "text=%SENDR%")
        self.assertIn(b"did you mean %SENDER%?", done.stderr)

    def test_without_a_store_nothing_happens(self):
        done = kavi("object", "list")
        self.assertEqual(done.returncode, 2)
        self.assertIn(b"no store is named", done.stderr)


on_every_store(ObjectCommand)

if __name__ == "__main__":
    unittest.main(verbosity=2)
