#!/usr/bin/env python3
"""Starts the library from a host written in C.  c_host_test.py C_HOST LIBRARY"""

import pathlib
import subprocess
import sys
import tempfile
import unittest

HOST, LIBRARY = sys.argv[1:3]


def run(*arguments):
    return subprocess.run([HOST, *arguments], capture_output=True, text=True, timeout=60)


class CHostTest(unittest.TestCase):
    def test_starts_on_settings(self):
        with tempfile.TemporaryDirectory() as folder:
            settings = pathlib.Path(folder) / "kavi.ini"
            settings.write_text("[General-Notification]\nPreferredCharset=iso-2022-jp\n"
                                "[MessageModule]\nUseMailCharsetAsDestinationCharset=1\n")
            result = run(LIBRARY, str(settings))
        self.assertEqual(result.stdout, "InitActionLib answered 1\n", result.stderr)
        self.assertEqual(result.returncode, 0)
        self.assertIn("Default destination (preferred) charset is iso-2022-jp.", result.stderr)
        self.assertIn("Assume 'us-ascii' for default source charset.", result.stderr)
        self.assertIn("Use mail charset is on.", result.stderr)

    def test_starts_without_settings(self):
        result = run(LIBRARY)
        self.assertEqual(result.stdout, "InitActionLib answered 1\n", result.stderr)
        self.assertEqual(result.returncode, 0)
        self.assertIn("section: General-Notification, value: PreferredCharset", result.stderr)

    def test_says_what_is_missing(self):
        result = run("./no-such-library.so")
        self.assertEqual(result.returncode, 1)
        self.assertIn("no-such-library.so", result.stderr)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
