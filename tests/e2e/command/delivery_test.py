"""`kavi run --deliver`: what leaves the machine, what is kept, and what a second attempt does."""
import json
import os
import re
import sqlite3
import subprocess
import unittest

from gateway_case import GatewayTest, Sink, unprivileged
from kavi_process import KAVI, kavi

MESSAGE = b"From: a@x.example\r\nTo: b@x.example\r\nSubject: hello\r\n\r\nbody\r\n"
FIELDS = re.compile(rb"^X-kavi-reprocess-(rules|type|seal): ", re.M | re.I)
READDRESS = "{id: 7, name: r, when: always, actions: [{readdress: c@y.example}]}"
AREAS = "quarantine_areas: [{name: virus}]\narchive_areas: [{name: journal}]\n"


class DeliveryCase(GatewayTest):

    def setUp(self):
        super().setUp()
        self.message = self.put("m.eml", MESSAGE)

    def areas(self, *actions):
        return self.put("policy.yaml", AREAS + "rules:\n- {id: 15, name: q, when: always, "
                        "actions: [%s]}\n" % ", ".join(actions))


class DeliveryTest(DeliveryCase):
    """What an action does for real."""

    def test_without_it_nothing_leaves_and_nothing_is_made(self):
        sink = Sink(self, "scan")
        self.sends_to(scan=sink, plain=sink)
        self.put("policy.yaml", AREAS + "rules:\n- {id: 1, when: always, actions: [{archive: "
                 "journal}, {readdress: c@y.example}, {quarantine: virus}, "
                 f"{{handoff: '127.0.0.1:{sink.port}'}}]}}\n")
        self.run_json("--config", self.config, "--policy", self.folder / "policy.yaml", "--out",
                      self.out, self.message)
        self.assertEqual(sink.events(), [])
        for name in ("state", "quarantine", "archive"):
            self.assertFalse((self.folder / name).exists(), name)

    def test_what_goes_on_is_written_durably_or_the_command_is_refused(self):
        self.always("{x_header: 'X-A: b'}")
        done = kavi("run", "--deliver", "--config", self.config, "--policy",
                    self.folder / "policy.yaml", self.message)
        self.assertEqual(done.returncode, 2)
        self.assertIn(b"--deliver needs --out FOLDER", done.stderr)
        [report], spool = self.deliver(self.message)
        self.assertEqual(report["verdict"], "changed")
        self.assertEqual((self.out / "m.eml").read_bytes(),
                         MESSAGE.replace(b"\r\n\r\n", b"\r\nX-A: b\r\n\r\n"))
        self.assertEqual(spool["sent"], 0)

    def test_reports_say_where_copies_lie_and_whom_mail_goes_to(self):
        sink = Sink(self, "scan")
        self.sends_to(scan=sink)
        self.areas("{archive: journal}", "{quarantine: virus}", "{readdress: c@y.example}")
        [report], _ = self.deliver("--from", "a@x.example", "--rcpt", "b@x.example", self.message)
        archive, quarantine, resend = report["calls"]
        self.assertEqual([archive["file"], quarantine["file"]],
                         [str(path) for folder in ("archive", "quarantine")
                          for path in self.stored(folder)])
        self.assertNotIn("file", resend)
        self.assertEqual((archive["from"], archive["rcpt"]), ("a@x.example", ["b@x.example"]))
        self.assertEqual((resend["from"], resend["rcpt"]), ("a@x.example", ["c@y.example"]))
        self.assertEqual([sink.commands("RCPT")], [["RCPT TO:<c@y.example>"]])
        done = kavi("run", "--deliver", "--config", self.config, "--policy",
                    self.folder / "policy.yaml", "--out", self.out,
                    self.put("n.eml", b"To: b@x.example\n\n"))
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn(b"resend from <> to <c@y.example>\n", done.stdout)
        self.assertEqual(sorted(re.findall(r"filed +(/.*)", done.stdout.decode())),
                         sorted(str(path) for folder in ("archive", "quarantine")
                                for path in self.stored(folder)
                                if str(path) not in (archive["file"], quarantine["file"])))

    def test_mail_that_went_on_is_not_replaced_by_a_later_run(self):
        self.always("{x_header: 'X-A: b'}")
        self.deliver(self.message)
        first = (self.out / "m.eml").read_bytes()
        self.deliver(self.put("other.eml", MESSAGE))
        self.assertEqual((self.out / "m.eml").read_bytes(), first)
        for mode in (["--deliver", "--config", self.config], []):
            done = kavi("run", *mode, "--policy", self.folder / "policy.yaml", "--out", self.out,
                        self.message)
            self.assertEqual(done.returncode, 2)
            self.assertIn(b"choose another --out folder", done.stderr)
        self.assertEqual((self.out / "m.eml").read_bytes(), first)

    def test_blind_copies_are_told_to_whoever_sends_the_message_on(self):
        self.always("{bcc: 'c@y.example; d@y.example'}")
        [report], _ = self.deliver(self.message)
        self.assertEqual(report["output_rcpt"], ["b@x.example", "c@y.example", "d@y.example"])
        self.assertEqual((self.out / "m.eml").read_bytes(), MESSAGE)

    def test_blind_copies_survive_a_readdressing(self):
        sink = Sink(self, "scan")
        self.sends_to(scan=sink)
        self.always("{bcc: c@y.example}", "{bcc: 'd@y.example; C@y.example'}",
                    "{readdress: r@y.example}")
        [report], spool = self.deliver(self.message)
        self.assertEqual((report["verdict"], spool["sent"]), ("disposed", 1))
        self.assertEqual(sink.commands("RCPT"), [f"RCPT TO:<{user}@y.example>" for user in "rcd"])
        self.assertNotIn(b"y.example", sink.messages()[0].split(b"\r\n\r\n")[0])

    def test_files_quarantine_and_archive(self):
        self.areas("{archive: journal}", "{quarantine: virus}")
        [report], _ = self.deliver(self.message)
        [quarantined], [archived] = self.stored("quarantine"), self.stored("archive")
        self.assertEqual(report["verdict"], "disposed")
        self.assertEqual([call["operation"] for call in report["calls"]], ["archive", "quarantine"])
        self.assertEqual(report["calls"][1]["file"], str(quarantined))
        self.assertEqual(archived.read_bytes(), MESSAGE)
        self.assertIn(b"X-kavi-reprocess-rules: 15\r\n", quarantined.read_bytes())
        self.assertFalse((self.out / "m.eml").exists())
        rows = sqlite3.connect(self.state / "store.sqlite").execute(
            "SELECT path FROM message_index ORDER BY path").fetchall()
        self.assertEqual([bytes(path).decode() for path, in rows], [str(archived), str(quarantined)])

    def test_the_same_message_again_is_a_message_of_its_own_once_all_went_well(self):
        self.areas("{quarantine: virus}")
        self.deliver(self.message)
        self.deliver(self.message)
        self.assertEqual(len(self.stored("quarantine")), 2)

    def test_settings_with_faults_stop_everything(self):
        self.settings(scan_port="many", state_folder="here")
        self.areas("{quarantine: virus}")
        done = kavi(*self.arguments(self.message))
        self.assertEqual(done.returncode, 2)
        self.assertIn(b"[delivery] scan_port: 'many' is not a number", done.stderr)
        self.assertIn(b"[delivery] state_folder: 'here' is no absolute path", done.stderr)
        self.assertFalse(self.out.exists())

    def test_a_missing_server_is_a_failure_that_names_its_setting(self):
        self.always("{readdress: c@y.example}")
        [report], spool = self.deliver(self.message, status=1)
        self.assertEqual((report["verdict"], spool["sent"]), ("failed", 0))
        self.assertIn("scan_host, plain_host in section delivery", report["calls"][0]["error_text"])


