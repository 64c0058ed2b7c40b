#!/usr/bin/python3
"""The two scripts of docs/verify.md accept what the program writes, and nothing that was changed."""

import os
import shutil
import subprocess
import sys
import unittest

from tree import CIPHERS, CURVES, InTemporaryFolder, PASSWORDS, TREE, make_packet

CHECK_PAIR = TREE / "docs/verify/check-pair.sh"
CHECK_PACKET = TREE / "docs/verify/check_packet.py"


def check_pair(folder, index, **options):
    names = [f"privateKey{index:02}.pem", f"publicKey{index:02}.pem", f"publicKeyHash{index:02}.bin"]
    return run(["sh", str(CHECK_PAIR), *names, "-passin", f"pass:{PASSWORDS[index]}"], folder, **options)


def check_packet(folder):
    return run([sys.executable, str(CHECK_PACKET), folder.name], folder.parent)


def run(command, folder, **options):
    return subprocess.run(command, cwd=folder, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, universal_newlines=True, **options)


def replace(path, content):
    path.unlink()
    path.write_bytes(content)


def change_private_number(path):
    """Changes a letter of the base64 where the encrypted private number stands, far from the public key."""
    lines = path.read_bytes().split(b"\n")
    lines[4] = (b"B" if lines[4][:1] == b"A" else b"A") + lines[4][1:]
    replace(path, b"\n".join(lines))


def change_last_byte(path):
    content = path.read_bytes()
    replace(path, content[:-1] + bytes([content[-1] ^ 1]))


class Scripts(InTemporaryFolder):
    def assert_refused(self, result, reason):
        self.assertNotEqual(result.returncode, 0, result.stdout)
        self.assertIn(reason, result.stderr)

    def packet(self, name, curve, cipher="aes256"):
        make_packet(self.folder / name, curve, cipher)
        return self.folder / name

    def test_accept_new_packets(self):
        for curve in CURVES:
            for cipher in CIPHERS:
                with self.subTest(curve=curve, cipher=cipher):
                    folder = self.packet(f"{curve} {cipher}", curve, cipher)
                    result = check_packet(folder)
                    self.assertEqual((result.returncode, result.stderr), (0, ""))
                    self.assertEqual(result.stdout, f"{folder.name}: eight keys on {curve}, their hashes, "
                                                    "and the hash of the table of hashes agree\n")
                    for index in (0, 7):
                        result = check_pair(folder, index)
                        self.assertEqual((result.returncode, result.stderr), (0, ""))
                        self.assertIn("they belong together", result.stdout)

    def test_refuse_a_hash_file_that_was_changed(self):
        for curve in CURVES:
            with self.subTest(curve=curve):
                folder = self.packet(curve, curve)
                change_last_byte(folder / "publicKeyHash03.bin")
                self.assert_refused(check_pair(folder, 3), "publicKeyHash03.bin: not the hash of publicKey03.pem")
                self.assert_refused(check_packet(folder), "publicKeyHash03.bin: not the hash of its key")

    def test_refuse_a_table_hash_that_was_changed(self):
        for curve in CURVES:
            with self.subTest(curve=curve):
                folder = self.packet(curve, curve)
                change_last_byte(folder / "publicKeysHashHashes.bin")
                self.assert_refused(check_packet(folder), "publicKeysHashHashes.bin: not the table's hash")

    def test_refuse_the_public_key_of_another_pair(self):
        for curve in CURVES:
            with self.subTest(curve=curve):
                folder = self.packet(curve, curve)
                replace(folder / "publicKey03.pem", (folder / "publicKey04.pem").read_bytes())
                self.assert_refused(check_pair(folder, 3), "publicKey03.pem: not the public key of privateKey03.pem")
                self.assert_refused(check_packet(folder), "publicKeyHash03.bin: not the hash of its key")

    def test_refuse_pairs_that_changed_places(self):
        folder = self.packet("packet", "prime256v1")
        for name in ("publicKey{}.pem", "publicKeyHash{}.bin"):
            first, second = folder / name.format("00"), folder / name.format("01")
            contents = first.read_bytes(), second.read_bytes()
            replace(first, contents[1])
            replace(second, contents[0])
        self.assert_refused(check_packet(folder), "publicKeysHashHashes.bin: not the table's hash")

    def test_refuse_a_pair_of_another_curve(self):
        folder, other = self.packet("packet", "prime256v1"), self.packet("other", "brainpoolP256t1")
        for name in ("publicKey05.pem", "publicKeyHash05.bin"):
            replace(folder / name, (other / name).read_bytes())
        self.assert_refused(check_packet(folder), "packet: keys on both curves")

    def test_refuse_a_wrong_password(self):
        folder = self.packet("packet", "prime256v1")
        replace(folder / "privateKey02.pem", (folder / "privateKey03.pem").read_bytes())
        self.assert_refused(check_pair(folder, 2), "privateKey02.pem: not a sound private key")

    def test_refuse_a_private_number_that_was_changed(self):
        for curve in CURVES:
            with self.subTest(curve=curve):
                folder = self.packet(curve, curve)
                change_private_number(folder / "privateKey02.pem")
                self.assert_refused(check_pair(folder, 2), "privateKey02.pem: not a sound private key")

    def test_refuse_an_unsound_key_also_where_the_tool_ends_with_success(self):
        """As OpenSSL 1.1.1 does."""
        folder = self.packet("packet", "prime256v1")
        change_private_number(folder / "privateKey02.pem")
        tools = self.folder / "tools"
        tools.mkdir()
        (tools / "openssl").write_text(f'#!/bin/sh\n"{shutil.which("openssl")}" "$@" || true\n')
        (tools / "openssl").chmod(0o755)
        environment = dict(os.environ, PATH=f"{tools}:{os.environ['PATH']}")
        self.assert_refused(check_pair(folder, 2, env=environment), "privateKey02.pem: not a sound private key")

    def test_refuse_what_is_not_a_key(self):
        folder = self.packet("packet", "prime256v1")
        for content in (b"no key\n", b""):
            replace(folder / "publicKey07.pem", content)
            self.assert_refused(check_packet(folder), "publicKey07.pem: no key\n")


if __name__ == "__main__":
    unittest.main()
