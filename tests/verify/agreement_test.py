#!/usr/bin/python3
"""keygen-verify accepts what the program writes, on each curve, with each cipher, and under any names."""

import unittest

from crafted_keys import CURVES
from runs import (CIPHERS, InTemporaryFolder, NUMBERS, PASSWORDS, hash_of, keygen, make_packet, make_pair,
                  table_hash_of)


class Agreement(InTemporaryFolder):
    @classmethod
    def make_keys(cls, folder):
        pass

    def passwords(self, *words):
        (self.folder / "words.txt").write_text("".join(f"{each}\n" for each in words))

    def line(self, public, curve, cipher="AES-256-CBC"):
        return f"{public}: {curve}, {cipher}, {hash_of(self.folder / public)}\n"

    def packet_lines(self, curve, cipher="AES-256-CBC", numbers=NUMBERS, name="keys/publicKey{}.pem",
                     table="keys/publicKeysHashHashes.bin"):
        names = [name.format(each) for each in numbers]
        lines = [self.line(each, curve, cipher) for each in names]
        return "".join(lines) + f"{table}: {table_hash_of(curve, [self.folder / each for each in names])}\n"

    def assert_agrees(self, output, *arguments, **options):
        self.assertEqual(self.with_passwords(*arguments, **options), (0, output, ""))

    def test_pairs_agree(self):
        self.passwords("correct horse")
        for curve in CURVES:
            for option, cipher in CIPHERS.items():
                with self.subTest(curve=curve, cipher=cipher):
                    make_pair(self.folder, "-ecc", curve, "-pe", option)
                    self.assert_agrees(self.line("keys/publicKey.pem", curve, cipher) + "all agrees: 1 pair\n", "keys")

    def test_packets_of_eight_agree(self):
        self.passwords(*PASSWORDS)
        for curve, option in (("prime256v1", "aes128"), ("brainpoolP256t1", "aes256")):
            with self.subTest(curve=curve):
                make_packet(self.folder, "-ecc", curve, "-pe", option)
                self.assert_agrees(self.packet_lines(curve, CIPHERS[option]) + "all agrees: a packet of 8\n", "keys")

    def test_a_packet_of_one_agrees(self):
        self.passwords("only one")
        for curve in CURVES:
            with self.subTest(curve=curve):
                make_packet(self.folder, "-ecc", curve, passwords=["only one"])
                self.assert_agrees(self.packet_lines(curve, numbers=["00"]) + "all agrees: a packet of 1\n", "keys")

    def test_a_pair_is_checked_before_a_packet(self):
        make_pair(self.folder, "-ecc", "brainpoolP256t1")
        make_packet(self.folder)
        self.passwords("correct horse", *PASSWORDS)
        self.assert_agrees(self.line("keys/publicKey.pem", "brainpoolP256t1") + self.packet_lines("prime256v1") +
                           "all agrees: 1 pair, a packet of 8\n", "keys")

    def test_other_files_do_not_matter(self):
        make_pair(self.folder)
        self.passwords("correct horse")
        for name in ("publicKey08.pem", "publicKey0.pem", "publicKey.pem.old", "publicKeyHash.bin", "random.bin"):
            (self.folder / "keys" / name).write_text("nothing\n")
        self.assert_agrees(self.line("keys/publicKey.pem", "prime256v1") + "all agrees: 1 pair\n", "keys")

    def test_the_folder_may_end_with_a_slash_or_be_the_working_directory(self):
        make_pair(self.folder)
        self.passwords("correct horse")
        self.assert_agrees(self.line("keys/publicKey.pem", "prime256v1") + "all agrees: 1 pair\n", "keys/")
        shown = self.line("keys/publicKey.pem", "prime256v1").replace("keys", ".")
        self.assertEqual(self.run_verify("--passwords", "../words.txt", ".", cwd=self.folder / "keys"),
                         (0, shown + "all agrees: 1 pair\n", ""))

    def test_public_keys_can_be_checked_alone(self):
        make_pair(self.folder)
        make_packet(self.folder, "-ecc", "brainpoolP256t1")
        lines = self.line("keys/publicKey.pem", "prime256v1") + self.packet_lines("brainpoolP256t1")
        lines = lines.replace("AES-256-CBC, ", "") + "all agrees: 1 pair, a packet of 8 (private keys left out)\n"
        self.assertEqual(self.run_verify("--public-only", "keys"), (0, lines, ""))
        for private in (self.folder / "keys").glob("private*"):
            private.unlink()
        self.assertEqual(self.run_verify("--public-only", "keys"), (0, lines, ""))
        # Whatever is in place of a private key is not checked.
        (self.folder / "keys/privateKey.pem").mkdir()
        self.assertEqual(self.run_verify("--public-only", "keys"), (0, lines, ""))

    def test_a_pair_may_have_any_names(self):
        names = ["signer.key", "signer public.pem", "hashes/signer.bin"]
        (self.folder / "hashes").mkdir()
        keygen("-prvk", names[0], "-pubk", names[1], "-hash", names[2], "-pwd", "correct horse", folder=self.folder)
        self.passwords("correct horse")
        line = self.line("signer public.pem", "prime256v1")
        self.assert_agrees(line + "all agrees: 1 pair\n", *names)
        (self.folder / names[0]).unlink()
        self.assertEqual(self.run_verify("--public-only", *names),
                         (0, line.replace("AES-256-CBC, ", "") + "all agrees: 1 pair (private keys left out)\n", ""))

    def assert_packet_agrees(self, private, public, hash_file, shown_public, table, made=()):
        """A packet with other names. `shown_public` is the name of its public key, with braces for the number."""
        for folder in made:
            (self.folder / folder).mkdir(parents=True)
        self.passwords("only one")
        keygen("-n", "1", "-prvk", private, "-pubk", public, "-hash", hash_file, "-pwd", "only one",
               folder=self.folder)
        self.assertTrue((self.folder / table).is_file(), table)
        lines = self.packet_lines("prime256v1", numbers=["00"], name=shown_public, table=table)
        self.assert_agrees(lines + "all agrees: a packet of 1\n", "--packet", private, public, hash_file)

    def test_a_packet_of_eight_may_have_any_names(self):
        names = ["signer.key", "signer.pem", "signer.bin"]
        keygen("-n", "8", "-prvk", names[0], "-pubk", names[1], "-hash", names[2], "-pwd", *PASSWORDS,
               folder=self.folder)
        self.passwords(*PASSWORDS)
        self.assert_agrees(self.packet_lines("prime256v1", name="signer{}.pem", table="signer.bin") +
                           "all agrees: a packet of 8\n", "--packet", *names)

    def test_every_hash_in_the_path_of_the_hash_is_capitalised(self):
        self.assert_packet_agrees("a.key", "hash/a.pem", "hash/hashes/my hash publicKeyhash.bin", "hash/a{}.pem",
                                  "hash/hashes/my hash publicKeysHashHashes.bin",
                                  made=["hash/hashes", "Hash/Hashes"])

    def test_every_publicKeyhash_in_the_path_of_the_hash_becomes_the_name_of_the_table(self):
        self.assert_packet_agrees("a.key", "a.pem", "publicKeyhash/publicKeyhash.bin", "a{}.pem",
                                  "publicKeysHashHashes/publicKeysHashHashes.bin",
                                  made=["publicKeyhash", "publicKeyHash", "publicKeysHashHashes"])

    def test_the_number_may_split_the_word_hash(self):
        self.assert_packet_agrees("a.key", "a.pem", "myhashes", "a{}.pem", "myhashes")

    def test_names_may_be_short(self):
        self.assert_packet_agrees("k", "pem", "four", "{}pem", "four")

    def test_names_may_be_non_ascii(self):
        for public, shown in (("Ключ", "{}Ключ"), ("aКлюч", "a{}Ключ"), ("ü.p", "{}ü.p"), ("über.pém", "über{}.pém"),
                              ("ab😀cd", "ab{}😀cd"), ("a😀😀", "a{}😀😀"), ("Á\u0081.pem", "Á\u0081{}.pem")):
            with self.subTest(name=public):
                keygen("-n", "1", "-prvk", f"k {public}", "-pubk", public, "-hash", f"ß {public}", "-pwd", "only one",
                       folder=self.folder)
                self.passwords("only one")
                # The program leaves the file with the mode of any new file.
                next(self.folder.glob("k*")).chmod(0o400)
                line = self.line(shown.format("00"), "prime256v1")
                table = table_hash_of("prime256v1", [self.folder / shown.format("00")])
                lines = f"{line}ß {public}: {table}\nall agrees: a packet of 1\n".replace("\u0081", "?")
                self.assert_agrees(lines, "--packet", f"k {public}", public, f"ß {public}")
                for each in self.folder.iterdir():
                    each.unlink()

    def test_the_files_in_a_folder_are_together_whatever_its_name(self):
        (self.folder / "hash").mkdir()
        (self.folder / "Hash").mkdir()
        keygen("-abs", "hash", "-n", "1", "-pwd", "only one", folder=self.folder)
        self.passwords("only one")
        lines = self.packet_lines("prime256v1", numbers=["00"], name="hash/publicKey{}.pem",
                                  table="hash/publicKeysHashHashes.bin") + "all agrees: a packet of 1\n"
        # Files that the program wrote elsewhere are found by the names that it was given.
        self.assert_agrees(lines, "--packet", "hash/privateKey.pem", "hash/publicKey.pem", "hash/publicKeyhash.bin")
        missing = "hash/publicKeyHash00.bin"
        status, _, errors = self.with_passwords("hash")
        self.assertEqual((status, errors), (1, f"{missing}: it is missing\n"))
        (self.folder / "Hash/publicKeyHash00.bin").rename(self.folder / missing)
        self.assert_agrees(lines, "hash")


if __name__ == "__main__":
    unittest.main()
