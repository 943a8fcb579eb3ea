#!/usr/bin/env python3
"""Messages a second through Postfix with other filters beside kavi-milter: MIMEDefang and Amavis as
Debian has them, where they are installed, each adding a disclaimer to every message.

Usage: bench/peers.py BIN_DIR [MESSAGES]. Alternating runs, medians. Each filter runs in a temporary
folder, on a socket or a port of 127.0.0.1 of its own, with as many processes as there are sessions;
neither looks for viruses or spam. Installs nothing (scripts/install-packages bench-peers does). Needs
root, for Postfix: without, it says that it was left out.
"""
import pathlib
import shutil
import subprocess
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
from filter_stand import (  # noqa: E402
    NOTE, SESSIONS, KaviMilter, NullMilter, Stand, bench, end_process, free_port, wait_until)

MIMEDEFANG_FILTER = """
$Features{'Path:SPOOLDIR'} = $Features{'Path:QUARANTINEDIR'} = '%s';
$Features{'SpamAssassin'} = 0;
sub filter_end {
    my ($entity) = @_;
    append_text_boilerplate($entity, "%s", 0);
    append_html_boilerplate($entity, "<p>%s</p>", 0);
}
1;
"""

AMAVIS_CONFIG = """
use strict;
$daemon_user = $daemon_group = 'amavis';
$MYHOME = $TEMPBASE = $helpers_home = $QUARANTINEDIR = '{home}';
$db_home = "$MYHOME/db";
$lock_file = "$MYHOME/lock";
$pid_file = "$MYHOME/pid";
$unix_socketname = undef;
$inet_socket_bind = '127.0.0.1';
$inet_socket_port = {port};
$forward_method = $notify_method = 'smtp:[127.0.0.1]:{back}';
$max_servers = {sessions};
$max_requests = 1000;
$daemonize = 0;
$do_syslog = 0;
$logfile = "$MYHOME/log";
$log_level = 0;
$enable_db = 0;
$mydomain = 'example.org';
$myhostname = 'filter.example.org';
@mynetworks = qw(127.0.0.0/8);
@local_domains_maps = (['.']);
@bypass_virus_checks_maps = (1);
@bypass_spam_checks_maps = (1);
@bypass_banned_checks_maps = (1);
@bypass_header_checks_maps = (1);
$enable_dkim_verification = 0;
$altermime = '/usr/bin/altermime';
$allow_disclaimers = 1;
$originating = 1;
$defang_maps_by_ccat{{+CC_CATCHALL}} = ['disclaimer'];
@altermime_args_disclaimer = qw(--disclaimer={home}/note.txt --disclaimer-html={home}/note.html);
1;
"""


class MimeDefang:
    """The milter and the multiplexer that runs its Perl programs."""

    name = "MIMEDefang"
    needs = ("mimedefang", "mimedefang-multiplexor")

    def __init__(self, stand):
        self.stand = stand
        self.home = stand.folder / "mimedefang"
        if not self.home.exists():
            self.home.mkdir(mode=0o750)
            shutil.chown(self.home, "defang", "defang")
        (self.home / "filter").write_text(MIMEDEFANG_FILTER % (self.home, NOTE, NOTE))
        worker = self.home / "worker"
        worker.write_text(f'#!/bin/sh\nexec /usr/bin/mimedefang.pl -f {self.home}/filter "$@"\n')
        worker.chmod(0o755)
        multiplexer = self.home / "multiplexer"
        for path in (multiplexer, stand.socket):
            path.unlink(missing_ok=True)
        stand.socket.parent.chmod(0o2777)
        with open(self.home / "log", "ab") as log:
            self.processes = [
                self.begin(log, "mimedefang-multiplexor", "-D", "-U", "defang", "-z", self.home,
                           "-s", multiplexer, "-f", worker, "-m", SESSIONS,
                           "-x", SESSIONS, "-w", 0, "-W", 0, "-q", SESSIONS, "-r", 10000)]
            wait_until(multiplexer.exists, "the multiplexer")
            self.processes.append(
                self.begin(log, "mimedefang", "-D", "-X", "-U", "defang", "-z", self.home,
                           "-m", multiplexer, "-p", f"unix:{stand.socket}"))
        wait_until(stand.socket.exists, "MIMEDefang")
        stand.socket.chmod(0o666)
        stand.send(2 * SESSIONS, "to@example.net")  # every worker is up

    def begin(self, log, *words):
        return subprocess.Popen([str(word) for word in words], stdin=subprocess.DEVNULL, stdout=log,
                                stderr=log, start_new_session=True, cwd=self.home)

    def check(self, _count):
        if NOTE.encode() not in self.stand.probe():
            raise AssertionError("MIMEDefang added no disclaimer")

    def stop(self):
        for process in reversed(self.processes):
            end_process(process)


class Amavis:
    """Postfix hands it each message before it answers, as a milter gets it."""

    name = "Amavis"
    needs = ("amavisd", "altermime")

    def __init__(self, folder):
        self.port = free_port()
        self.stand = Stand(folder, smtpd_milters="", smtpd_proxy_filter=f"127.0.0.1:{self.port}",
                           smtpd_proxy_timeout="300s")
        self.home = folder / "amavis"
        self.home.mkdir(mode=0o750)
        (self.home / "db").mkdir()
        (self.home / "note.txt").write_text(NOTE + "\n")
        (self.home / "note.html").write_text(f"<p>{NOTE}</p>\n")
        self.config = folder / "amavis.conf"  # in a folder that Amavis may not write
        self.config.write_text(AMAVIS_CONFIG.format(
            home=self.home, port=self.port, back=self.stand.postfix.plain, sessions=SESSIONS))
        for path in (self.home, *self.home.iterdir()):
            shutil.chown(path, "amavis", "amavis")

    def start(self):
        with open(self.home / "output", "ab") as log:
            self.process = subprocess.Popen(
                ["amavisd", "-c", str(self.config), "foreground"],
                stdin=subprocess.DEVNULL, stdout=log, stderr=log, start_new_session=True,
                cwd=self.home)
        wait_until(self.answers, "Amavis")
        self.stand.send(2 * SESSIONS, "to@example.net")  # every process is up
        return self

    def answers(self):
        if self.process.poll() is not None:
            raise AssertionError("Amavis ended: " + (self.home / "output").read_text())
        return self.stand.postfix.answers(self.port)

    def check(self, _count):
        if NOTE.encode() not in self.stand.probe():
            raise AssertionError("Amavis added no disclaimer")

    def stop(self):
        end_process(self.process)


def is_there(peer):
    """Whether it is installed; says so when it is not."""
    missing = [name for name in peer.needs if shutil.which(name) is None]
    if missing:
        print(f"{peer.name}: left out, as {' and '.join(missing)} is not installed "
              "(scripts/install-packages bench-peers)")
    return not missing


def contenders(folder, bin_dir):
    stand = Stand(folder)
    found = [lambda: NullMilter(stand, bin_dir), lambda: KaviMilter(stand, bin_dir)]
    if is_there(MimeDefang):
        found.append(lambda: MimeDefang(stand))
    if is_there(Amavis):
        (folder / "before-amavis").mkdir()
        found.append(Amavis(folder / "before-amavis").start)
    return found


if __name__ == "__main__":
    bench("bench-peers", 500, contenders)
