#!/usr/bin/python3
"""The hash files, and what makes eight pairs a packet: no missing file, one curve, no key twice, and the table."""

import os
import pathlib
import shutil
import unittest

from runs import (InTemporaryFolder, NUMBERS, PASSWORDS, hash_of, make_packet, make_pair, replace, sha256_hex,
                  table_hash_of)

TABLE = "keys/publicKeysHashHashes.bin"
WRONG_TABLE = f"{TABLE}: it is not the hash of the table of this packet's hashes"


def wrong_hash(number):
    return f"keys/publicKeyHash{number}.bin: it is not the SHA-256 of X and Y in keys/publicKey{number}.pem"


def change_bit(path, place):
    content = bytearray(path.read_bytes())
    content[place] ^= 1
    replace(path, bytes(content))


class HashFile(InTemporaryFolder):
    PATH = "keys/publicKeyhash.bin"

    def assert_found(self, finding, status=1):
        self.assertEqual(self.run_verify("--public-only", "keys"), (status, "", f"{self.PATH}: {finding}\n"))

    def test_a_wrong_hash_is_a_finding(self):
        path = self.folder / self.PATH
        good = path.read_bytes()
        wrong = "it is not the SHA-256 of X and Y in keys/publicKey.pem"
        encoding = (self.folder / "keys/publicKey.pem").read_bytes()
        for content in (bytes(32), bytes([good[0] ^ 128]) + good[1:], good[:-1] + bytes([good[-1] ^ 1]), good[::-1],
                        bytes.fromhex(sha256_hex(encoding)), b"unread\n".ljust(32)):
            with self.subTest(content=content):
                replace(path, content)
                self.assert_found(wrong)

    def test_a_hash_file_of_another_size_is_a_finding(self):
        path = self.folder / self.PATH
        good = path.read_bytes()
        for content, finding in ((b"", "it has 0 bytes, not 32"), (good[:1], "it has 1 bytes, not 32"),
                                 (good[:31], "it has 31 bytes, not 32"), (good + b"\n", "it has more than 32 bytes"),
                                 (good.hex().encode(), "it has more than 32 bytes")):
            with self.subTest(content=content):
                replace(path, content)
                self.assert_found(finding)
        path.chmod(0o600)
        os.truncate(path, 1 << 40)
        self.assert_found("it has more than 32 bytes")

    def test_a_hash_file_that_is_not_a_regular_file_is_a_finding(self):
        path = self.folder / self.PATH
        path.unlink()
        self.assert_found("it is missing", status=2)
        path.mkdir()
        self.assert_found("it is not a regular file")
        path.rmdir()
        path.symlink_to("/dev/urandom")
        self.assert_found("it is not a regular file")
        path.unlink()
        os.mkfifo(path)
        self.assert_found("it is not a regular file")

    def test_everything_that_is_wrong_with_a_pair_is_reported(self):
        (self.folder / "words.txt").write_text("another\n")
        replace(self.folder / "keys/publicKey.pem", b"")
        replace(self.folder / self.PATH, b"")
        self.assert_finds(["keys/publicKey.pem: it is empty", f"{self.PATH}: it has 0 bytes, not 32",
                           "keys/privateKey.pem: it does not open under its password, or holds no key"], "keys")

    def test_a_mismatch_takes_precedence_over_a_missing_file(self):
        (self.folder / "keys/privateKey.pem").unlink()
        replace(self.folder / self.PATH, b"")
        self.assert_finds([f"{self.PATH}: it has 0 bytes, not 32", "keys/privateKey.pem: it is missing"], "keys")
        replace(self.folder / self.PATH, None)
        replace(self.folder / "keys/publicKey.pem", b"")
        self.assert_finds(["keys/publicKey.pem: it is empty", f"{self.PATH}: it is missing",
                           "keys/privateKey.pem: it is missing"], "keys")


