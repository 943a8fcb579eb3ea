#!/usr/bin/env python3
"""Notifications in policies: what `kavi run` shows of the mail and the trap that would go out."""
import email
import email.policy
import json
import pathlib
import shutil
import socket
import subprocess
import sys
import unittest

from kavi_process import ROOT, KaviTest, kavi

SINK = ROOT / "tests" / "e2e" / "smtp" / "smtp_sink.py"

POLICY = """
notifications:
- name: tell-admin
  sender: Gateway <kavi@gw.example>
  recipients: [admin@a.example, second@a.example]
  subject: "Rule %RULENAME% matched"
  body_file: notice.txt
  trap: "%RULENAME% for %SENDER%"
  notify_sender: yes
  notify_recipients: yes
  type: 27
  attach: received
- name: trap-only
  trap: only a trap
rules:
- id: 15
  name: executables
  when: always
  actions:
  - x_header: "X-Seen: yes"
  - notify: [tell-admin, trap-only]
"""
MESSAGE = b"From: from@b.example\nTo: to@b.example\nSubject: hello\n\nbody\n"


class NotificationTest(KaviTest):
    def prepare(self, port):
        self.put("notice.txt", "Caf\u00e9: %SUBJECT%\nby %SENDER%\n")
        settings = self.put("kavi.ini", "[General-Notification]\nPreferredCharset=utf-8\n"
                                        f"SNMPServer=127.0.0.1:{port}\nSNMPVersion=snmpv2c\n")
        return ("--config", settings, "--policy", self.put("policy.yaml", POLICY),
                "--from", "from@b.example", "--rcpt", "to@b.example", self.put("m.eml", MESSAGE))

    def sink(self):
        """The port of an SMTP server that takes every mail."""
        sink = subprocess.Popen(
            [sys.executable, str(SINK), "--out", str(self.folder / "sink"), "--script", "{}"],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.addCleanup(lambda: (sink.stdin.close(), sink.wait(), sink.stdout.close()))
        return int(sink.stdout.readline().split()[1])

    def received(self):
        """The recipients' commands and the mails that the server got."""
        folder = self.folder / "sink"
        events = [json.loads(line) for line in (folder / "log.jsonl").read_text().splitlines()]
        return ([event["text"] for event in events
                 if event["event"] == "command" and event["text"].startswith("RCPT")],
                [email.message_from_bytes((folder / event["text"]).read_bytes(),
                                          policy=email.policy.default)
                 for event in events if event["event"] == "message"])

    def test_the_mail_and_the_traps_are_shown_and_not_sent(self):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as receiver:
            receiver.bind(("127.0.0.1", 0))
            port = receiver.getsockname()[1]
            [report] = self.run_json(*self.prepare(port))
            receiver.setblocking(False)
            with self.assertRaises(BlockingIOError):
                receiver.recv(1)
        self.assertEqual(report["verdict"], "changed")
        action = report["rules"][0]["actions"][1]
        self.assertEqual(action["value"], "tell-admin, trap-only")
        [sent] = action["mails"]
        self.assertEqual(sent["operation"], "resend")
        self.assertEqual(sent["sender"], "kavi@gw.example")
        self.assertEqual(sent["recipients"], ["admin@a.example", "second@a.example",
                                              "from@b.example", "to@b.example"])
        mail = email.message_from_string(sent["content"], policy=email.policy.default)
        self.assertEqual(mail["Subject"], "Rule executables matched")
        text, attached = mail.get_payload()
        self.assertEqual(text.get_content().replace("\r\n", "\n").strip(),
                         "Caf\u00e9: hello\nby from@b.example")
        self.assertEqual(attached.get_payload(0)["Subject"], "hello")
        self.assertNotIn("X-Seen", attached.get_payload(0))
        server = f"127.0.0.1:{port}"
        oid = "1.3.6.1.4.1.99999.141"
        self.assertEqual(action["traps"], [
            {"server": server, "version": "2c", "oid": oid, "type": 27,
             "text": "executables for from@b.example"},
            {"server": server, "version": "2c", "oid": oid, "type": 0, "text": "only a trap"}])

    def test_the_text_report_shows_them_too(self):
        done = kavi("run", "-v", *self.prepare(9))
        self.assertEqual(done.returncode, 0, done.stderr)
        for text in (b"mail from <kavi@gw.example> to <admin@a.example>",
                     b"Subject: Rule executables matched",
                     b"trap to 127.0.0.1:9, SNMPv2c, type 27: executables for from@b.example"):
            self.assertIn(text, done.stdout)

    def test_a_returned_notification_causes_none(self):
        arguments = self.prepare(9)
        [report] = self.run_json(*arguments)
        [sent] = report["rules"][0]["actions"][1]["mails"]
        self.assertIn("X-kavi-reprocess-type: notification", sent["content"])
        returned = self.put("returned.eml", sent["content"].encode())
        policy = self.put("other.yaml", POLICY.replace("id: 15", "id: 16"))
        [report] = self.run_json("--config", arguments[1], "--policy", policy, "--trusted",
                                 returned)
        action = report["rules"][0]["actions"][1]
        self.assertTrue(action["result"])
        self.assertNotIn("mails", action)
        self.assertNotIn("traps", action)
        self.assertIn("Skip SMTP notification due to it's a notification mail already.",
                      [line["text"] for line in action["log"]])

    def test_a_sample_goes_to_the_mailbox_that_the_actions_name(self):
        done = kavi("actions")
        self.assertIn(b"feedback@localhost.invalid", done.stdout)
        policy = self.put("policy.yaml", "rules:\n- {id: 1, name: n, when: {attachment_name: "
                                         "['*.exe']}, actions: [feedback]}\n")
        message = self.put("m.eml", b"From: a@b.example\nContent-Type: multipart/mixed; boundary=b\n"
                                    b"\n--b\n\ntext\n--b\nContent-Type: application/x; name=a.exe\n"
                                    b"\nMZ\n--b--\n")
        [report] = self.run_json("--policy", policy, message)
        self.assertEqual(report["verdict"], "unchanged")
        [sent] = report["rules"][0]["actions"][0]["mails"]
        self.assertEqual(sent["recipients"], ["feedback@localhost.invalid"])
        self.assertEqual(sent["sender"], "KAVI")
        self.assertIn("name=a.exe\n\nMZ", sent["content"])

    def test_a_preview_is_the_mail(self):
        arguments = self.prepare(9)
        for name, subject in (("tell-admin", "Rule executables matched"), ("trap-only", None)):
            done = kavi("notify", "--preview", name, arguments[-1], "--config", arguments[1],
                        "--policy", arguments[3], "--from", "from@b.example")
            self.assertEqual(done.returncode, 0, done.stderr)
            mail = email.message_from_bytes(done.stdout, policy=email.policy.default)
            self.assertEqual(mail["Subject"], subject)
            self.assertIn(b"trap to 127.0.0.1:9", done.stderr)
        done = kavi("notify", "tel-admin", arguments[-1], "--policy", arguments[3])
        self.assertEqual(done.returncode, 2)
        self.assertIn(b"did you mean 'tell-admin'?", done.stderr)

    def test_a_preview_needs_no_rule_that_matches(self):
        policy = self.put("policy.yaml", "notifications:\n- {name: n, recipients: [a@a.example], "
                                         "subject: '%RULENAME%'}\nrules:\n- {id: 3, name: never, "
                                         "when: {subject: {matches: nothing}}, actions: [{notify: n}]}\n")
        done = kavi("notify", "n", self.put("m.eml", MESSAGE), "--policy", policy)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn(b"Subject: never\r\n", done.stdout)
        self.assertIn(b"mail from <> to <a@a.example>", done.stderr)

    def test_a_preview_says_where_its_rule_quarantines(self):
        policy = self.put("policy.yaml", "quarantine_areas: [{name: area}]\nnotifications:\n"
                          "- {name: n, recipients: [a@a.example], subject: '%QUARANTINE_AREA%', "
                          "body: '%QUARANTINE_PATH%'}\nrules:\n- {id: 3, when: always, "
                          "actions: [{quarantine: area}, {notify: n}]}\n")
        done = kavi("notify", "n", self.put("m.eml", MESSAGE), "--policy", policy)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn(b"Subject: area\r\n", done.stdout)
        mail = email.message_from_bytes(done.stdout, policy=email.policy.default)
        self.assertIn("/var/spool/kavi/quarantine/", mail.get_content())

    def test_a_test_mail_goes_to_one_address_only(self):
        port = self.sink()
        arguments = self.prepare(9)
        config = self.put("send.ini", f"[delivery]\nplain_host=127.0.0.1\nplain_port={port}\n")
        done = kavi("notify", "tell-admin", arguments[-1], "--policy", arguments[3],
                    "--config", config, "--send-test", "me@a.example")
        self.assertEqual(done.returncode, 0, done.stderr)
        [recipients], [mail] = self.received()
        self.assertEqual(recipients, "RCPT TO:<me@a.example>")
        self.assertEqual(mail["Subject"], "Rule executables matched")

    def test_delivering_sends_the_mail_and_the_traps(self):
        port = self.sink()
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as receiver:
            receiver.bind(("127.0.0.1", 0))
            receiver.settimeout(10)
            arguments = self.prepare(receiver.getsockname()[1])
            with open(arguments[1], "a", encoding="utf-8") as settings:
                settings.write(f"[delivery]\nstate_folder={self.folder}/state\n"
                               f"scan_host=127.0.0.1\nscan_port={port}\n")
            done = kavi("run", "--deliver", "--out", self.folder / "out", *arguments)
            self.assertEqual(done.returncode, 0, done.stderr + done.stdout)
            packets = [receiver.recv(2000), receiver.recv(2000)]
        self.assertIn(b"executables for from@b.example", packets[0])
        self.assertIn(b"only a trap", packets[1])
        self.assertTrue(all(b"public" in packet for packet in packets))
        recipients, [mail] = self.received()
        self.assertEqual(recipients, [f"RCPT TO:<{address}>" for address in
                                      ("admin@a.example", "second@a.example", "from@b.example",
                                       "to@b.example")])
        self.assertEqual(mail["Subject"], "Rule executables matched")
        self.assertEqual(mail["X-kavi-reprocess-rules"], "15")

    def deliver(self, port, general, recipient="to@b.example"):
        """Runs the policy for real, with more settings, to the server at port."""
        arguments = list(self.prepare(9))
        settings = pathlib.Path(arguments[1])
        text = settings.read_text(encoding="utf-8").replace("SNMPServer=127.0.0.1:9\n", general)
        settings.write_text(f"{text}[delivery]\nstate_folder={self.folder}/state\n"
                            f"scan_host=127.0.0.1\nscan_port={port}\n", encoding="utf-8")
        arguments[arguments.index("to@b.example")] = recipient
        done = kavi("run", "--deliver", "--out", self.folder / "out", *arguments)
        self.assertEqual(done.returncode, 0, done.stderr + done.stdout)
        return settings

    def test_recipients_are_told_of_and_shown_as_the_settings_say(self):
        listed = "admin@a.example;second@a.example;from@b.example;"
        for general, shown in (("", '"NotificationRecipients"<NotificationRecipients>'),
                               ("NotificationHideRecipients=0\n", "to@b.example")):
            with self.subTest(general):
                shutil.rmtree(self.folder / "sink", ignore_errors=True)
                self.deliver(self.sink(), general)
                recipients, [mail] = self.received()
                self.assertEqual(recipients[2:], ["RCPT TO:<from@b.example>",
                                                  "RCPT TO:<to@b.example>"])
                self.assertEqual(dict(mail.raw_items())["To"], listed + shown)
                shutil.rmtree(self.folder / "out")

    def test_mail_fetched_by_pop3_tells_whom_the_recipient_token_names(self):
        self.deliver(self.sink(), "", "pop3_mail_recipient@b.example")
        recipients, _ = self.received()
        self.assertEqual(recipients[-1], "RCPT TO:<pop3_mail_recipient@b.example>")

    def test_a_notification_that_comes_back_from_the_server_causes_none(self):
        settings = self.deliver(self.sink(), "")
        recipients, _ = self.received()
        [mail] = (self.folder / "sink").glob("*.eml")
        envelope = ["--from", "kavi@gw.example"]
        for recipient in recipients:
            envelope += ["--rcpt", recipient[len("RCPT TO:<"):-1]]
        other = self.put("other.yaml", POLICY.replace("id: 15", "id: 16"))
        for way, notifies in (("--reinjected", False), (None, True)):
            done = kavi("run", "--json", "--config", settings, "--policy", other, *envelope, mail,
                        *([way] if way else []))
            self.assertEqual(done.returncode, 0, done.stderr + done.stdout)
            action = json.loads(done.stdout)["rules"][0]["actions"][1]
            self.assertEqual("mails" in action, notifies, way)

    def test_a_test_mail_needs_a_server_and_an_address(self):
        arguments = self.prepare(9)
        for address, fault in (("me@a.example", b"set plain_host"), ("no one", b"no address")):
            done = kavi("notify", "tell-admin", arguments[-1], "--policy", arguments[3],
                        "--send-test", address)
            self.assertEqual(done.returncode, 2)
            self.assertIn(fault, done.stderr)

    def test_faults_are_named(self):
        faults = {
            "recipients: [nobody here]": "'nobody here' is no address",
            "sender: nobody here": "'nobody here' is no address",
            "attach: maybe": "attach is 'maybe' (write no, received",
            "notify_sender: 1": "notify_sender is '1' (write yes or no)",
            "type: -1": "type is '-1' (write a whole number",
            "subject: \"a\\nb\"": "the subject has a line break (write one line)",
            "send_trap: yes": "send_trap is set, but the trap has no text",
            "body_file: nothing.txt": "nothing.txt",
            "bodi: x": "unknown key 'bodi' in an entry (did you mean 'body'?)",
        }
        for line, fault in faults.items():
            with self.subTest(line=line):
                policy = self.put("policy.yaml", f"notifications:\n- name: n\n  {line}\nrules: []\n")
                done = kavi("policy", "check", policy)
                self.assertEqual(done.returncode, 2)
                self.assertIn(fault, done.stderr.decode() + done.stdout.decode())


if __name__ == "__main__":
    unittest.main()
