"""What the tests of the documents share: the tree, the built program, and runs of it."""

import os
import pathlib
import pty
import re
import select
import subprocess
import tempfile
import unittest

TREE = pathlib.Path(__file__).resolve().parents[2]
PROGRAM = os.environ["KEYGEN_PROGRAM"]
VERIFY = os.environ["KEYGEN_VERIFY"]
CURVES = ("prime256v1", "brainpoolP256t1")
CIPHERS = ("aes256", "aes128")
PASSWORDS = ["first1", "second2", "third3", "fourth4", "fifth5", "sixth6", "seventh7", "eighth8"]


def run_program(*arguments, **options):
    options.setdefault("stdin", subprocess.DEVNULL)
    return subprocess.run([PROGRAM, *arguments], stdout=subprocess.PIPE, universal_newlines=True, **options)


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


class Terminal:
    """A run of the program, or of another one, on a new terminal, in `folder`, which is also the home directory."""

    def __init__(self, folder, *arguments, program=PROGRAM):
        self.shown, self.seen = "", 0
        self.pid, self.descriptor = pty.fork()
        if self.pid == 0:
            os.chdir(folder)
            os.execve(program, [os.path.basename(program), *arguments], dict(os.environ, HOME=str(folder)))

    def type(self, keys):
        os.write(self.descriptor, keys.encode())

    def read_more(self):
        """Adds new output of the program to `shown`; false at its end."""
        if not select.select([self.descriptor], [], [], 60)[0]:
            raise TimeoutError(self.shown)
        try:
            more = os.read(self.descriptor, 65536)
        except OSError: # the other end is closed
            more = b""
        self.shown += more.decode()
        return more != b""

    def wait_for(self, words):
        """Reads until the words are shown once more than in the previous calls."""
        while words not in self.shown[self.seen:]:
            if not self.read_more():
                raise EOFError(self.shown)
        self.seen = self.shown.index(words, self.seen) + len(words)

    def answer(self, question, keys):
        self.wait_for(question)
        self.type(keys)

    def end(self):
        """The exit status, after all output was read."""
        while self.read_more():
            pass
        os.close(self.descriptor)
        return os.WEXITSTATUS(os.waitpid(self.pid, 0)[1])

    def kill(self):
        os.kill(self.pid, 9)
        os.close(self.descriptor)
        os.waitpid(self.pid, 0)
