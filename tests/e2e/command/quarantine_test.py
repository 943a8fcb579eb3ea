"""`kavi quarantine` and `kavi archive`: what an administrator does with messages put aside."""
import fcntl
import json
import sqlite3
import subprocess
import unittest

from gateway_case import GatewayTest, Sink
from kavi_process import KAVI, kavi

POLICY = """
quarantine_areas: [{name: Virus, aging_days: 30}, {name: Spam}]
archive_areas: [{name: Sales}]
rules:
- {id: 4, when: {subject: {matches: keep}}, actions: [{archive: Sales}]}
- {id: 7, when: {subject: {matches: invoice}}, actions: [{quarantine: Virus}]}
- {id: 8, when: {subject: {matches: offer}}, actions: [{quarantine: Spam}]}
"""


def mail(subject, sender="a@x.example"):
    return (f"From: {sender}\r\nTo: b@y.example\r\nSubject: {subject}\r\n\r\n"
            "The body.\r\n").encode()


class QuarantineTest(GatewayTest):

    def setUp(self):
        super().setUp()
        self.put("policy.yaml", POLICY)
        self.scan, self.plain = Sink(self, "scan"), Sink(self, "plain")
        self.sends_to(scan=self.scan, plain=self.plain)
        for kept in ("quarantine", "archive"):
            (self.folder / kept).mkdir()

    def file(self, *subjects):
        folder = self.folder / f"in{len(list(self.folder.glob('in*')))}"
        folder.mkdir()
        for number, subject in enumerate(subjects):
            self.put(f"{folder.name}/{number}.eml", mail(subject))
        self.out = self.folder / f"out-{folder.name}"
        self.deliver("-j1", folder)

    def command(self, what, *arguments, status=0, kind="quarantine", **options):
        done = kavi(kind, what, "--config", self.config, *arguments, **options)
        self.assertEqual(done.returncode, status, done.stderr.decode() + done.stdout.decode())
        return done

    def listed(self, *arguments, kind="quarantine"):
        return json.loads(self.command("list", "--json", *arguments, kind=kind).stdout)

    def test_lists_what_is_there(self):
        self.state.mkdir()
        self.assertEqual(self.command("list").stdout, b"0 messages\n")
        self.file("first invoice", "an offer", "please keep", "Rechnung: INVOICE")
        found = self.listed()
        self.assertEqual([entry["subject"] for entry in found],
                         ["first invoice", "an offer", "Rechnung: INVOICE"])
        first = found[0]
        self.assertEqual((first["area"], first["rule"], first["from"], first["rcpt"]),
                         ("Virus", "7", "a@x.example", ["b@y.example"]))
        self.assertEqual(first["expires"], first["stored"] + 30 * 24 * 3600)
        self.assertIsNone(found[1]["expires"])
        self.assertEqual([entry["subject"] for entry in self.listed("--area", "Spam")],
                         ["an offer"])
        self.assertEqual([entry["subject"] for entry in self.listed("--match", "invoice")],
                         ["first invoice", "Rechnung: INVOICE"])
        self.assertEqual(self.listed("--match", "B@Y.example"), found)
        self.assertEqual(self.listed("--after", str(first["number"])), found[1:])
        self.assertEqual(self.listed("--limit", "1"), found[:1])
        self.assertIn(f"2 messages; the next: --after {found[1]['number']}\n",
                      self.command("list", "--limit", "2").stdout.decode())
        self.assertEqual([entry["area"] for entry in self.listed(kind="archive")], ["Sales"])
        text = self.command("list").stdout.decode()
        for word in ("NUMBER", "first invoice", "<a@x.example>", "Virus", "3 messages"):
            self.assertIn(word, text)

    def test_shows_one(self):
        self.file("invoice")
        [entry] = self.listed()
        number = str(entry["number"])
        text = self.command("show", number).stdout.decode()
        for word in ("Virus", "<b@y.example>", entry["path"], "invoice", "kept until"):
            self.assertIn(word, text)
        self.assertEqual(json.loads(self.command("show", "--json", number).stdout), entry)
        shown = self.command("show", "--message", number).stdout
        with open(entry["path"], "rb") as stored:
            self.assertEqual(shown, stored.read())
        missing = self.command("show", "99", status=1).stderr.decode()
        self.assertIn("no such message in quarantine (kavi quarantine list", missing)
        self.assertIn("no such message in the archive",
                      self.command("show", number, status=1, kind="archive").stderr.decode())

    def test_a_released_message_passes_its_rule(self):
        self.file("invoice")
        [entry] = self.listed()
        said = self.command("release", str(entry["number"]))
        self.assertIn(b"1 message released", said.stdout)
        self.assertEqual((said.stderr, self.listed()), (b"", []))
        self.assertEqual(self.stored("quarantine"), [])
        self.spool("send")
        [back] = self.scan.messages()
        self.assertIn(b"X-kavi-reprocess-rules: 7\r\n", back)
        self.assertIn(b"X-kavi-reprocess-seal: ", back)
        # It comes back through the listener that scans, and its rule lets it pass.
        self.put("back.eml", back)
        self.out = self.folder / "out-back"
        [report], _ = self.deliver("--reinjected", "--from", "a@x.example", "--rcpt", "b@y.example",
                                   self.folder / "back.eml")
        self.assertEqual(report["verdict"], "changed")
        self.assertEqual((self.out / "back.eml").read_bytes(), mail("invoice"))
        self.assertEqual(self.listed(), [])

    def test_release_can_keep_redirect_and_pass_the_scan_by(self):
        self.file("invoice")
        number = str(self.listed()[0]["number"])
        self.command("release", number, "--keep", "--unscanned", "--from", "<>",
                     "--rcpt", "c@z.example", "--rcpt", "<d@z.example>")
        self.assertEqual(len(self.listed()), 1)
        self.spool("send")
        self.assertEqual(self.plain.messages(), [mail("invoice")])
        self.assertEqual(self.plain.commands("MAIL"), ["MAIL FROM:<>"])
        self.assertEqual([text.split(" ")[1] for text in self.plain.commands("RCPT")],
                         ["TO:<c@z.example>", "TO:<d@z.example>"])

    def test_two_at_the_same_moment_release_each_message_once(self):
        subjects = [f"invoice {number}" for number in range(60)]
        self.file(*subjects)
        numbers = [str(entry["number"]) for entry in self.listed()]
        both = [subprocess.Popen([KAVI, "quarantine", "release", "--json", "--config",
                                  self.config, *numbers],
                                 stdout=subprocess.PIPE, stderr=subprocess.PIPE)
                for _ in range(2)]
        said = [process.communicate(timeout=60) for process in both]
        released = [json.loads(out)["released"] for out, _ in said]
        self.assertEqual(sum(released), len(subjects), said)
        for process, (_, complaints), done in zip(both, said, released):
            lines = complaints.decode().splitlines()
            self.assertEqual(process.returncode, 1 if lines else 0)
            self.assertEqual(len(lines), len(subjects) - done)
            for line in lines:
                self.assertRegex(line, "by somebody else|released or deleted meanwhile|no such")
        self.assertEqual((self.listed(), self.stored("quarantine")), ([], []))
        self.spool("send")
        got = [back.split(b"Subject: ")[1].split(b"\r\n")[0].decode()
               for back in self.scan.messages()]
        self.assertEqual(sorted(got), sorted(subjects))

    def test_what_somebody_else_is_at_is_left_to_them(self):
        self.file("invoice")
        [entry] = self.listed()
        number = str(entry["number"])
        with open(entry["path"], "rb") as held:
            fcntl.flock(held, fcntl.LOCK_EX)
            for command in (("release",), ("release", "--keep"), ("delete", "--yes")):
                said = self.command(*command, number, status=1).stderr.decode()
                self.assertIn(f"{number}: is being released or deleted by somebody else", said)
        self.assertEqual(self.listed(), [entry])
        self.command("release", number)  # nothing is left of a hold whose process is gone
        self.assertEqual(self.listed(), [])

    def test_an_archived_message_is_sent_as_a_copy(self):
        self.file("keep this")
        [entry] = self.listed(kind="archive")
        said = self.command("release", str(entry["number"]), kind="archive").stderr.decode()
        self.assertIn("all rules scan it again", said)
        self.assertEqual(self.listed(kind="archive"), [entry])
        self.spool("send")
        self.assertEqual(self.scan.messages(), [mail("keep this")])

    def test_release_that_fails_leaves_all_as_it_was(self):
        self.file("invoice", "offer")
        before = self.listed()
        number = str(before[0]["number"])
        self.assertIn(b"is no address",
                      self.command("release", number, "--rcpt", "a b", status=2).stderr)
        self.settings()
        refused = self.command("release", number, status=1).stderr.decode()
        self.assertIn("set scan_host", refused)
        self.assertEqual(self.listed(), before)
        self.assertEqual(self.waiting(), [])
        # Of several, those that can go do go.
        self.sends_to(scan=self.scan)
        (self.folder / before[0]["path"]).unlink()
        said = self.command("release", number, str(before[1]["number"]), status=1)
        self.assertIn(b"its file is gone", said.stderr)
        self.assertIn(b"1 message released", said.stdout)

    def test_what_was_released_and_stays_in_the_list_can_be_deleted(self):
        self.file("invoice")
        number = str(self.listed()[0]["number"])
        index = sqlite3.connect(self.state / "store.sqlite", isolation_level=None)
        self.addCleanup(index.close)
        index.execute("CREATE TRIGGER kept BEFORE DELETE ON message_index "
                      "BEGIN SELECT RAISE(ABORT, 'no'); END")
        said = self.command("release", number, status=1)
        self.assertIn(b"1 message released", said.stdout)
        self.assertIn(f"it was released: do not release it again, but take it away with "
                      f"kavi quarantine delete {number})", said.stderr.decode())
        self.assertIn(b"its file is gone", self.command("release", number, status=1).stderr)
        index.execute("DROP TRIGGER kept")
        self.command("delete", "--yes", number)
        self.assertEqual(self.listed(), [])
        self.spool("send")
        self.assertEqual(len(self.scan.messages()), 1)

    def test_one_without_known_recipients_needs_some(self):
        self.file("invoice")
        [entry] = self.listed()
        index = sqlite3.connect(self.state / "store.sqlite")
        with index:
            index.execute("UPDATE message_index SET recipients = x'', sender = NULL")
        index.close()
        self.assertIn("write --rcpt ADDRESS", self.command(
            "release", str(entry["number"]), status=1).stderr.decode())
        self.assertEqual(len(self.listed()), 1)
        self.command("release", str(entry["number"]), "--rcpt", "b@y.example")
        self.spool("send")
        self.assertEqual(len(self.scan.messages()), 1)

    def test_delete_asks(self):
        self.file("invoice", "offer")
        first, second = self.listed()
        refused = self.command("delete", str(first["number"]), status=2)
        self.assertIn(b"write --yes", refused.stderr)
        self.assertEqual(len(self.listed()), 2)
        done = self.command("delete", "--yes", str(first["number"]), str(first["number"]))
        self.assertEqual(done.stdout, b"1 message deleted\n")
        self.assertEqual(self.listed(), [second])
        self.assertEqual(len(self.stored("quarantine")), 1)

    def test_purge_removes_what_is_past_its_days(self):
        self.file("old invoice", "an offer", "new invoice")
        old, _, new = self.listed()
        index = sqlite3.connect(self.state / "store.sqlite")
        with index:
            index.execute("UPDATE message_index SET stored_at = stored_at - 2592000,"
                          " expires_at = expires_at - 2592000 WHERE id = ?", (old["number"],))
        index.close()
        would = json.loads(self.command("purge", "--dry-run", "--json").stdout)
        self.assertEqual([entry["number"] for entry in would], [old["number"]])
        self.assertEqual(self.command("purge", kind="archive").stdout, b"0 messages removed\n")
        self.assertEqual(len(self.stored("quarantine")), 3)
        self.assertEqual(self.command("purge").stdout, b"1 message removed\n")
        self.assertEqual(len(self.stored("quarantine")), 2)
        self.assertIn(new, self.listed())

    def test_looking_makes_no_folder(self):
        self.assertIn(b"state_folder", self.command("list", status=1).stderr)
        self.assertFalse(self.state.exists())

    def test_hostile_texts_are_shown_escaped(self):
        self.file("offer \x1b[31mred\x07")
        for command in (("list",), ("show", str(self.listed()[0]["number"]))):
            said = self.command(*command).stdout
            self.assertNotIn(b"\x1b", said)
            self.assertIn(b"offer \\x1B[31mred\\x07", said)


if __name__ == "__main__":
    unittest.main()
