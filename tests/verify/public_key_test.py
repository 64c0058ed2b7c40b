#!/usr/bin/python3
"""A public key file is exactly one block with an uncompressed point on one of the two curves, or it is a finding."""

import base64
import os
import unittest

from crafted_keys import CURVES, EC_KEY, coordinates, pem, public_der, sequence, tlv
from runs import InTemporaryFolder, hash_of, make_pair, replace, sha256_hex

NOT_ONE_BLOCK = "it is not one block of the kind PUBLIC KEY, in lines of 64 characters, and nothing else"
NOT_ELLIPTIC = "it is not a public key on an elliptic curve"
OTHER_CURVE = "its curve is not named prime256v1 or brainpoolP256t1"
NOT_UNCOMPRESSED = "its point is not written as X and Y, uncompressed"
ZEROS = bytes(64)


def lines_of(content):
    return content.decode().splitlines(keepends=True)


def wrapped(content, width):
    lines = lines_of(content)
    text = "".join(each.strip() for each in lines[1:-1])
    return (lines[0] + "".join(text[i:i + width] + "\n" for i in range(0, len(text), width)) + lines[-1]).encode()


# Damage to the text of a file, and the findings.
TEXTS = [
    ("nothing", lambda good: b"", "it is empty"),
    ("zeros", lambda good: bytes(178), NOT_ONE_BLOCK),
    ("a zero at the end", lambda good: good + b"\0", NOT_ONE_BLOCK),
    ("every byte", lambda good: bytes(range(256)), NOT_ONE_BLOCK),
    ("the largest size that is read", lambda good: good.ljust(4096, b"\n"), NOT_ONE_BLOCK),
    ("one byte more", lambda good: good.ljust(4097, b"\n"), "it has more than 4096 bytes"),
    ("no line end at the end", lambda good: good[:-1], NOT_ONE_BLOCK),
    ("an empty line at the end", lambda good: good + b"\n", NOT_ONE_BLOCK),
    ("an empty line at the start", lambda good: b"\n" + good, NOT_ONE_BLOCK),
    ("an empty line within", lambda good: good.replace(b"\n", b"\n\n", 2), NOT_ONE_BLOCK),
    ("text before the block", lambda good: b"a key\n" + good, NOT_ONE_BLOCK),
    ("twice", lambda good: good + good, NOT_ONE_BLOCK),
    ("line ends with carriage returns", lambda good: good.replace(b"\n", b"\r\n"), NOT_ONE_BLOCK),
    ("a byte order mark", lambda good: b"\xef\xbb\xbf" + good, NOT_ONE_BLOCK),
    ("lines of 60", lambda good: wrapped(good, 60), NOT_ONE_BLOCK),
    ("lines of 68", lambda good: wrapped(good, 68), NOT_ONE_BLOCK),
    ("one line", lambda good: wrapped(good, 200), NOT_ONE_BLOCK),
    ("a space at the end of a line", lambda good: good.replace(b"\n", b" \n", 2), NOT_ONE_BLOCK),
    ("without its first line", lambda good: good.split(b"\n", 1)[1], NOT_ONE_BLOCK),
    ("without its last line", lambda good: good[:good.index(b"-----END")], NOT_ONE_BLOCK),
    ("nothing between its lines", lambda good: pem("PUBLIC KEY", b""), NOT_ONE_BLOCK),
    ("another last line", lambda good: good.replace(b"END PUBLIC", b"END"), NOT_ONE_BLOCK),
    ("a missing letter", lambda good: good[:40] + good[41:], NOT_ONE_BLOCK),
    ("no line end before the last line", lambda good: good.replace(b"\n-----END", b"-----END"), NOT_ONE_BLOCK),
    ("a star in place of a letter", lambda good: good[:40] + b"*" + good[41:], NOT_ONE_BLOCK),
    ("a padded line within", lambda good: good[:40] + b"=" + good[41:], NOT_ONE_BLOCK),
    ("the label of a private key", lambda good: good.replace(b"PUBLIC", b"PRIVATE"),
     "it holds a block of the kind PRIVATE KEY, not PUBLIC KEY"),
    ("a certificate", lambda good: pem("CERTIFICATE", bytes(700)),
     "it holds a block of the kind CERTIFICATE, not PUBLIC KEY"),
    ("an invalid label", lambda good: good.replace(b"PUBLIC", b"\033]0;x"), NOT_ONE_BLOCK),
    ("a label in lower case", lambda good: good.replace(b"PUBLIC", b"public"), NOT_ONE_BLOCK),
    ("lines without a block", lambda good: b"one\ntwo\nthree\nfour\n", NOT_ONE_BLOCK),
]


