#!/usr/bin/python3
"""The manual's examples do what it says, word for word as they stand there."""

import os
import re
import subprocess
import unittest

from tree import InTemporaryFolder, PASSWORDS, PROGRAM, TREE

MANUAL = (TREE / "man/keygen.1.in").read_text("utf-8")
PAIR = {"privateKey.pem": 0o400, "publicKey.pem": 0o444, "publicKeyhash.bin": 0o444}
PACKET = {"publicKeysHashHashes.bin": 0o444}
for index in range(8):
    PACKET.update({f"privateKey{index:02}.pem": 0o400, f"publicKey{index:02}.pem": 0o444,
                   f"publicKeyHash{index:02}.bin": 0o444})


def example(words):
    """The displayed commands that hold `words`, as a reader sees them."""
    displays = re.findall(r"^\.Dl (.*)$", MANUAL, re.M)
    displays += re.findall(r"^\.Bd -literal -offset indent\n(.*?)^\.Ed$", MANUAL, re.M | re.S)
    found = [each.replace("\\e", "\\") for each in displays if words in each]
    assert len(found) == 1, (words, found)
    return found[0]


class Examples(InTemporaryFolder):
    def setUp(self):
        super().setUp()
        os.symlink(PROGRAM, self.folder / "keygen")

    def type(self, commands, answers=""):
        """Runs commands in a shell that finds the program in the working folder."""
        environment = dict(os.environ, PATH=f"{self.folder}:{os.environ['PATH']}", HOME=str(self.folder))
        return subprocess.run(["bash", "-c", commands], cwd=self.folder, env=environment, input=answers,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, universal_newlines=True, timeout=60)

    def modes(self, folder):
        return {each.name: each.stat().st_mode & 0o777 for each in (self.folder / folder).iterdir()}

    def assert_opens(self, path, password):
        result = self.type(f"openssl pkey -in {path} -passin pass:'{password}' -noout")
        self.assertEqual((result.returncode, result.stderr), (0, ""))

    def test_one_pair(self):
        self.assertEqual(self.type(example("-abs keys -pwd")).returncode, 0)
        self.assertEqual(self.modes("keys"), PAIR)
        self.assert_opens("keys/privateKey.pem", "correct horse battery")

    def test_names_curve_and_cipher(self):
        self.type(example("signer.pem"))
        self.assertEqual(self.modes("keys"), {"signer.key.pem": 0o400, "signer.pem": 0o444, "signer.bin": 0o444})
        shown = self.type("openssl pkey -pubin -in keys/signer.pem -noout -text; openssl asn1parse -in "
                          "keys/signer.key.pem").stdout
        self.assertIn("brainpoolP256t1", shown)
        self.assertIn("aes-128-cbc", shown)

    def test_packet(self):
        self.type(example("-abs packet"))
        self.assertEqual(self.modes("packet"), PACKET)
        for index, password in enumerate(PASSWORDS):
            self.assert_opens(f"packet/privateKey{index:02}.pem", password)

    def test_password_from_a_pipe(self):
        self.type(example("read -rs password"), answers="-begins with a hyphen\n")
        self.assertEqual(self.modes("keys"), PAIR)
        self.assert_opens("keys/privateKey.pem", "-begins with a hyphen")

    def test_packet_with_answers_from_a_file(self):
        answers = ["packet/", "2"] + [each for each in PASSWORDS for _ in range(2)] + ["1", "1"]
        (self.folder / "answers").write_text("".join(each + "\n" for each in answers))
        self.type(example("< answers"))
        self.assertEqual(self.modes("packet"), PACKET)
        self.assert_opens("packet/privateKey07.pem", PASSWORDS[7])

    def test_random_bytes(self):
        self.type(example("-rand 64"))
        self.assertEqual((self.folder / "seed.bin").stat().st_size, 64)

    def test_look_whether_the_pair_was_made(self):
        commands = "password=secret; " + example("no pair")
        self.assertEqual(self.type(commands).stderr, "")
        # A folder in the private key's place: the pair fails, and the program's status is 0 all the same.
        (self.folder / "keys/privateKey.pem").unlink()
        (self.folder / "keys/privateKey.pem").mkdir()
        self.assertEqual(self.type(commands).stderr, "no pair\n")
        self.assertEqual(self.type("printf '%s\\n' keys/ 1 secret secret 1 1 | keygen").returncode, 0)

    def test_checks_of_the_files(self):
        self.type("keygen -abs keys -pwd 1234")
        # The terminal's answer to the question for the password.
        opened = example("-pubout | cmp").replace("-in keys/privateKey.pem", "-in keys/privateKey.pem -passin pass:1234")
        for command in (opened, example("-outform DER")):
            result = self.type(command)
            self.assertEqual((result.returncode, result.stdout, result.stderr), (0, "", ""))
        (self.folder / "keys/publicKeyhash.bin").chmod(0o600)
        (self.folder / "keys/publicKeyhash.bin").write_bytes(bytes(32))
        self.assertEqual(self.type(example("-outform DER")).returncode, 1)


if __name__ == "__main__":
    unittest.main()
