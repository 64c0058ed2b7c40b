#!/usr/bin/python3
"""Completes command lines in a real shell: completions_test.py bash|zsh|fish DIRECTORY_OF_THE_BUILT_COMPLETIONS"""

import os
import pathlib
import pty
import re
import select
import subprocess
import sys
import tempfile
import time
import unittest

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1] / "support"))
from option_table import IGNORED, TREE, known_options, manual_groups

SHELL, BUILT = sys.argv.pop(1), os.path.realpath(sys.argv.pop(1))
# Those of keygen-verify are not built.
WRITTEN = TREE / "completions"

OPTIONS = set(known_options())
if SHELL == "bash":
    OPTIONS -= IGNORED

# What zsh and fish say of them.
DESCRIPTIONS = {
    "-pwd --password": "password of the private key, or eight for a packet",
    "-n --number-key": "number of key pairs",
    "-abs --absolute-path": "folder for the output files",
    "-prvk --private-key": "file of the private key",
    "-pubk --public-key": "file of the public key",
    "-hash": "file of the public key hash",
    "--public-key-hash": "accepted and ignored: use -hash",
    "-ecc --ecc-algo": "curve of the keys",
    "-pe": "cipher of the private key file",
    "--prvkey-enc": "accepted and ignored: use -pe",
    "-rand --random": "fill a file with random bytes",
    "-h -? --help": "show the help text",
    "-v --version": "show the version",
}

VERIFY_OPTIONS = {"--passwords", "--public-only", "--packet", "--help", "--version"}

FILES = ["key.pem", "other key.pem", "hash.bin", "notes.txt", "keys/inner.pem", "keys/inner.bin", "work/notes.txt"]

ENVIRONMENT = {"PATH": os.environ["PATH"], "TERM": "dumb", "LC_ALL": "C.UTF-8", "COLUMNS": "200"}


class TerminalShell:
    """An interactive shell on a pseudo-terminal, in which lines are typed."""

    END = re.compile(r"^end-of-the-list\r?\n", re.M)
    PROMPT = re.compile(r"PROMPT>")

    def __init__(self, command, setup, folder):
        environment = dict(ENVIRONMENT, HOME=folder)
        pid, self.terminal = pty.fork()
        if pid == 0:
            os.chdir(folder)
            os.execvpe(command[0], command, environment)
        self.pid = pid
        self.read = ""
        # The prompt shows that the shell reads input. The terminal would treat earlier input as plain text.
        for line in setup:
            self.type(line + "\n")
        self.type("echo end-of-''the-list\n")
        self.read_to_end()

    def type(self, text):
        os.write(self.terminal, text.encode())

    def read_to(self, pattern):
        """The output up to `pattern`."""
        deadline = time.monotonic() + 60
        while not pattern.search(self.read):
            if not select.select([self.terminal], [], [], max(0, deadline - time.monotonic()))[0]:
                raise TimeoutError(self.read)
            self.read += os.read(self.terminal, 65536).decode()
        before, self.read = pattern.split(self.read, maxsplit=1)
        return before

    def read_to_end(self):
        """The output up to the line with the end marker."""
        before = self.read_to(self.END)
        self.read_to(self.PROMPT)
        # The prompt belongs to the next line.
        self.read = "PROMPT>" + self.read
        return before

    def after_tab(self, line, rest):
        """The output of the shell after `line`, the tab key, and `rest`."""
        self.type(line + "\t" + rest)
        self.type("echo end-of-''the-list\n")
        return self.read_to_end()

    def listed(self, line):
        """The lines that the tab key shows."""
        # They are between the typed line and the prompt with the line repeated.
        written = self.after_tab(line, "\x15")
        lines = [re.sub(r"\x1b\[[0-9;?]*[a-zA-Z]|[\r\x07]", "", each) for each in written.split("\n")]
        return [each for each in lines if each and "PROMPT>" not in each]

    def candidates(self, line):
        return {word for each in self.listed(line) for word in self.words_of(each)}

    def completed(self, line):
        """The arguments that the program receives after `line`, the tab key and the enter key."""
        written = self.after_tab(line, "\n")
        return re.search(r"^ARGUMENTS(.*?)\r?$", written, re.M).group(1).split("|")[1:]

    def close(self):
        os.close(self.terminal)
        os.waitpid(self.pid, 0)


