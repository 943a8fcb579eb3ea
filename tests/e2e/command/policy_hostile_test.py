"""Policy files that somebody made to harm, and texts of any bytes, on every kind of store."""
import json
import os
import subprocess
import time
import unittest
import urllib.parse

from kavi_process import KAVI, KaviTest, kavi
from store_case import (PostgresServer, StoreTest, on_every_store, setUpModule,  # noqa: F401
                        tearDownModule)

MEGABYTES = 1 << 20
MOST_MEMORY = 1000 * MEGABYTES
MOST_SECONDS = 600 if os.environ.get("KAVI_SANITIZE") else 60  # some seconds on an idle machine

GOOD = "stamps:\n- {name: legal, text: care}\nrules:\n- {id: 1, when: always, actions: [delete]}\n"


def bomb():
    """Each alias stands for ten of the one before."""
    lines = ["a0: &a0 x\n"]
    lines += [f"a{i}: &a{i} [{','.join([f'*a{i - 1}'] * 10)}]\n" for i in range(1, 12)]
    return "".join(lines).encode()


# What the file holds: a piece of it, how often, and what everybody is told.
HOSTILE = {
    "aliases of aliases": (bomb(), 1, "aliases counted in full"),
    "an alias of itself": (b"rules: &a [*a]\n", 1, "an alias that stands inside what it names"),
    "100 MB": (b"# 0123456789\n" * 1000, 8000, "larger than "),
    "a list without end": (b"rules: [", 16_000_000 // 8, "more than "),
    "deep brackets": (b"[", 16_000_000, "brackets that hold more than "),
    "deep brackets with values": (b"[a,", 5_000_000, "brackets that hold more than "),
    "deep maps": (b"{a: ", 1_000_000, "brackets that hold more than "),
    "deep lists": (b"- ", 1_000_000, "nested more than 64 levels deep"),
    "deep indentation": (b"".join(b" " * i + b"a:\n" for i in range(3000)), 1, "nested more than"),
    "a deep condition": (b"rules:\n- {id: 1, when: " + b"{not: " * 5000 + b"always" + b"}" * 5000 +
                         b", actions: [delete]}\n", 1, "nested more than 64 levels deep"),
    "many values": (b"- {id: 1}\n", 1_500_000, "more than 3000000 values"),
    "a huge text": (b"stamps:\n- {name: a, text: '" + b"x" * 9_000_000 + b"'}\nrules: []\n", 1,
                    "the text is longer than "),
    "a huge key": (b"? " + b"k" * 9_000_000 + b"\n: 1\n", 1, "unknown key 'kkkk"),
    "a merge key": (b"a: &a {x: 1}\nrules:\n- {<<: *a, id: 1}\n", 1, "unknown key '<<'"),
    "a tag": (b"rules: !!python/object/apply:os.system [x]\n", 1, "YAML tag "),
    "a local tag": (b"rules: !include /etc/passwd\n", 1, "YAML tag "),
    "a key twice": (GOOD.encode() + b"rules: []\n", 1, "key 'rules' stands twice"),
    "two documents": (GOOD.encode() + b"---\nrules: []\n", 1, "a second YAML document"),
    "UTF-16": (GOOD.encode("utf-16"), 1, "not UTF-8"),
    "UTF-32": (GOOD.encode("utf-32"), 1, "not UTF-8"),
    "UTF-16 without a mark": (GOOD.encode("utf-16-le"), 1, "control byte 0"),
    "Latin-1": (GOOD.encode() + b"# \xe9\n", 1, "not UTF-8"),
    "an overlong sequence": (GOOD.encode() + b"# \xc0\xaf\n", 1, "not UTF-8"),
    "a NUL": (GOOD.encode() + b"\0", 1, "control byte 0"),
    "an escaped NUL": (b'stamps:\n- {name: "a\\0b", text: x}\nrules: []\n', 1, "a name is one line"),
    "a file from elsewhere": (b"stamps:\n- {name: a, file: /proc/self/environ}\nrules: []\n", 1,
                              "stamps: "),
}


class HostileFileTest(StoreTest):
    """The files are refused before any store is asked, whatever its kind."""

    def new_location(self):
        return f"sqlite:{self.folder}/store.sqlite"

    def run_bounded(self, *arguments):
        """Exit status, what it said, seconds and bytes of memory."""
        complaint = self.folder / "complaint"
        begun = time.monotonic()
        with open(complaint, "wb") as out:
            process = subprocess.Popen([KAVI, *map(str, arguments)], stdin=subprocess.DEVNULL,
                                       stdout=out, stderr=out)
            _, status, used = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        return (process.returncode, complaint.read_text(errors="replace"),
                time.monotonic() - begun, used.ru_maxrss * 1024)

    def test_hostile_files_are_refused_soon_and_change_nothing(self):
        self.kavi("policy", "apply", self.put("good.yaml", GOOD))
        before = self.kavi("policy", "export").stdout
        costs = []
        for name, (piece, times, words) in HOSTILE.items():
            path = self.folder / "hostile.yaml"
            with open(path, "wb") as file:
                for _ in range(times):
                    file.write(piece)
            for command in ("apply", "diff", "check"):
                if command != "apply" and path.stat().st_size > MEGABYTES:
                    continue
                target = [] if command == "check" else ["--store", self.location]
                status, text, seconds, memory = self.run_bounded("policy", command, path, *target)
                self.assertEqual(status, 2, (name, command, text[:500]))
                self.assertIn(words, text, (name, command))
                self.assertIn("hostile.yaml", text, (name, command))
                self.assertLess(len(text), 20_000, (name, command))
                self.assertLess(seconds, MOST_SECONDS, (name, command))
                if not os.environ.get("KAVI_SANITIZE"):
                    self.assertLess(memory, MOST_MEMORY, (name, command))
                costs.append((memory // MEGABYTES, round(seconds, 1), name))
        self.assertEqual(self.kavi("policy", "export").stdout, before)
        print("\nmost memory (MB, s):", sorted(costs)[-3:])


def sequences():
    """Texts that break what puts texts into other texts."""
    return ["'; DROP TABLE named_object; --", "\" OR \"\"=\"", "$1", "%s%n", "{bytes}", "\\'; --",
            "'||(SELECT 1)||'", "x', 1); DELETE FROM rule; --", "/* */", "-- ", "?1", ":a", "@a",
            "OPP:mine", "opp:mine", "Opp:x", "NULL", "\\x41", "E'\\101'", "日本語", "a: b", "- x", "#",
            "&a", "*a", "!t", "| x", "> x", "~", "yes", "0x1f", "1e3", "'", '"', "\\", "{a}",
            "[a]", "\u00a0", "\u2028", "\ufeff", "\U0001F600", "a\u0301", "\x85", "x" * 255]


class AnyText:

    def policy_with(self, texts):
        quoted = ['"' + "".join(f"\\U{ord(c):08x}" for c in text) + '"' for text in texts]
        objects = "".join(f"- {{name: {q}, text: {q}, note: {q}}}\n" for q in quoted)
        rules = "".join(
            f"- {{id: {i}, name: {q}, when: {{subject: {{matches: '{pattern}'}}}}, "
            f"actions: [{{stamp: {q}}}, {{tag_subject: {q}}}]}}\n"
            for i, (q, pattern) in enumerate(
                ((q, "x" + "".join(f"\\x{{{ord(c):x}}}" for c in t[:100]))
                 for q, t in zip(quoted, texts)), 1))
        return f"stamps:\n{objects}rules:\n{rules}"

    def test_any_text_comes_back_and_does_nothing_else(self):
        texts = sequences()
        self.kavi("policy", "apply", self.put("p.yaml", self.policy_with(texts)))
        listed = self.json("object", "list", "stamp", "--limit", "1000")
        self.assertEqual([entry["name"] for entry in listed], texts)
        shown = self.json("object", "show", "stamp", texts[0])
        self.assertEqual(shown["fields"]["text"], texts[0])
        exported = self.put("exported.yaml", self.kavi("policy", "export").stdout)
        again = self.json("policy", "apply", exported)
        self.assertEqual((again["changes"], again["revision"]), ([], 1))
        # Into an empty store, the same policy is the same file.
        other = self.new_location() if "sqlite" not in self.location else self.location + "2"
        self.location = other
        self.kavi("store", "init")
        self.kavi("policy", "apply", exported)
        self.assertEqual(self.kavi("policy", "export").stdout, exported.read_bytes())
        self.assertIn("; sound", self.text("store", "check"))

    def test_any_bytes_of_objects_come_back_by_export_and_apply(self):
        every = bytes(range(1, 256))
        names = [b"\xff\xfe", b"\xc3\x28", b"\x80" * 300, every.replace(b"\x7f", b""), b"\xed\xa0\x80"]
        for i, name in enumerate(names):
            setting = self.put(f"s{i}", b"1:2:%d:%s:%d:%s:" % (len(name), name, len(name), name))
            self.kavi("object", "add", "stamp", os.fsdecode(name), "--setting-file", setting)
        large = "m" * 60_000
        self.kavi("object", "add", "stamp", "large", "text=" + large)
        before = {e["id"]: self.json("object", "show", e["id"])
                  for e in self.json("object", "list", "--limit", "1000")}
        exported = self.put("exported.yaml", self.kavi("policy", "export").stdout)
        revision = self.json("policy", "diff", exported)["revision"]
        self.kavi("policy", "apply", self.put("empty.yaml", "rules: []\n"))
        self.assertEqual(self.json("object", "list"), [])
        self.kavi("policy", "apply", exported)
        after = [self.json("object", "show", e["id"])
                 for e in self.json("object", "list", "--limit", "1000")]
        kept = ("name", "name_encoded", "setting", "setting_encoded", "type")
        self.assertEqual(sorted(str([one.get(key) for key in kept]) for one in before.values()),
                         sorted(str([one.get(key) for key in kept]) for one in after))
        self.assertEqual(self.json("policy", "diff", exported)["revision"], revision + 2)
        found = {urllib.parse.unquote_to_bytes(one.get("name_encoded", one["name"]))
                 for one in after}
        self.assertEqual(found, {*names, b"large"})


on_every_store(AnyText)


class LocationTest(KaviTest):

    def test_no_location_of_a_server_reaches_further(self):
        good = PostgresServer.shared.ask("new")
        for trick in ("&options=-c%20search_path%3Dpg_catalog", "&options=-c%20role%3Dnobody",
                      "&service=x", "&passfile=/etc/shadow", "&sslrootcert=/etc/shadow",
                      "&dbname=x'%3B%20DROP%20TABLE%20rule%3B--", "&host=%2Fnonexistent",
                      "&user='%3B--", "&nosuch=1", "&client_encoding=SJIS"):
            done = kavi("store", "init", "--store", good + trick)
            self.assertIn(done.returncode, (0, 1, 2), trick)
            if done.returncode == 0:
                self.assertEqual(kavi("store", "check", "--store", good + trick).returncode, 0)
            else:
                self.assertIn(b"kavi: ", done.stderr, trick)
                self.assertLess(len(done.stderr), 1000, trick)


if __name__ == "__main__":
    unittest.main(verbosity=2)
