"""`kavi run --deliver` with mail that comes back for scanning."""
import json
import re
import subprocess
import unittest

from delivery_case import MESSAGE, READDRESS, DeliveryCase
from gateway_case import Sink, unprivileged
from kavi_process import KAVI, kavi

FIELDS = re.compile(rb"^X-kavi-reprocess-(rules|type|seal): ", re.M | re.I)


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


if __name__ == "__main__":
    unittest.main()
