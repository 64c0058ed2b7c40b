#!/usr/bin/env python3
"""Checks the public keys and the hashes of a packet of eight key pairs: check_packet.py FOLDER"""

import base64
import hashlib
import pathlib
import sys

# How the encoding of a public key begins on each curve; X and Y follow. And the curve's number in the table.
CURVES = {
    bytes.fromhex("3059301306072a8648ce3d020106082a8648ce3d03010703420004"): ("prime256v1", 1),
    bytes.fromhex("305a301406072a8648ce3d020106092b240303020801010803420004"): ("brainpoolP256t1", 2),
}


def check(condition, message):
    if not condition:
        sys.exit(message)


def public_key(path):
    """The curve's name, its number, and the 64 bytes of X and Y."""
    pem = path.read_text("ascii")
    lines = pem.splitlines()
    check(lines[:1] == ["-----BEGIN PUBLIC KEY-----"] and lines[-1] == "-----END PUBLIC KEY-----", f"{path}: no key")
    der = base64.b64decode("".join(lines[1:-1]), validate=True)
    check(der[:-64] in CURVES, f"{path}: not a key on one of the two curves")
    name, number = CURVES[der[:-64]]
    if name == "prime256v1":
        # The library does not know the other curve. It refuses a point that does not lie on its curve.
        from cryptography.hazmat.primitives.serialization import load_pem_public_key

        numbers = load_pem_public_key(pem.encode()).public_numbers()
        check(numbers.x.to_bytes(32, "big") + numbers.y.to_bytes(32, "big") == der[-64:], f"{path}: another point")
    return name, number, der[-64:]


def main():
    folder = pathlib.Path(sys.argv[1])
    table = b""
    names = set()
    for index in range(8):
        name, number, point = public_key(folder / f"publicKey{index:02}.pem")
        names.add(name)
        hash_file = folder / f"publicKeyHash{index:02}.bin"
        check(hash_file.read_bytes() == hashlib.sha256(point).digest(), f"{hash_file}: not the hash of its key")
        # A record of the table: the curve's number, three zeros, X and Y.
        table += hashlib.sha256(bytes([number, 0, 0, 0]) + point).digest()
    check(len(names) == 1, f"{folder}: keys on both curves")
    table_hash_file = folder / "publicKeysHashHashes.bin"
    check(table_hash_file.read_bytes() == hashlib.sha256(table).digest(), f"{table_hash_file}: not the table's hash")
    print(f"{folder}: eight keys on {names.pop()}, their hashes, and the hash of the table of hashes agree")


main()
