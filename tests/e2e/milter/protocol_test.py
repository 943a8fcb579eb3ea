#!/usr/bin/env python3
"""kavi-milter without a mail system: miltertest plays one."""
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import tempfile
import unittest
import urllib.request

from mail_stack import PATIENCE, Milter, MilterTest, free_port, wait_until

POLICY = ("rules:\n"
          "- {id: 1, when: {header: {name: X-Do, matches: '^delete'}}, actions: [delete]}\n"
          "- {id: 2, when: {header: {name: X-Do, matches: '^tag'}}, actions: "
          "[{tag_subject: '[t] '}, {x_header: 'X-New: yes'}, {bcc: 'extra@example.com'}]}\n"
          "- {id: 3, when: {header: {name: X-Do, matches: '^fail'}}, "
          "actions: [{readdress: r@example.com}]}\n")

# Helpers of every script: `expect` ends it with a text.
PRELUDE = """
function expect(condition, text)
  if not condition then mt.echo("not as expected: " .. text); error(text) end
end
function connect(name)
  local conn = mt.connect("unix:" .. SOCKET)
  expect(conn ~= nil, "no connection")
  expect(mt.negotiate(conn, nil, nil, nil) == nil, "negotiation")
  expect(mt.conninfo(conn, "client.example.org", "192.0.2.1") == nil, "conninfo")
  expect(mt.getreply(conn) == SMFIR_CONTINUE, "conninfo reply")
  expect(mt.helo(conn, name or "client.example.org") == nil, "helo")
  return conn
end
function begin(conn, queue)
  mt.macro(conn, SMFIC_MAIL, "i", queue)
  expect(mt.mailfrom(conn, "<from@example.org>", "SIZE=100") == nil, "mailfrom")
  expect(mt.getreply(conn) == SMFIR_CONTINUE, "mailfrom reply")
  expect(mt.rcptto(conn, "<to@example.net>") == nil, "rcptto")
  expect(mt.getreply(conn) == SMFIR_CONTINUE, "rcptto reply")
end
function header(conn, name, value)
  expect(mt.header(conn, name, value) == nil, "header")
  expect(mt.getreply(conn) == SMFIR_CONTINUE, "header reply")
end
function finish(conn)
  expect(mt.eoh(conn) == nil, "eoh")
  expect(mt.getreply(conn) == SMFIR_CONTINUE, "eoh reply")
  expect(mt.bodystring(conn, "body\\r\\n") == nil, "body")
  expect(mt.getreply(conn) == SMFIR_CONTINUE, "body reply")
  expect(mt.eom(conn) == nil, "eom")
  return mt.getreply(conn)
end
"""


