#!/usr/bin/env python3
"""scripts/install-packages on a machine of stand-ins: its package tools are scripts made here."""
import os
import pathlib
import shutil
import signal
import stat
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[3]
sys.path.insert(0, str(ROOT / "tests" / "stack"))
from mail_servers import PATIENCE, wait_until  # noqa: E402

# Notes its arguments and whether servers may start meanwhile; APT_DO says what becomes of it.
APT_GET = """#!/bin/sh
echo "$*" >>"$MACHINE/apt"
"$POLICY_RC_D" postfix start; echo $? >>"$MACHINE/answer"
case $1 in update) exit 0 ;; esac
eval "${APT_DO:-exit 0}"
"""
DPKG_QUERY = """#!/bin/sh
case $3 in
  tool) printf '/.\n/usr\n/lib/systemd/system/%s\n' tool.service tool@.service tool.socket ;;
  *Provides*) cat "$MACHINE/all" ;;
  *) grep -qx "$4" "$MACHINE/installed" || exit 1; printf installed ;;
esac
"""
STAND_INS = {
    "apt-get": APT_GET,
    "dpkg-query": DPKG_QUERY,
    "debconf-set-selections": '#!/bin/sh\ncat >>"$MACHINE/debconf"\n',
    "systemctl": '#!/bin/sh\n[ "$3" != tool.service ]\n',
    "id": '#!/bin/sh\necho "${USER_ID:-0}"\n',
}
SUDO = '#!/bin/sh\necho "$1" >>"$MACHINE/sudo"\nexec "$@"\n'
MAY_START = "#!/bin/sh\n# the administrator's own\nexit 0\n"


def children(pid):
    """The names of the programs that a process runs."""
    numbers = pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text().split()
    return [pathlib.Path(f"/proc/{number}/comm").read_text().strip() for number in numbers]


