"""What tests of `kavi run --deliver` start from: a settings file, and mail servers that take orders."""
import json
import os
import pathlib
import signal
import subprocess
import sys

from kavi_process import KAVI, KaviTest, kavi

SINK = pathlib.Path(__file__).resolve().parents[1] / "smtp" / "smtp_sink.py"


class Sink:
    """A scripted mail server on a free port (see smtp_sink.py)."""

    def __init__(self, test, name, at=None, **script):
        self.folder = test.folder / f"sink-{name}"
        self.process = subprocess.Popen(
            [sys.executable, "-B", SINK, "--out", self.folder, "--script",
             json.dumps({"at": at or {}, **script})],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        test.addCleanup(self.stop)
        self.port = int(self.process.stdout.readline().split()[1])

    def stop(self):
        if self.process.poll() is None:
            self.process.stdin.close()
            self.process.wait(timeout=30)
        self.process.stdout.close()

    def events(self):
        with open(self.folder / "log.jsonl", encoding="utf-8") as log:
            return [json.loads(line) for line in log]

    def commands(self, verb):
        return [event["text"] for event in self.events()
                if event["event"] == "command" and event["text"].upper().startswith(verb)]

    def messages(self):
        """The accepted messages, in the order of their arrival."""
        paths = sorted(self.folder.glob("*.eml"), key=lambda path: int(path.stem))
        return [path.read_bytes() for path in paths]


class GatewayTest(KaviTest):
    """A gateway of its own below `self.folder`."""

    def setUp(self):
        super().setUp()
        self.state = self.folder / "state"
        self.out = self.folder / "out"
        self.config = self.settings()

    def settings(self, **delivery):
        """A settings file; the arguments are keys of section delivery."""
        keys = {"state_folder": self.state, "hello_name": "gw.example", **delivery}
        text = (f"[general]\nqueue_quarantine = {self.folder}/quarantine\n"
                f"queue_archive = {self.folder}/archive\n[delivery]\n")
        text += "".join(f"{key} = {value}\n" for key, value in keys.items())
        self.config = self.put("kavi.ini", text)
        return self.config

    def sends_to(self, scan=None, plain=None, **delivery):
        for name, sink in (("scan", scan), ("plain", plain)):
            if sink is not None:
                delivery |= {f"{name}_host": "127.0.0.1", f"{name}_port": sink.port}
        return self.settings(**delivery)

    def arguments(self, *arguments):
        return ["run", "--json", "--deliver", "--config", self.config, "--policy",
                self.folder / "policy.yaml", "--out", self.out, *arguments]

    def deliver(self, *arguments, status=0, **options):
        """The reports of the messages, and that of the spool."""
        done = kavi(*self.arguments(*arguments), **options)
        self.assertEqual(done.returncode, status, done.stderr.decode() + done.stdout.decode())
        reports = [json.loads(line) for line in done.stdout.splitlines()]
        return reports[:-1], reports[-1]["spool"]

    def spool(self, *arguments, status=0, **options):
        done = kavi("spool", arguments[0], "--config", self.config, *arguments[1:], **options)
        self.assertEqual(done.returncode, status, done.stderr.decode() + done.stdout.decode())
        return done

    def waiting(self):
        return json.loads(self.spool("list", "--json").stdout)

    def stored(self, folder):
        """The messages that are filed below a folder of this gateway."""
        return sorted(path for path in (self.folder / folder).rglob("*")
                      if path.is_file() and path.suffix in (".DF", ".eml"))

    def kill_when(self, seen, *arguments):
        """Starts a delivering run and kills it once `seen` answers true."""
        process = subprocess.Popen([KAVI, *map(str, self.arguments(*arguments))],
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            while process.poll() is None and not seen():
                pass
            self.assertIsNone(process.poll(), "ended before it could be killed")
        finally:
            process.send_signal(signal.SIGKILL)
            process.wait(timeout=30)


def unprivileged(*command):
    """The command as somebody whom modes hold back, which they do not do with root. It stays the
    same user: the program may lie where no other one gets."""
    if os.geteuid() != 0:
        return list(command)
    return ["setpriv", "--bounding-set=-dac_override,-dac_read_search", *command]


__all__ = ["GatewayTest", "Sink", "unprivileged"]
