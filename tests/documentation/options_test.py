#!/usr/bin/python3
"""The help text, the manual and the completions name all options of the program, and no others."""

import re
import sys
import unittest

from tree import TREE, help_options, run_program

sys.path.append(str(TREE / "tests/support"))
from option_table import IGNORED, assert_names, known_options, manual_groups

MANUAL = (TREE / "man/keygen.1.in").read_text("utf-8")


def option_groups():
    """The names of the options in the help text, with the ignored ones separate."""
    for names in help_options():
        for name in names & IGNORED:
            yield frozenset({name})
        yield names - IGNORED


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

    def test_bash_completes_every_option_that_has_an_effect(self):
        text = (TREE / "completions/keygen.bash").read_text("utf-8")
        offered = re.search(r"_keygen_options='(.*?)'", text, re.S).group(1).split()
        assert_names(self, "completions/keygen.bash", offered, set(known_options()) - IGNORED)
        self.assertEqual(sorted(offered), sorted(set(known_options()) - IGNORED))

    def test_zsh_completes_every_option(self):
        text = (TREE / "completions/_keygen").read_text("utf-8")
        groups = []
        for line in re.findall(r"^ {4}('.*)$", text, re.M):
            several = re.match(r"'\((?P<excluded>.*?)\)'\{(?P<names>.*?)\}", line)
            names = several["names"].replace("'", "").split(",") if several else [re.match(r"'(.*?)\[", line)[1]]
            if several:
                self.assertEqual(several["excluded"].split(), names)
            groups.append(sorted(names))
        assert_names(self, "completions/_keygen", sum(groups, []), known_options())
        self.assertEqual(sorted(groups), sorted(map(sorted, option_groups())))

    def test_fish_completes_every_option(self):
        text = (TREE / "completions/keygen.fish").read_text("utf-8")
        groups = []
        for words in re.findall(r"-n __keygen_may_be_option -a ('.*?'|\S+)", text):
            groups.append(sorted(words.replace("'", "").replace('"', "").split()))
        assert_names(self, "completions/keygen.fish", sum(groups, []), known_options())
        self.assertEqual(sorted(groups), sorted(map(sorted, option_groups())))

    def test_zsh_and_fish_say_which_spellings_are_ignored(self):
        for name in ("_keygen", "keygen.fish"):
            text = (TREE / "completions" / name).read_text("utf-8")
            for option in IGNORED:
                with self.subTest(file=name, option=option):
                    self.assertRegex(text, option + r"(\[| -d ')accepted and ignored: use -")

    def test_the_tests_of_the_command_line_name_every_option(self):
        text = (TREE / "tests/unit/command_line_test.cpp").read_text("utf-8")
        missing = [name for name in known_options() if f'"{name}"' not in text]
        self.assertEqual(missing, [], "tests/unit/command_line_test.cpp has no test of these options")


if __name__ == "__main__":
    unittest.main()
