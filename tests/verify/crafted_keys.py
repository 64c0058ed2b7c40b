"""Key files that the program never writes: encodings composed by hand, to test how keygen-verify handles them."""

import base64
import hashlib
import os
import textwrap

from cryptography.hazmat.primitives.ciphers import Cipher, algorithms, modes


class Curve:
    def __init__(self, identifier, number, p, a, n, x, y):
        self.identifier, self.number = bytes.fromhex(identifier), number
        self.p, self.a, self.n, self.base = p, a, n, (x, y)

    def add(self, first, second):
        """The sum of two points. It must not be the point at infinity, which is None."""
        if first is None or second is None:
            return first or second
        (x1, y1), (x2, y2) = first, second
        if first == second:
            slope = (3 * x1 * x1 + self.a) * pow(2 * y1, -1, self.p)
        else:
            slope = (y2 - y1) * pow(x2 - x1, -1, self.p)
        x = (slope * slope - x1 - x2) % self.p
        return x, (slope * (x1 - x) - y1) % self.p

    def point(self, private):
        total, doubled = None, self.base
        while private:
            if private & 1:
                total = self.add(total, doubled)
            doubled = self.add(doubled, doubled)
            private >>= 1
        return total


CURVES = {
    "prime256v1": Curve(
        "06082a8648ce3d030107", 1,
        0xFFFFFFFF00000001000000000000000000000000FFFFFFFFFFFFFFFFFFFFFFFF,
        -3,
        0xFFFFFFFF00000000FFFFFFFFFFFFFFFFBCE6FAADA7179E84F3B9CAC2FC632551,
        0x6B17D1F2E12C4247F8BCE6E563A440F277037D812DEB33A0F4A13945D898C296,
        0x4FE342E2FE1A7F9B8EE7EB4A7C0F9E162BCE33576B315ECECBB6406837BF51F5),
    "brainpoolP256t1": Curve(
        "06092b2403030208010108", 2,
        0xA9FB57DBA1EEA9BC3E660A909D838D726E3BF623D52620282013481D1F6E5377,
        -3,
        0xA9FB57DBA1EEA9BC3E660A909D838D718C397AA3B561A6F7901E0E82974856A7,
        0xA3E8EB3CC1CFE7B7732213B23A656149AFA142C47AAFBC2B79A191562E1305F4,
        0x2D996C823439C56D7F7B22E14644417E69BCB6DE39D027001DABE8F35B25C9BE),
}
EC_KEY = bytes.fromhex("06072a8648ce3d0201")
PBES2 = bytes.fromhex("06092a864886f70d01050d")
PBKDF2 = bytes.fromhex("06092a864886f70d01050c")
HMAC_SHA256 = bytes.fromhex("06082a864886f70d02090500")
# The last byte identifies the cipher: AES-128-CBC, AES-192-CBC or AES-256-CBC.
AES_CBC = {size: bytes.fromhex("0609608648016503040" + digits) for size, digits in
           ((16, "102"), (24, "116"), (32, "12a"))}


def tlv(tag, value):
    length = len(value)
    if length < 128:
        return bytes([tag, length]) + value
    digits = length.to_bytes((length.bit_length() + 7) // 8, "big")
    return bytes([tag, 0x80 | len(digits)]) + digits + value


def sequence(*parts):
    return tlv(0x30, b"".join(parts))


def pem(label, der):
    lines = textwrap.wrap(base64.b64encode(der).decode(), 64)
    return "".join(f"{line}\n" for line in [f"-----BEGIN {label}-----", *lines, f"-----END {label}-----"]).encode()


def coordinates(point):
    return b"".join(each.to_bytes(32, "big") for each in point)


def public_der(curve, point):
    """`point` is a pair of numbers, or the bytes of an encoded point."""
    encoded = point if isinstance(point, bytes) else b"\x04" + coordinates(point)
    return sequence(sequence(EC_KEY, CURVES[curve].identifier), tlv(3, b"\0" + encoded))


def private_der(curve, number, point=None):
    """The unencrypted encoding of a private key. The public key in it may be a different one, or missing."""
    parts = [tlv(2, b"\x01"), tlv(4, number.to_bytes(32, "big"))]
    if point is not None:
        encoded = point if isinstance(point, bytes) else b"\x04" + coordinates(point)
        parts.append(tlv(0xA1, tlv(3, b"\0" + encoded)))
    return sequence(tlv(2, b"\0"), sequence(EC_KEY, CURVES[curve].identifier), tlv(4, sequence(*parts)))


def encrypted_der(plain, password, key_size=32, rounds=2048, salt_size=8, cipher=None):
    salt, vector = os.urandom(salt_size), os.urandom(16)
    secret = password if isinstance(password, bytes) else password.encode()
    key = hashlib.pbkdf2_hmac("sha256", secret, salt, rounds, key_size)
    padding = 16 - len(plain) % 16
    encryptor = Cipher(algorithms.AES(key), modes.CBC(vector)).encryptor()
    content = encryptor.update(plain + bytes([padding]) * padding) + encryptor.finalize()
    count = rounds.to_bytes(rounds.bit_length() // 8 + 1, "big")
    derivation = sequence(PBKDF2, sequence(tlv(4, salt), tlv(2, count), sequence(HMAC_SHA256)))
    return sequence(sequence(PBES2, sequence(derivation, sequence(cipher or AES_CBC[key_size], tlv(4, vector)))),
                    tlv(4, content))


def encrypted(plain, password, **choices):
    return pem("ENCRYPTED PRIVATE KEY", encrypted_der(plain, password, **choices))


def point_of(content):
    """X and Y in a public key file."""
    return base64.b64decode(b"".join(content.splitlines()[1:-1]))[-64:]
