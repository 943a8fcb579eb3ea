"""A PostgreSQL server of one's own, on a socket in a temporary folder."""
import pathlib
import shutil
import subprocess
import tempfile

PROGRAMS = pathlib.Path("/usr/lib/postgresql/15/bin")
USER = "postgres"  # the server does not run as root


class PostgresServer:
    """Runs once the object is there; whoever makes it ends it."""

    def __init__(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="kavi-pg-"))
        shutil.chown(self.folder, USER, USER)
        self.folder.chmod(0o755)
        self.data = self.folder / "data"
        self._run("initdb", "-D", self.data, "-U", "kavi", "-A", "trust", "-E", "UTF8",
                  "--locale=C", "--no-sync")
        self.start()

    def _run(self, program, *arguments):
        # The server inherits what the command has: a pipe would never end.
        with open(self.folder.with_suffix(".log"), "ab") as log:
            done = subprocess.run([PROGRAMS / program, *map(str, arguments)], user=USER, group=USER,
                                  extra_groups=[], cwd="/", stdin=subprocess.DEVNULL, stdout=log,
                                  stderr=log, timeout=120, check=False)
        if done.returncode != 0:
            log = self.folder.with_suffix(".log").read_text(errors="replace")
            raise AssertionError(f"{program}: status {done.returncode}\n{log}")

    def start(self):
        self._run("pg_ctl", "-D", self.data, "-w", "-t", "60", "-o",
                  f"-k {self.folder} -c listen_addresses='' -c fsync=off", "start")

    def stop(self):
        """Ends every connection, as a power cut of the server does."""
        self._run("pg_ctl", "-D", self.data, "-w", "-t", "60", "-m", "immediate", "stop")

    def end(self):
        if (self.data / "postmaster.pid").exists():
            self.stop()
        shutil.rmtree(self.folder, ignore_errors=True)
        self.folder.with_suffix(".log").unlink(missing_ok=True)

    def location(self, database="postgres"):
        return f"postgresql://kavi@/{database}?host={self.folder}"
