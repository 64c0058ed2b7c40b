#!/usr/bin/python3
"""The tree is laid out as CONTRIBUTING.md says."""

import re
import unittest

from tree import TREE


def sources(folder):
    return [path for path in sorted((TREE / folder).iterdir()) if path.suffix in (".cpp", ".h")]


class Layout(unittest.TestCase):
    def test_the_engine_includes_nothing_of_the_program_except_the_console(self):
        included = set()
        for path in sources("src"):
            included |= set(re.findall(r'^ *# *include *[<"](?:.*/)?keygen/(.*?)[>"]', path.read_text("utf-8"), re.M))
        self.assertEqual(included, {"console.h"})

    def test_each_unit_test_is_named_after_a_file_of_the_program(self):
        tested = {path.stem for folder in ("keygen", "src") for path in sources(folder)}
        for path in sources("tests/unit"):
            with self.subTest(file=path.name):
                words = path.stem.split("_")
                self.assertEqual(words[-1], "test")
                names = {"_".join(words[:count]) for count in range(1, len(words))}
                self.assertTrue(names & tested)


if __name__ == "__main__":
    unittest.main()
