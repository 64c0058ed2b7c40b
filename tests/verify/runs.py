"""What the tests of keygen-verify share: keys of the built program, and runs of the script under one shell."""

import hashlib
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

from crafted_keys import point_of, table_hash

PROGRAM = os.environ["KEYGEN_PROGRAM"]
VERIFY = os.environ["KEYGEN_VERIFY"]
SHELL = os.environ["KEYGEN_TEST_SHELL"].split()
VERSION = os.environ["KEYGEN_VERSION"]
TREE = pathlib.Path(__file__).resolve().parents[2]
PASSWORDS = ["first1", "second2", "third3", "fourth4", "fifth5", "sixth6", "seventh7", "eighth8"]
NUMBERS = [f"{index:02}" for index in range(8)]
CIPHERS = {"aes256": "AES-256-CBC", "aes128": "AES-128-CBC"}


def keygen(*arguments, folder):
    """Runs the program with arguments about which it asks no questions."""
    subprocess.run([PROGRAM, *arguments], cwd=folder, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, check=True)


def make_pair(folder, *options, password="correct horse"):
    keygen("-abs", "keys", "-pwd", password, *options, folder=folder)


def make_packet(folder, *options, passwords=PASSWORDS):
    keygen("-abs", "keys", "-n", str(len(passwords)), "-pwd", *passwords, *options, folder=folder)


def replace(path, content):
    """Replaces or removes a file. Only its owner may read it."""
    path.unlink()
    if content is not None:
        path.write_bytes(content)
        path.chmod(0o400)


def sha256_hex(data):
    return hashlib.sha256(data).hexdigest()


def hash_of(public):
    return sha256_hex(point_of(public.read_bytes()))


def table_hash_of(curve, publics):
    return table_hash(curve, [point_of(each.read_bytes()) for each in publics]).hex()


class InTemporaryFolder(unittest.TestCase):
    """Each test has a temporary directory with a copy of what make_keys() wrote once for all tests, and the file
    words.txt with the passwords."""

    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.origin = tempfile.TemporaryDirectory(prefix="keygen verify ")
        cls.addClassCleanup(cls.origin.cleanup)
        cls.make_keys(cls.origin.name)

    @classmethod
    def make_keys(cls, folder):
        make_pair(folder)
        pathlib.Path(folder, "words.txt").write_text("correct horse\n")

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="keygen verify ")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name, "work")
        shutil.copytree(self.origin.name, self.folder)
        self.temporary = pathlib.Path(folder.name, "temporary")
        self.temporary.mkdir()

    def run_verify(self, *arguments, environment=None, shell=None, **options):
        """The status, the standard output, and the standard error."""
        options = {"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE, "stderr": subprocess.PIPE,
                   "start_new_session": True, "timeout": 100, "cwd": self.folder, **options}
        before = self.state()
        result = subprocess.run([*(shell or SHELL), VERIFY, *arguments],
                                env=dict(os.environ, TMPDIR=str(self.temporary), **(environment or {})), **options)
        self.assertEqual(self.state(), before, "a file was changed, created or removed")
        self.assertEqual(list(self.temporary.iterdir()), [])
        texts = [None if each is None else each.decode("utf-8", "surrogateescape")
                 for each in (result.stdout, result.stderr)]
        return (result.returncode, *texts)

    def state(self):
        """Every file with its times, its mode and its size."""
        found = {}
        for path in self.folder.rglob("*"):
            about = path.lstat()
            found[path] = (about.st_mode, about.st_size, about.st_mtime_ns, about.st_ctime_ns)
        return found

    def with_passwords(self, *arguments, **options):
        return self.run_verify("--passwords", "words.txt", *arguments, **options)

    def assert_finds(self, findings, *arguments, status=1, output=""):
        """Expects exactly these findings; `output` is what is printed about pairs that agree."""
        self.assertEqual(self.with_passwords(*arguments), (status, output, "".join(f"{each}\n" for each in findings)))
