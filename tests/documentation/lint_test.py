#!/usr/bin/python3
"""The tools that display manuals report no problems: lint_test.py MANUAL..."""

import os
import subprocess
import sys
import unittest

MANUALS = sys.argv[1:]
del sys.argv[1:]


class Manuals(unittest.TestCase):
    def run_tool(self, *command):
        environment = dict(os.environ, LC_ALL="C.UTF-8", MANROFFSEQ="", MANWIDTH="80")
        return subprocess.run(command, env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, universal_newlines=True)

    def for_each_manual(self):
        self.assertEqual([os.path.basename(each) for each in MANUALS], ["keygen.1", "keygen-verify.1"])
        for manual in MANUALS:
            with self.subTest(manual=manual):
                yield manual

    def test_man_prints_no_warning(self):
        for manual in self.for_each_manual():
            result = self.run_tool("man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z", manual)
            self.assertEqual((result.returncode, result.stderr), (0, ""))
            self.assertIn("keygen", result.stdout)

    def test_mandoc_reports_no_problem(self):
        for manual in self.for_each_manual():
            result = self.run_tool("mandoc", "-T", "lint", manual)
            # Which other manuals are installed does not matter.
            found = [line for line in (result.stdout + result.stderr).splitlines()
                     if "referenced manual not found: Xr" not in line
                     and not line.startswith("mandoc: outdated mandoc.db")]
            self.assertEqual(found, [])

    def test_no_line_is_wider_than_a_usual_terminal(self):
        for manual in self.for_each_manual():
            shown = self.run_tool("man", "-E", "UTF-8", "-l", "-P", "cat", manual).stdout
            self.assertIn("EXAMPLES", shown)
            # Without a terminal, man prints no bold letters.
            self.assertEqual([line for line in shown.splitlines() if len(line) > 80], [])

    def test_each_section_of_the_manual_is_shown(self):
        for manual in self.for_each_manual():
            shown = self.run_tool("mandoc", "-T", "ascii", manual).stdout.replace("\b", "")
            for title in ("NAME", "SYNOPSIS", "DESCRIPTION", "OPTIONS", "EXIT STATUS", "EXAMPLES"):
                # Bold letters are printed twice.
                doubled = "".join(letter if letter == " " else letter * 2 for letter in title)
                self.assertIn(f"\n{doubled}\n", shown)


if __name__ == "__main__":
    unittest.main()
