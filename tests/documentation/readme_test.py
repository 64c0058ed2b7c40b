#!/usr/bin/python3
"""The README's commands do what it says, word for word as they stand there; its tables and pictures are right."""

import html
import os
import re
import subprocess
import textwrap
import unittest

from tree import InTemporaryFolder, PROGRAM, TREE, help_options

README = (TREE / "README.md").read_text("utf-8")
IGNORED = {"--public-key-hash", "--prvkey-enc"}


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
        # What script/run sets up is there already.
        (self.folder / "script").mkdir()
        os.symlink(PROGRAM, self.folder / "script/run")

    def type(self, commands):
        result = subprocess.run(["bash", "-euo", "pipefail", "-c", commands], cwd=self.folder, stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, universal_newlines=True, timeout=60)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        return result.stdout

    def files(self, folder):
        return {each.name: (each.stat().st_size, each.stat().st_mode & 0o777)
                for each in (self.folder / folder).iterdir()}

    def rows(self):
        """The table of the files: size and mode of each."""
        return {name: (int(size), int(mode, 8))
                for name, size, mode in re.findall(r"^\| `(\w+\.\w+)` \| (\d+) \| (0\d+) \|", README, re.M)}

    def test_the_first_one_makes_a_pair(self):
        self.type(blocks()[0])
        named = dict(re.findall(r"^keys/(\S+) +(.+)$", blocks()[1], re.M))
        self.assertEqual(set(self.files("keys")), set(named))
        self.assertEqual({**self.files("keys"), "publicKeysHashHashes.bin": (32, 0o444)}, self.rows())

    def test_a_packet(self):
        self.type(block("-n 8"))
        rows = self.rows()
        expected = {"publicKeysHashHashes.bin": rows["publicKeysHashHashes.bin"]}
        for index in range(8):
            expected[f"privateKey{index:02}.pem"] = rows["privateKey.pem"]
            expected[f"publicKey{index:02}.pem"] = rows["publicKey.pem"]
            expected[f"publicKeyHash{index:02}.bin"] = rows["publicKeyhash.bin"]
        self.assertEqual(self.files("packet"), expected)

    def test_random_bytes(self):
        self.type(block("-rand"))
        self.assertEqual((self.folder / "noise.bin").stat().st_size, 1048576)

    def test_checks_of_a_pair(self):
        self.type(blocks()[0])
        self.assert_shows_the_same_twice(block("cat keys/publicKey.pem"))
        self.assert_shows_the_same_twice(block("publicKeyhash.bin | tr"))
        shown = self.type(block("certtool"))
        self.assertIn(":aes-256-cbc", shown)
        self.assertIn("Schema: PBES2-AES256-CBC", shown)

    def test_check_of_a_packet(self):
        self.type(block("-n 8"))
        self.assert_shows_the_same_twice(block("publicKeysHashHashes.bin | tr"))

    def assert_shows_the_same_twice(self, commands):
        lines = self.type(commands).replace("  -\n", "\n").splitlines()
        half = len(lines) // 2
        self.assertGreater(half, 0)
        self.assertEqual(lines[:half], lines[half:])

    def test_pictures_show_commands_that_stand_here(self):
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
        self.assertEqual(sorted(map(sorted, listed)), sorted(sorted(names - IGNORED) for names in help_options()))

    def test_links_lead_somewhere(self):
        for target in re.findall(r"\]\(([^):#]+)\)", README):
            self.assertTrue((TREE / target).is_file(), target)


if __name__ == "__main__":
    unittest.main()
