"""Servers of one's own on free loopback ports: Postfix, kavi-milter, a sink for mail, a receiver of
traps. The tests, the demo and the benchmarks start them.

Postfix needs root to start. Whoever starts a server gives it a folder and stops it; each runs in a
session of its own, so that a Ctrl-C at a terminal reaches whoever started them and not them.
"""
import json
import os
import pathlib
import select
import shutil
import signal
import socket
import subprocess
import sys
import time

SINK = pathlib.Path(__file__).resolve().parents[1] / "e2e" / "smtp" / "smtp_sink.py"
PATIENCE = 60  # seconds that anybody waits for what has to happen


def free_port():
    with socket.create_server(("127.0.0.1", 0)) as probe:
        return probe.getsockname()[1]


def free_udp_port():
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def wait_until(condition, what, patience=PATIENCE):
    """Waits for something that another process does, and returns it."""
    end = time.monotonic() + patience
    while True:
        found = condition()
        if found:
            return found
        if time.monotonic() > end:
            raise AssertionError(f"waited {patience} s for {what}")
        time.sleep(0.02)


def end_process(process, patience=PATIENCE):
    """Ends a process that this test started; answers its exit status."""
    if process.poll() is None:
        process.terminate()
    try:
        return process.wait(patience)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()
        raise


class Sink:
    """A mail server that takes everything, unless the script says otherwise."""

    def __init__(self, folder, script=None, port=0):
        self.folder = folder
        script = {"offers": ["8BITMIME"], **(script or {})}
        self.process = subprocess.Popen(
            [sys.executable, "-B", str(SINK), "--out", str(folder), "--script", json.dumps(script),
             "--port", str(port)],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, start_new_session=True)
        self.port = int(self.process.stdout.readline().split()[1])

    def stop(self):
        self.process.stdin.close()
        self.process.wait(PATIENCE)
        self.process.stdout.close()

    def events(self):
        log = self.folder / "log.jsonl"
        lines = log.read_text(encoding="utf-8").splitlines() if log.exists() else []
        return [json.loads(line) for line in lines]

    def count(self):
        return sum(1 for path in self.folder.glob("*.eml"))

    def messages(self):
        """What arrived: (sender, recipients, bytes), in order."""
        found = []
        envelopes = {}
        for event in self.events():
            number, text = event["connection"], event["text"]
            if event["event"] == "command" and text.upper().startswith("MAIL FROM:"):
                envelopes[number] = [text.split("<", 1)[1].split(">")[0], []]
            elif event["event"] == "command" and text.upper().startswith("RCPT TO:"):
                envelopes[number][1].append(text.split("<", 1)[1].split(">")[0])
            elif event["event"] == "message":
                sender, recipients = envelopes[number]
                found.append((sender, recipients, (self.folder / text).read_bytes()))
        return found


def socket_folder(folder):
    """Where a milter puts its socket, so that Postfix can reach it."""
    sockets = folder / "socket"
    if not sockets.exists():
        sockets.mkdir()
        shutil.chown(sockets, "root", "postfix")
        sockets.chmod(0o2755)  # the socket gets the folder's group
    return sockets


