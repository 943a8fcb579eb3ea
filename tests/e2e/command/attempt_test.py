"""`kavi run --deliver`: runs that fail or are stopped, and what a second attempt does."""
import json
import os
import re
import sqlite3
import subprocess
import unittest

from delivery_case import AREAS, MESSAGE, READDRESS, DeliveryCase
from gateway_case import Sink, unprivileged
from kavi_process import KAVI


class AttemptTest(DeliveryCase):
    """Runs that fail or are stopped, and the runs after them."""

    def handoff(self, sink, *before):
        return self.areas(*before, "{handoff: '127.0.0.1:%d'}" % sink.port)

    def refusing(self, verdict):
        return self.put("policy.yaml", AREAS + "rules:\n- {id: 15, name: q, when: always, actions: "
                        "[{archive: journal}], verdict: {%s: Not here}}\n" % verdict)

    def test_a_message_that_a_rule_rejects_is_done_with(self):
        self.refusing("reject")
        for copies in (1, 2):
            [report], _ = self.deliver(self.message)
            self.assertEqual((report["verdict"], report["verdict_rule"], report["verdict_text"]),
                             ("rejected", 15, "Not here"))
            self.assertFalse((self.out / "m.eml").exists())
            self.assertEqual(len(self.stored("archive")), copies, "each run is another message")

    def test_a_message_that_a_rule_refuses_for_now_is_not_done_with(self):
        self.refusing("tempfail")
        for _ in range(2):
            [report], _ = self.deliver(self.message, status=1)
            self.assertEqual(report["verdict"], "tempfailed")
            self.assertFalse((self.out / "m.eml").exists())
            self.assertEqual(len(self.stored("archive")), 1, "the next run finds it done")
        self.put("policy.yaml", "rules: []\n")
        [report], _ = self.deliver(self.message)
        self.assertEqual((self.out / "m.eml").read_bytes(), MESSAGE)

    def test_an_mbox_waits_for_a_message_that_a_rule_refuses_for_now(self):
        self.put("policy.yaml", "rules: [{id: 1, when: {subject: {matches: later}}, actions: [], "
                 "verdict: {tempfail: Later}}]\n")
        box = self.put("box.mbox", b"From a Mon Jan  1 00:00:00 2024\nSubject: now\n\nx\n\n"
                                   b"From a Mon Jan  1 00:00:00 2024\nSubject: later\n\nx\n")
        reports, _ = self.deliver(box, status=1)
        self.assertEqual([report["verdict"] for report in reports], ["unchanged", "tempfailed"])
        self.assertFalse((self.out / "box.mbox").exists())

    def test_a_refused_hand_off_is_a_failure_that_leaves_the_message(self):
        cases = {"refused": ({"mail": {"reply": "550 5.7.1 no"}}, 61),
                 "rcpt": ({"rcpt2": {"reply": "550 5.1.1 unknown"}}, 63),
                 "later": ({"rcpt1": {"reply": "450 4.2.0 later"}}, 62),
                 "gone": ({"data": {"do": "hangup"}}, 53),
                 "unsure": ({"end": {"do": "hangup"}}, 10),
                 "stalled": ({"data": {"do": "stall"}}, 54)}
        self.settings(handoff_deadline_seconds=1)
        for name, (at, code) in cases.items():
            with self.subTest(name):
                sink = Sink(self, name, at)
                self.out = self.folder / name
                self.handoff(sink)
                [report], _ = self.deliver("--rcpt", "b@x.example", "--rcpt", "c@x.example",
                                           self.message, status=1)
                self.assertEqual((report["verdict"], report["disposed"]), ("failed", False))
                self.assertEqual(report["calls"][0]["error"], code)
                self.assertIn(str(sink.port), report["rules"][0]["actions"][0]["log"][0]["text"])
                self.assertEqual(sink.messages(), [])
                self.assertFalse((self.out / "m.eml").exists(), "what failed does not go on")

    def test_nobody_listening_is_a_failure(self):
        sink = Sink(self, "gone")
        sink.stop()
        self.handoff(sink)
        [report], _ = self.deliver(self.message, status=1)
        self.assertEqual(report["calls"][0]["error"], 51)

    def test_a_retry_finds_done_what_was_done(self):
        sink = Sink(self, "busy", {"mail": {"reply": "450 4.3.0 busy", "times": 1}})
        self.handoff(sink, "{archive: journal}", "{quarantine: virus}")
        [failed], _ = self.deliver(self.message, status=1)
        stored = self.stored("quarantine") + self.stored("archive")
        self.assertEqual(len(stored), 2)
        [report], _ = self.deliver(self.message)
        self.assertEqual(report["verdict"], "disposed")
        self.assertEqual(report["calls"][1]["file"], failed["calls"][1]["file"])
        self.assertEqual(self.stored("quarantine") + self.stored("archive"), stored)
        self.assertEqual(len(sink.messages()), 1)

    def test_a_failure_leaves_the_other_messages_done(self):
        sink = Sink(self, "scan")
        self.sends_to(scan=sink)
        for name in "abc":
            self.put(f"in/{name}.eml", MESSAGE.replace(b"hello", name.encode()))
        self.put("policy.yaml", "rules:\n- {id: 1, when: {subject: {matches: b}}, actions: "
                 "[{handoff: '127.0.0.1:1'}]}\n- {id: 2, when: always, actions: [{readdress: "
                 "c@y.example}]}\n")
        reports, spool = self.deliver(self.folder / "in", status=1)
        self.assertEqual([r["verdict"] for r in reports], ["disposed", "failed", "disposed"])
        self.assertEqual(spool["sent"], 2)
        self.put("policy.yaml", "rules:\n- {id: 2, when: always, actions: [{readdress: "
                 "c@y.example}]}\n")
        reports, spool = self.deliver(self.folder / "in")
        self.assertEqual([r["verdict"] for r in reports], ["disposed"] * 3)
        self.assertEqual(spool["sent"], 1, "only what was missing")
        self.assertEqual(len(sink.messages()), 3)

    def test_a_repeated_run_writes_its_own_results_anew_and_no_others(self):
        sink = Sink(self, "busy", {"mail": {"reply": "450 4.3.0 busy", "times": 1}})
        self.put("policy.yaml", "rules:\n- {id: 1, when: {subject: {matches: b}}, actions: "
                 f"[{{handoff: '127.0.0.1:{sink.port}'}}]}}\n"
                 "- {id: 2, when: always, actions: [{x_header: 'X-A: 1'}]}\n")
        for name in "abc":
            self.put(f"in/{name}.eml", MESSAGE.replace(b"hello", name.encode()))
        self.deliver(self.folder / "in", status=1)
        written = {name: (self.out / f"{name}.eml").stat().st_ino for name in "ac"}
        self.deliver(self.folder / "in" / "b.eml")
        self.assertEqual({name: (self.out / f"{name}.eml").stat().st_ino for name in "ac"}, written)
        self.put("policy.yaml", "rules:\n- {id: 2, when: always, actions: [{x_header: 'X-A: 2'}]}"
                 "\n")
        self.deliver(self.folder / "in")
        for name in "abc":
            self.assertIn(b"X-A: 2", (self.out / f"{name}.eml").read_bytes())

    def test_standard_input_goes_on_too(self):
        self.always("{x_header: 'X-A: b'}")
        [report], _ = self.deliver("-", stdin=MESSAGE)
        with open(report["output"], "rb") as output:
            self.assertIn(b"X-A: b", output.read())

    def test_messages_of_one_content_in_one_run_are_one(self):
        sink = Sink(self, "scan")
        self.sends_to(scan=sink)
        self.policy(READDRESS)
        for i in range(20):
            self.put(f"in/{i}.eml", MESSAGE)
        reports, spool = self.deliver("--jobs", 8, self.folder / "in")
        self.assertEqual({r["verdict"] for r in reports}, {"disposed"})
        self.assertEqual((spool["sent"], len(sink.messages())), (1, 1))

    def test_killed_in_a_hand_off_stores_nothing_twice(self):
        sink = Sink(self, "stall", {"data": {"do": "stall", "times": 1}})
        self.settings(handoff_deadline_seconds=30)
        self.handoff(sink, "{quarantine: virus}")
        self.kill_when(lambda: any(e["event"] == "deed" for e in sink.events()), self.message)
        [stored] = self.stored("quarantine")
        # As long as the killed attempt might be alive, nobody else sends.
        [report], _ = self.deliver(self.message, status=1)
        self.assertEqual(report["calls"][1]["error"], 9)
        store = sqlite3.connect(self.state / "store.sqlite")
        with store:
            self.assertEqual(store.execute("UPDATE effect_ledger SET leased_until = 0 "
                                           "WHERE done = 0").rowcount, 1)
        store.close()
        [report], _ = self.deliver(self.message)
        self.assertEqual(report["verdict"], "disposed")
        self.assertEqual(self.stored("quarantine"), [stored])
        self.assertEqual(report["calls"][0]["file"], str(stored))
        self.assertEqual(len(sink.messages()), 1)

    def test_killed_while_the_spool_is_sent_loses_nothing(self):
        sink = Sink(self, "scan", {"data": {"do": "stall", "after": 1, "times": 1}})
        self.sends_to(scan=sink, retry_first_seconds=1, retry_longest_seconds=1)
        self.policy(READDRESS)
        for name in "abc":
            self.put(f"in/{name}.eml", MESSAGE.replace(b"hello", name.encode()))
        self.kill_when(lambda: any(e["event"] == "deed" for e in sink.events()), self.folder / "in")
        self.assertEqual(len(self.waiting()), 2)
        self.spool("retry", "--all")
        reports, spool = self.deliver(self.folder / "in")
        self.assertEqual([r["verdict"] for r in reports], ["disposed"] * 3)
        self.assertEqual(spool["sent"], 2, "nothing was queued again")
        self.assertTrue(any("possibly doubled" in line["text"] for line in spool["log"]))
        subjects = sorted(re.search(rb"Subject: (.)", mail)[1] for mail in sink.messages())
        self.assertEqual(subjects, [b"a", b"b", b"c"])

    def test_what_the_spool_could_not_send_is_no_reason_to_repeat_the_messages(self):
        busy = Sink(self, "busy", {"mail": {"reply": "451 4.3.0 come back"}})
        self.sends_to(scan=busy)
        self.policy(READDRESS)
        _, spool = self.deliver(self.message, status=3)
        self.assertEqual(spool["deferred"], 1)
        # Settled: the message sent anew is another one.
        self.deliver(self.message, status=3)
        self.assertEqual(len(self.waiting()), 2)

    def test_a_report_that_nobody_got_is_asked_for_again(self):
        sink = Sink(self, "scan")
        self.sends_to(scan=sink)
        self.policy(READDRESS)
        reader, writer = os.pipe()
        os.close(reader)
        done = subprocess.run([KAVI, *map(str, self.arguments(self.message))], stdout=writer,
                              check=False, stderr=subprocess.PIPE, timeout=60)
        os.close(writer)
        self.assertEqual(done.returncode, 1, done.stderr)
        self.assertEqual(len(sink.messages()), 1)
        [report], spool = self.deliver(self.message)
        self.assertEqual((report["verdict"], spool["sent"]), ("disposed", 0))

    def test_an_mbox_is_answered_as_a_whole(self):
        box = b"\n".join(b"From a@x.example Mon Mar  3 09:12:44 2025\nTo: b@x.example\n"
                         b"Subject: %s\n\nbody\n" % s for s in (b"one", b"two", b"three"))
        sink = Sink(self, "busy", {"mail": {"reply": "450 4.3.0 busy", "times": 1}})
        self.put("policy.yaml", AREAS + "rules:\n- {id: 1, when: {subject: {matches: one}}, "
                 "actions: [{quarantine: virus}]}\n- {id: 2, when: {subject: {matches: two}}, "
                 f"actions: [{{handoff: '127.0.0.1:{sink.port}'}}]}}\n")
        path = self.put("box", box)
        reports, _ = self.deliver(path, status=1)
        self.assertEqual([r["verdict"] for r in reports], ["disposed", "failed", "unchanged"])
        self.assertFalse((self.out / "box").exists(), "a part of it would look like the whole")
        reports, _ = self.deliver(path)
        self.assertEqual([r["verdict"] for r in reports], ["disposed", "disposed", "unchanged"])
        self.assertEqual(len(self.stored("quarantine")), 1)
        self.assertIn(b"three", (self.out / "box").read_bytes())
        self.assertNotIn(b"one", (self.out / "box").read_bytes())

    def test_a_folder_that_cannot_be_written_is_named_before_anything_runs(self):
        self.areas("{quarantine: virus}")
        (self.folder / "quarantine").mkdir()
        (self.folder / "quarantine").chmod(0o500)
        done = subprocess.run(unprivileged(KAVI, *map(str, self.arguments(self.message))),
                              capture_output=True, check=False, timeout=60)
        self.assertEqual(done.returncode, 1)
        self.assertIn(str(self.folder / "quarantine").encode(), done.stderr)
        self.assertIn(b"queue_quarantine in section general", done.stderr)
        self.assertEqual(list(json.loads(done.stdout)), ["error"])

    def test_a_folder_that_fails_while_a_message_runs_leaves_the_message(self):
        self.areas("{quarantine: virus}")
        subprocess.run([KAVI, *map(str, self.arguments(self.message))], check=True,
                       stdout=subprocess.DEVNULL)
        [stored] = self.stored("quarantine")
        for folder in (self.folder / "quarantine").iterdir():
            if folder.is_dir():
                folder.chmod(0o500)
        # A name that is free in no folder yet: all first letters are made and may not be written.
        for letter in "0123456789abcdefghijklmnopqrstuvwxyz":
            (self.folder / "quarantine" / letter).mkdir(mode=0o500, exist_ok=True)
        done = subprocess.run(unprivileged(KAVI, *map(str, self.arguments(self.message))),
                              capture_output=True, check=False, timeout=60)
        self.assertEqual(done.returncode, 1, done.stderr)
        report = json.loads(done.stdout.splitlines()[0])
        self.assertEqual((report["verdict"], report["calls"][0]["error"]), ("failed", 23))
        self.assertEqual(self.stored("quarantine"), [stored])
        self.assertFalse((self.out / "m.eml").exists())


if __name__ == "__main__":
    unittest.main()
