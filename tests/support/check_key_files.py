"""Checks key files independently of the key generator, and of the library that wrote them except for AES.

    check_key_files.py pair CURVE CIPHER PRIVATE PUBLIC HASH PASSWORD
    check_key_files.py packet CURVE CIPHER FOLDER PASSWORD...
    check_key_files.py table CURVE FOLDER COUNT

CURVE is prime256v1 or brainpoolP256t1, CIPHER is aes128 or aes256. `packet` expects the default names. `table`
checks only the table hash, even if pairs have failed. Prints nothing and exits with 0, or prints what is wrong.

The tests in Python, the sweep of failing calls and the benchmark call its functions, which raise CheckFailed.
"""

import base64
import hashlib
import os
import sys
import textwrap

from cryptography.hazmat.primitives.ciphers import Cipher, algorithms, modes
from cryptography.hazmat.primitives.serialization import (
    Encoding, PublicFormat, load_pem_private_key)


class Curve:
    def __init__(self, oid, identifier, p, a, b, x, y, n):
        self.oid, self.identifier = bytes.fromhex(oid), identifier
        self.p, self.a, self.b, self.g, self.n = p, a, b, (x, y), n

    def add(self, first, second):
        """The sum of two points; None is the point at infinity."""
        if first is None or second is None:
            return first or second
        (x1, y1), (x2, y2) = first, second
        if x1 == x2 and (y1 + y2) % self.p == 0:
            return None
        if first == second:
            slope = (3 * x1 * x1 + self.a) * pow(2 * y1, -1, self.p)
        else:
            slope = (y2 - y1) * pow(x2 - x1, -1, self.p)
        x = (slope * slope - x1 - x2) % self.p
        return x, (slope * (x1 - x) - y1) % self.p

    def public_point(self, private):
        point, doubled = None, self.g
        while private:
            if private & 1:
                point = self.add(point, doubled)
            doubled = self.add(doubled, doubled)
            private >>= 1
        return point

    def holds(self, point):
        x, y = point
        return max(x, y) < self.p and (y * y - x * x * x - self.a * x - self.b) % self.p == 0


# The object identifiers of the named curves, their numbers in the hash table, and their published parameters.
CURVES = {
    "prime256v1": Curve(
        "06082a8648ce3d030107", 1,
        0xFFFFFFFF00000001000000000000000000000000FFFFFFFFFFFFFFFFFFFFFFFF,
        0xFFFFFFFF00000001000000000000000000000000FFFFFFFFFFFFFFFFFFFFFFFC,
        0x5AC635D8AA3A93E7B3EBBD55769886BC651D06B0CC53B0F63BCE3C3E27D2604B,
        0x6B17D1F2E12C4247F8BCE6E563A440F277037D812DEB33A0F4A13945D898C296,
        0x4FE342E2FE1A7F9B8EE7EB4A7C0F9E162BCE33576B315ECECBB6406837BF51F5,
        0xFFFFFFFF00000000FFFFFFFFFFFFFFFFBCE6FAADA7179E84F3B9CAC2FC632551),
    "brainpoolP256t1": Curve(
        "06092b2403030208010108", 2,
        0xA9FB57DBA1EEA9BC3E660A909D838D726E3BF623D52620282013481D1F6E5377,
        0xA9FB57DBA1EEA9BC3E660A909D838D726E3BF623D52620282013481D1F6E5374,
        0x662C61C430D84EA4FE66A7733D0B76B7BF93EBC4AF2F49256AE58101FEE92B04,
        0xA3E8EB3CC1CFE7B7732213B23A656149AFA142C47AAFBC2B79A191562E1305F4,
        0x2D996C823439C56D7F7B22E14644417E69BCB6DE39D027001DABE8F35B25C9BE,
        0xA9FB57DBA1EEA9BC3E660A909D838D718C397AA3B561A6F7901E0E82974856A7),
}
EC_KEY = bytes.fromhex("06072a8648ce3d0201")
PBES2 = bytes.fromhex("06092a864886f70d01050d")
PBKDF2 = bytes.fromhex("06092a864886f70d01050c")
HMAC_SHA256 = bytes.fromhex("06082a864886f70d02090500")
CIPHERS = {
    "aes128": (bytes.fromhex("0609608648016503040102"), 16),
    "aes256": (bytes.fromhex("060960864801650304012a"), 32),
}
# Key files use no more of a password than this.
LONGEST_PASS_PHRASE = 1024