class ProtocolTest(MilterTest):
    policy = POLICY

    def script(self, text):
        done = subprocess.run(["miltertest", "-D", f"SOCKET={self.milter.socket}"],
                              input=PRELUDE + text, capture_output=True, text=True,
                              timeout=PATIENCE, check=False)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)

    def assert_serves(self):
        self.script("""
            local conn = connect()
            begin(conn, "ALIVE")
            header(conn, "Subject", " s")
            expect(finish(conn) == SMFIR_CONTINUE, "reply")
            mt.disconnect(conn)
        """)
        self.assertIsNone(self.milter.process.poll())

    def test_says_nothing_of_what_did_not_change(self):
        self.script("""
            local conn = connect()
            begin(conn, "Q1")
            header(conn, "Subject", " s")
            expect(finish(conn) == SMFIR_CONTINUE, "reply")
            expect(not mt.eom_check(conn, MT_HDRINSERT), "insertion")
            expect(not mt.eom_check(conn, MT_HDRADD), "addition")
            expect(not mt.eom_check(conn, MT_HDRCHANGE), "change")
            expect(not mt.eom_check(conn, MT_HDRDELETE), "deletion")
            expect(not mt.eom_check(conn, MT_BODYCHANGE), "body")
            mt.disconnect(conn)
        """)
        self.assertEqual(len(self.milter.lines("message queue=Q1", "address=192.0.2.1")), 1)

    def test_sends_each_change_in_its_place(self):
        self.script("""
            local conn = connect()
            begin(conn, "Q2")
            header(conn, "X-Do", " tag")
            header(conn, "subject", " hello")
            expect(finish(conn) == SMFIR_CONTINUE, "reply")
            expect(mt.eom_check(conn, MT_HDRCHANGE, "subject", " [t] hello"), "change")
            expect(mt.eom_check(conn, MT_HDRINSERT, "X-New", " yes", 3), "insertion")
            expect(mt.eom_check(conn, MT_RCPTADD, "<extra@example.com>"), "recipient")
            expect(not mt.eom_check(conn, MT_BODYCHANGE), "body")
            mt.disconnect(conn)
        """)

    def test_each_message_of_a_connection_has_its_own_verdict(self):
        self.script("""
            local conn = connect()
            begin(conn, "A")
            header(conn, "X-Do", " delete")
            expect(finish(conn) == SMFIR_DISCARD, "discard")
            begin(conn, "B")
            header(conn, "X-Do", " fail")
            expect(finish(conn) == SMFIR_REPLYCODE, "failure")
            begin(conn, "C")
            header(conn, "X-Do", " tag")
            mt.abort(conn)
            begin(conn, "D")
            header(conn, "Subject", " s")
            expect(finish(conn) == SMFIR_CONTINUE, "reply")
            expect(not mt.eom_check(conn, MT_HDRINSERT), "insertion")
            mt.disconnect(conn)
        """)
        self.assertEqual([line.split("queue=")[1].split()[0]
                          for line in self.milter.lines("message queue=")], ["A", "B", "D"])
        self.assertTrue(self.milter.lines("message queue=B", "verdict=tempfail"))

    def test_a_value_cannot_begin_another_field(self):
        self.script("""
            local conn = connect()
            begin(conn, "EVIL")
            header(conn, "Subject", " s\\nX-Do: delete")
            expect(finish(conn) == SMFIR_REPLYCODE, "failure")
            mt.disconnect(conn)
        """)
        self.assertEqual(len(self.milter.lines("message queue=EVIL", "verdict=tempfail", "no fold")), 1)

    def test_control_bytes_stay_on_their_log_line(self):
        self.script("""
            local conn = connect("evil\\nmessage queue=FORGED verdict=accept\\27[31m")
            begin(conn, "ESC")
            header(conn, "Subject", " s")
            expect(finish(conn) == SMFIR_CONTINUE, "reply")
            mt.disconnect(conn)
        """)
        [line] = self.milter.lines("message queue=")
        self.assertIn("queue=ESC", line)
        self.assertIn(r'\\n', line)
        self.assertNotIn("\x1b", self.milter.log())

    def test_a_mail_system_that_does_not_let_everything_be_changed_is_told_so(self):
        self.script("""
            local conn = mt.connect("unix:" .. SOCKET)
            mt.negotiate(conn, nil, SMFIF_ADDHDRS, nil)
            mt.disconnect(conn, false)
        """)
        wait_until(lambda: self.milter.lines("does not let everything be changed"), "the log line")

    def test_an_endless_body_is_cut_off_at_the_limit(self):
        self.script("""
            local conn = connect()
            begin(conn, "LONG")
            header(conn, "Subject", " s")
            mt.eoh(conn)
            for i = 1, 40 do mt.bodyrandom(conn, 60000) end
            expect(mt.eom(conn) == nil, "eom")
            expect(mt.getreply(conn) == SMFIR_REPLYCODE, "refusal")
            mt.disconnect(conn)
        """)
        self.assertEqual(len(self.milter.lines("message queue=LONG", "verdict=tempfail",
                                               "more than 1048576 bytes")), 1)

    def test_many_connections_leave_nothing_behind(self):
        def open_files():
            return len(os.listdir(f"/proc/{self.milter.process.pid}/fd"))

        self.assert_serves()
        before = open_files()
        for _ in range(20):
            self.assert_serves()
        wait_until(lambda: open_files() <= before, "the connections to be closed")


class MetricsTest(unittest.TestCase):
    def setUp(self):
        self.base = pathlib.Path(tempfile.mkdtemp(prefix="kavi-milter-"))
        self.addCleanup(shutil.rmtree, self.base, ignore_errors=True)

    def figures(self, port):
        with urllib.request.urlopen(f"http://127.0.0.1:{port}/metrics", timeout=PATIENCE) as answer:
            lines = answer.read().decode().splitlines()
        return dict(line.rsplit(" ", 1) for line in lines if not line.startswith("#"))

    def test_says_when_nothing_tells_our_own_mail_from_others(self):
        for settings, lines in (("", 1), ("reinjection_listener = kavi-scan", 0)):
            milter = Milter(self.base, POLICY, settings=settings,
                            delivery="scan_host = 127.0.0.1\nscan_port = 1\n")
            found = milter.lines(f"[{milter.process.pid}]", "reinjection_listener", "127.0.0.1:1")
            milter.stop()
            self.assertEqual(len(found), lines, milter.log())

    def test_says_of_each_policy_when_it_has_nowhere_to_send_to(self):
        sends = "rules: [{id: 7, when: always, actions: [readdress: a@b.example]}]\n"
        milter = Milter(self.base, sends)
        self.addCleanup(milter.stop)

        def told():
            found = len(milter.lines(" L1 scan_host in section delivery", ": 7 (readdress)"))
            milter.forget_log()
            return found

        self.assertEqual(told(), 1)
        for policy, lines in (("rules: []\n", 0), (sends, 1)):
            milter.reload(policy)
            self.assertEqual(told(), lines)

    def test_counts_what_happens(self):
        port = free_port()
        milter = Milter(self.base, POLICY, settings=f"metrics_port = {port}")
        self.addCleanup(milter.stop)
        script = PRELUDE + """
            local conn = connect()
            for number, what in ipairs({"tag", "tag", "delete", "fail", "nothing"}) do
              begin(conn, "Q" .. number)
              header(conn, "X-Do", " " .. what)
              finish(conn)
            end
            mt.disconnect(conn)
        """
        subprocess.run(["miltertest", "-D", f"SOCKET={milter.socket}"], input=script, text=True,
                       check=True, timeout=PATIENCE, stdout=subprocess.DEVNULL)
        milter.reload(POLICY)
        milter.reload("rules: nonsense\n")
        figures = self.figures(port)
        for name, value in {
                'kavi_messages_total{verdict="accept"}': "3",
                'kavi_messages_total{verdict="discard"}': "1",
                'kavi_messages_total{verdict="tempfail"}': "1",
                'kavi_actions_total{action="tag_subject",result="ok"}': "2",
                'kavi_actions_total{action="readdress",result="failed"}': "1",
                'kavi_message_duration_seconds_count': "5",
                'kavi_policy_loads_total{result="used"}': "1",
                'kavi_policy_loads_total{result="refused"}': "1",
                'kavi_spool_messages{state="due"}': "0",
                'kavi_spool_messages{state="waiting"}': "0",
                'kavi_spool_messages{state="sending"}': "0"}.items():
            self.assertEqual(float(figures.get(name, "-1")), float(value), name)


