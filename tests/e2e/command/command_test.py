"""The command as a person and a program see it."""
import json
import os
import pathlib
import pty
import re
import subprocess
import unittest
import urllib.parse

from kavi_process import EXAMPLES, KAVI, ROOT, KaviTest, kavi

MESSAGE = b"From: a@x.example\nTo: b@x.example\nSubject: hello\n\nbody\n"
NOBODY = 65534


def mbox_of(*subjects):
    return b"\n".join(
        b"From a@x.example Mon Mar  3 09:12:44 2025\nSubject: %s\n\nbody\n" % subject
        for subject in subjects)


class ReprocessingTest(KaviTest):
    MARKED = (b"From: a@x.example\nTo: b@x.example\nX-kavi-reprocess-rules: 12\n"
              b"X-kavi-reprocess-type: quarantine\nSubject: hello\n\nbody\n")
    POLICY = ("quarantine_areas: [{name: virus, aging_days: 7}]\n"
              "rules:\n- {id: 15, when: always, actions: [{quarantine: virus}]}\n")

    def stored(self, *options):
        policy, message = self.put("policy.yaml", self.POLICY), self.put("m.eml", self.MARKED)
        out = self.folder / "out"
        [report] = self.run_json("--policy", policy, "--out", out, *options, message)
        [call] = report["calls"]
        fields = [line for line in (out / call["file"]).read_text().splitlines()
                  if line.startswith("X-kavi-reprocess-rules")]
        return fields, report["rules"][0]["actions"][0]["reprocess"], report["reprocessing"]

    def test_trusted_fields_are_kept_and_added_to(self):
        fields, reprocess, reprocessing = self.stored("--trusted")
        self.assertEqual(fields, ["X-kavi-reprocess-rules: 12 15"])
        self.assertEqual(reprocess["rules_handed_over"], "12 15")
        self.assertEqual(reprocess["rules_left"], "12")
        self.assertTrue(reprocessing["honoured"])

    def test_unsealed_fields_are_taken_out_first(self):
        fields, reprocess, reprocessing = self.stored()
        self.assertEqual(fields, ["X-kavi-reprocess-rules: 15"])
        self.assertEqual(reprocess["rules_left"], "")
        self.assertFalse(reprocessing["honoured"])

    def test_the_text_report_shows_both(self):
        policy, message = self.put("policy.yaml", self.POLICY), self.put("m.eml", self.MARKED)
        done = kavi("run", "--policy", policy, "--trusted", message)
        self.assertIn(b"12 15 as handed over, 12 left in the stream", done.stdout)

    def test_a_skipped_rule_is_reported(self):
        policy = self.policy("{id: 12, name: n, when: always, actions: [delete]}")
        message = self.put("m.eml", self.MARKED)
        [report] = self.run_json("--policy", policy, "--trusted", message)
        self.assertTrue(report["rules"][0]["skipped"])
        self.assertEqual(report["calls"], [])
        done = kavi("run", "--policy", policy, "--trusted", message)
        self.assertIn(b"matched, but skipped", done.stdout)


class ExpandTest(KaviTest):

    def test_prints_the_text_for_a_message(self):
        done = kavi("expand", "%SUBJECT% from %SENDER% to %RCPTS%", "--from", "s@x.example",
                    "--rcpt", "r@x.example", self.put("m.eml", MESSAGE))
        self.assertEqual((done.returncode, done.stdout, done.stderr),
                         (0, b"hello from s@x.example to r@x.example\n", b""))

    def test_reads_standard_input_and_a_policy(self):
        policy = self.policy("{id: 7, name: seven, when: always, actions: []}")
        done = kavi("expand", "%RULENAME%", "-", "--policy", policy, stdin=MESSAGE)
        self.assertEqual(done.stdout, b"seven\n")

    def test_points_out_what_looks_mistyped(self):
        done = kavi("expand", "%SENDR% 100% %UNRELATEDWORD%", self.put("m.eml", MESSAGE))
        self.assertEqual(done.returncode, 0)
        self.assertEqual(done.stdout, b"%SENDR% 100% %UNRELATEDWORD%\n")
        self.assertEqual(done.stderr.decode(), "kavi: %SENDR% is no token and stays as it is "
                                               "(did you mean %SENDER%?)\n")

    def test_says_what_it_cannot_read(self):
        none = self.folder / "none.eml"
        done = kavi("expand", "x", none)
        self.assertEqual(done.returncode, 1)
        self.assertEqual(done.stderr.decode(), f"kavi: {none}: No such file or directory\n")
        self.assertEqual(kavi("expand", "x").returncode, 2)
        self.assertEqual(kavi("expand", "x", self.put("m.eml", MESSAGE), "--from", "a b").returncode,
                         2)