PROGRAM = """keygen() { printf ARGUMENTS; printf '|%s' "$@"; echo; }
keygen-verify() { keygen "$@"; }"""


class Bash(TerminalShell):
    def __init__(self, folder):
        super().__init__(
            ["bash", "--noprofile", "--norc", "-i"],
            ["PS1='PROMPT>'", "bind 'set show-all-if-ambiguous on'", "bind 'set page-completions off'",
             "bind 'set completion-query-items 0'", "bind 'set enable-bracketed-paste off'",
             "bind 'set completion-display-width 0'", *PROGRAM.splitlines(),
             f"source '{BUILT}/keygen.bash'; source '{WRITTEN}/keygen-verify.bash'"], folder)

    @staticmethod
    def words_of(line):
        return [line.strip()]


class Zsh(TerminalShell):
    def __init__(self, folder):
        super().__init__(
            ["zsh", "--no-rcs", "-i"],
            ["PROMPT='PROMPT>'; unsetopt ZLE_BRACKETED_PASTE 2>/dev/null; unset zle_bracketed_paste",
             "setopt NO_BEEP NO_ALWAYS_LAST_PROMPT LIST_PACKED NO_LIST_AMBIGUOUS; LISTMAX=1000; bindkey -e",
             f"fpath=('{BUILT}' '{WRITTEN}' $fpath); autoload -Uz compinit; compinit -u -D",
             "zstyle ':completion:*' list-separator '#'; zstyle ':completion:*' insert-tab false",
             *PROGRAM.splitlines()], folder)

    @staticmethod
    def words_of(line):
        names, separator, _ = line.partition(" #")
        # Names with the same meaning share a line with their description. Files have lines of their own.
        return names.split() if separator else [each for each in re.split(r"  +", line.strip()) if each]

    def descriptions(self, line):
        rows = [each.partition(" # ") for each in self.listed(line)]
        return {name: description.rstrip() for names, _, description in rows for name in names.split()}

    def messages(self, line, *tags):
        """What is said of the values themselves, in messages with these tags."""
        styles = " ".join(f"':completion:*:{tag}'" for tag in tags)
        self.after_tab(f"for style in {styles}; zstyle $style format 'MESSAGE %d'", "\n")
        listed = self.listed(line)
        self.after_tab(f"for style in {styles}; zstyle -d $style format", "\n")
        return [each.strip()[len("MESSAGE "):] for each in listed if each.startswith("MESSAGE ")]


class Fish:
    """fish has a command that prints the candidates for a line."""

    def __init__(self, folder):
        self.folder = folder

    def run(self, line):
        script = f"source '{BUILT}/keygen.fish'; source '{WRITTEN}/keygen-verify.fish'; complete -C $argv[1]"
        return subprocess.run(["fish", "--no-config", "-c", script, line], cwd=self.folder, check=True,
                              env=dict(ENVIRONMENT, HOME=self.folder), stdout=subprocess.PIPE,
                              universal_newlines=True).stdout

    def descriptions(self, line):
        return dict(each.split("\t") for each in self.run(line).splitlines())

    def candidates(self, line):
        return {each.split("\t")[0] for each in self.run(line).splitlines()}

    def completed(self, line):
        candidates = [each.split("\t")[0] for each in self.run(line).splitlines()]
        if len(candidates) != 1:
            raise ValueError(f"{line!r} has these candidates: {candidates}")
        return line.split()[1:-1] + candidates

    def close(self):
        pass


