"""Many commands on one store at once: none fails, none is lost, and each sees whole policies.

KAVI_STORM_PROCESSES and KAVI_STORM_SECONDS say how many and for how long.
"""
import json
import os
import re
import threading
import time
import unittest

from kavi_process import kavi
from store_case import (PostgresServer, StoreTest, on_every_store, setUpModule,  # noqa: F401
                        tearDownModule)

PROCESSES = int(os.environ.get("KAVI_STORM_PROCESSES", "6"))
SECONDS = float(os.environ.get("KAVI_STORM_SECONDS", "3"))
PIECES = 5


class User(threading.Thread):
    """Runs one command after the other; each is a process."""

    def __init__(self, test, number):
        super().__init__()
        self.test, self.number, self.end = test, number, 0
        self.turn = 0
        self.own = {}
        self.applied = []
        self.seen = []
        self.faults = []

    def kavi(self, *arguments):
        done = kavi(*arguments, "--store", self.test.location)
        if done.returncode != 0:
            self.faults.append((arguments[:3], done.stderr.decode()))
        return done.stdout.decode()

    def run(self):
        while not self.faults and time.monotonic() < self.end:
            self.turn += 1
            (self.add, self.apply, self.read, self.remove)[self.turn % 4]()

    def add(self):
        name = f"{self.number}.{self.turn}"
        text = self.kavi("object", "add", "stamp", name, f"text={name}", "--owner", self.number,
                         "--json")
        if text:
            self.own[json.loads(text)["id"]] = name

    def remove(self):
        if len(self.own) > 2:
            number, _ = self.own.popitem()
            self.kavi("object", "remove", number, "--owner", self.number)

    def apply(self):
        word = f"word-{self.number}.{self.turn}"
        stamps = "".join(f"- {{name: s{i}, text: {word}}}\n" for i in range(PIECES))
        rules = "".join(f"- {{id: {i + 1}, name: {word}, when: always, actions: [{{stamp: s{i}}}]}}\n"
                        for i in range(PIECES))
        path = self.test.put(f"{word}.yaml", f"stamps:\n{stamps}rules:\n{rules}")
        self.kavi("policy", "apply", path)
        self.applied.append(word)

    def read(self):
        self.seen.append(re.findall(r"word-[\d.]+", self.kavi("policy", "export")))


class StoreStorm:

    def test_commands_at_once_neither_fail_nor_mix(self):
        users = [User(self, number) for number in range(1, PROCESSES + 1)]
        end = time.monotonic() + SECONDS
        for user in users:
            user.end = end
            user.start()
        for user in users:
            user.join()
        for user in users:
            self.assertEqual(user.faults, [])
            for words in user.seen:
                self.assertEqual(len(set(words)), 1 if words else 0, words)
                self.assertIn(len(words), (0, 2 * PIECES))
            listed = self.json("object", "list", "--owner", user.number, "--limit", "10000")
            self.assertEqual({entry["id"]: entry["name"] for entry in listed}, user.own)
        changes = self.json("store", "audit", "--limit", "1000000")
        wanted = {word for user in users for word in user.applied}
        written = {change["what"].split("'")[1] for change in changes if "write rule" in change["what"]}
        self.assertEqual(written, wanted)
        self.assertIn("; sound", self.text("store", "check"))
        print(f"\n{PROCESSES} at once: {sum(user.turn for user in users)} commands, "
              f"{len(wanted)} policies applied")


class RestartTest(StoreTest):

    def new_location(self):
        return PostgresServer.shared.ask("new")

    def test_a_server_that_comes_and_goes_is_told_and_then_forgotten(self):
        self.kavi("object", "add", "stamp", "a", "text=x")
        for _ in range(2):
            PostgresServer.shared.ask("stop")
            try:
                for command in (["object", "list"], ["policy", "export"], ["store", "check"],
                                ["policy", "apply", self.put("p.yaml", "rules: []\n")]):
                    complaint = self.complaint(*command)
                    self.assertIn("postgresql://", complaint)
                    self.assertIn("the store cannot be opened", complaint)
                    self.assertIn("check that the server runs", complaint)
            finally:
                PostgresServer.shared.ask("start")
            self.assertIn("'a'", self.text("store", "audit"))


on_every_store(StoreStorm)


if __name__ == "__main__":
    unittest.main(verbosity=2)