class RunTest(KaviTest):

    def test_reports_a_message_as_json(self):
        [report] = self.run_json("--policy", self.always("{x_header: 'X-A: b'}"), "--out",
                                 self.folder / "out", self.put("m.eml", MESSAGE))
        self.assertRegex(report.pop("id"), r"^[0-9a-z]{16,36}$")
        self.assertEqual(report, {
            "input": str(self.folder / "m.eml"),
            "bytes": len(MESSAGE),
            "envelope": {"from": "a@x.example", "from_source": "From", "rcpt": ["b@x.example"],
                         "rcpt_source": "To"},
            "defects": [],
            "rules": [{"id": 1, "name": "n", "attachments": [],
                       "skipped": False, "reached": True, "actions": [{
                "action": "x_header", "code": 18, "value": "X-A: b", "setting": "X-A:b",
                "result": True, "flag": False, "disposed": False,
                "changes": [{"kind": "header_added", "what": "X-A", "part": "1"}],
                "bytes_before": len(MESSAGE), "bytes_after": len(MESSAGE) + 7, "log": []}]}],
            "calls": [],
            "parts": [{"part": "1", "change": "changed", "name": "", "type": "text/plain",
                       "fields": [{"name": "X-A", "change": "added"}], "content": False,
                       "bytes_before": 0, "bytes_after": 0}],
            "verdict": "changed",
            "disposed": False,
            "output": str(self.folder / "out/m.eml"),
            "output_bytes": len(MESSAGE) + 7,
        })

    def test_the_command_line_sets_the_envelope(self):
        [report] = self.run_json("--policy", self.policy(), "--from", "<>", "--rcpt", "c@x.example",
                                 "--rcpt", "<d@x.example>", self.put("m.eml", MESSAGE))
        self.assertEqual(report["envelope"], {
            "from": "", "from_source": "--from", "rcpt": ["c@x.example", "d@x.example"],
            "rcpt_source": "--rcpt"})

    def test_files_what_is_disposed_of_beside_the_results(self):
        out = self.folder / "out"
        policy = self.policy(
            "{id: 1, name: a, when: {subject: one}, actions: [delete]}",
            "{id: 2, name: b, when: {subject: two}, actions: [{x_header: 'X-A: b'}, {postpone: '8:30'}]}")
        for name in ("one", "two", "three"):
            self.put(f"in/{name}.eml", b"Subject: %s\n\nx\n" % name.encode())
        reports = self.run_json("--policy", policy, "--out", out, self.folder / "in")
        self.assertEqual([(r["verdict"], r.get("output")) for r in reports],
                         [("disposed", None), ("unchanged", str(out / "three.eml")),
                          ("disposed", None)])
        files = sorted(str(p.relative_to(out)) for p in out.rglob("*") if p.is_file())
        self.assertEqual(files, [".kavi-outputs", "calls.jsonl", "deleted/one.eml",
                                 "postponed/two.eml", "three.eml"])
        self.assertEqual((out / "postponed/two.eml").read_bytes(),
                         b"Subject: two\nX-A: b\n\nx\n")
        calls = [json.loads(line) for line in (out / "calls.jsonl").read_text().splitlines()]
        self.assertEqual(sorted(c["operation"] for c in calls), ["delete", "postpone"])
        self.assertEqual(sorted(c["input"] for c in calls),
                         [str(self.folder / "in/one.eml"), str(self.folder / "in/two.eml")])

    def test_values_of_settings_that_are_none_are_named(self):
        config = self.put("kavi.ini", "[log]\nTarget = file\n[kavi_manager]\nscanner_id = x\n")
        for command in (["run", "--policy", self.policy()], ["expand", "x"]):
            done = kavi(*command, "--config", config, self.put("m.eml", MESSAGE))
            self.assertEqual((done.returncode, done.stdout), (2, b""))
            self.assertEqual(done.stderr.splitlines(), [
                b"kavi: settings: [log] Target: 'file' is neither stderr nor syslog",
                b"kavi: settings: [kavi_manager] scanner_id: 'x' is no number up to 2147483647"])

    def test_calls_name_the_input_that_they_came_from(self):
        box = self.put("box.mbox", b"From a Mon Jan  1 00:00:00 2024\nSubject: 1\n\nx\n\n"
                                   b"From a Mon Jan  1 00:00:00 2024\nSubject: 2\n\nx\n")
        inputs = [self.put(f"{name}/m.eml", MESSAGE) for name in "ab"]
        out = self.folder / "out"
        self.run_json("--policy", self.always("delete"), "--out", out, *inputs, box, "-",
                      stdin=MESSAGE)
        calls = [json.loads(line) for line in (out / "calls.jsonl").read_text().splitlines()]
        named = {(c["input"], c.get("message")): c["file"] for c in calls}
        self.assertEqual(named, {
            (str(inputs[0]), None): "deleted/m.eml", (str(inputs[1]), None): "deleted/m-2.eml",
            (str(box), 1): "deleted/box.mbox-1.eml", (str(box), 2): "deleted/box.mbox-2.eml",
            ("-", None): "deleted/stdin.eml"})

    def test_a_second_run_replaces_the_results_of_the_first(self):
        out, message = self.folder / "out", self.put("m.eml", MESSAGE)
        self.run_json("--policy", self.always("{x_header: 'X-A: b'}"), "--out", out, message)
        self.run_json("--policy", self.policy(), "--out", out, message)
        self.assertEqual((out / "m.eml").read_bytes(), MESSAGE)
        self.run_json("--policy", self.always("delete"), "--out", out, message)
        self.assertFalse((out / "m.eml").exists())

    def test_inputs_of_one_name_get_results_of_their_own(self):
        for folder in ("a", "b", "c"):
            self.put(f"{folder}/m.eml", b"Subject: %s\n\n" % folder.encode())
        out = self.folder / "out"
        self.run_json("--policy", self.policy(), "--out", out, self.folder / "a/m.eml",
                      self.folder / "b/m.eml", self.folder / "c")
        self.assertEqual({p.name: p.read_bytes() for p in out.glob("*.eml")},
                         {"m.eml": b"Subject: a\n\n", "m-2.eml": b"Subject: b\n\n",
                          "m-3.eml": b"Subject: c\n\n"})

    def test_never_replaces_an_input(self):
        message = self.put("in/m.eml", MESSAGE)
        done = kavi("run", "--policy", self.always("{x_header: 'X-A: b'}"), "--out",
                    self.folder / "in", message)
        self.assertEqual(done.returncode, 2)
        self.assertIn(b"would replace the input", done.stderr)
        self.assertEqual(message.read_bytes(), MESSAGE)
        self.assertEqual([p.name for p in (self.folder / "in").iterdir()], ["m.eml"])

    def test_a_failed_action_ends_with_1_and_leaves_the_message(self):
        out = self.folder / "out"
        empty, good = self.put("in/empty.eml", b""), self.put("in/good.eml", MESSAGE)
        reports = self.run_json("--policy", self.always("{x_header: 'X-A: b'}"), "--out", out,
                                empty.parent, status=1)
        self.assertEqual([r["verdict"] for r in reports], ["failed", "changed"])
        self.assertEqual((out / "empty.eml").read_bytes(), b"")
        self.assertEqual((out / good.name).stat().st_size, len(MESSAGE) + 7)

    def test_a_missing_input_is_reported_and_the_rest_is_done(self):
        message = self.put("m.eml", MESSAGE)
        missing = self.folder / "none.eml"
        done = kavi("run", "--policy", self.policy(), missing, message)
        self.assertEqual(done.returncode, 1)
        self.assertEqual(done.stderr.decode(), f"kavi: {missing}: No such file or directory\n")
        self.assertIn(b"unchanged", done.stdout)
        reports = self.run_json("--policy", self.policy(), missing, message, status=1)
        self.assertEqual(reports[0], {"input": str(missing), "error": "No such file or directory"})
        self.assertEqual(reports[1]["verdict"], "unchanged")

    def test_unreadable_files_and_folders_are_reported(self):
        self.folder.chmod(0o755)
        self.put("in/open.eml", MESSAGE)
        self.put("in/closed.eml", MESSAGE).chmod(0)
        self.put("in/locked/x.eml", MESSAGE)
        (self.folder / "in/locked").chmod(0)
        policy = self.policy()
        options = {"user": NOBODY, "group": NOBODY, "extra_groups": []} if os.getuid() == 0 else {}
        if options and subprocess.run([KAVI, "--version"], capture_output=True, check=False,
                                      **options).returncode != 0:
            self.skipTest("the program lies where an unprivileged user cannot reach it")
        reports = self.run_json("--policy", policy, self.folder / "in", status=1, **options)
        (self.folder / "in/locked").chmod(0o700)
        by_name = {pathlib.Path(r["input"]).name: r for r in reports}
        self.assertIn("Permission denied", by_name["closed.eml"]["error"])
        self.assertIn("Permission denied", by_name["locked"]["error"])
        self.assertEqual(by_name["open.eml"]["verdict"], "unchanged")

    def test_reads_standard_input(self):
        out = self.folder / "out"
        [report] = self.run_json("--policy", self.policy(), "--out", out, "-", stdin=MESSAGE)
        self.assertEqual(report["input"], "-")
        self.assertEqual((out / "stdin.eml").read_bytes(), MESSAGE)

    def test_an_mbox_comes_out_as_an_mbox(self):
        out = self.folder / "out"
        box = self.put("box", mbox_of(b"one", b"two", b"three"))
        self.run_json("--policy", self.policy(), "--out", out, box)
        self.assertEqual((out / "box").read_bytes(), box.read_bytes())

        policy = self.policy("{id: 1, name: a, when: {subject: two}, actions: [delete]}",
                             "{id: 2, name: b, when: {subject: one}, actions: [{x_header: 'X-A: b'}]}")
        reports = self.run_json("--policy", policy, "--out", out, box)
        self.assertEqual([(r["message"], r["verdict"]) for r in reports],
                         [(1, "changed"), (2, "disposed"), (3, "unchanged")])
        expected = mbox_of(b"one", b"three").replace(b"one\n", b"one\nX-A: b\n", 1)
        self.assertEqual((out / "box").read_bytes(), expected)
        self.assertTrue((out / "deleted/box-2.eml").exists())

        [*_, last] = self.run_json("--policy", self.policy(), "--out", out, "-",
                                   stdin=box.read_bytes())
        self.assertEqual(last["message"], 3)
        self.assertEqual((out / "stdin.eml").read_bytes(), box.read_bytes())

    def test_threads_change_nothing_but_the_time(self):
        for i in range(200):
            body = b"x" * (100000 if i % 11 == 0 else 10)
            self.put(f"in/{i:03}.eml", b"Subject: %d\n\n%s\n" % (i, body))
        self.put("in/box", mbox_of(*(b"%d" % i for i in range(200))))
        policy = self.policy("{id: 1, name: a, when: {subject: 7}, actions: [{x_header: 'X-A: b'}]}",
                             "{id: 2, name: b, when: {subject: '9$'}, actions: [delete]}")
        seen = []
        for jobs in (1, 2, 8):
            out = self.folder / "out"
            done = kavi("run", "--policy", policy, "--json", "--jobs", jobs, "--out", out,
                        self.folder / "in")
            self.assertEqual(done.returncode, 0)
            reports = re.sub(rb'"id":"[0-9a-z]+"', b'', done.stdout)
            # Files of the adapter are numbered by whoever comes first.
            files = {str(p.relative_to(out)): p.read_bytes() for p in out.rglob("*")
                     if p.is_file() and p.name not in ("calls.jsonl", ".kavi-outputs")}
            seen.append((reports, files))
            subprocess.run(["rm", "-rf", out], check=True)
        self.assertEqual(seen[0], seen[1])
        self.assertEqual(seen[0], seen[2])

    def test_a_report_that_cannot_be_written_is_a_failure(self):
        with open("/dev/full", "wb") as full:
            done = subprocess.run([KAVI, "run", "--policy", self.policy(),
                                   self.put("m.eml", MESSAGE)], stdout=full,
                                  stderr=subprocess.PIPE, timeout=60, check=False)
        self.assertEqual(done.returncode, 1)

    def test_an_output_folder_that_cannot_be_made_is_named_before_anything_runs(self):
        self.put("file", b"x")
        for out, fault in (("file/out", b"file/out: cannot be made: "), ("file", b"file: is no folder")):
            done = kavi("run", "--policy", self.policy(), "--out", self.folder / out,
                        self.put("m.eml", MESSAGE))
            self.assertEqual((done.returncode, done.stdout), (2, b""))
            self.assertIn(fault, done.stderr)
            self.assertIn(b"choose another --out folder", done.stderr)

    def test_an_empty_folder_is_no_error(self):
        (self.folder / "in").mkdir()
        done = kavi("run", "--policy", self.policy(), self.folder / "in")
        self.assertEqual(done.returncode, 0)
        self.assertTrue(done.stdout.startswith(b"0 messages in "), done.stdout)


    def test_says_what_it_leaves_out_of_a_folder(self):
        self.put("in/m.eml", MESSAGE)
        self.put("in/.hidden", MESSAGE)
        (self.folder / "in/link").symlink_to("nowhere")
        done = kavi("run", "--policy", self.policy(), self.folder / "in")
        self.assertEqual(done.returncode, 0)
        self.assertEqual(done.stderr.decode(),
                         f"kavi: {self.folder}/in: left out 1 hidden and 1 that are no files (pipes, "
                         f"sockets, dangling links), such as {self.folder}/in/.hidden\n")

    def test_a_name_that_is_no_utf8_can_be_had_from_json(self):
        path = os.fsencode(self.folder) + b"/b\xfcro.eml"
        with open(path, "wb") as file:
            file.write(MESSAGE)
        done = subprocess.run([KAVI, "run", "--json", "--policy", self.policy(), "--out",
                               self.folder / "out", path], capture_output=True, check=True)
        report = json.loads(done.stdout)
        self.assertEqual(urllib.parse.unquote_to_bytes(report["input_encoded"]), path)
        self.assertTrue(report["output_encoded"].endswith("/out/b%FCro.eml"))

    def test_the_same_recipient_counts_once(self):
        [report] = self.run_json("--policy", self.policy(), "--rcpt", "c@x.example", "--rcpt",
                                 "<c@x.example>", self.put("m.eml", MESSAGE))
        self.assertEqual(report["envelope"]["rcpt"], ["c@x.example"])


