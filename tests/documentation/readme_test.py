#!/usr/bin/python3
"""The commands in the README, run word for word, do what it says. Its tables and pictures are correct."""

import html
import os
import re
import shutil
import subprocess
import sys
import textwrap
import unittest

from tree import InTemporaryFolder, PROGRAM, TREE, Terminal, VERIFY, help_options

sys.path.append(str(TREE / "tests/support"))
from option_table import IGNORED, assert_names, known_options

README = (TREE / "README.md").read_text("utf-8")

PAIR = {"privateKey.pem": (399, 0o400), "publicKey.pem": (178, 0o444), "publicKeyhash.bin": (32, 0o444)}
PACKET = {"publicKeysHashHashes.bin": (32, 0o444)}
for index in range(8):
    PACKET.update({f"privateKey{index:02}.pem": (399, 0o400), f"publicKey{index:02}.pem": (178, 0o444),
                   f"publicKeyHash{index:02}.bin": (32, 0o444)})


def blocks():
    """The indented blocks, as a reader copies them."""
    return [textwrap.dedent(each) for each in re.findall(r"(?<=\n\n)(?: {4}.*\n|\n(?= {4}))+", README)]


def block(words):
    found = [each for each in blocks() if words in each]
    assert len(found) == 1, (words, found)
    return found[0]


class Commands(InTemporaryFolder):
    def setUp(self):
        super().setUp()
        self.home, self.clone = self.folder / "home", self.folder / "clone"
        # What script/run sets up exists already, and the program is installed.
        for link in (self.clone / "script/run", self.home / ".local/bin/keygen"):
            link.parent.mkdir(parents=True)
            os.symlink(PROGRAM, link)
        os.symlink(VERIFY, self.home / ".local/bin/keygen-verify")

    def type(self, commands, answers=""):
        """What the commands print, typed in a clone."""
        environment = dict(os.environ, HOME=str(self.home), PATH=f"{self.home}/.local/bin:{os.environ['PATH']}")
        result = subprocess.run(["bash", "-euo", "pipefail", "-c", commands], cwd=self.clone, env=environment,
                                input=answers, stdout=subprocess.PIPE, stderr=subprocess.PIPE, universal_newlines=True,
                                timeout=60)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        return result.stdout

    def files(self, folder):
        return {each.name: (each.stat().st_size, each.stat().st_mode & 0o777)
                for each in (self.home / folder).iterdir()}

    def test_script_run_runs_the_program(self):
        self.assertIn("Version: v", self.type(block("script/run --version")))

    def test_the_example_makes_one_pair(self):
        self.type(block("'correct horse'\n"))
        self.assertEqual(self.files("example-keys"), PAIR)
        self.assertEqual(set(PAIR), set(re.findall(r"^(\S+) {2,}", block("the private key,"), re.M)))

    def test_the_example_makes_a_packet(self):
        self.type(block("-n 8"))
        self.assertEqual(self.files("example-packet"), PACKET)

    def test_the_dialogue_makes_one_pair_in_its_default_directory(self):
        self.type(block("keygen\n"), answers="\n1\ncorrect horse\ncorrect horse\n1\n1\n")
        self.assertEqual(self.files("Corvane_KeyGen"), PAIR)

    def test_the_example_writes_random_bytes(self):
        self.type(block("-rand"))
        self.assertEqual((self.home / "example.bin").stat().st_size, 1048576)

    def test_no_example_leaves_anything_in_the_clone(self):
        for commands in blocks():
            if commands.startswith("keygen "):
                self.type(commands)
        self.assertEqual({each.name for each in self.home.iterdir()},
                         {".local", "example-keys", "example-packet", "example.bin"})
        self.assertEqual([each.name for each in self.clone.iterdir()], ["script"])

    def test_the_check_asks_for_the_password(self):
        self.type(block("'correct horse'\n"))
        run = Terminal(self.home, "-c", "PATH=~/.local/bin:$PATH\n" + block("keygen-verify"), program="/bin/bash")
        run.answer("Enter Password:", "correct horse\n")
        self.assertEqual(run.end(), 0)
        self.assertIn("\nall agrees: 1 pair\r\n", run.shown)

    def test_the_commands_check_a_pair(self):
        self.type(block("'correct horse'\n"))
        checks = block("cmp - publicKeyhash.bin")
        self.assertEqual(self.type(checks), "")
        other = re.sub("^cd .*", "cd ~/other", checks)
        self.assertNotEqual(checks, other)
        for name in ("publicKey.pem", "publicKeyhash.bin"):
            with self.subTest(changed=name):
                shutil.copytree(self.home / "example-keys", self.home / "other")
                (self.home / "other" / name).chmod(0o600)
                (self.home / "other" / name).write_bytes(b"changed")
                with self.assertRaises(AssertionError):
                    self.type(other)
                shutil.rmtree(self.home / "other")

    def test_the_status_is_0_if_a_pair_failed(self):
        self.assertIn("**the exit status is 0 even if a key pair failed**", README)
        (self.home / "example-keys/privateKey.pem").mkdir(parents=True)
        self.assertIn("Error: An error occured while generating key files", self.type(block("'correct horse'\n")))

    def test_the_curves_have_the_described_numbers(self):
        for number, curve in re.findall(r"`-ecc (\d)` is (\w+)", README):
            self.type(f"keygen -abs {number} -pwd 1234 -ecc {number}")
            self.assertIn(curve, self.type(f"openssl pkey -pubin -in {number}/publicKey.pem -noout -text"))

    def test_the_pictures_show_commands_of_the_readme(self):
        pictures = re.findall(r"^!\[.+\]\((docs/screens/\w+\.svg)\)$", README, re.M)
        self.assertEqual(sorted(pictures), sorted(f"docs/screens/{each.name}" for each in
                                                  (TREE / "docs/screens").iterdir()))
        for picture in pictures:
            drawn = (TREE / picture).read_text("utf-8")
            command = html.unescape(re.search(r">\$ </tspan><tspan>(.*?)</tspan>", drawn)[1])
            self.assertIn(command + "\n", blocks())

    def test_the_table_of_options_lists_those_of_the_help_text(self):
        table = re.findall(r"^\| (`-.*?) \|", README, re.M)
        listed = [frozenset(re.findall(r"`(.+?)`", names)) for names in table]
        assert_names(self, "README.md", frozenset().union(*listed), set(known_options()) - IGNORED)
        self.assertEqual(sorted(map(sorted, listed)), sorted(sorted(names - IGNORED) for names in help_options()))

    def test_every_document_is_linked(self):
        targets = set(re.findall(r"\]\(([^):#]+\.md)\)", README))
        documents = [*(TREE / "docs").glob("*.md"), *TREE.glob("*.md")]
        self.assertEqual(targets, {str(each.relative_to(TREE)) for each in documents} - {"README.md"})


if __name__ == "__main__":
    unittest.main()