def renamed(curve, identifier):
    return sequence(sequence(EC_KEY, bytes.fromhex(identifier)), tlv(3, b"\0\x04" + coordinates(CURVES[curve].g)))


# Encodings in place of a key on a curve, and the findings.
def encodings(curve):
    base = CURVES[curve].g
    x, y = (each.to_bytes(32, "big") for each in base)
    good = public_der(curve, base)
    off = f"its point is not on the curve {curve}"
    marker = bytes([2 + base[1] % 2])
    return [
        ("zeros", bytes(91), NOT_ELLIPTIC),
        ("an RSA key", sequence(sequence(bytes.fromhex("06092a864886f70d010101"), tlv(5, b"")), tlv(3, bytes(140))),
         NOT_ELLIPTIC),
        ("Ed25519", sequence(sequence(bytes.fromhex("06032b6570")), tlv(3, bytes(33))), NOT_ELLIPTIC),
        ("no algorithm", sequence(tlv(3, b"\0\x04" + x + y)), NOT_ELLIPTIC),
        ("no sequence", tlv(4, good[2:]), NOT_ELLIPTIC),
        ("secp384r1", sequence(sequence(EC_KEY, bytes.fromhex("06052b81040022")), tlv(3, bytes(98))), OTHER_CURVE),
        ("secp256k1", renamed(curve, "06052b8104000a"), OTHER_CURVE),
        ("brainpoolP256r1", renamed(curve, "06092b2403030208010107"), OTHER_CURVE),
        ("explicit curve parameters", sequence(sequence(EC_KEY, sequence(tlv(2, b"\1"))), tlv(3, b"\0\x04" + x + y)),
         OTHER_CURVE),
        ("compressed", public_der(curve, marker + x), NOT_UNCOMPRESSED),
        ("hybrid", public_der(curve, bytes([marker[0] + 4]) + x + y), NOT_UNCOMPRESSED),
        ("at infinity", public_der(curve, b"\0"), NOT_UNCOMPRESSED),
        ("a byte short", public_der(curve, b"\x04" + x + y[1:]), NOT_UNCOMPRESSED),
        ("a byte after it", good + b"\0", NOT_UNCOMPRESSED),
        ("a byte missing", good[:-1], NOT_ELLIPTIC),
        ("unused bits", good.replace(b"\0\x04" + x, b"\1\x04" + x), NOT_UNCOMPRESSED),
        ("a length in two bytes", b"\x30\x81" + good[1:], NOT_UNCOMPRESSED),
        ("off the curve", public_der(curve, (base[0], base[1] ^ 1)), off),
        ("zero and zero", public_der(curve, (0, 0)), off),
        ("the largest", public_der(curve, b"\x04" + b"\xff" * 64), off),
    ]