class InstallPackagesTest(unittest.TestCase):
    def setUp(self):
        self.machine = pathlib.Path(tempfile.mkdtemp(prefix="kavi-packages-"))
        self.addCleanup(shutil.rmtree, self.machine)
        for name in ("bin", "sbin", "tree/scripts"):
            (self.machine / name).mkdir(parents=True)
        self.script = self.machine / "tree/scripts/install-packages"
        shutil.copy(ROOT / "scripts/install-packages", self.script)
        (self.machine / "tree/packages.txt").write_text(
            "# comment\n[build]\ncompiler\n\n[demo]\npostfix\ntool\n[bench-peers]\npeer\n")
        for name, text in STAND_INS.items():
            self.tool(name, text)
        self.policy = self.machine / "sbin/policy-rc.d"
        self.installed("compiler")
        self.known("compiler", "")

    def tool(self, name, text):
        path = self.machine / "bin" / name
        path.write_text(text)
        path.chmod(0o755)

    def installed(self, *packages):
        (self.machine / "installed").write_text("".join(f"{name}\n" for name in packages))

    def known(self, package, provides, status="installed"):
        with open(self.machine / "all", "a", encoding="utf-8") as file:
            file.write(f"{status}\t{package}\t{provides}\n")

    def start(self, *sections, **environment):
        # The stand-ins first; of the machine's own only what every Debian has.
        return subprocess.Popen(
            [self.script, *sections], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
            env={"PATH": f"{self.machine}/bin:/usr/bin:/bin", "MACHINE": str(self.machine),
                 "POLICY_RC_D": str(self.policy), "TMPDIR": str(self.machine), **environment})

    def run_script(self, *sections, status=0, **environment):
        process = self.start(*sections, **environment)
        out, err = process.communicate(timeout=PATIENCE)
        self.assertEqual(process.returncode, status, out + err)
        return out, err

    def noted(self, name):
        path = self.machine / name
        return path.read_text().splitlines() if path.exists() else None

    def assert_sbin(self, *names):
        """Nothing but these is where the policy stands; and no log was left."""
        self.assertEqual(sorted(path.name for path in (self.machine / "sbin").iterdir()),
                         sorted(names))
        self.assertEqual(list(self.machine.glob("tmp.*")), [])

    def test_what_is_there_is_not_installed_again(self):
        self.assertEqual(self.run_script("build"), ("", ""))
        self.assertIsNone(self.noted("apt"))
        self.assert_sbin()

    def test_missing_ones_of_the_sections_named_are_installed_and_no_others(self):
        out, _ = self.run_script("build", "demo")
        self.assertEqual(out, "Installing: postfix tool\nStarted none of them. These would start with"
                         " the machine: to keep them from that,\n  systemctl disable tool.socket\n")
        [line] = self.noted("apt")
        self.assertTrue(line.startswith("install -y --no-install-recommends "), line)
        self.assertTrue(line.endswith(" postfix tool"), line)
        self.assertEqual(self.noted("debconf"),
                         ["postfix postfix/main_mailer_type select No configuration"])

    def test_an_unknown_section_is_an_error(self):
        _, err = self.run_script("bench", status=2)
        self.assertIn("no section [bench]", err)

    def test_no_server_may_start_meanwhile_and_no_policy_stays(self):
        self.run_script("demo")
        self.assertEqual(self.noted("answer"), ["101"])
        self.assert_sbin()

    def test_a_policy_that_was_there_comes_back_as_it_was(self):
        self.policy.write_text(MAY_START)
        self.policy.chmod(0o751)
        os.utime(self.policy, (1, 1))
        before = self.policy.stat()
        self.run_script("demo")
        self.assertEqual(self.noted("answer"), ["101"])
        after = self.policy.stat()
        self.assertEqual(self.policy.read_text(), MAY_START)
        for what in ("st_ino", "st_mode", "st_mtime_ns"):
            self.assertEqual(getattr(after, what), getattr(before, what), what)
        self.assert_sbin("policy-rc.d")

    def test_a_link_comes_back_as_a_link(self):
        target = self.machine / "elsewhere"
        target.write_text(MAY_START)
        target.chmod(0o755)
        self.policy.symlink_to(target)
        self.run_script("demo")
        self.assertEqual(self.noted("answer"), ["101"])
        self.assertTrue(self.policy.is_symlink())
        self.assertEqual(target.read_text(), MAY_START)

    def test_a_failing_installation_fetches_the_lists_once_and_puts_the_policy_back(self):
        self.policy.write_text(MAY_START)
        _, err = self.run_script("demo", status=1, APT_DO="echo no such package; exit 100")
        self.assertEqual(err, "no such package\n")
        self.assertEqual([line.split()[0] for line in self.noted("apt")],
                         ["install", "update", "install"])
        self.assertEqual(self.policy.read_text(), MAY_START)
        self.assert_sbin("policy-rc.d")

    def test_an_interruption_puts_the_policy_back(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            for there in (True, False):
                with self.subTest(signal=number.name, there=there):
                    self.policy.unlink(missing_ok=True)
                    if there:
                        self.policy.write_text(MAY_START)
                    # From within the installation, as at a terminal: to the one who waits for it.
                    self.run_script("demo", status=128 + number,
                                    APT_DO=f"kill -{number.value} $PPID; exit 0")
                    self.assert_sbin(*(["policy-rc.d"] if there else []))
                    if there:
                        self.assertEqual(self.policy.read_text(), MAY_START)

    def test_the_run_after_a_killed_one_puts_the_policy_back(self):
        for there in (True, False):
            with self.subTest(there=there):
                self.installed("compiler")
                self.policy.unlink(missing_ok=True)
                if there:
                    self.policy.write_text(MAY_START)
                self.run_script("demo", status=-signal.SIGKILL, APT_DO="kill -9 $PPID; exit 0")
                self.assertIn("exit 101", self.policy.read_text())
                for path in self.machine.glob("tmp.*"):
                    path.unlink()
                self.installed("compiler", "postfix", "tool")  # apt-get got to its end
                self.run_script("demo")
                self.assert_sbin(*(["policy-rc.d"] if there else []))
                if there:
                    self.assertEqual(self.policy.read_text(), MAY_START)

    def test_of_two_policies_none_is_thrown_away(self):
        self.policy.write_text(MAY_START)
        self.run_script("demo", status=-signal.SIGKILL, APT_DO="kill -9 $PPID; exit 0")
        self.policy.write_text("#!/bin/sh\nexit 104\n")  # somebody's, since then
        _, err = self.run_script("demo", status=1)
        self.assertIn("keep the one that you want", err)
        self.assertEqual(self.policy.read_text(), "#!/bin/sh\nexit 104\n")
        self.assertEqual(len(self.noted("apt")), 1)

    def test_two_runs_at_once_follow_one_another(self):
        self.policy.write_text(MAY_START)
        held = self.machine / "go"
        os.mkfifo(held)
        first = self.start("demo", APT_DO='read -r word <"$MACHINE/go"; exit 0')
        # Once somebody reads the pipe, the first run is in the middle of its installation.
        with open(held, "w", encoding="utf-8") as pipe:
            second = self.start("demo")
            wait_until(lambda: "flock" in children(second.pid), "the second run to wait its turn")
            self.assertEqual(len(self.noted("apt")), 1)
            pipe.write("on\n")
        for process in (first, second):
            process.communicate(timeout=PATIENCE)
            self.assertEqual(process.returncode, 0)
        self.assertEqual(self.noted("answer"), ["101", "101"])
        self.assertEqual(self.policy.read_text(), MAY_START)
        self.assert_sbin("policy-rc.d")

    def test_another_mail_system_is_not_displaced(self):
        for package, provides in (("exim4-daemon-light", "mail-transport-agent"),
                                  ("sendmail-bin", "other, mail-transport-agent (= 1)")):
            with self.subTest(package=package):
                (self.machine / "all").unlink()
                self.known("compiler", "mail-transport-agents")
                self.known(package, provides)
                _, err = self.run_script("build", "demo", status=1)
                self.assertIn(f"but {package} is this machine's mail system", err)
                self.assertIn(f"apt-get remove {package}", err)
                self.assertIsNone(self.noted("apt"))
                self.assert_sbin()

    def test_one_that_was_removed_is_in_nobodys_way(self):
        self.known("exim4-daemon-light", "mail-transport-agent", "config-files")
        self.run_script("demo")
        self.assertEqual(len(self.noted("apt")), 1)

    def test_sections_without_postfix_do_not_mind_another_mail_system(self):
        self.known("exim4-daemon-light", "mail-transport-agent")
        self.run_script("bench-peers")
        self.assertEqual(len(self.noted("apt")), 1)
        self.assertIsNone(self.noted("debconf"))

    def test_a_user_installs_with_sudo(self):
        self.tool("sudo", SUDO)
        self.policy.write_text(MAY_START)
        self.run_script("demo", USER_ID="1000")
        self.assertIn("env", self.noted("sudo"))
        self.assertEqual(self.noted("answer"), ["101"])
        self.assert_sbin("policy-rc.d")

    def test_a_user_without_sudo_is_told_what_to_do(self):
        # A PATH with what the script needs, and no sudo.
        for name in ("sh", "awk", "dirname", "grep"):
            (self.machine / "bin" / name).symlink_to(shutil.which(name, path="/usr/bin:/bin"))
        _, err = self.run_script("demo", status=1, USER_ID="1000", PATH=f"{self.machine}/bin")
        self.assertIn("neither root nor sudo", err)
        self.assertIn("apt-get install --no-install-recommends postfix tool", err)
        self.assertIsNone(self.noted("apt"))

    def test_the_script_can_be_run(self):
        self.assertTrue((ROOT / "scripts/install-packages").stat().st_mode & stat.S_IXUSR)


if __name__ == "__main__":
    unittest.main()
