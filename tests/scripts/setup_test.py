#!/usr/bin/python3
"""Only one build runs in a build directory at a time, and a build that waits for another prints a message."""

import fcntl
import os
import pathlib
import subprocess
import tempfile
import unittest

TREE = pathlib.Path(__file__).resolve().parents[2]
LOCK = 'source "$1/script/lib/setup.sh"; build=$2; lock_build_folder; echo locked'


class BuildDirectory(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.build = os.path.join(folder.name, "a build")

    def lock(self):
        """A script that locks the build directory."""
        process = subprocess.Popen(["bash", "-uc", LOCK, str(TREE / "script/run"), str(TREE), self.build],
                                   stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                   universal_newlines=True)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.stderr.close)
        return process

    def test_an_unlocked_build_directory_is_locked_without_a_message(self):
        self.assertEqual(self.lock().communicate(), ("locked\n", ""))

    def test_a_locked_build_directory_is_waited_for_with_a_message(self):
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
