"""`kavi policy apply`, killed at any moment: the store holds the old policy or the new one, whole.

KAVI_CRASH_ROUNDS says how often on each kind of store.
"""
import os
import random
import subprocess
import time
import unittest

from kavi_process import KAVI
from store_case import PostgresServer, on_every_store, setUpModule, tearDownModule  # noqa: F401

ROUNDS = int(os.environ.get("KAVI_CRASH_ROUNDS", "20"))
PIECES = 200  # rules, and objects that they refer to


def policy_of(word):
    """A policy that has nothing but its names in common with that of another word."""
    stamps = "".join(f"- {{name: s{i}, text: '{word} {i}'}}\n" for i in range(PIECES))
    rules = "".join(f"- {{id: {i + 1}, name: {word}, when: always, actions: [{{stamp: s{i}}}, "
                    f"{{x_header: 'X-Word: {word}'}}]}}\n" for i in range(PIECES))
    return f"stamps:\n{stamps}rules:\n{rules}"


def kill_server(_):
    PostgresServer.shared.ask("kill")


class PolicyCrash:

    def setUp(self):
        super().setUp()
        self.files = {word: self.put(f"{word}.yaml", policy_of(word)) for word in ("old", "new")}
        self.exported = {}
        for word, path in self.files.items():
            self.kavi("policy", "apply", path)
            self.exported[word] = self.kavi("policy", "export").stdout
        begun = time.monotonic()
        self.kavi("policy", "apply", self.files["old"])
        self.longest = 1.2 * (time.monotonic() - begun)
        self.present = "old"
        self.random = random.Random(1)

    def begin(self, word):
        return subprocess.Popen([KAVI, "policy", "apply", self.files[word], "--store",
                                 self.location], stdout=subprocess.DEVNULL,
                                stderr=subprocess.DEVNULL)

    def expect_whole(self, word, finished):
        """That the store holds `word` or what it had, and `word` when apply said so."""
        exported = self.kavi("policy", "export").stdout
        self.assertIn(exported, self.exported.values())
        holds = next(name for name, text in self.exported.items() if text == exported)
        self.assertIn(holds, (word,) if finished else (word, self.present))
        self.assertIn("; sound", self.text("store", "check"))
        self.present = holds

    def rounds(self, times, end):
        """Lets `end(process)` end an apply at some moment. Returns how many changed anything."""
        changed = 0
        for _ in range(times):
            before = self.present
            word = "new" if before == "old" else "old"
            process = self.begin(word)
            try:
                process.wait(self.random.uniform(0, self.longest))
            except subprocess.TimeoutExpired:
                end(process)
            self.expect_whole(word, process.wait(60) == 0)
            changed += self.present != before
        return changed

    def test_a_killed_apply_leaves_the_old_or_the_new_policy(self):
        changed = self.rounds(ROUNDS, subprocess.Popen.kill)
        print(f"\n{ROUNDS} kills within {self.longest:.2f} s, {changed} times the new policy")
        if self.location.startswith("postgresql:"):
            self.rounds(max(3, ROUNDS // 20), kill_server)
        # Nothing that was killed keeps anybody out.
        for word in ("old", "new"):
            self.kavi("policy", "apply", self.files[word])


on_every_store(PolicyCrash)


if __name__ == "__main__":
    unittest.main(verbosity=2)