class StartTest(unittest.TestCase):
    """What keeps the daemon from starting, and what a check says."""

    def setUp(self):
        self.base = pathlib.Path(tempfile.mkdtemp(prefix="kavi-milter-"))
        self.addCleanup(shutil.rmtree, self.base, ignore_errors=True)
        (self.base / "policy.yaml").write_text("rules: []\n")

    def start(self, *arguments, policy="policy.yaml", settings=""):
        config = self.base / "kavi.ini"
        config.write_text(f"[delivery]\nstate_folder = {self.base}/state\n"
                          f"[milter]\npolicy = {self.base}/{policy}\n"
                          + ("" if "socket =" in settings else
                             f"socket = unix:{self.base}/socket\n") + settings + "\n")
        return subprocess.run([os.environ["KAVI_MILTER"], "--config", str(config), *arguments],
                              capture_output=True, text=True, timeout=PATIENCE, check=False)

    def test_a_check_says_what_is_wrong(self):
        self.assertEqual(self.start("--check").returncode, 0)
        done = self.start("--check", policy="missing.yaml")
        self.assertEqual(done.returncode, 2)
        self.assertIn("missing.yaml", done.stderr)
        done = self.start("--check", settings="max_parts = many\nsocket_mode = 0999\n"
                                              "beyond_limits = drop")
        self.assertEqual(done.returncode, 2)
        for key in ("max_parts", "socket_mode", "beyond_limits"):
            self.assertIn(f"[milter] {key}: ", done.stderr)

    def test_root_has_to_name_a_user(self):
        done = self.start()
        self.assertEqual(done.returncode, 1)
        self.assertIn("user", done.stderr)
        done = self.start(settings="user = nobody-of-that-name")
        self.assertIn("nobody-of-that-name", done.stderr)

    def test_a_socket_that_cannot_be_made_is_named(self):
        done = self.start(settings=f"user = root\nsocket = unix:{self.base}/none/socket")
        self.assertEqual(done.returncode, 1)
        self.assertIn(f"{self.base}/none/socket", done.stderr)

    def test_becomes_the_user(self):
        shutil.chown(self.base, "nobody")
        self.base.chmod(0o755)
        milter = Milter(self.base, "rules: []\n", settings="")
        milter.stop()
        config = milter.config.read_text().replace("user = root", "user = nobody")
        milter.config.write_text(config)
        shutil.rmtree(milter.state)
        shutil.chown(milter.socket.parent, "nobody", "postfix")
        milter.start()
        self.addCleanup(milter.stop)
        status = pathlib.Path(f"/proc/{milter.process.pid}/status").read_text()
        uids = [line for line in status.splitlines() if line.startswith("Uid:")][0].split()[1:]
        self.assertNotIn("0", uids)
        self.assertEqual(milter.socket.stat().st_mode & 0o777, 0o660)

    def test_reload_without_a_change_keeps_serving(self):
        milter = Milter(self.base, "rules: []\n")
        self.addCleanup(milter.stop)
        for _ in range(3):
            self.assertIn("is in force", milter.reload("rules: []\n"))
        milter.process.send_signal(signal.SIGTERM)
        self.assertEqual(milter.process.wait(PATIENCE), 0)


if __name__ == "__main__":
    unittest.main()
