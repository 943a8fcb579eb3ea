"""What tests of commands on a store start from. Each test class runs on a file and on a server."""
import json
import os
import subprocess
import sys

from kavi_process import KaviTest, kavi

POSTGRES = os.environ["KAVI_TEST_POSTGRES"]


class PostgresServer:
    """A server of this process's own, on a socket; see postgres_server_main.cpp."""

    shared = None

    def __init__(self):
        self.process = subprocess.Popen([POSTGRES], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        encoding="ascii")

    def ask(self, command):
        self.process.stdin.write(command + "\n")
        self.process.stdin.flush()
        answer = self.process.stdout.readline().strip()
        if not answer:
            raise RuntimeError("no PostgreSQL server: is it installed?")
        return answer

    def stop(self):
        self.process.stdin.close()
        self.process.wait(timeout=60)
        self.process.stdout.close()


def setUpModule():  # noqa: N802, the name that unittest looks for
    PostgresServer.shared = PostgresServer()


def tearDownModule():  # noqa: N802
    PostgresServer.shared.stop()


class StoreTest(KaviTest):
    """A store of its own, made. Subclasses say where."""

    def setUp(self):
        super().setUp()
        self.location = self.new_location()
        self.kavi("store", "init")

    def new_location(self):
        raise NotImplementedError

    def kavi(self, *arguments, status=0, **options):
        """A finished command on the store of the test."""
        done = kavi(*arguments, "--store", self.location, **options)
        self.assertEqual(done.returncode, status,
                         f"{arguments}\n{done.stderr.decode(errors='replace')}"
                         f"{done.stdout.decode(errors='replace')}")
        return done

    def text(self, *arguments, **options):
        return self.kavi(*arguments, **options).stdout.decode()

    def json(self, *arguments, **options):
        return json.loads(self.kavi(*arguments, "--json", **options).stdout)

    def complaint(self, *arguments, status=1, **options):
        return self.kavi(*arguments, status=status, **options).stderr.decode()


def on_files(*cases):
    """Puts each class of tests into its module as NAMEOnSqlite."""
    _define(cases, "OnSqlite", lambda test: f"sqlite:{test.folder}/store.sqlite")


def on_every_store(*cases):
    """The same, and as NAMEOnPostgres."""
    on_files(*cases)
    _define(cases, "OnPostgres", lambda _: PostgresServer.shared.ask("new"))


def _define(cases, suffix, location):
    for case in cases:
        kind = type(case.__name__ + suffix, (case, StoreTest), {"new_location": location})
        kind.__module__ = case.__module__
        setattr(sys.modules[case.__module__], kind.__name__, kind)
