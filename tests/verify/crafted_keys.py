"""Key files that the program never writes: encodings composed by hand, to test how keygen-verify handles them."""

import base64
import hashlib
import os
import pathlib
import sys

from cryptography.hazmat.primitives.ciphers import Cipher, algorithms, modes

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1] / "support"))
from check_key_files import CURVES, EC_KEY, HMAC_SHA256, PBES2, PBKDF2, pem, sequence, table_hash, tlv

# The last byte identifies the cipher: AES-128-CBC, AES-192-CBC or AES-256-CBC.
AES_CBC = {size: bytes.fromhex("0609608648016503040" + digits) for size, digits in
           ((16, "102"), (24, "116"), (32, "12a"))}


def coordinates(point):
    return b"".join(each.to_bytes(32, "big") for each in point)


def public_der(curve, point):
    """`point` is a pair of numbers, or the bytes of an encoded point."""
    encoded = point if isinstance(point, bytes) else b"\x04" + coordinates(point)
    return sequence(sequence(EC_KEY, CURVES[curve].oid), tlv(3, b"\0" + encoded))


def private_der(curve, number, point=None):
    """The unencrypted encoding of a private key. The public key in it may be a different one, or missing."""
    parts = [tlv(2, b"\x01"), tlv(4, number.to_bytes(32, "big"))]
    if point is not None:
        encoded = point if isinstance(point, bytes) else b"\x04" + coordinates(point)
        parts.append(tlv(0xA1, tlv(3, b"\0" + encoded)))
    return sequence(tlv(2, b"\0"), sequence(EC_KEY, CURVES[curve].oid), tlv(4, sequence(*parts)))


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
