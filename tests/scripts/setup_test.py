#!/usr/bin/python3
"""One build at a time in a build folder; who waits for another one says so."""

import fcntl
import os
import pathlib
import subprocess
import tempfile
import unittest

TREE = pathlib.Path(__file__).resolve().parents[2]
LOCK = 'source "$1/script/lib/setup.sh"; build=$2; lock_build_folder; echo locked'


class BuildFolder(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.build = os.path.join(folder.name, "a build")

    def lock(self):
        """A script that locks the build folder."""
        process = subprocess.Popen(["bash", "-uc", LOCK, str(TREE / "script/run"), str(TREE), self.build],
                                   stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                   universal_newlines=True)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.stderr.close)
        return process

    def test_that_no_one_builds_in_is_locked_without_a_word(self):
        self.assertEqual(self.lock().communicate(), ("locked\n", ""))

    def test_that_another_one_builds_in_is_waited_for_and_that_is_said(self):
        self.assertEqual(self.lock().communicate(), ("locked\n", ""))
        with open(os.path.join(self.build, ".lock"), "w", encoding="ascii") as other:
            fcntl.flock(other, fcntl.LOCK_EX)
            waiting = self.lock()
            self.assertEqual(waiting.stderr.readline(), "script/run: waiting for another build in this folder\n")
            self.assertIsNone(waiting.poll())
        self.assertEqual(waiting.communicate(timeout=60), ("locked\n", ""))
        self.assertEqual(waiting.returncode, 0)


if __name__ == "__main__":
    unittest.main()
