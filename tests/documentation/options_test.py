#!/usr/bin/python3
"""The help text, the manual and the completions name all options of the program, and no others."""

import re
import sys
import unittest

from tree import TREE, help_options, run_program

sys.path.append(str(TREE / "tests/support"))
from option_table import IGNORED, assert_names, known_options, manual_groups

MANUAL = (TREE / "man/keygen.1.in").read_text("utf-8")
COMPLETIONS = (TREE / "completions/options").read_text("utf-8")


def option_groups():
    """The names of the options in the help text, with the ignored ones separate."""
    for names in help_options():
        for name in names & IGNORED:
            yield frozenset({name})
        yield names - IGNORED


def completion_rows():
    """The rows of the table of the completions: kind, words, description."""
    rows = [line for line in COMPLETIONS.splitlines() if line and not line.startswith("#")]
    return [tuple(cell.strip() for cell in row.split("|", 2)) for row in rows]


class Options(unittest.TestCase):
    def test_the_help_text_lists_every_option_once(self):
        listed = [name for names in help_options() for name in names]
        assert_names(self, "keygen/help.cpp", listed, known_options())
        self.assertEqual(sorted(listed), sorted(known_options()))

    def test_the_program_accepts_every_option_of_the_help_text(self):
        for name in known_options():
            with self.subTest(option=name):
                self.assertEqual(run_program(name, "-v").returncode, 0)

    def test_the_manual_describes_every_option(self):
        assert_names(self, "man/keygen.1.in", frozenset().union(*manual_groups()), known_options())
        self.assertEqual(sorted(map(sorted, manual_groups())), sorted(map(sorted, option_groups())))

    def test_the_synopsis_of_the_manual_names_one_spelling_of_every_option(self):
        synopsis = re.search(r"^\.Sh SYNOPSIS$(.*?)^\.Sh ", MANUAL, re.M | re.S)[1]
        shown = {"-" + name for name in re.findall(r"\bFl (\S+)", synopsis)}
        missing = [sorted(names) for names in manual_groups() if not names & shown and not names <= IGNORED]
        self.assertEqual(missing, [], "man/keygen.1.in, SYNOPSIS, has none of these names")

    def test_the_manual_says_which_spellings_are_ignored(self):
        for name in IGNORED:
            with self.subTest(option=name):
                self.assertRegex(MANUAL, r"\n\.It Fl -%s .*\nAccepted and ignored:" % name[2:])

    def test_the_table_of_the_completions_names_every_option(self):
        groups = [words.split() for kind, words, _ in completion_rows() if kind in ("option", "ignored")]
        assert_names(self, "completions/options", sum(groups, []), known_options())
        self.assertEqual(sorted(map(sorted, groups)), sorted(map(sorted, option_groups())))

    def test_the_table_of_the_completions_says_which_spellings_are_ignored(self):
        ignored = {words: description for kind, words, description in completion_rows() if kind == "ignored"}
        self.assertEqual(set(ignored), IGNORED)
        for name, description in ignored.items():
            self.assertRegex(description, "^accepted and ignored: use -", name)

    def test_the_table_of_the_completions_contains_only_rows_of_the_kinds_that_it_explains(self):
        explained = re.findall("^#   ([a-z]+) ", COMPLETIONS, re.M)
        self.assertEqual({kind for kind, _, _ in completion_rows()}, set(explained))

    def test_the_table_of_the_completions_contains_no_character_that_has_a_meaning_in_the_shells(self):
        for kind, _, description in completion_rows():
            special = "']\\|" if kind in ("option", "ignored") else "']\\|:"
            self.assertEqual(set(special) & set(description), set(), f"completions/options: {description}")

    def test_the_tests_of_the_command_line_name_every_option(self):
        text = (TREE / "tests/unit/command_line_test.cpp").read_text("utf-8")
        missing = [name for name in known_options() if f'"{name}"' not in text]
        self.assertEqual(missing, [], "tests/unit/command_line_test.cpp has no test of these options")


if __name__ == "__main__":
    unittest.main()