class CheckFailed(Exception):
    """A file is not as it should be."""


def require(condition, claim):
    if not condition:
        raise CheckFailed("failed check: " + claim)


def content(path):
    with open(path, "rb") as file:
        return file.read()


def der_of(path, label):
    """The bytes of a file that is exactly one PEM block in lines of 64 characters."""
    text = content(path).decode("ascii")
    lines = text.split("\n")
    require(lines[0] == f"-----BEGIN {label}-----" and lines[-2:] == [f"-----END {label}-----", ""],
            f"{path} is one block labelled {label}")
    body = lines[1:-2]
    require(all(len(line) == 64 for line in body[:-1]) and 0 < len(body[-1]) <= 64,
            f"{path} has lines of 64 characters")
    return base64.b64decode("".join(body), validate=True)


def pem(label, der):
    lines = textwrap.wrap(base64.b64encode(der).decode(), 64)
    return "".join(f"{line}\n" for line in [f"-----BEGIN {label}-----", *lines, f"-----END {label}-----"]).encode()


def sequence(*parts):
    return tlv(0x30, b"".join(parts))


def tlv(tag, value):
    length = len(value)
    if length < 128:
        return bytes([tag, length]) + value
    digits = length.to_bytes((length.bit_length() + 7) // 8, "big")
    return bytes([tag, 0x80 | len(digits)]) + digits + value


def binary_form(path, curve):
    der = der_of(path, "PUBLIC KEY")
    point = der[-64:]
    require(der == sequence(sequence(EC_KEY, curve.oid), tlv(3, b"\x00\x04" + point)),
            f"{path} is a named curve and an uncompressed point")
    require(curve.holds((int.from_bytes(point[:32], "big"), int.from_bytes(point[32:], "big"))),
            f"{path} contains a point on the curve")
    return point


def decrypted(path, cipher, password):
    """The decrypted key structure, or None if the password does not open the file."""
    identifier, key_size = CIPHERS[cipher]
    der = der_of(path, "ENCRYPTED PRIVATE KEY")
    salt, vector, secret = der[35:43], der[76:92], der[-144:]
    parameters = sequence(
        sequence(PBKDF2, sequence(tlv(4, salt), tlv(2, b"\x08\x00"), sequence(HMAC_SHA256))),
        sequence(identifier, tlv(4, vector)))
    require(der == sequence(sequence(PBES2, parameters), tlv(4, secret)),
            f"{path} has an 8-byte salt, 2048 iterations, HMAC-SHA-256 and {cipher}")
    key = hashlib.pbkdf2_hmac("sha256", password[:LONGEST_PASS_PHRASE], salt, 2048, key_size)
    decryptor = Cipher(algorithms.AES(key), modes.CBC(vector)).decryptor()
    plain = decryptor.update(secret) + decryptor.finalize()
    padding = plain[-1]
    if not 1 <= padding <= 16 or plain[-padding:] != bytes([padding]) * padding or plain[:1] != b"\x30":
        return None
    return plain[:-padding]


def check_private_key(path, curve, cipher, password, point):
    """Returns the private number."""
    plain = decrypted(path, cipher, password)
    require(plain is not None, f"{path} opens with its password")
    private = plain[-102:-70]
    key = sequence(tlv(2, b"\x01"), tlv(4, private), tlv(0xA1, tlv(3, b"\x00\x04" + point)))
    require(plain == sequence(tlv(2, b"\x00"), sequence(EC_KEY, curve.oid), tlv(4, key)),
            f"{path} contains a key with the public point")
    number = int.from_bytes(private, "big")
    require(0 < number < curve.n, f"{path} contains a number below the order")
    return number


def check_multiple(path, curve, number, point):
    x, y = curve.public_point(number)
    require(x.to_bytes(32, "big") + y.to_bytes(32, "big") == point, f"{path} belongs to its public key")


def check_with_the_package(private, public, password, number):
    """The package also computes the public key from the private one, and refuses a key that does not belong to it."""
    try:
        key = load_pem_private_key(content(private), password)
    except ValueError as problem:
        raise CheckFailed(f"failed check: the package reads the same key from {private}: {problem}") from problem
    require(key.private_numbers().private_value == number, f"the package reads the same key from {private}")
    require(key.public_key().public_bytes(Encoding.PEM, PublicFormat.SubjectPublicKeyInfo) == content(public),
            f"the package writes the same file as {public}")


def check_pair(curve_name, cipher, private, public, hash_file, password, *, quickly=False):
    """With `quickly` only the package multiplies; then it must support the curve."""
    curve = CURVES[curve_name]
    point = binary_form(public, curve)
    number = check_private_key(private, curve, cipher, password, point)
    require(content(hash_file) == hashlib.sha256(point).digest(), f"{hash_file} is the hash of {public}")
    # The package supports one of the two curves, and passwords of less than 1024 bytes. Within these limits it also
    # reads the whole file by itself.
    if curve_name == "prime256v1" and len(password) < 1024:
        check_with_the_package(private, public, password, number)
    else:
        require(not quickly, f"the package supports {curve_name} and the password")
    if not quickly:
        check_multiple(private, curve, number, point)
    return number


def table_entry(path, curve):
    """The table entry for a public key file: its key, whatever that is, or zeros."""
    if not os.path.isfile(path) or not content(path):
        return bytes(64)
    der = der_of(path, "PUBLIC KEY")
    header = 17 + len(curve.oid)
    # The binary form of a key on the other curve is followed by what its encoding left in the buffer.
    return (der[header:] + der[len(der) - header:])[:64]


def hashes_of_records(curve_name, points):
    """The table: a hash for each point, in order."""
    return [hashlib.sha256(bytes([CURVES[curve_name].identifier, 0, 0, 0]) + point).digest() for point in points]


def table_hash(curve_name, points):
    return hashlib.sha256(b"".join(hashes_of_records(curve_name, points))).digest()


def check_table(curve_name, folder, count, unread=()):
    """The public keys whose numbers are in `unread` count as zeros, whatever their files contain."""
    curve = CURVES[curve_name]
    points = [bytes(64) if i in unread else table_entry(f"{folder}/publicKey{i:02}.pem", curve) for i in range(count)]
    require(content(f"{folder}/publicKeysHashHashes.bin") == table_hash(curve_name, points),
            "the table hash is that of the public keys")


def check_packet(curve_name, cipher, folder, passwords):
    numbers = set()
    for i, password in enumerate(passwords):
        private = f"{folder}/privateKey{i:02}.pem"
        numbers.add(check_pair(curve_name, cipher, private, f"{folder}/publicKey{i:02}.pem",
                               f"{folder}/publicKeyHash{i:02}.bin", password))
        for other in passwords[:i] + passwords[i + 1:]:
            plain = decrypted(private, cipher, other)
            require(other == password or plain is None or EC_KEY not in plain,
                    f"{private} opens with no other password")
    require(len(numbers) == len(passwords), "no key occurs twice")
    check_table(curve_name, folder, len(passwords))


def main():
    command, curve, *rest = sys.argv[1:]
    if command == "pair":
        cipher, private, public, hash_file, password = rest
        check_pair(curve, cipher, private, public, hash_file, os.fsencode(password))
    elif command == "packet":
        cipher, folder, *passwords = rest
        check_packet(curve, cipher, folder, [os.fsencode(password) for password in passwords])
    elif command == "table":
        folder, count = rest
        check_table(curve, folder, int(count))
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    try:
        main()
    except (CheckFailed, OSError, ValueError) as problem:
        sys.exit(str(problem))
