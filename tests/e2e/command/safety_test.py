"""What the command must not do to files, and how it says that it could not do its work."""
import json
import os
import resource
import subprocess
import unittest

from kavi_process import KAVI, KaviTest, kavi

MESSAGE = b"From: a@x.example\nTo: b@x.example\nSubject: hello\n\nbody\n"
BOX = b"\n".join(b"From a@x.example Mon Mar  3 09:12:44 2025\nSubject: %s\n\nbody\n" % s
                 for s in (b"one", b"two"))


class StandardDescriptorsTest(KaviTest):

    def test_closed_descriptors_do_not_become_results(self):
        out = self.folder / "out"
        # The result of an mbox is open while its messages are reported.
        box = b"\n".join([BOX] * 100)
        policy, message = self.policy(), self.put("box", box)
        script = '"$0" run --policy "$1" --out "$2" "$3" 0<&- 1>&- 2>&-'
        done = subprocess.run(["sh", "-c", script, KAVI, policy, out, message], check=False,
                              timeout=60)
        self.assertEqual(done.returncode, 1)
        self.assertEqual((out / "box").read_bytes(), box)

    def test_a_closed_input_is_unreadable(self):
        done = subprocess.run(["sh", "-c", '"$0" run --policy "$1" --json - 0<&-', KAVI,
                               self.policy()], check=False, timeout=60, capture_output=True)
        self.assertEqual(done.returncode, 1)
        self.assertIn("error", json.loads(done.stdout))

    def test_output_that_cannot_be_written_is_a_failure(self):
        policy = self.policy()
        for i in range(200):
            self.put(f"in/{i}.eml", MESSAGE)
        for arguments in (["run", "--policy", policy, self.folder / "in"],
                          ["run", "--json", "--policy", policy, self.folder / "in"],
                          ["policy", "check", policy], ["actions"], ["tokens"], ["--help"],
                          ["setting", "encode", "postpone", "8:30"]):
            with open("/dev/full", "wb") as full:
                done = subprocess.run([KAVI, *map(str, arguments)], stdout=full, check=False,
                                      stderr=subprocess.PIPE, timeout=60)
            self.assertEqual(done.returncode, 1, arguments)
            self.assertIn(b"standard output cannot be written", done.stderr)