class Milter:
    """kavi-milter, ready once the object is there. Without `program` it is KAVI_MILTER. `settings`
    and `delivery` are lines of the sections milter and delivery, `sections` are whole ones, and
    `level` is that of the log. Without `policy` the sections say where it is."""

    def __init__(self, folder, policy, settings="", delivery="", program=None, sections="", level=2):
        self.program = program or os.environ["KAVI_MILTER"]
        self.folder = folder
        self.settings = (settings, delivery, sections, level)
        self.log_begin = 0
        self.policy = folder / "policy.yaml"
        if policy is not None:
            self.policy.write_text(policy)
            settings = f"policy = {self.policy}\n{settings}"
        self.socket = socket_folder(folder) / "milter"
        self.state = folder / "state"
        self.quarantine = folder / "quarantine"
        self.config = folder / "kavi.ini"
        self.config.write_text(
            f"[general]\nqueue_quarantine = {self.quarantine}\n"
            f"queue_archive = {folder}/archive\n"
            f"[delivery]\nstate_folder = {self.state}\n{delivery}\n"
            f"[milter]\nsocket = unix:{self.socket}\nuser = root\n"
            f"{settings}\n[log]\nLevel = {level}\n{sections}\n")
        self.log_path = folder / "milter.log"
        self.start()

    def start(self):
        notify = self.folder / "notify"
        notify.unlink(missing_ok=True)
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as ready:
            ready.bind(str(notify))
            notify.chmod(0o777)  # the milter may have become somebody else
            ready.settimeout(PATIENCE)
            with open(self.log_path, "ab") as log:
                self.process = subprocess.Popen(
                    [str(self.program), "--config", str(self.config)], stdin=subprocess.DEVNULL,
                    stdout=subprocess.DEVNULL, stderr=log, start_new_session=True,
                    env={**os.environ, "NOTIFY_SOCKET": str(notify)})
            readable, _, _ = select.select([ready], [], [], PATIENCE)
            if not readable or self.process.poll() is not None or b"READY=1" not in ready.recv(99):
                end_process(self.process)
                raise AssertionError("kavi-milter does not start: " + self.log())

    def stop(self):
        status = end_process(self.process)
        whole = self.log_path.read_text(encoding="utf-8", errors="replace")
        if "Sanitizer: " in whole:
            raise AssertionError(whole[whole.index("Sanitizer: ") - 200:][:8000])
        return status

    def kill(self):
        self.process.kill()
        self.process.wait()

    def log(self):
        data = self.log_path.read_bytes()[self.log_begin:]
        return data.decode("utf-8", errors="replace")

    def forget_log(self):
        """From now on the log begins here."""
        self.log_begin = self.log_path.stat().st_size

    def lines(self, *words):
        return [line for line in self.log().splitlines() if all(word in line for word in words)]

    def resident_kb(self):
        status = pathlib.Path(f"/proc/{self.process.pid}/status").read_text()
        return int(status.split("VmRSS:")[1].split()[0])

    def reload(self, policy):
        """Puts a policy in place and says so; answers the log line that tells what came of it."""
        before = len(self.log().splitlines())
        self.policy.write_text(policy)
        self.process.send_signal(signal.SIGUSR1)

        def outcome():
            new = self.log().splitlines()[before:]
            return [line for line in new if " in force" in line]

        return wait_until(outcome, "the new policy")[0]


# What the gateway sends was taken from its sender already: no rule and no limit that is meant for
# others may refuse it. As in docs/milter.md.
OWN_MAIL = """
    -o cleanup_service_name=kavi-cleanup -o message_size_limit=0
    -o local_header_rewrite_clients= -o mynetworks=127.0.0.0/8 -o smtpd_helo_required=no
    -o smtpd_client_restrictions= -o smtpd_helo_restrictions= -o smtpd_sender_restrictions=
    -o smtpd_relay_restrictions=permit_mynetworks,reject
    -o smtpd_recipient_restrictions=permit_mynetworks,reject
    -o smtpd_data_restrictions= -o smtpd_end_of_data_restrictions="""

MASTER = """
{plain} inet n - n - - smtpd -o smtpd_milters= -o smtpd_proxy_filter={own}
{checked} inet n - n - - smtpd -o milter_macro_daemon_name=outside
{scan} inet n - n - - smtpd -o milter_macro_daemon_name=kavi-scan{own}
cleanup unix n - n - 0 cleanup
kavi-cleanup unix n - n - 0 cleanup -o message_size_limit=0
pickup unix n - n 60 1 pickup
qmgr unix n - n 1 1 qmgr
rewrite unix - - n - - trivial-rewrite
bounce unix - - n - 0 bounce
defer unix - - n - 0 bounce
trace unix - - n - 0 bounce
proxymap unix - - n - - proxymap
smtp unix - - n - - smtp
relay unix - - n - - smtp
showq unix n - n - - showq
error unix - - n - - error
retry unix - - n - - error
discard unix - - n - - discard
anvil unix - - n - 1 anvil
scache unix - - n - 1 scache
postlog unix-dgram n - n - 1 postlogd
"""


