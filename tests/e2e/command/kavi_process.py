"""Runs the built program, named by the environment variable KAVI."""
import json
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

KAVI = os.environ["KAVI"]
ROOT = pathlib.Path(__file__).resolve().parents[3]
EXAMPLES = ROOT / "examples"


def kavi(*arguments, stdin=b"", **options):
    """The finished process; standard output and error as bytes."""
    return subprocess.run([KAVI, *map(str, arguments)], input=stdin, capture_output=True,
                          timeout=600, check=False, **options)


class KaviTest(unittest.TestCase):
    """A test with a folder of its own."""

    maxDiff = None

    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="kavi-e2e-"))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)

    def put(self, name, content):
        path = self.folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content if isinstance(content, bytes) else content.encode())
        return path

    def policy(self, *rules):
        """A policy file of rules in flow style."""
        text = "rules:\n" + "".join(f"- {rule}\n" for rule in rules) if rules else "rules: []\n"
        return self.put("policy.yaml", text)

    def always(self, *actions):
        return self.policy("{id: 1, name: n, when: always, actions: [%s]}" % ", ".join(actions))

    def run_json(self, *arguments, status=0, **options):
        """The reports of `kavi run --json`."""
        done = kavi("run", "--json", *arguments, **options)
        self.assertEqual(done.returncode, status, done.stderr.decode(errors="replace"))
        return [json.loads(line) for line in done.stdout.splitlines()]
