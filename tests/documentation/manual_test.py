#!/usr/bin/python3
"""The examples in the manual, run word for word, do what it says."""

import os
import re
import subprocess
import unittest

from tree import InTemporaryFolder, PASSWORDS, PROGRAM, TREE, Terminal, run_program

MANUAL = (TREE / "man/keygen.1.in").read_text("utf-8")
PAIR = {"privateKey.pem": 0o400, "publicKey.pem": 0o444, "publicKeyhash.bin": 0o444}
PACKET = {"publicKeysHashHashes.bin": 0o444}
for index in range(8):
    PACKET.update({f"privateKey{index:02}.pem": 0o400, f"publicKey{index:02}.pem": 0o444,
                   f"publicKeyHash{index:02}.bin": 0o444})


ONE_PAIR = "keygen -abs keys -pwd 'correct horse battery'"


def displays():
    """The displayed commands, as a reader sees them."""
    found = re.findall(r"^\.Dl (.*)$", MANUAL, re.M)
    found += re.findall(r"^\.Bd -literal -offset indent\n(.*?)^\.Ed$", MANUAL, re.M | re.S)
    return [each.replace("\\e", "\\") for each in found]


def example(words):
    """The displayed commands that contain `words`."""
    found = [each for each in displays() if words in each]
    assert len(found) == 1, (words, found)
    return found[0]


class Examples(InTemporaryFolder):
    def setUp(self):
        super().setUp()
        os.symlink(PROGRAM, self.folder / "keygen")

    def type(self, commands, answers=""):
        """Runs commands in a shell that finds the program in the working directory."""
        environment = dict(os.environ, PATH=f"{self.folder}:{os.environ['PATH']}", HOME=str(self.folder))
        return subprocess.run(["bash", "-c", commands], cwd=self.folder, env=environment, input=answers,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, universal_newlines=True, timeout=60)

    def modes(self, folder):
        return {each.name: each.stat().st_mode & 0o777 for each in (self.folder / folder).iterdir()}

    def assert_opens(self, path, password):
        result = self.type(f"openssl pkey -in {path} -passin pass:'{password}' -noout")
        self.assertEqual((result.returncode, result.stderr), (0, ""))

    def test_the_example_makes_one_pair(self):
        self.assertEqual(self.type(ONE_PAIR).returncode, 0)
        self.assertEqual(self.modes("keys"), PAIR)
        self.assert_opens("keys/privateKey.pem", "correct horse battery")

    def test_the_example_sets_names_curve_and_cipher(self):
        self.type(example("signer.pem"))
        self.assertEqual(self.modes("keys"), {"signer.key.pem": 0o400, "signer.pem": 0o444, "signer.bin": 0o444})
        shown = self.type("openssl pkey -pubin -in keys/signer.pem -noout -text; openssl asn1parse -in "
                          "keys/signer.key.pem").stdout
        self.assertIn("brainpoolP256t1", shown)
        self.assertIn("aes-128-cbc", shown)

    def test_the_example_makes_a_packet(self):
        self.type(example("-abs packet"))
        self.assertEqual(self.modes("packet"), PACKET)
        for index, password in enumerate(PASSWORDS):
            self.assert_opens(f"packet/privateKey{index:02}.pem", password)

    def test_the_example_reads_a_password_from_a_pipe(self):
        self.type(example("read -rs password"), answers="-begins with a hyphen\n")
        self.assertEqual(self.modes("keys"), PAIR)
        self.assert_opens("keys/privateKey.pem", "-begins with a hyphen")

    def test_the_example_sets_a_time_limit(self):
        commands = example("read -rs password")
        soon = commands.replace("timeout 60", "timeout 1")
        self.assertNotEqual(soon, commands)
        self.assertEqual(self.type("set -o pipefail; " + soon, answers="abc\n").returncode, 124)
        self.assertEqual(list(self.folder.glob("keys/*")), [])

    def test_the_example_suppresses_the_messages(self):
        self.assertIn(ONE_PAIR, displays())
        self.assertEqual(self.type(example("/dev/null")).stdout, "")
        self.assertEqual(self.modes("keys"), PAIR)

    def test_the_example_removes_the_colours(self):
        shown = self.type(example("sed")).stdout
        self.assertNotIn("\x1b", shown)
        self.assertIn("\n Keys generated successfully.\n + public key:       keys/publicKey.pem\n", shown)

    def test_the_example_makes_a_packet_with_answers_from_a_file(self):
        answers = ["packet/", "2"] + [each for each in PASSWORDS for _ in range(2)] + ["1", "1"]
        (self.folder / "answers").write_text("".join(each + "\n" for each in answers))
        self.type(example("< answers"))
        self.assertEqual(self.modes("packet"), PACKET)
        self.assert_opens("packet/privateKey07.pem", PASSWORDS[7])

    def test_the_example_writes_random_bytes(self):
        self.type(example("-rand 64"))
        self.assertEqual((self.folder / "seed.bin").stat().st_size, 64)

    def test_the_example_tests_whether_the_pair_was_made(self):
        commands = "password=secret; " + example("no pair")
        self.assertEqual(self.type(commands).stderr, "")
        # A directory in place of the private key: the pair fails, but the status of the program is 0.
        (self.folder / "keys/privateKey.pem").unlink()
        (self.folder / "keys/privateKey.pem").mkdir()
        self.assertEqual(self.type(commands).stderr, "no pair\n")
        self.assertEqual(self.type("printf '%s\\n' keys/ 1 secret secret 1 1 | keygen").returncode, 0)

    def test_the_files_have_the_described_names_sizes_and_modes(self):
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

    def test_the_examples_check_the_files(self):
        self.type("keygen -abs keys -pwd 1234")
        # Replaces the answer on the terminal to the question for the password.
        opened = example("-pubout |").replace("-in keys/privateKey.pem", "-in keys/privateKey.pem -passin pass:1234")
        for command in (opened, example("-outform DER")):
            result = self.type(command)
            self.assertEqual((result.returncode, result.stdout, result.stderr), (0, "", ""))
        (self.folder / "keys/publicKeyhash.bin").chmod(0o600)
        (self.folder / "keys/publicKeyhash.bin").write_bytes(bytes(32))
        self.assertEqual(self.type(example("-outform DER")).returncode, 1)