class OutputFolderTest(KaviTest):

    def setUp(self):
        super().setUp()
        self.out = self.folder / "out"
        self.message = self.put("m.eml", MESSAGE)

    def files(self):
        return {str(p.relative_to(self.out)) for p in self.out.rglob("*")
                if p.is_file()} - {".kavi-outputs"}

    def test_a_file_of_somebody_else_is_never_replaced(self):
        self.put("out/m.eml", b"precious")
        for action in ("virus_clean", "delete", "{x_header: 'X-A: b'}"):
            done = kavi("run", "--policy", self.always(action), "--out", self.out, self.message)
            self.assertEqual(done.returncode, 2)
            self.assertIn(b"not from an earlier run", done.stderr)
            self.assertEqual((self.out / "m.eml").read_bytes(), b"precious")
        self.assertEqual(sorted(p.name for p in self.out.iterdir()), ["m.eml"])

    def test_the_calls_of_somebody_else_are_never_appended_to(self):
        self.put("out/calls.jsonl", b"precious")
        done = kavi("run", "--policy", self.always("delete"), "--out", self.out, self.message)
        self.assertEqual(done.returncode, 2)
        self.assertEqual((self.out / "calls.jsonl").read_bytes(), b"precious")

    def test_the_folders_of_the_gateway_itself_take_no_results(self):
        config = self.put("kavi.ini", f"[general]\nqueue_quarantine = {self.folder}/q\n"
                          f"queue_archive = {self.folder}/a\n"
                          f"[delivery]\nstate_folder = {self.folder}/state\n")
        (self.folder / "q").mkdir()
        (self.folder / "link").symlink_to(self.folder / "q")
        run = ["run", "--policy", self.policy(), "--config", config]
        for out, key, more in (("state", "state_folder", []), ("state/spool", "state_folder", []),
                               ("q", "queue_quarantine", []), ("a/", "queue_archive", []),
                               ("link/x", "queue_quarantine", []), ("q/../a", "queue_archive", []),
                               ("state", "state_folder", ["--deliver"]),
                               ("other/x", "state_folder", ["--state", self.folder / "other"])):
            with self.subTest(out):
                done = kavi(*run, "--out", f"{self.folder}/{out}", *more, self.message)
                self.assertEqual(done.returncode, 2)
                self.assertIn(f"--out {self.folder}/{out}: lies in the gateway's".encode(),
                              done.stderr)
                self.assertIn(f"({key} in section".encode(), done.stderr)
        self.assertEqual(list((self.folder / "q").iterdir()), [])
        self.assertFalse((self.folder / "state").exists())
        for out in ("state-2", "qq", "."):
            with self.subTest(out):
                self.run_json(*run[1:], "--out", self.folder / "results" / out, self.message)

    def test_a_folder_under_the_name_of_a_result_is_named(self):
        self.put("out/m.eml/x", b"")
        done = kavi("run", "--policy", self.policy(), "--out", self.out, self.message)
        self.assertEqual(done.returncode, 2)
        self.assertIn(b"m.eml: is a folder", done.stderr)

    def test_runs_do_not_mix(self):
        self.put("in/one.eml", b"Subject: one\n\n")
        two = self.put("in/sub/two.eml", b"Subject: two\n\n")
        policy = self.policy("{id: 1, name: n, when: {subject: one}, actions: [delete]}")
        for _ in range(2):
            self.run_json("--policy", policy, "--out", self.out, self.folder / "in")
            self.assertEqual(self.files(), {"sub/two.eml", "deleted/one.eml", "calls.jsonl"})
            self.assertEqual(len((self.out / "calls.jsonl").read_text().splitlines()), 1)
        self.put("out/deleted/mine.eml", b"mine")
        self.run_json("--policy", policy, "--out", self.out, two)
        self.assertEqual(self.files(), {"two.eml", "deleted/mine.eml"})

    def test_the_record_reaches_nothing_outside(self):
        outside, linked = self.put("precious", b"x"), self.put("elsewhere/precious", b"x")
        (self.out).mkdir()
        (self.out / "link").symlink_to(linked.parent)
        for name in ("../precious", str(outside), "link/precious", "a/../../precious"):
            self.put("out/.kavi-outputs", name.encode() + b"\0")
            kavi("run", "--policy", self.policy(), "--out", self.out, self.message)
            self.assertTrue(outside.exists() and linked.exists(), name)

    def test_policy_config_and_standard_input_are_never_removed(self):
        policy = self.put("out/policy.yaml", "rules: []\n")
        config = self.put("out/kavi.ini", "[general]\n")
        stdin = self.put("out/stdin.eml", MESSAGE)
        for victim in (policy, config, stdin):
            self.put("out/.kavi-outputs", victim.name.encode() + b"\0")
            with open(stdin, "rb") as source:
                done = subprocess.run([KAVI, "run", "--policy", policy, "--config", config, "--out",
                                       self.out, "-"], stdin=source, capture_output=True,
                                      check=False, timeout=60)
            self.assertEqual(done.returncode, 2, victim)
            self.assertTrue(victim.exists(), victim)

    def test_an_mbox_with_an_error_is_not_half_written(self):
        box = self.put("box", BOX)
        self.put("out/deleted", b"in the way")
        policy = self.policy("{id: 1, name: n, when: {subject: two}, actions: [delete]}")
        done = kavi("run", "--json", "--policy", policy, "--out", self.out, box)
        self.assertEqual(done.returncode, 1)
        # The action failed, so the message goes on as it came: the box is whole.
        self.assertEqual((self.out / "box").read_bytes(), BOX)
        reports = [json.loads(line) for line in done.stdout.splitlines()]
        self.assertEqual(reports[1]["verdict"], "failed")
        self.assertTrue(reports[1]["calls"][0]["error_text"])
        self.assertFalse([r for r in reports if "output" in r])


class ThreadsTest(KaviTest):

    @unittest.skipIf(os.environ.get("KAVI_SANITIZE"),
                     "sanitizers reserve more addresses than the limit allows")
    def test_goes_on_with_the_threads_there_are(self):
        for i in range(40):
            self.put(f"in/{i}.eml", MESSAGE)
        policy = self.policy()

        def limit():
            resource.setrlimit(resource.RLIMIT_AS, (1 << 30, 1 << 30))

        done = subprocess.run([KAVI, "run", "--json", "--policy", policy, "--jobs", "1024",
                               self.folder / "in"], capture_output=True, check=False, timeout=60,
                              preexec_fn=limit)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(len(done.stdout.splitlines()), 40)


class ReasonsTest(KaviTest):

    def test_a_failure_has_its_reason_and_the_defects(self):
        message = self.put("m.eml", b"")
        policy = self.always("{x_header: 'X-A: b'}")
        [report] = self.run_json("--policy", policy, message, status=1)
        [action] = report["rules"][0]["actions"]
        self.assertTrue(action.get("failure") or action["log"])


if __name__ == "__main__":
    unittest.main(verbosity=2)
