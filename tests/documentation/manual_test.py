#!/usr/bin/python3
"""The manual's examples do what it says, word for word as they stand there."""

import os
import re
import subprocess
import unittest

from tree import InTemporaryFolder, PASSWORDS, PROGRAM, TREE, run_program

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

    def test_names_sizes_and_modes_of_the_files(self):
        rows = re.findall(r"^\.It Pa (\w+\.\w+)\n(.*?); mode (0\d+)$", MANUAL, re.M | re.S)
        self.assertEqual({name: int(mode, 8) for name, _, mode in rows}, {**PAIR, "publicKeysHashHashes.bin": 0o444})
        numbered = re.findall(r"^\.It Pa (\w+)00(\.\w+) \.\.\.\nto\n\.Pa (\S+)", MANUAL, re.M)
        self.assertEqual([f"{name}07{extension}" for name, extension, _ in numbered], [last for _, _, last in numbered])
        described = {f"{name}{index:02}{extension}" for name, extension, _ in numbered for index in range(8)}
        self.assertEqual(described | {"publicKeysHashHashes.bin"}, set(PACKET))

        self.type("keygen -abs pair -pwd 1234; keygen -abs packet -n 8 -pwd " + " ".join(PASSWORDS))
        self.assertEqual((self.modes("pair"), self.modes("packet")), (PAIR, PACKET))
        for name, content, _ in rows:
            if content.startswith("32 bytes"):
                for folder in self.folder.glob("pa*/"):
                    self.assertEqual({each.stat().st_size for each in folder.glob(name)} - {32}, set())

    def test_checks_of_the_files(self):
        self.type("keygen -abs keys -pwd 1234")
        # The terminal's answer to the question for the password.
        opened = example("-pubout |").replace("-in keys/privateKey.pem", "-in keys/privateKey.pem -passin pass:1234")
        for command in (opened, example("-outform DER")):
            result = self.type(command)
            self.assertEqual((result.returncode, result.stdout, result.stderr), (0, "", ""))
        (self.folder / "keys/publicKeyhash.bin").chmod(0o600)
        (self.folder / "keys/publicKeyhash.bin").write_bytes(bytes(32))
        self.assertEqual(self.type(example("-outform DER")).returncode, 1)


class Quirks(InTemporaryFolder):
    """What a user can trip over: the sentence stands in the manual, and the program does as it says."""

    def assert_says(self, sentence):
        macros = re.compile(r"^\.(?:Fl|Cm|Ar|Pa|Ql|Dq|Em) ?", re.M)
        text = " ".join(macros.sub("", MANUAL).split()).replace(" ,", ",").replace(" .", ".").replace(" ;", ";")
        self.assertIn(sentence, text)

    def keygen(self, *arguments):
        return run_program(*arguments, cwd=self.folder)

    def opens(self, path, password):
        command = ["openssl", "pkey", "-in", path, "-passin", f"pass:{password}", "-noout"]
        return subprocess.run(command, cwd=self.folder, stderr=subprocess.DEVNULL).returncode == 0

    def cipher_and_curve(self, folder):
        shown = subprocess.run(["openssl", "asn1parse", "-in", f"{folder}/privateKey.pem"], cwd=self.folder, check=True,
                               stdout=subprocess.PIPE, universal_newlines=True).stdout
        public = subprocess.run(["openssl", "pkey", "-pubin", "-in", f"{folder}/publicKey.pem", "-noout", "-text"],
                                cwd=self.folder, check=True, stdout=subprocess.PIPE, universal_newlines=True).stdout
        return re.search(r"aes-\d+-cbc", shown)[0], re.search(r"ASN1 OID: (\w+)", public)[1]

    def test_two_spellings_are_accepted_and_ignored(self):
        self.assert_says("Accepted and ignored: the help text lists it as the long spelling of pe, but only pe has")
        self.assert_says("Accepted and ignored: the help text lists it as the long spelling of hash, but only hash has")
        self.keygen("-abs", "keys", "-pwd", "1234", "--prvkey-enc", "aes128", "--public-key-hash", "other.bin")
        self.assertEqual(self.cipher_and_curve("keys"), ("aes-256-cbc", "prime256v1"))
        self.assertEqual({each.name for each in self.folder.glob("keys/*")}, set(PAIR))

    def test_a_password_cannot_begin_with_a_hyphen(self):
        self.assert_says("It cannot begin with a hyphen, because it would be taken for an option")
        self.assertEqual(self.keygen("-abs", "keys", "-pwd", "-secret").returncode, 1)

    def test_the_numbers_of_the_curves_run_against_the_help_text(self):
        self.assert_says("1 is brainpoolP256t1 and 2 is prime256v1")
        for number, curve in (("1", "brainpoolP256t1"), ("2", "prime256v1")):
            self.keygen("-abs", number, "-pwd", "1234", "-ecc", number)
            self.assertEqual(self.cipher_and_curve(number), ("aes-256-cbc", curve))

    def test_eight_passwords_do_not_make_a_packet(self):
        self.assert_says("Eight passwords without n make one pair, under the first of them.")
        self.keygen("-abs", "keys", "-pwd", *PASSWORDS)
        self.assertEqual({each.name for each in self.folder.glob("keys/*")}, set(PAIR))
        self.assertTrue(self.opens("keys/privateKey.pem", PASSWORDS[0]))

    def test_a_password_given_twice(self):
        self.assert_says("a packet takes the passwords in order from the first pwd on.")
        self.keygen("-abs", "pair", "-pwd", "first1", "-pwd", "second2")
        self.assertTrue(self.opens("pair/privateKey.pem", "second2"))
        self.keygen("-abs", "packet", "-n", "8", "-pwd", *PASSWORDS, "-pwd", *reversed(PASSWORDS))
        self.assertTrue(self.opens("packet/privateKey00.pem", PASSWORDS[0]))

    def test_a_size_that_is_no_number_leaves_an_empty_file(self):
        self.assert_says("The largest size is 2147483647; what is larger, or is not a plain number, counts as 0 and "
                         "leaves the file empty.")
        for size in ("2147483648", "1M"):
            self.assertEqual(self.keygen("-rand", size, f"{size}.bin").returncode, 0)
            self.assertEqual((self.folder / f"{size}.bin").stat().st_size, 0)

    def test_a_folder_named_hash_loses_the_hash_files_of_a_packet(self):
        self.assert_says("becomes Hash; no folder is created under the new name, and where there is none the pairs "
                         "fail.")
        self.assertEqual(self.keygen("-abs", "hashes", "-n", "8", "-pwd", *PASSWORDS).returncode, 0)
        self.assertEqual([each.name for each in self.folder.iterdir()], ["hashes"])
        self.assertEqual([each.name for each in self.folder.glob("hashes/publicKeyHash*")], [])


if __name__ == "__main__":
    unittest.main()