class Quirks(InTemporaryFolder):
    """Surprising behaviour: the manual contains the sentence, and the program does what it says."""

    def assert_says(self, sentence):
        text = " ".join(re.sub(r"^\.[A-Z][a-z]\b ?", "", MANUAL, flags=re.M).split())
        text = re.sub(r" ([,.;])", r"\1", text)
        self.assertTrue(sentence in text, sentence)

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
        self.assert_says("A password cannot begin with a hyphen, because it would be taken for an option, and is then "
                         "shown as an unknown one.")
        result = self.keygen("-abs", "keys", "-pwd", "-secret")
        self.assertEqual(result.returncode, 1)
        self.assertIn("'-secret'\n", result.stdout)

    def test_the_numbers_of_the_curves_are_in_the_opposite_order_of_the_help_text(self):
        self.assert_says("1 is brainpoolP256t1 and 2 is prime256v1")
        for number, curve in (("1", "brainpoolP256t1"), ("2", "prime256v1")):
            self.keygen("-abs", number, "-pwd", "1234", "-ecc", number)
            self.assertEqual(self.cipher_and_curve(number), ("aes-256-cbc", curve))

    def test_eight_passwords_do_not_make_a_packet(self):
        self.assert_says("Without this option one pair is made, in files without a number.")
        self.assert_says("eight words encrypt the key under the first of them")
        self.keygen("-abs", "keys", "-pwd", *PASSWORDS)
        self.assertEqual({each.name for each in self.folder.glob("keys/*")}, set(PAIR))
        self.assertTrue(self.opens("keys/privateKey.pem", PASSWORDS[0]))

    def test_the_last_password_is_used_for_a_pair_and_the_first_ones_for_a_packet(self):
        self.assert_says("a packet takes the passwords in order from the first pwd on.")
        self.keygen("-abs", "pair", "-pwd", "first1", "-pwd", "second2")
        self.assertTrue(self.opens("pair/privateKey.pem", "second2"))
        self.keygen("-abs", "packet", "-n", "8", "-pwd", *PASSWORDS, "-pwd", *reversed(PASSWORDS))
        self.assertTrue(self.opens("packet/privateKey00.pem", PASSWORDS[0]))

    def test_a_size_that_is_not_a_number_leaves_an_empty_file(self):
        self.assert_says("The largest size is 2147483647; a larger value, or one that is not a plain number, counts as 0 "
                         "and leaves the file empty.")
        for size in ("2147483648", "1M"):
            self.assertEqual(self.keygen("-rand", size, f"{size}.bin").returncode, 0)
            self.assertEqual((self.folder / f"{size}.bin").stat().st_size, 0)

    def test_a_folder_named_hash_loses_the_hash_files_of_a_packet(self):
        self.assert_says("becomes Hash; no folder is created under the new name, and if there is none the pairs "
                         "fail.")
        self.assertEqual(self.keygen("-abs", "hashes", "-n", "8", "-pwd", *PASSWORDS).returncode, 0)
        self.assertEqual([each.name for each in self.folder.iterdir()], ["hashes"])
        self.assertEqual([each.name for each in self.folder.glob("hashes/publicKeyHash*")], [])

    def test_a_run_with_nothing_to_do_shows_only_the_banner(self):
        self.assert_says("there is nothing to do: only the banner is shown, and the status is 0.")
        for arguments in (["-pwd", "1234"], ["-n", "8", "-pwd", *PASSWORDS], ["-ecc", "prime256v1", "-pe", "aes128"]):
            with self.subTest(arguments=arguments):
                result = self.keygen(*arguments)
                self.assertEqual(result.returncode, 0)
                self.assertEqual(result.stdout, self.keygen("no option").stdout.partition("\x1b[00;31m")[0])
        self.assertEqual(list(self.folder.iterdir()), [])

    def test_further_values_are_ignored_and_a_26th_is_refused(self):
        self.assert_says("no more than 25: a 26th is refused. Values beyond those described here are ignored: -abs my "
                         "keys writes to my.")
        self.assertEqual(self.keygen("-pwd", "1234", "-abs", *["my"] * 25).returncode, 0)
        self.assertEqual([each.name for each in self.folder.iterdir()], ["my"])
        self.assertEqual(self.keygen("-pwd", "1234", "-abs", *["your"] * 26).returncode, 1)
        self.assertEqual([each.name for each in self.folder.iterdir()], ["my"])

    def test_a_password_of_several_words_is_refused(self):
        self.assert_says("under the first of them; any other number of words is an error.")
        for count in (2, 3, 4, 5, 6, 7, 9):
            with self.subTest(words=count):
                self.assertEqual(self.keygen("-abs", "keys", "-pwd", *["word"] * count).returncode, 1)
                self.assertEqual(list(self.folder.iterdir()), [])

    def test_a_password_of_more_than_1024_bytes_is_truncated(self):
        self.assert_says("cannot be opened with the password as typed, only with its first 1024 bytes")
        self.keygen("-abs", "keys", "-pwd", "\u00e9" * 512)
        self.assertTrue(self.opens("keys/privateKey.pem", "\u00e9" * 512))
        self.keygen("-abs", "keys", "-pwd", "\u00e9" * 513)
        self.assertFalse(self.opens("keys/privateKey.pem", "\u00e9" * 513))
        self.assertTrue(self.opens("keys/privateKey.pem", "\u00e9" * 512))

    def test_the_largest_size_is_accepted(self):
        self.assert_says("The largest size is 2147483647")
        run = Terminal(self.folder, "-rand", "2147483647", "large.bin")
        self.addCleanup(run.kill)
        run.wait_for("Size        : 2147483647 Bytes")

    def test_random_data_has_the_default_mode_or_that_of_the_old_file(self):
        self.assert_says("has the mode of any new file, or keeps that of the file it replaces.")
        (self.folder / "old.bin").touch()
        (self.folder / "old.bin").chmod(0o640)
        (self.folder / "other").touch()
        for name in ("old.bin", "new.bin"):
            self.assertEqual(self.keygen("-rand", "1", name).returncode, 0)
        modes = [(self.folder / name).stat().st_mode for name in ("old.bin", "new.bin", "other")]
        self.assertEqual((modes[0] & 0o777, modes[1]), (0o640, modes[2]))

    def test_the_later_of_two_files_with_one_path_is_kept(self):
        self.assert_says("the later file replaces the earlier one, in the order private key, public key, hash. The run "
                         "still reports success, even if the private key is lost.")
        begins = {"-prvk": b"-----BEGIN ENC", "-pubk": b"-----BEGIN PUB"}
        for first, second in (("-prvk", "-pubk"), ("-prvk", "-hash"), ("-pubk", "-hash")):
            with self.subTest(first=first, second=second):
                paths = {"-prvk": "private", "-pubk": "public", "-hash": "hash", first: "same", second: "same"}
                result = self.keygen("-pwd", "1234", *[word for each in paths.items() for word in each])
                self.assertEqual(result.returncode, 0)
                self.assertIn("Keys generated successfully.", result.stdout)
                content = (self.folder / "same").read_bytes()
                if second in begins:
                    self.assertEqual(content[:14], begins[second])
                else:
                    self.assertEqual(len(content), 32)

    def test_links_are_followed_and_fifos_are_waited_for(self):
        self.assert_says("Links are followed. If a file is a FIFO, the run waits until someone reads from it.")
        (self.folder / "keys").mkdir()
        for name in ("private", "hash"):
            (self.folder / name).touch()
        (self.folder / "keys/privateKey.pem").symlink_to("../private")
        os.link(self.folder / "hash", self.folder / "keys/publicKeyhash.bin")
        os.mkfifo(self.folder / "keys/publicKey.pem")
        with subprocess.Popen([PROGRAM, "-abs", "keys", "-pwd", "1234"], cwd=self.folder, stdout=subprocess.DEVNULL,
                              stdin=subprocess.DEVNULL) as run:
            while (self.folder / "private").stat().st_mode & 0o777 != 0o400:
                self.assertIsNone(run.poll())
            self.assertIsNone(run.poll())
            self.assertIn("BEGIN PUBLIC KEY", (self.folder / "keys/publicKey.pem").read_text())
            self.assertEqual(run.wait(60), 0)
        self.assertTrue(self.opens("private", "1234"))
        self.assertEqual(((self.folder / "hash").stat().st_size, (self.folder / "hash").stat().st_mode & 0o777),
                         (32, 0o444))

    def test_an_old_private_key_is_lost_if_the_new_one_cannot_be_written(self):
        self.assert_says("A private key file that was there before is then lost, and left with the mode 0226")
        self.keygen("-abs", "keys", "-pwd", "1234")
        # Without a password no private key can be written.
        self.assertEqual(self.keygen("-abs", "keys").returncode, 0)
        found = (self.folder / "keys/privateKey.pem").stat()
        self.assertEqual((found.st_size, found.st_mode & 0o777), (0, 0o226))

    def test_every_pair_fails_if_the_configuration_provides_no_algorithms(self):
        self.assert_says("If it leaves the library without the algorithms that are needed, every pair fails, and the "
                         "status is 0.")
        (self.folder / "openssl.cnf").write_text("openssl_conf = all\n[all]\nproviders = none\n[none]\nnull = on\n"
                                                 "[on]\nactivate = 1\n")
        environment = dict(os.environ, OPENSSL_CONF=str(self.folder / "openssl.cnf"))
        result = run_program("-abs", "keys", "-pwd", "1234", cwd=self.folder, env=environment,
                             stderr=subprocess.DEVNULL)
        self.assertEqual(result.returncode, 0)
        libraries = subprocess.run(["ldd", PROGRAM], stdout=subprocess.PIPE, universal_newlines=True, check=True).stdout
        # OpenSSL 1.1.1 has no providers, and all its algorithms are built in.
        made = set(PAIR) if "libcrypto.so.1.1" in libraries else set()
        self.assertEqual({each.name for each in self.folder.glob("keys/*")}, made)


    def dialogue(self, folder, password):
        """Runs the dialogue on a terminal, and returns what it shows."""
        run = Terminal(self.folder)
        run.answer("Please enter Path", folder)
        run.answer("Please select number of packets", "1\n")
        run.answer("Please enter Password", password)
        run.answer("Please re-enter your Password", password)
        run.answer("Please select algorithm", "1\n")
        run.answer("Please select encrypting algorithm", "1\n")
        self.assertEqual(run.end(), 0)
        return run.shown

    def test_every_key_is_a_character_of_the_password(self):
        self.assert_says("Every key is then a character of the password, even Backspace, Ctrl-U and Ctrl-D")
        self.assert_says("and the intended password does not open the private key.")
        for typed, meant in (("god\x7food pass", "good pass"), ("wrong\x15good pass", "good pass"),
                             ("good pass\x04", "good pass")):
            with self.subTest(typed=typed):
                self.assertNotIn("pass\r", self.dialogue("keys/\n", typed + "\n"))
                self.assertFalse(self.opens("keys/privateKey.pem", meant))
                self.assertTrue(self.opens("keys/privateKey.pem", typed))

    def test_the_end_of_input_at_the_first_question_selects_the_default(self):
        self.assert_says("At the first question, Ctrl-D also accepts the folder that is shown.")
        shown = self.dialogue("\x04", "1234\n")
        self.assertEqual({each.name for each in self.folder.glob("Corvane_KeyGen/*")}, set(PAIR))
        self.assert_says("The path of the private key is shown with a doubled slash if the folder ends with one.")
        self.assertIn(f"{self.folder}/Corvane_KeyGen//privateKey.pem", shown)

    def test_input_typed_ahead_is_shown(self):
        self.assert_says("What is pasted or typed before a password is asked for is shown.")
        run = Terminal(self.folder)
        run.type("keys/\n1\nsecret\nsecret\n1\n1\n")
        self.assertEqual(run.end(), 0)
        self.assertIn("secret\r\n", run.shown)
        self.assertTrue(self.opens("keys/privateKey.pem", "secret"))


if __name__ == "__main__":
    unittest.main()
