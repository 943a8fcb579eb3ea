"""`kavi spool`: what an administrator sees of the spool and does with it."""
import json
import os
import re
import subprocess
import time
import unittest

from gateway_case import GatewayTest, Sink, unprivileged
from kavi_process import KAVI, kavi

MESSAGE = b"From: a@x.example\r\nTo: b@x.example\r\nSubject: hello\r\n\r\nbody\r\n"


class SpoolTest(GatewayTest):

    def setUp(self):
        super().setUp()
        self.policy("{id: 7, when: {subject: {matches: later}}, actions: [postpone: '23:00']}",
                    "{id: 8, when: always, actions: [{readdress: 'c@y.example; d@y.example'}]}")
        self.runs = 0

    def fill(self, *subjects, at=None, status=3):
        """Runs messages whose new copies the scanning listener treats as `at` says."""
        sink = Sink(self, f"scan{self.runs}", at)
        self.sends_to(scan=sink, retry_first_seconds=1000)
        self.runs += 1
        (self.folder / f"in{self.runs}").mkdir()
        for subject in subjects:
            self.put(f"in{self.runs}/{subject}.eml", MESSAGE.replace(b"hello", subject.encode()))
        self.out = self.folder / f"out{self.runs}"
        # Where it is noon just now, so that the evening is always to come.
        zone = f"AAA{time.gmtime().tm_hour - 12:+d}"
        _, spool = self.deliver(self.folder / f"in{self.runs}", status=status,
                                env={**os.environ, "TZ": zone})
        return spool

    def ids(self):
        return [entry["id"] for entry in self.waiting()]

    def test_an_empty_spool_is_empty(self):
        self.fill(status=0)
        self.assertEqual(self.waiting(), [])
        self.assertEqual(self.spool("list").stdout, b"0 messages\n")

    def test_lists_what_waits_what_failed_and_what_is_due(self):
        before = int(time.time())
        spool = self.fill("refused", at={"rcpt2": {"reply": "550 5.1.1 <d> unknown"}})
        self.assertEqual(spool["failed"], 1)
        spool = self.fill("busy", at={"mail": {"reply": "451 4.3.0 come back"}})
        self.assertEqual((spool["deferred"], spool["stuck"]), (1, 1))
        self.assertEqual(self.fill("later", status=0)["waiting"], 2)
        failed, deferred, postponed = self.waiting()
        self.assertEqual([entry["state"] for entry in (failed, deferred)], ["failed", "waiting"])
        self.assertIn(postponed["state"], ("waiting", "due"))
        self.assertEqual(failed["rcpt"], ["c@y.example", "d@y.example"])
        self.assertEqual((failed["attempts"], failed["kind"]), (1, "resend"))
        self.assertIn("<d@y.example>", failed["last"]["text"])
        self.assertIn("550 5.1.1 <d> unknown", failed["last"]["text"])
        self.assertIn("451 4.3.0 come back", deferred["last"]["text"])
        self.assertGreaterEqual(deferred["due"], before + 1000)
        self.assertEqual((postponed["kind"], postponed["attempts"]), ("postpone", 0))
        self.assertFalse(failed["possibly_doubled"])
        text = self.spool("list").stdout.decode()
        for word in (failed["id"], "<c@y.example>, <d@y.example>", "550 5.1.1", "3 messages",
                     "1 failed"):
            self.assertIn(word, text)

    def test_says_what_may_have_been_doubled(self):
        self.fill("gone", at={"end": {"do": "hangup"}})
        [entry] = self.waiting()
        self.assertTrue(entry["possibly_doubled"])
        self.assertIn("doubled?", self.spool("list").stdout.decode())

    def test_shows_envelope_log_and_message(self):
        self.fill("busy", at={"mail": {"reply": "451 4.3.0 come back"}})
        [key] = self.ids()
        shown = json.loads(self.spool("show", "--json", key).stdout)
        self.assertEqual((shown["from"], shown["rcpt"]),
                         ("a@x.example", ["c@y.example", "d@y.example"]))
        self.assertEqual([event["event"] for event in shown["log"]], ["attempt", "deferred"])
        text = self.spool("show", key).stdout.decode()
        for word in ("<a@x.example>", "deferred: ", "451 4.3.0 come back", "00:00 to 23:59"):
            self.assertIn(word, text)
        message = self.spool("show", "--message", key).stdout
        self.assertIn(b"X-kavi-reprocess-rules: 8\r\n", message)
        self.assertTrue(message.endswith(b"\r\n\r\nbody\r\n"))

    def test_retry_makes_due_and_send_sends(self):
        self.fill("one", at={"rcpt1": {"reply": "550 5.1.1 no"}})
        self.fill("two", at={"mail": {"reply": "451 4.3.0 come back"}})
        sink = Sink(self, "good")
        self.sends_to(scan=sink)
        nothing = json.loads(self.spool("send", "--json").stdout)["spool"]
        self.assertEqual((nothing["sent"], nothing["stuck"], nothing["waiting"]), (0, 1, 1))
        self.spool("retry", self.ids()[0])
        self.assertEqual([entry["state"] for entry in self.waiting()], ["due", "waiting"])
        self.spool("retry", "--all")
        sent = self.spool("send", "-v").stdout.decode()
        self.assertIn("2 sent", sent)
        self.assertIn("250", sent)
        self.assertEqual(self.waiting(), [])
        self.assertEqual(len(sink.messages()), 2)

    def test_send_fails_with_what_cannot_be_sent(self):
        self.fill("one", at={"mail": {"reply": "451 4.3.0 come back"}})
        self.spool("retry", "--all")
        gone = Sink(self, "gone")
        gone.stop()
        self.sends_to(scan=gone)
        self.assertIn(b"1 refused for now", self.spool("send", status=3).stdout)

    def test_delete_asks(self):
        self.fill("one", "two", at={"rcpt1": {"reply": "550 5.1.1 no"}})
        first, second = self.ids()
        refused = self.spool("delete", first, status=2)
        self.assertIn(b"write --yes", refused.stderr)
        self.assertEqual(self.ids(), [first, second])
        self.assertIn(b"1 message deleted", self.spool("delete", "--yes", first).stdout)
        self.assertEqual(self.ids(), [second])
        self.spool("delete", "--yes", first, second, status=1)
        self.assertEqual(self.ids(), [])

    def test_delete_believes_a_person_at_a_terminal_only_a_yes(self):
        self.fill("one", at={"rcpt1": {"reply": "550 5.1.1 no"}})
        [key] = self.ids()
        for answer, status, left in ((b"n\n", 1, [key]), (b"\n", 1, [key]), (b"y\n", 0, [])):
            ours, theirs = os.openpty()
            process = subprocess.Popen(
                [KAVI, "spool", "delete", "--config", str(self.config), key], stdin=theirs,
                stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
            os.close(theirs)
            os.write(ours, answer)
            _, asked = process.communicate(timeout=60)
            os.close(ours)
            self.assertIn(b"Delete 1 message for good? [y/N]", asked)
            self.assertIn(b"<c@y.example>", asked)
            self.assertEqual((process.returncode, self.ids()), (status, left))

    def test_what_is_no_id_names_nothing(self):
        self.fill("one", at={"rcpt1": {"reply": "550 5.1.1 no"}})
        [key] = self.ids()
        secret = self.put("state/secret.msg", b"precious")
        for wrong in ("../secret", f"../spool/{key}", "", ".", "x\x1b[31m", "0" * 300, key.upper()):
            for command in (["show"], ["show", "--message"], ["retry"], ["delete", "--yes"]):
                with self.subTest(wrong=wrong, command=command):
                    done = self.spool(command[0], *command[1:], wrong, status=1)
                    self.assertIn(b"no such entry in ", done.stderr)
                    self.assertNotIn(b"\x1b", done.stderr)
        self.assertEqual(secret.read_bytes(), b"precious")
        self.assertEqual(self.ids(), [key])

    def test_usage_faults(self):
        self.fill(status=0)
        for arguments in (["retry"], ["retry", "--all", "abc"], ["show"], ["delete"], []):
            done = kavi("spool", *arguments)
            self.assertEqual(done.returncode, 2, arguments)

    def test_a_folder_that_is_not_there_is_not_made(self):
        done = kavi("spool", "list", "--state", self.folder / "nowhere")
        self.assertEqual(done.returncode, 1)
        self.assertIn(b"nowhere/spool", done.stderr)
        self.assertIn(b"state_folder in section delivery, or --state", done.stderr)
        self.assertFalse((self.folder / "nowhere").exists())

    def test_a_state_folder_that_cannot_be_opened_is_a_failure_of_every_command(self):
        self.policy()
        message = self.put("m.eml", b"To: a@x.example\n\n")
        nowhere = self.put("file", b"") / "state"
        run = self.arguments(message)
        for command in (run, ["spool", "list"], ["spool", "show", "x"], ["spool", "retry", "--all"],
                        ["spool", "delete", "--yes", "x"], ["spool", "send"]):
            with self.subTest(command[:2]):
                done = kavi(*command, "--state", nowhere)
                self.assertEqual(done.returncode, 1, done.stderr)
                self.assertIn(b"state_folder in section delivery, or --state", done.stderr)
        self.assertFalse(self.out.exists())

    def test_damaged_and_unreadable_entries_are_listed(self):
        self.fill("one", "two", "three", at={"mail": {"reply": "451 4.3.0 come back"}})
        damaged, unreadable, good = self.ids()
        path = self.state / "spool" / f"{damaged}.msg"
        path.write_bytes(path.read_bytes()[:-1])
        (self.state / "spool" / f"{unreadable}.msg").chmod(0)
        done = subprocess.run(
            unprivileged(KAVI, "spool", "list", "--json", "--config", str(self.config)),
            capture_output=True, check=False, timeout=60)
        self.assertEqual(done.returncode, 1, done.stderr)
        entries = {entry["id"]: entry for entry in json.loads(done.stdout)}
        self.assertEqual({key: entry["state"] for key, entry in entries.items()},
                         {damaged: "damaged", unreadable: "unreadable", good: "waiting"})
        self.assertIn("permission", entries[unreadable]["reason"].lower())
        self.assertEqual(self.spool("retry", damaged, status=1).returncode, 1)
        self.spool("delete", "--yes", damaged)

    def test_what_is_being_sent_is_left_alone(self):
        self.fill("one", at={"mail": {"reply": "451 4.3.0 come back"}})
        [key] = self.ids()
        self.spool("retry", key)
        sink = Sink(self, "slow", {"data": {"do": "stall"}})
        self.sends_to(scan=sink)
        worker = subprocess.Popen([KAVI, "spool", "send", "--config", str(self.config)],
                                  stdout=subprocess.DEVNULL)
        try:
            limit = time.monotonic() + 60
            while not any(event["event"] == "deed" for event in sink.events()):
                self.assertLess(time.monotonic(), limit)
            for command in (["retry", key], ["delete", "--yes", key]):
                done = self.spool(*command, status=1)
                self.assertIn(b"is being sent at this moment", done.stderr)
            [entry] = self.waiting()
            self.assertEqual((entry["state"], entry["possibly_doubled"]), ("sending", False))
            self.assertNotIn("due", entry)
            self.assertIn(b"1 message, 1 sending\n", self.spool("list").stdout)
            busy = json.loads(self.spool("send", "--json").stdout)["spool"]
            self.assertEqual(busy["busy"] + busy["waiting"], 1)
        finally:
            worker.kill()
            worker.wait(timeout=30)
        [entry] = self.waiting()
        self.assertEqual((entry["id"], entry["state"]), (key, "waiting"))
        self.assertTrue(entry["possibly_doubled"])

    def test_many_commands_at_once_send_each_message_once(self):
        self.fill(*(f"m{i}" for i in range(20)), at={"mail": {"reply": "451 4.3.0 come back"}})
        self.spool("retry", "--all")
        sink = Sink(self, "good")
        self.sends_to(scan=sink)
        workers = [subprocess.Popen([KAVI, "spool", "send", "--config", str(self.config)],
                                    stdout=subprocess.DEVNULL) for _ in range(4)]
        for _ in range(5):
            self.spool("list")
        for worker in workers:
            self.assertEqual(worker.wait(timeout=60), 0)
        self.assertEqual(self.ids(), [])
        subjects = sorted(re.search(rb"Subject: (\S+)", mail)[1] for mail in sink.messages())
        self.assertEqual(subjects, sorted(f"m{i}".encode() for i in range(20)))


if __name__ == "__main__":
    unittest.main()
