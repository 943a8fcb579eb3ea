"""`kavi run --deliver`: what leaves the machine, and what is kept."""
import re
import sqlite3
import unittest

from delivery_case import AREAS, MESSAGE, DeliveryCase
from gateway_case import Sink
from kavi_process import kavi


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


if __name__ == "__main__":
    unittest.main()
