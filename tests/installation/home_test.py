#!/usr/bin/python3
"""The program below a home directory, installed as the README says: home_test.py TOOL...

Of the tools that display manuals and complete command lines, only the named ones are tested: man, zsh, fish, and
bash_completion, which is the file that bash reads. KEYGEN_BUILD names the build directory.
"""

import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

BUILD = os.path.realpath(os.environ["KEYGEN_BUILD"])
README = (pathlib.Path(__file__).resolve().parents[2] / "README.md").read_text("utf-8")
# Each tool by the name of its program or file.
TOOLS = {os.path.basename(each): each for each in sys.argv[1:]}
del sys.argv[1:]


def readme_command(words):
    """The command in the README that contains `words`, as a reader copies it."""
    found = [each.strip() for each in re.findall(r"^ {4}\S.*\n", README, re.M) if words in each]
    assert len(found) == 1, (words, found)
    return found[0]


class InstalledAtHome(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.home, self.clone = pathlib.Path(folder.name) / "home", pathlib.Path(folder.name) / "clone"
        self.home.mkdir()
        self.clone.mkdir()
        (self.clone / "build").symlink_to(BUILD)
        self.assertEqual(self.type(readme_command("cmake --install")).returncode, 0)

    def type(self, command):
        """Runs a command in a clone, with the settings of the test instead of those of the user who runs it."""
        environment = {"HOME": str(self.home), "PATH": f"{self.home}/.local/bin:{os.environ['PATH']}",
                       "LC_ALL": "C.UTF-8", "TERM": "dumb"}
        return subprocess.run(["bash", "-c", command], cwd=self.clone, env=environment, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, universal_newlines=True, timeout=60)


class Program(InstalledAtHome):
    def test_the_program_is_found_until_it_is_removed(self):
        self.assertEqual(self.type("command -v keygen").stdout, f"{self.home}/.local/bin/keygen\n")
        result = self.type(readme_command("xargs"))
        self.assertEqual((result.returncode, result.stdout), (0, ""))
        self.assertEqual([each for each in self.home.rglob("*") if not each.is_dir()], [])


class Man(InstalledAtHome):
    def test_man_finds_the_manual(self):
        self.assertEqual(self.type("man -w keygen").stdout, f"{self.home}/.local/share/man/man1/keygen.1\n")


class Zsh(InstalledAtHome):
    def test_zsh_completes_with_the_line_in_the_readme(self):
        start = "autoload -Uz compinit; compinit -u -D; print -r -- $_comps[keygen]"
        for line, completer in (("", ""), (readme_command("fpath="), "_keygen")):
            (self.home / ".zshrc").write_text(f"{line}\n{start}\n")
            result = self.type("zsh -i -c true")
            self.assertEqual((result.returncode, result.stdout), (0, completer + "\n"))


class Bash(InstalledAtHome):
    def test_bash_completes_with_the_package_that_the_readme_names(self):
        self.assertIn("bash finds the completions if its package bash-completion is", " ".join(README.split()))
        ask = "complete -p keygen 2>/dev/null || echo none"
        self.assertEqual(self.type(ask).stdout, "none\n")
        # In newer versions the function that loads the completions of a command has another name.
        load = f"shopt -s extglob progcomp; . '{TOOLS['bash_completion']}'; " \
               "__load_completion keygen 2>/dev/null || _comp_load keygen"
        self.assertEqual(self.type(f"{load}; {ask}").stdout, "complete -F _keygen keygen\n")


class Fish(InstalledAtHome):
    def test_fish_completes_immediately(self):
        result = self.type("fish -c 'complete -C \"keygen -pe \"'")
        self.assertEqual(result.stdout, "aes128\tAES-128-CBC\naes256\tAES-256-CBC, the default\n")


def load_tests(loader, _tests, _pattern):
    cases = {"man": Man, "zsh": Zsh, "bash_completion": Bash, "fish": Fish}
    return unittest.TestSuite(loader.loadTestsFromTestCase(each)
                              for each in [Program, *(cases[tool] for tool in TOOLS)])


if __name__ == "__main__":
    unittest.main()
