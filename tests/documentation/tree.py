"""What the tests of the documents share: the tree, the built program, and runs of it."""

import os
import pathlib
import re
import subprocess
import tempfile
import unittest

TREE = pathlib.Path(__file__).resolve().parents[2]
PROGRAM = os.environ["KEYGEN_PROGRAM"]
CURVES = ("prime256v1", "brainpoolP256t1")
CIPHERS = ("aes256", "aes128")
PASSWORDS = ["first1", "second2", "third3", "fourth4", "fifth5", "sixth6", "seventh7", "eighth8"]


def run_program(*arguments, **options):
    return subprocess.run([PROGRAM, *arguments], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          universal_newlines=True, **options)


def make_packet(folder, curve, cipher):
    run_program("-abs", str(folder), "-n", "8", "-ecc", curve, "-pe", cipher, "-pwd", *PASSWORDS, check=True)


def help_options():
    """The names of the options in the help text, one set for each option."""
    text = re.sub(r"\x1b\[[0-9;]*m", "", run_program("-h", check=True).stdout)
    heads = re.findall(r"^(--\S.*?) *:", text, re.M)
    return [frozenset(head.split()) for head in heads]


class InTemporaryFolder(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