class TextTest(KaviTest):

    def test_plain_text_where_there_is_no_terminal(self):
        done = kavi("run", "--policy", EXAMPLES / "policy.yaml", EXAMPLES / "mail")
        self.assertEqual(done.returncode, 0)
        self.assertEqual(done.stderr, b"")
        self.assertNotIn(b"\x1b", done.stdout)
        self.assertIn("rule     30 quotations\n", done.stdout.decode())
        self.assertRegex(done.stdout.decode(), r"7 messages in [0-9.]+ s: 2 unchanged, 2 changed, "
                         r"2 disposed of, 1 rejected\n")

    def test_quiet_leaves_out_what_no_rule_matched(self):
        done = kavi("run", "--quiet", "--policy", EXAMPLES / "policy.yaml", EXAMPLES / "mail")
        self.assertNotIn(b"plain.eml", done.stdout)
        self.assertIn(b"japanese.eml", done.stdout)

    def test_verbose_shows_the_log_and_the_form(self):
        arguments = ["run", "--policy", EXAMPLES / "policy.yaml", EXAMPLES / "mail/broken.eml"]
        self.assertNotIn(b"note", kavi(*arguments).stdout)
        self.assertIn(b"note     a header line is no field", kavi(*arguments, "-v").stdout)

    def test_shows_colours_and_progress_on_a_terminal(self):
        for i in range(300):
            self.put(f"in/{i}.eml", b"Subject: x\n\n" + b"y" * 100000)
        main, terminal = pty.openpty()
        environment = dict(os.environ, TERM="xterm")
        environment.pop("NO_COLOR", None)
        with subprocess.Popen([KAVI, "run", "--policy", self.policy(), "-q", self.folder / "in"],
                              stdout=terminal, stderr=terminal, env=environment) as process:
            os.close(terminal)
            shown = b""
            while True:
                try:
                    piece = os.read(main, 65536)
                except OSError:
                    break
                if not piece:
                    break
                shown += piece
            self.assertEqual(process.wait(timeout=60), 0)
        os.close(main)
        self.assertRegex(shown, rb"\r\x1b\[K\[[#.]{24}\] \d+/300  0 changed")
        self.assertIn(b"\x1b[1m300 messages\x1b[0m", shown)

    def test_the_rehearsal_runs(self):
        done = subprocess.run(["sh", ROOT / "examples/rehearsal.sh", KAVI], capture_output=True,
                              timeout=60, check=False)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn(b"+X-Topic: quotation", done.stdout)
        self.assertIn(b"postponed/broken.eml", done.stdout)
        self.assertIn("+Subject: [EXTERNAL] 見積書の件\n", done.stdout.decode())
        self.assertIn(b"-1.2  price-list.pdf.exe", done.stdout)


if __name__ == "__main__":
    unittest.main(verbosity=2)