class Packet(InTemporaryFolder):
    """Most findings need only the public files."""

    @classmethod
    def make_keys(cls, folder):
        make_packet(folder)
        pathlib.Path(folder, "words.txt").write_text("".join(f"{each}\n" for each in PASSWORDS))

    def path(self, name):
        return self.folder / "keys" / name

    def lines(self, numbers, curve="prime256v1"):
        names = (f"keys/publicKey{number}.pem" for number in numbers)
        return "".join(f"{name}: {curve}, {hash_of(self.folder / name)}\n" for name in names)

    def table_line(self, numbers=NUMBERS):
        return f"{TABLE}: {table_hash_of('prime256v1', [self.path(f'publicKey{each}.pem') for each in numbers])}\n"

    def assert_public(self, findings, agreeing, table=False, status=1):
        output = self.lines(agreeing) + (self.table_line() if table else "")
        self.assertEqual(self.run_verify("--public-only", "keys"),
                         (status, output, "".join(f"{each}\n" for each in findings)))

    def without(self, *numbers):
        return [each for each in NUMBERS if each not in numbers]

    def test_a_changed_hash_is_a_finding(self):
        for number in ("00", "07"):
            change_bit(self.path(f"publicKeyHash{number}.bin"), 31)
        self.assert_public([wrong_hash("00"), wrong_hash("07")], self.without("00", "07"), table=True)

    def test_a_changed_table_hash_is_a_finding(self):
        change_bit(self.folder / TABLE, 0)
        self.assert_public([WRONG_TABLE], NUMBERS)

    def test_a_table_hash_of_another_size_is_a_finding(self):
        good = (self.folder / TABLE).read_bytes()
        for content, finding in ((b"", "it has 0 bytes, not 32"), (good[:31], "it has 31 bytes, not 32"),
                                 (good + b"\0", "it has more than 32 bytes")):
            replace(self.folder / TABLE, content)
            self.assert_public([f"{TABLE}: {finding}"], NUMBERS)

    def test_the_hash_of_a_different_table_is_a_finding(self):
        publics = [self.path(f"publicKey{number}.pem") for number in NUMBERS]
        points = b"".join(bytes.fromhex(hash_of(each)) for each in publics)
        for wrong in (table_hash_of("brainpoolP256t1", publics), table_hash_of("prime256v1", publics[::-1]),
                      table_hash_of("prime256v1", publics[:7]), sha256_hex(points)):
            replace(self.folder / TABLE, bytes.fromhex(wrong))
            self.assert_public([WRONG_TABLE], NUMBERS)

    def test_swapped_pairs_are_a_finding(self):
        for name in ("publicKey{}.pem", "publicKeyHash{}.bin"):
            contents = [self.path(name.format(number)).read_bytes() for number in ("02", "03")]
            for number, content in zip(("03", "02"), contents):
                replace(self.path(name.format(number)), content)
        self.assert_public([WRONG_TABLE], NUMBERS)

    def test_missing_files_are_findings(self):
        for name in ("publicKey00.pem", "publicKeyHash03.bin", "publicKey05.pem", "publicKeyHash05.bin"):
            self.path(name).unlink()
        (self.folder / TABLE).unlink()
        self.assert_public([
            "keys/publicKey00.pem: it is missing", "keys/publicKeyHash03.bin: it is missing",
            "keys/publicKey05.pem: it is missing", "keys/publicKeyHash05.bin: it is missing",
            f"{TABLE}: it is missing"], self.without("00", "03", "05"))

    def test_a_missing_private_key_is_a_finding_and_its_password_is_skipped(self):
        self.path("privateKey01.pem").unlink()
        status, output, errors = self.with_passwords("keys")
        self.assertEqual((status, errors), (1, "keys/privateKey01.pem: it is missing\n"))
        self.assertEqual([line.split(":")[0] for line in output.splitlines()],
                         [f"keys/publicKey{number}.pem" for number in self.without("01")] + [TABLE])

    def test_the_table_is_not_compared_if_a_public_key_is_unknown(self):
        replace(self.path("publicKey04.pem"), b"")
        self.assert_public(["keys/publicKey04.pem: it is empty"], self.without("04"))
        # But its size is checked.
        replace(self.folder / TABLE, b"")
        self.assert_public(["keys/publicKey04.pem: it is empty", f"{TABLE}: it has 0 bytes, not 32"],
                           self.without("04"))

    def test_a_duplicate_key_is_a_finding(self):
        for name in ("privateKey{}.pem", "publicKey{}.pem", "publicKeyHash{}.bin"):
            for number in ("04", "06"):
                replace(self.path(name.format(number)), self.path(name.format("02")).read_bytes())
        table = table_hash_of("prime256v1", [self.path(f"publicKey{each}.pem") for each in NUMBERS])
        replace(self.folder / TABLE, bytes.fromhex(table))
        self.assert_public(["keys/publicKey04.pem: it is the same key as keys/publicKey02.pem",
                            "keys/publicKey06.pem: it is the same key as keys/publicKey02.pem"],
                           NUMBERS, table=True)

    def test_a_pair_on_the_other_curve_is_a_finding(self):
        other = self.folder / "other"
        other.mkdir()
        make_packet(other, "-ecc", "brainpoolP256t1")
        for name in ("publicKey05.pem", "publicKeyHash05.bin"):
            replace(self.path(name), (other / "keys" / name).read_bytes())
        output = self.lines(NUMBERS[:5]) + self.lines(["05"], "brainpoolP256t1") + self.lines(NUMBERS[6:])
        finding = "keys/publicKey05.pem: it is on brainpoolP256t1, and those before it are on prime256v1\n"
        self.assertEqual(self.run_verify("--public-only", "keys"), (1, output, finding))

    def test_a_pair_of_another_packet_is_a_finding(self):
        other = self.folder / "other"
        other.mkdir()
        make_packet(other)
        for name in ("privateKey05.pem", "publicKey05.pem", "publicKeyHash05.bin"):
            replace(self.path(name), (other / "keys" / name).read_bytes())
        status, output, errors = self.with_passwords("keys")
        self.assertEqual((status, errors), (1, f"{WRONG_TABLE}\n"))
        self.assertEqual(output.count(", AES-256-CBC, "), 8)

    def test_swapped_private_keys_are_a_finding(self):
        contents = [self.path(f"privateKey{number}.pem").read_bytes() for number in ("02", "03")]
        for number, content in zip(("03", "02"), contents):
            replace(self.path(f"privateKey{number}.pem"), content)
        status, output, errors = self.with_passwords("keys")
        closed = "it does not open under its password, or holds no key\n"
        self.assertEqual((status, errors), (1, f"keys/privateKey02.pem: {closed}keys/privateKey03.pem: {closed}"))
        words = [*PASSWORDS[:2], PASSWORDS[3], PASSWORDS[2], *PASSWORDS[4:]]
        (self.folder / "words.txt").write_text("".join(f"{each}\n" for each in words))
        foreign = "it does not belong to the public key keys/publicKey"
        self.assertEqual(self.with_passwords("keys"), (
            1, output, f"keys/privateKey02.pem: {foreign}02.pem\nkeys/privateKey03.pem: {foreign}03.pem\n"))

    def test_a_packet_of_one_is_recognised_by_its_files(self):
        make_packet(self.folder, passwords=["only one"])
        # Files of the earlier packet of eight still exist: all eight are expected, and the table does not match.
        self.assert_public([WRONG_TABLE], NUMBERS)
        for number in NUMBERS[1:]:
            self.path(f"publicKey{number}.pem").unlink()
            self.path(f"publicKeyHash{number}.bin").unlink()
        alone = self.lines(["00"]) + self.table_line(["00"]) + "all agrees: a packet of 1 (private keys left out)\n"
        self.assertEqual(self.run_verify("--public-only", "keys"), (0, alone, ""))
        # The other private keys count only if private keys are checked.
        (self.folder / "words.txt").write_text("only one\n")
        status, _, errors = self.with_passwords("keys")
        self.assertEqual((status, errors.count("it is missing\n"), errors.count("holds no password for it\n")),
                         (1, 14, 7))

    def test_one_remaining_pair_of_eight_is_not_a_packet_of_one(self):
        for number in NUMBERS[1:]:
            for name in (f"privateKey{number}.pem", f"publicKey{number}.pem", f"publicKeyHash{number}.bin"):
                self.path(name).unlink()
        self.assert_public([WRONG_TABLE], ["00"])

    def test_a_file_with_any_other_number_means_a_packet_of_eight(self):
        for name in ("publicKey07.pem", "publicKeyHash01.bin"):
            with self.subTest(left=name):
                kept = self.path(name).read_bytes()
                shutil.rmtree(self.folder / "keys")
                make_packet(self.folder, passwords=["only one"])
                self.path(name).write_bytes(kept)
                status, _, errors = self.run_verify("--public-only", "keys")
                self.assertEqual((status, errors.count("it is missing\n")), (1, 13))
                shutil.rmtree(self.folder / "keys")
                make_packet(self.folder)

    def test_a_table_alone_means_a_packet_of_eight(self):
        for path in (self.folder / "keys").iterdir():
            if path != self.folder / TABLE:
                path.unlink()
        status, output, errors = self.run_verify("--public-only", "keys")
        self.assertEqual((status, output), (1, ""))
        self.assertEqual(errors, "".join(f"keys/publicKey{number}.pem: it is missing\n"
                                         f"keys/publicKeyHash{number}.bin: it is missing\n" for number in NUMBERS))

    def test_a_dangling_link_counts_as_a_file_of_the_packet(self):
        make_packet(self.folder, passwords=["only one"])
        for path in (self.folder / "keys").glob("*0[1-7]*"):
            path.unlink()
        self.path("publicKey02.pem").symlink_to("elsewhere")
        errors = self.run_verify("--public-only", "keys")[2]
        self.assertEqual(errors.count("it is missing\n"), 14)

    def test_findings_in_a_pair_do_not_hide_those_in_a_packet(self):
        make_pair(self.folder)
        replace(self.path("publicKeyhash.bin"), b"")
        (self.folder / TABLE).unlink()
        finding = "keys/publicKeyhash.bin: it has 0 bytes, not 32"
        self.assert_public([finding, f"{TABLE}: it is missing"], NUMBERS)
        self.path("publicKeyhash.bin").unlink()
        self.assert_public(["keys/publicKeyhash.bin: it is missing", f"{TABLE}: it is missing"], NUMBERS)
        make_packet(self.folder)
        self.assert_public(["keys/publicKeyhash.bin: it is missing"], NUMBERS, table=True, status=2)


if __name__ == "__main__":
    unittest.main()