class InShell(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        for name in FILES:
            path = os.path.join(cls.folder.name, name)
            os.makedirs(os.path.dirname(path), exist_ok=True)
            with open(path, "w"):
                pass
        cls.shell = {"bash": Bash, "zsh": Zsh, "fish": Fish}[SHELL](os.path.realpath(cls.folder.name))

    @classmethod
    def tearDownClass(cls):
        cls.shell.close()
        cls.folder.cleanup()

class Completion(InShell):
    def assert_candidates(self, lines, expected):
        for line in lines:
            with self.subTest(line=line):
                self.assertEqual(self.shell.candidates(line), set(expected))

    def assert_completed(self, line, expected):
        with self.subTest(line=line):
            self.assertEqual(self.shell.completed(line), expected)

    def test_offers_every_option_after_a_hyphen(self):
        self.assert_candidates(["keygen -"], OPTIONS)

    def test_offers_the_long_options_after_two_hyphens(self):
        self.assert_candidates(["keygen --"], {each for each in OPTIONS if each.startswith("--")})

    def test_offers_no_option_in_place_of_a_value(self):
        for name in sorted(frozenset().union(*manual_groups(with_value=True))):
            with self.subTest(option=name):
                self.assertEqual(self.shell.candidates(f"keygen {name} ") & OPTIONS, set(),
                                 "completions/options lists no value below it")

    def test_completes_an_option(self):
        self.assert_completed("keygen --pas", ["--password"])
        self.assert_completed("keygen -pr", ["-prvk"])
        self.assert_completed("keygen -pwd abcd -ab", ["-pwd", "abcd", "-abs"])

    def test_offers_the_ciphers(self):
        self.assert_candidates(["keygen -pe ", "keygen -abs keys -pe "], {"aes128", "aes256"})
        self.assert_completed("keygen -pe aes1", ["-pe", "aes128"])

    def test_offers_the_curves_by_name(self):
        self.assert_candidates(["keygen -ecc ", "keygen --ecc-algo "], {"prime256v1", "brainpoolP256t1"})
        self.assert_completed("keygen -ecc b", ["-ecc", "brainpoolP256t1"])

    def test_reads_the_option_before_a_value_in_any_letter_case_except_in_zsh(self):
        self.assert_candidates(["keygen -ECC ", "keygen --Ecc-Algo "],
                               {"prime256v1", "brainpoolP256t1"} if SHELL != "zsh" else OPTIONS)

    def test_offers_the_numbers_of_pairs(self):
        self.assert_candidates(["keygen -n ", "keygen --number-key "], {"1", "8"})

    def test_offers_folders_and_pem_files_for_the_keys(self):
        self.assert_candidates(
            ["keygen -prvk ", "keygen --private-key ", "keygen -pubk ", "keygen --public-key "],
            {"key.pem", "other key.pem" if SHELL != "zsh" else "other\\ key.pem", "keys/", "work/"})
        self.assert_completed("keygen -pubk keys/i", ["-pubk", "keys/inner.pem"])

    def test_offers_folders_and_bin_files_for_the_hash(self):
        self.assert_candidates(["keygen -hash "], {"hash.bin", "keys/", "work/"})
        self.assert_completed("keygen -hash keys/i", ["-hash", "keys/inner.bin"])

    def test_offers_only_folders_for_the_base_folder(self):
        self.assert_candidates(["keygen -abs ", "keygen --absolute-path "], {"keys/", "work/"})

    def test_offers_bin_files_only_for_the_second_value_of_random_data(self):
        self.assert_candidates(["keygen -rand 16 ", "keygen --random 16 "], {"hash.bin", "keys/", "work/"})
        self.assert_candidates(["keygen -rand ", "keygen --random "], set())

    def test_offers_no_files_for_a_password(self):
        self.assert_candidates(["keygen -pwd k", "keygen -pwd first second k"], set())

    def test_offers_options_again_after_a_password(self):
        self.assert_completed("keygen -pwd 1111 2222 3333 4444 5555 6666 7777 8888 -ab",
                              ["-pwd", "1111", "2222", "3333", "4444", "5555", "6666", "7777", "8888", "-abs"])
        self.assert_candidates(["keygen -pwd first -"], OPTIONS - {"-pwd", "--password"}
                               if SHELL == "zsh" else OPTIONS)

    def test_offers_no_option_in_place_of_a_later_password_in_bash_and_zsh(self):
        self.assert_candidates(["keygen -pwd 1111 ", "keygen -pwd 1111 2222 3333 4444 5555 6666 7777 "],
                               set() if SHELL != "fish" else OPTIONS)
        self.assert_candidates(["keygen -pwd 1111 2222 3333 4444 5555 6666 7777 8888 "],
                               OPTIONS if SHELL != "zsh" else OPTIONS - {"-pwd", "--password"})

    def test_offers_nothing_for_a_value_that_is_ignored(self):
        self.assert_candidates(["keygen --public-key-hash ", "keygen --prvkey-enc "], set())

    PEM_FILES = {"key.pem", "other key.pem" if SHELL != "zsh" else "other\\ key.pem", "keys/", "work/"}

    def test_verify_offers_its_options(self):
        self.assert_candidates(["keygen-verify -", "keygen-verify --"], VERIFY_OPTIONS)
        self.assert_completed("keygen-verify --pub", ["--public-only"])
        self.assert_candidates(["keygen-verify --passwords notes.txt -"],
                               VERIFY_OPTIONS - {"--passwords", "--public-only"} if SHELL == "zsh" else VERIFY_OPTIONS)

    def test_verify_offers_folders_and_key_files(self):
        self.assert_candidates(["keygen-verify ", "keygen-verify --packet ", "keygen-verify key.pem ",
                                "keygen-verify --passwords notes.txt "], self.PEM_FILES)
        self.assert_completed("keygen-verify keys/i", ["keys/inner.pem"])

    def test_verify_offers_folders_and_hash_files_after_two_keys(self):
        self.assert_candidates(["keygen-verify key.pem key.pem ",
                                "keygen-verify --passwords notes.txt --packet key.pem key.pem "],
                               {"hash.bin", "keys/", "work/"})

    def test_verify_offers_any_file_for_the_passwords(self):
        self.assert_completed("keygen-verify --passwords n", ["--passwords", "notes.txt"])
        self.assert_candidates(["keygen-verify --passwords keys/"],
                               {"inner.pem", "inner.bin"} if SHELL != "fish" else {"keys/inner.pem", "keys/inner.bin"})


if SHELL != "bash":
    class Descriptions(InShell):
        def test_describes_every_option(self):
            described = dict(self.shell.descriptions("keygen -"), **self.shell.descriptions("keygen --"))
            self.assertEqual(set(described), OPTIONS)
            self.assertEqual([name for name in described if not described[name]], [])
            for names, description in DESCRIPTIONS.items():
                for name in names.split():
                    with self.subTest(option=name):
                        self.assertEqual(described[name], description)

        def test_describes_words(self):
            for name, words in {
                "-n": {"1": "one pair, numbered", "8": "a packet of eight pairs"},
                "-ecc": {"prime256v1": "the default", "brainpoolP256t1": "the Brainpool curve, twisted"},
                "-pe": {"aes256": "AES-256-CBC, the default", "aes128": "AES-128-CBC"},
            }.items():
                with self.subTest(option=name):
                    self.assertEqual(self.shell.descriptions(f"keygen {name} "), words)


if SHELL == "zsh":
    class Messages(InShell):
        def test_says_what_a_value_is(self):
            for words, message in {
                "-pwd": "password", "-n": "number of key pairs", "-abs": "folder", "-prvk": "private key file",
                "-pubk": "public key file", "-hash": "hash file", "--public-key-hash": "ignored", "-ecc": "curve",
                "-pe": "cipher", "--prvkey-enc": "ignored", "-rand": "size in bytes", "-rand 16": "random data file",
            }.items():
                with self.subTest(words=words):
                    self.assertEqual(self.shell.messages(f"keygen {words} ", "descriptions", "messages"), [message])

        def test_says_what_a_later_password_is_only_in_a_warning_that_nothing_completes_it(self):
            for count in range(1, 8):
                with self.subTest(passwords=count):
                    line = "keygen -pwd " + "1111 " * count
                    self.assertEqual(self.shell.messages(line, "descriptions", "messages"), [])
                    self.assertEqual(self.shell.messages(line, "warnings"), ["`password'"])


if __name__ == "__main__":
    unittest.main()
