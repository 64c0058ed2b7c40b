#!/usr/bin/python3
"""The manual of keygen-verify: its examples do what it says, and it describes every option."""

import os
import re
import subprocess
import unittest

from tree import InTemporaryFolder, PASSWORDS, PROGRAM, TREE, VERIFY

MANUAL = (TREE / "man/keygen-verify.1.in").read_text("utf-8")


def example(words):
    """The only displayed command that contains `words`, as a reader sees it."""
    displays = ["\n".join(re.findall(r"^\.Dl (.*)$", each, re.M)) for each in MANUAL.split(".Pp\n")]
    displays += re.findall(r"^\.Bd -literal -offset indent\n(.*?)^\.Ed$", MANUAL, re.M | re.S)
    found = [each.replace("\\e", "\\").replace("\\ ", " ") for each in displays if words in each]
    assert len(found) == 1, (words, found)
    return found[0]


class Examples(InTemporaryFolder):
    def setUp(self):
        super().setUp()
        os.symlink(PROGRAM, self.folder / "keygen")
        os.symlink(VERIFY, self.folder / "keygen-verify")
        (self.folder / "words.txt").write_text("".join(f"{each}\n" for each in PASSWORDS))

    def type(self, commands):
        environment = dict(os.environ, PATH=f"{self.folder}:{os.environ['PATH']}")
        return subprocess.run(["bash", "-c", commands], cwd=self.folder, env=environment, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, universal_newlines=True, timeout=100,
                              start_new_session=True)

    def assert_agrees(self, commands, what):
        result = self.type(commands)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertEqual(result.stdout.splitlines()[-1], f"all agrees: {what}")

    def test_the_examples_check_a_packet(self):
        # Without a terminal, the command cannot ask for passwords.
        result = self.type(example("&&"))
        self.assertEqual((result.returncode, result.stderr.count("there is no terminal")), (2, 8))
        self.assert_agrees(example("--passwords words.txt packet"), "a packet of 8")
        self.assert_agrees(example("--public-only packet"), "a packet of 8 (private keys left out)")

    def test_the_example_checks_files_with_other_names(self):
        self.type("keygen -prvk signer.key.pem -pubk signer.pem -hash signer.bin -pwd first1")
        command = example("signer.bin").replace("keygen-verify", "keygen-verify --passwords words.txt")
        self.assert_agrees(command, "1 pair")

    def test_the_example_checks_a_packet_in_a_folder_with_hash_in_its_name(self):
        self.type("mkdir hashes Hashes; keygen -abs hashes -n 8 -pwd " + " ".join(PASSWORDS))
        command = example("hashes/").replace("--packet", "--packet --passwords words.txt")
        # Options may be in any order.
        self.assert_agrees(command, "a packet of 8")

    def test_the_manual_describes_the_options_in_the_help(self):
        described = re.findall(r"^\.It Fl -([a-z-]+)", MANUAL, re.M)
        shown = re.findall(r"^  --([a-z-]+)", self.type("keygen-verify --help").stdout, re.M)
        self.assertEqual(described, shown)


if __name__ == "__main__":
    unittest.main()
