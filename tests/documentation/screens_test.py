#!/usr/bin/python3
"""The screens in docs/screens are what the program shows today."""

import pathlib
import subprocess
import sys
import unittest

from tree import InTemporaryFolder, TREE


class Screens(InTemporaryFolder):
    def test_the_screens_are_up_to_date(self):
        subprocess.run([sys.executable, str(TREE / "script/screenshot"), str(self.folder)], check=True)
        drawn = {each.name: each.read_bytes() for each in self.folder.iterdir()}
        kept = {each.name: each.read_bytes() for each in pathlib.Path(TREE / "docs/screens").iterdir()}
        self.assertEqual(drawn, kept, "script/screenshot redraws them")


if __name__ == "__main__":
    unittest.main()