class PublicKey(InTemporaryFolder):
    def assert_found(self, content, finding):
        replace(self.folder / "keys/publicKey.pem", content)
        self.assertEqual(self.run_verify("--public-only", "keys"), (1, "", f"keys/publicKey.pem: {finding}\n"))

    def good(self, curve="prime256v1"):
        make_pair(self.folder, "-ecc", curve)
        return (self.folder / "keys/publicKey.pem").read_bytes()

    def test_damaged_texts_are_findings(self):
        good = self.good()
        for name, damage, finding in TEXTS:
            with self.subTest(name):
                self.assert_found(damage(good), finding)

    def test_wrong_encodings_are_findings(self):
        for curve in CURVES:
            for name, der, finding in encodings(curve):
                with self.subTest(name, curve=curve):
                    self.assert_found(pem("PUBLIC KEY", der), finding)

    def test_coordinates_beyond_the_field_are_findings(self):
        """The same point with an unreduced coordinate, which fits into 32 bytes on this curve."""
        curve = CURVES["brainpoolP256t1"]
        points = (curve.public_point(private) for private in range(1, 50))
        x, y = next(point for point in points if point[0] + curve.p < 1 << 256)
        self.good("brainpoolP256t1")
        for point in ((x + curve.p, y), ):
            self.assert_found(pem("PUBLIC KEY", public_der("brainpoolP256t1", point)),
                              "its point is not on the curve brainpoolP256t1")

    def test_unused_bits_in_the_last_base64_letter_are_a_finding(self):
        for curve, padding in (("prime256v1", "=="), ("brainpoolP256t1", "=")):
            with self.subTest(curve=curve):
                good = self.good(curve).decode()
                place = good.index(padding + "\n") - 1
                letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"
                other = letters[letters.index(good[place]) + 1]
                damaged = (good[:place] + other + good[place + 1:]).encode()
                # Both texts decode to the same bytes.
                self.assertEqual(*(base64.b64decode("".join(each.decode().splitlines()[1:-1]))
                                   for each in (damaged, good.encode())))
                self.assert_found(damaged, NOT_ONE_BLOCK)

    def test_keys_with_every_base64_letter_and_every_byte_agree(self):
        """The encodings of the keys contain each letter of base64, and each byte."""
        letters, octets = set(), set()
        for private in range(1, 40):
            for curve in CURVES:
                point = CURVES[curve].public_point(private)
                der = public_der(curve, point)
                if letters >= set(base64.b64encode(der)) and octets >= set(der):
                    continue
                letters |= set(base64.b64encode(der))
                octets |= set(der[-64:])
                replace(self.folder / "keys/publicKey.pem", pem("PUBLIC KEY", der))
                replace(self.folder / "keys/publicKeyhash.bin", bytes.fromhex(sha256_hex(coordinates(point))))
                expected = f"keys/publicKey.pem: {curve}, {sha256_hex(coordinates(point))}\n"
                self.assertEqual(self.run_verify("--public-only", "keys"),
                                 (0, expected + "all agrees: 1 pair (private keys left out)\n", ""))
                if len(letters) == 65 and len(octets) == 256:
                    return
        self.fail("too few keys to cover every letter and byte")

    def test_a_missing_public_key_is_reported(self):
        self.assertEqual(self.with_missing("keys/publicKey.pem"), (2, "", "keys/publicKey.pem: it is missing\n"))

    def with_missing(self, name):
        (self.folder / name).unlink()
        return self.run_verify("--public-only", "keys")

    def test_a_dangling_link_is_reported_as_missing(self):
        (self.folder / "keys/publicKey.pem").unlink()
        (self.folder / "keys/publicKey.pem").symlink_to("elsewhere.pem")
        self.assertEqual(self.run_verify("--public-only", "keys"), (2, "", "keys/publicKey.pem: it is missing\n"))

    def test_anything_but_a_regular_file_is_a_finding(self):
        path = self.folder / "keys/publicKey.pem"
        path.unlink()
        for make in (path.mkdir, lambda: os.mkfifo(path), lambda: path.symlink_to("/dev/zero"),
                     lambda: path.symlink_to("/dev/null"), lambda: path.symlink_to(".")):
            make()
            self.assertEqual(self.run_verify("--public-only", "keys"),
                             (1, "", "keys/publicKey.pem: it is not a regular file\n"))
            if path.is_dir() and not path.is_symlink():
                path.rmdir()
            else:
                path.unlink()

    def test_a_huge_file_is_a_finding(self):
        self.good()
        (self.folder / "keys/publicKey.pem").chmod(0o600)
        os.truncate(self.folder / "keys/publicKey.pem", 1 << 40)
        self.assertEqual(self.run_verify("--public-only", "keys"),
                         (1, "", "keys/publicKey.pem: it has more than 4096 bytes\n"))

    def test_a_link_to_a_key_agrees(self):
        (self.folder / "keys/publicKey.pem").rename(self.folder / "elsewhere.pem")
        (self.folder / "keys/publicKey.pem").symlink_to("../elsewhere.pem")
        line = f"keys/publicKey.pem: prime256v1, {hash_of(self.folder / 'elsewhere.pem')}\n"
        self.assertEqual(self.run_verify("--public-only", "keys"),
                         (0, line + "all agrees: 1 pair (private keys left out)\n", ""))

    def test_the_hash_is_checked_even_if_the_public_key_is_invalid(self):
        replace(self.folder / "keys/publicKey.pem", b"")
        replace(self.folder / "keys/publicKeyhash.bin", ZEROS)
        self.assertEqual(self.run_verify("--public-only", "keys"),
                         (1, "", "keys/publicKey.pem: it is empty\n"
                          "keys/publicKeyhash.bin: it has more than 32 bytes\n"))


if __name__ == "__main__":
    unittest.main()