class RescanTest(DeliveryCase):
    """Mail that comes back for scanning."""

    def readdressed(self, message=MESSAGE, **settings):
        """A captured mail as the scanning listener got it."""
        sink = Sink(self, "scan")
        self.sends_to(scan=sink, **settings)
        self.policy(READDRESS)
        [report], spool = self.deliver(self.put("sent.eml", message))
        self.assertEqual((report["verdict"], spool["sent"]), ("disposed", 1))
        [captured] = sink.messages()
        return self.put("captured.eml", captured)

    def rescan(self, path, *arguments, rcpt="c@y.example", status=0):
        [report] = self.run_json("--config", self.config, "--policy", self.folder / "policy.yaml",
                                 "--out", self.folder / "rescan", "--from", "a@x.example",
                                 "--rcpt", rcpt, *arguments, path, status=status)
        return report

    def left(self):
        return (self.folder / "rescan" / "captured.eml").read_bytes()

    def test_it_arrives_with_one_seal_and_skips_its_rule(self):
        captured = self.readdressed()
        fields = [name.lower() for name in FIELDS.findall(captured.read_bytes())]
        self.assertEqual(sorted(fields), [b"rules", b"seal", b"type"])
        report = self.rescan(captured, "--reinjected")
        self.assertTrue(report["reprocessing"]["honoured"])
        self.assertEqual(report["reprocessing"]["type"], "readdress")
        self.assertTrue(report["rules"][0]["skipped"])
        self.assertEqual(report["verdict"], "changed")
        self.assertEqual(self.left(), MESSAGE)

    def test_from_anywhere_else_it_is_mail_like_any_other(self):
        report = self.rescan(self.readdressed())
        self.assertFalse(report["reprocessing"]["honoured"])
        self.assertFalse(report["rules"][0]["skipped"])
        [resent] = (self.folder / "rescan" / "resend").iterdir()
        self.assertIn(b"X-kavi-reprocess-rules: 7\r\n", resent.read_bytes())
        self.assertNotIn(b"seal", resent.read_bytes())

    def test_forged_and_changed_seals_do_not_count(self):
        captured = self.readdressed()
        good = captured.read_bytes()
        forged = {"rules": good.replace(b"rules: 7", b"rules: 7 8"),
                  "body": good.replace(b"body", b"bodi"),
                  "seal": re.sub(rb"(seal: 1 )[0-9a-f]{16}", rb"\g<1>0123456789abcdef", good),
                  "mac": good[:-len(b"\r\n\r\nbody\r\n") - 64] + b"0" * 64 + b"\r\n\r\nbody\r\n",
                  "none": re.sub(rb"X-kavi-reprocess-seal:[^\r]*\r\n", b"", good, flags=re.I),
                  "two": good.replace(b"X-kavi", b"X-kavi-reprocess-rules: 9\r\nX-kavi", 1)}
        self.policy("{id: 7, name: r, when: always, actions: [{x_header: 'X-A: b'}]}")
        for name, mail in forged.items():
            with self.subTest(name):
                self.assertNotEqual(mail, good)
                report = self.rescan(self.put("captured.eml", mail), "--reinjected")
                self.assertFalse(report["reprocessing"]["honoured"])
                self.assertNotEqual(report["reprocessing"]["refusal"], "")
                self.assertFalse(report["rules"][0]["skipped"])
                self.assertIsNone(FIELDS.search(self.left()))
        report = self.rescan(self.put("captured.eml", good), "--reinjected", rcpt="x@y.example")
        self.assertEqual(report["reprocessing"]["refusal"], "the seal is not for this message")

    def test_keys_may_change_while_mail_is_under_way(self):
        captured = self.readdressed()
        keys = self.state / "reprocess.keys"
        old = keys.read_bytes()
        self.assertEqual(keys.stat().st_mode & 0o777, 0o600)
        keys.write_bytes(old + b"seal-key 0123456789abcdef 1 " + b"5a" * 32 + b"\n")
        self.assertTrue(self.rescan(captured, "--reinjected")["reprocessing"]["honoured"])
        keys.write_bytes(b"seal-key 0123456789abcdef 1 " + b"5a" * 32 + b"\n")
        report = self.rescan(captured, "--reinjected")
        self.assertEqual(report["reprocessing"]["refusal"], "sealed with an unknown key")

    def test_keys_that_cannot_be_used_make_sealed_mail_fail_for_now(self):
        captured = self.readdressed()
        keys = self.state / "reprocess.keys"
        keys.write_bytes(b"no key\n")
        report = self.rescan(captured, "--reinjected", status=1)
        self.assertEqual(report["verdict"], "failed")
        self.assertIn(str(keys), report["failure"])
        self.assertEqual(self.left(), captured.read_bytes(), "it stands as it came")
        self.assertEqual(keys.read_bytes(), b"no key\n", "never replaced")

    def test_keys_that_may_not_be_read_make_sealed_mail_fail_for_now(self):
        captured = self.readdressed()
        (self.state / "reprocess.keys").chmod(0)
        done = subprocess.run(
            unprivileged(KAVI, "run", "--json", "--reinjected", "--config", str(self.config),
                         "--policy", str(self.folder / "policy.yaml"), "--from", "a@x.example",
                         "--rcpt", "c@y.example", str(captured)),
            capture_output=True, check=False, timeout=60)
        self.assertEqual(done.returncode, 1, done.stderr)
        report = json.loads(done.stdout)
        self.assertEqual(report["verdict"], "failed")
        self.assertIn("sealing keys cannot be read", report["failure"])

    def test_passes_are_counted_and_limited(self):
        mail, skipped = MESSAGE, []
        for turn in range(1, 7):
            sink = Sink(self, f"pass{turn}")
            self.sends_to(scan=sink)
            self.policy("{id: %d, name: r, when: always, actions: [{readdress: c@y.example}]}"
                        % turn)
            self.out = self.folder / f"out{turn}"
            [report], spool = self.deliver(
                "--reinjected", "--from", "a@x.example", "--rcpt",
                "c@y.example" if turn > 1 else "b@x.example", self.put("turn.eml", mail),
                status=0 if turn < 6 else 3)
            self.assertEqual(report["verdict"], "disposed")
            if turn < 6:
                [mail] = sink.messages()
                skipped.append(re.search(rb"rules: ([^\r]*)\r", mail)[1])
            else:
                self.assertEqual((spool["failed"], sink.messages()), (1, []))
                self.assertIn("too many passes", spool["log"][0]["text"])
        self.assertEqual(skipped, [b"1", b"1 2", b"1 2 3", b"1 2 3 4", b"1 2 3 4 5"])

    def test_trusted_and_reinjected_contradict_each_other(self):
        self.policy()
        done = kavi("run", "--trusted", "--reinjected", "--policy", self.folder / "policy.yaml",
                    self.message)
        self.assertEqual(done.returncode, 2)

    def test_expand_takes_them_as_run_does(self):
        captured = self.readdressed()
        self.policy("{id: 7, name: seven, when: always, actions: [{readdress: c@y.example}]}",
                    "{id: 8, name: eight, when: always, actions: [{x_header: 'X-A: b'}]}")
        for arguments, rule in (([], "seven"), (["--trusted"], "eight"),
                                (["--reinjected"], "eight"),
                                (["--reinjected", "--rcpt", "x@y.example"], "seven")):
            with self.subTest(arguments):
                done = kavi("expand", "%RULENAME%", captured, "--config", self.config, "--policy",
                            self.folder / "policy.yaml", "--from", "a@x.example",
                            *([] if "--rcpt" in arguments else ["--rcpt", "c@y.example"]),
                            *arguments)
                self.assertEqual((done.returncode, done.stdout.decode()), (0, rule + "\n"))
        (self.state / "reprocess.keys").write_bytes(b"no key\n")
        done = kavi("expand", "%RULENAME%", captured, "--config", self.config, "--policy",
                    self.folder / "policy.yaml", "--reinjected")
        self.assertEqual((done.returncode, done.stdout), (1, b""))
        self.assertIn(str(self.state / "reprocess.keys").encode(), done.stderr)

    def test_trusted_fields_are_stored_with_the_rule_and_left_as_they_were(self):
        marked = self.put("marked.eml", b"X-kavi-reprocess-rules: 12\r\n" + MESSAGE)
        self.areas("{quarantine: virus}")
        for arguments, stored, left in ((["--trusted"], "12 15", "12"), ([], "15", "")):
            [report] = self.run_json("--config", self.config, "--policy",
                                     self.folder / "policy.yaml", "--out", self.out, *arguments,
                                     marked)
            [action] = report["rules"][0]["actions"]
            self.assertEqual(action["reprocess"]["rules_handed_over"], stored)
            self.assertEqual(action["reprocess"]["rules_left"], left)
            filed = (self.out / report["calls"][0]["file"]).read_bytes()
            self.assertIn(b"X-kavi-reprocess-rules: %s\r\n" % stored.encode(), filed)


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
                 "gone": ({"end": {"do": "hangup"}}, 53),
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
        self.assertEqual(done.stdout, b"")

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
