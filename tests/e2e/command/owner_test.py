"""Root works on the folders of a gateway that another user runs, and leaves nothing there that this
user could not go on with."""
import os
import pwd
import unittest

from delivery_case import DeliveryCase, MESSAGE, READDRESS
from gateway_case import Sink
from kavi_process import kavi


@unittest.skipUnless(os.geteuid() == 0, "only root can work on another user's folders")
class OwnerTest(DeliveryCase):

    def setUp(self):
        super().setUp()
        self.nobody = pwd.getpwnam("nobody")
        self.folder.chmod(0o755)
        self.state = self.given("state")
        self.given("quarantine")
        self.given("archive")
        self.out = self.given("out")
        self.message.chmod(0o644)

    def given(self, name):
        """A folder of the other user's."""
        path = self.folder / name
        path.mkdir(mode=0o700)
        os.chown(path, self.nobody.pw_uid, self.nobody.pw_gid)
        return path

    def check_owners(self):
        """Everything in the gateway's folders is the other user's."""
        found = [path for name in ("state", "quarantine", "archive", "out")
                 for path in (self.folder / name).rglob("*")]
        strange = {str(path.relative_to(self.folder)): path.stat().st_uid for path in found
                   if path.stat().st_uid != self.nobody.pw_uid}
        self.assertEqual(strange, {})
        return [str(path.relative_to(self.folder)) for path in found]

    def test_looking_first_leaves_the_spool_to_its_user(self):
        self.spool("list")
        self.assertIn("state/spool", self.check_owners())
        done = kavi("quarantine", "list", "--config", self.config)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn("state/store.sqlite", self.check_owners())

    def test_released_mail_can_be_sent_by_its_user(self):
        self.areas("{quarantine: virus}")
        plain = Sink(self, "plain")
        self.sends_to(scan=plain, plain=plain)
        self.deliver(self.message)
        self.check_owners()
        self.assertEqual(len(self.stored("quarantine")), 1)
        done = kavi("quarantine", "release", "1", "--config", self.config)
        self.assertEqual((done.returncode, done.stderr), (0, b""))
        self.assertTrue([name for name in self.check_owners() if name.startswith("state/spool/")])
        # Root acts as the user here, too.
        done = kavi("spool", "send", "--config", self.config)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        self.assertEqual(len(plain.messages()), 1)

    def test_the_keys_are_the_users(self):
        self.policy(READDRESS)
        self.sends_to(scan=Sink(self, "scan"))
        self.deliver(self.message)
        self.assertIn("state/reprocess.keys", self.check_owners())

    def test_what_goes_on_is_written_by_the_user_or_nothing_is_done(self):
        self.areas("{archive: journal}")
        done = kavi(*self.arguments(self.message))
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn(b"acting as user 'nobody'", done.stderr)
        self.assertEqual((self.out / "m.eml").read_bytes(), MESSAGE)
        self.assertIn("out/m.eml", self.check_owners())
        os.chown(self.out, 0, 0)
        (self.out / "m.eml").unlink()
        before = self.stored("archive")
        done = kavi(*self.arguments(self.message))
        self.assertEqual(done.returncode, 2, done.stderr)
        self.assertIn(b"choose another --out folder", done.stderr)
        self.assertEqual(self.stored("archive"), before)

    def test_the_user_of_the_daemon_counts_where_the_folder_is_roots(self):
        config = self.put("kavi.ini", self.config.read_text() + "[milter]\nuser = nobody\n")
        os.chown(self.state, 0, self.nobody.pw_gid)
        self.state.chmod(0o770)
        done = kavi("spool", "list", "--config", config)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.check_owners()
        # A folder that is named on the command line is none of the daemon's.
        other = self.folder / "other"
        other.mkdir()
        done = kavi("spool", "list", "--config", config, "--state", other)
        self.assertEqual((done.returncode, (other / "spool").stat().st_uid), (0, 0), done.stderr)

    def test_a_folder_that_the_user_could_not_make_is_not_made_for_root(self):
        self.areas("{archive: journal}")
        self.state = self.folder / "later"
        self.settings()
        self.put("kavi.ini", self.config.read_text() + "[milter]\nuser = nobody\n")
        done = kavi(*self.arguments(self.message))
        self.assertEqual(done.returncode, 1, done.stderr)
        self.assertIn(f"install -d -o nobody -m 0700 {self.state}".encode(), done.stderr)
        self.assertFalse(self.state.exists())

    def test_a_store_in_the_users_folder_is_the_users(self):
        location = f"sqlite:{self.state}/policy.sqlite"
        done = kavi("store", "init", location)
        self.assertEqual(done.returncode, 0, done.stderr)
        done = kavi("policy", "apply", self.areas("{archive: journal}"), "--store", location)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn("state/policy.sqlite", self.check_owners())


if __name__ == "__main__":
    unittest.main(verbosity=2)