class Postfix:
    """Three listeners: `port` with the milter, `scan` the same for what comes back, `plain` without.
    Everything goes to the sink."""

    def __init__(self, folder, milter_socket, sink_port, settings=None):
        if os.geteuid() != 0:
            raise AssertionError("Postfix can be started by root only")
        self.folder = folder
        self.config = folder / "postfix"
        self.queue = folder / "queue"
        data = folder / "data"
        for path in (self.config, self.queue, data):
            path.mkdir()
        shutil.chown(data, "postfix")
        self.port, self.scan, self.plain = free_port(), free_port(), free_port()
        self.log_path = folder / "postfix.log"
        parameters = {
            "compatibility_level": "3.7",
            "queue_directory": self.queue,
            "data_directory": data,
            "mail_owner": "postfix",
            "setgid_group": "postdrop",
            "inet_interfaces": "127.0.0.1",
            "inet_protocols": "ipv4",
            "myhostname": "relay.example.org",
            "mydestination": "",
            "mynetworks": "127.0.0.0/8",
            "alias_maps": "",
            "alias_database": "",
            "relayhost": f"[127.0.0.1]:{sink_port}",
            "smtpd_relay_restrictions": "permit_mynetworks, reject",
            "smtpd_peername_lookup": "no",
            "local_header_rewrite_clients": "",
            "smtp_host_lookup": "native",
            "smtp_dns_support_level": "disabled",
            "smtp_tls_security_level": "none",
            "smtpd_milters": f"unix:{milter_socket}",
            "milter_default_action": "tempfail",
            "minimal_backoff_time": "2s",
            "maximal_backoff_time": "5s",
            "queue_run_delay": "2s",
            "maillog_file": self.log_path,
            "maillog_file_prefixes": folder,
            "biff": "no",
            **(settings or {}),
        }
        (self.config / "main.cf").write_text(
            "".join(f"{key} = {value}\n" for key, value in parameters.items()))
        (self.config / "master.cf").write_text(MASTER.format(
            own=OWN_MAIL, plain=f"127.0.0.1:{self.plain}", checked=f"127.0.0.1:{self.port}",
            scan=f"127.0.0.1:{self.scan}"))
        self.start_log = open(folder / "postfix.start", "ab")
        self.process = subprocess.Popen(["postfix", "-c", str(self.config), "start-fg"],
                                        stdin=subprocess.DEVNULL, stdout=self.start_log,
                                        stderr=self.start_log, start_new_session=True)
        try:
            for port in (self.port, self.scan, self.plain):
                wait_until(lambda port=port: self.answers(port), "Postfix")
        except AssertionError as fault:
            self.stop()
            raise AssertionError(self.log()) from fault

    def answers(self, port):
        if self.process.poll() is not None:
            raise AssertionError("Postfix ended: " + self.log())
        try:
            with socket.create_connection(("127.0.0.1", port), timeout=PATIENCE) as connection:
                return connection.recv(100).startswith(b"220")
        except OSError:
            return False

    def log(self):
        texts = [path.read_text(errors="replace")
                 for path in (self.log_path, self.folder / "postfix.start") if path.exists()]
        return "\n".join(texts)

    def stop(self):
        # The master, in a session of its own, outlives the command that started it.
        subprocess.run(["postfix", "-c", str(self.config), "stop"], stdin=subprocess.DEVNULL,
                       stdout=self.start_log, stderr=self.start_log, timeout=PATIENCE, check=False)
        end_process(self.process)
        self.start_log.close()

    def queued(self):
        """The names of the messages that Postfix still has."""
        found = []
        for name in ("incoming", "active", "deferred"):
            found += [path.name for path in (self.queue / name).rglob("*") if path.is_file()]
        return found


class TrapReceiver:
    """snmptrapd, which writes what it gets into its log, a line for each trap, in the form that the
    letters of `output` ask for (its option -O)."""

    def __init__(self, folder, output="n"):
        self.folder = folder
        folder.mkdir()
        (folder / "conf").write_text("disableAuthorization yes\n")
        self.port = free_udp_port()
        self.log_path = folder / "traps"
        with open(self.log_path, "wb") as log:
            self.process = subprocess.Popen(
                ["snmptrapd", "-f", "-Lo", "-n", "-C", "-c", str(folder / "conf"), f"-O{output}",
                 "-F", "TRAP %N, specific %q: %v\n", f"udp:127.0.0.1:{self.port}"],
                stdin=subprocess.DEVNULL, stdout=log, stderr=log, start_new_session=True,
                env={**os.environ, "MIBS": "", "SNMP_PERSISTENT_DIR": str(folder)})
        wait_until(self.listens, "snmptrapd")

    def listens(self):
        if self.process.poll() is not None:
            raise AssertionError("snmptrapd ended: " + self.log_path.read_text(errors="replace"))
        # Local addresses, in hexadecimal, stand in the second column.
        sockets = pathlib.Path("/proc/net/udp").read_text().splitlines()[1:]
        return any(line.split()[1].endswith(f":{self.port:04X}") for line in sockets)

    def traps(self):
        lines = self.log_path.read_text(encoding="utf-8", errors="replace").splitlines()
        return [line for line in lines if line.startswith("TRAP ")]

    def stop(self):
        return end_process(self.process)


def without_trace(message):
    """What arrived, without the fields that Postfix put in front."""
    lines = message.split(b"\r\n")
    first = 0
    while first < len(lines) and (lines[first].startswith(b"Received: ") and first == 0 or
                                  first > 0 and lines[first][:1] in (b" ", b"\t")):
        first += 1
    return b"\r\n".join(lines[first:])
