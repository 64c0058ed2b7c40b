#!/usr/bin/python3
"""docs/files.md: new files have its layouts, and the figures of its example are correct."""

import base64
import hashlib
import os
import re
import subprocess
import sys
import textwrap
import unittest

from tree import CIPHERS, CURVES, InTemporaryFolder, PASSWORDS, TREE, make_packet, run_program

sys.path.append(str(TREE / "tests/support"))
from check_key_files import check_table, hashes_of_records, pem, table_hash

DOCUMENT = (TREE / "docs/files.md").read_text("utf-8")


def layout(title):
    """The rows below a heading: offset, length, and the cell with the bytes."""
    section = re.search(r"^#+ %s$(.*?)(?=^#|\Z)" % re.escape(title), DOCUMENT, re.M | re.S).group(1)
    rows = re.findall(r"^\| (\d+) \| (\d+) \| ([^|]+?) \|", section, re.M)
    return [(int(offset), int(length), cell) for offset, length, cell in rows]


def figure(title):
    return re.search(r"<!-- figure: %s -->\n```\n(.*?)```" % re.escape(title), DOCUMENT, re.S).group(1)


def hex_figure(title):
    return bytes.fromhex(figure(title))


def der_of(path, label):
    """The bytes in a PEM file, which must be exactly as the document says."""
    content = path.read_bytes()
    der = base64.b64decode(b"".join(content.splitlines()[1:-1]), validate=True)
    assert content == pem(label, der), path
    return der


def tool(*command, data=b""):
    return subprocess.run(command, input=data, stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=True).stdout


def sha256(data):
    return hashlib.sha256(data).digest()


class Layouts(InTemporaryFolder):
    def fields_of(self, data, title):
        """The named fields of `data`. Its other bytes must be those of the layout."""
        fields, end = {}, 0
        for offset, length, cell in layout(title):
            self.assertEqual(offset, end, f"{title}: a gap before {cell}")
            end = offset + length
            found = data[offset:end]
            if re.fullmatch(r"[0-9A-F ]+( or [0-9A-F ]+)*", cell):
                self.assertIn(found, [bytes.fromhex(each) for each in cell.split(" or ")], f"{title}, {offset}")
            else:
                fields[cell] = found
        self.assertEqual(end, len(data), title)
        return fields

    def decrypted(self, path, password):
        return tool("openssl", "pkcs8", "-in", str(path), "-passin", f"pass:{password}", "-topk8", "-nocrypt",
                    "-outform", "DER")

    def test_new_files_have_the_documented_layouts(self):
        for curve in CURVES:
            for cipher in CIPHERS:
                with self.subTest(curve=curve, cipher=cipher):
                    self.check_packet(self.folder / curve / cipher, curve, cipher)

    def check_packet(self, folder, curve, cipher):
        folder.parent.mkdir(exist_ok=True)
        make_packet(folder, curve, cipher)
        for index, password in enumerate(PASSWORDS):
            public = der_of(folder / f"publicKey{index:02}.pem", "PUBLIC KEY")
            point = self.fields_of(public, f"Public key on {curve}")
            x_and_y = point["X"] + point["Y"]
            stored = (folder / f"publicKeyHash{index:02}.bin").read_bytes()
            self.assertEqual(self.fields_of(stored, "Public key hash")["hash"], sha256(x_and_y))

            private_path = folder / f"privateKey{index:02}.pem"
            encrypted = der_of(private_path, "ENCRYPTED PRIVATE KEY")
            fields = self.fields_of(encrypted, "Private key file")
            self.assertEqual(encrypted[73], 0x2A if cipher == "aes256" else 0x02)
            decrypted = self.decrypted(private_path, password)
            private = self.fields_of(decrypted, f"Decrypted private key on {curve}")
            self.assertEqual((private["X"], private["Y"]), (point["X"], point["Y"]))
            self.assertEqual(self.decrypt_as_documented(fields, password, cipher), decrypted)

            record = bytes([CURVES.index(curve) + 1, 0, 0, 0]) + x_and_y
            self.fields_of(record, "Record")
        check_table(curve, str(folder), len(PASSWORDS))

    def decrypt_as_documented(self, fields, password, cipher):
        length = int(cipher[3:]) // 8
        key = hashlib.pbkdf2_hmac("sha256", password.encode(), fields["salt"], 2048, length)
        return tool("openssl", "enc", "-d", f"-aes-{cipher[3:]}-cbc", "-K", key.hex(), "-iv",
                    fields["initialisation vector"].hex(), data=fields["encrypted"])

    def test_new_files_have_the_documented_sizes_and_modes(self):
        make_packet(self.folder / "packet", "prime256v1", "aes256")
        run_program("-abs", str(self.folder / "pair"), "-pwd", "first1", check=True)
        rows = re.findall(r"^\| (`.*?) \| (\d+) \| (0\d+) \|$", DOCUMENT, re.M)
        described = {}
        for names, size, mode in rows:
            for one, first, last in re.findall(r"`([^`]+)`(?:, `([^`]+)` to `([^`]+)`)?", names):
                described[one] = (int(size), int(mode, 8))
                for index in range(8 if first else 0):
                    self.assertEqual(last, first.replace("00", "07"))
                    described[first.replace("00", f"{index:02}")] = (int(size), int(mode, 8))
        found = {each.name: (each.stat().st_size, each.stat().st_mode & 0o7777)
                 for each in self.folder.glob("*/*")}
        self.assertEqual(described, found)

    def type(self, words, folder, changes=()):
        """Runs the command of the document that contains `words`, in a directory."""
        found = [each for each in re.findall(r"(?<=\n\n)(?: {4}.*\n)+", DOCUMENT) if words in each]
        self.assertEqual(len(found), 1, words)
        commands = textwrap.dedent(found[0])
        for before, after in changes:
            self.assertIn(f"write `{after}` for `{before}`", DOCUMENT)
            commands = commands.replace(before, after)
        return subprocess.run(["bash", "-c", commands], cwd=folder, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              universal_newlines=True)

    def test_the_documented_command_shows_the_cipher(self):
        for cipher in CIPHERS:
            run_program("-abs", str(self.folder / cipher), "-pe", cipher, "-pwd", "first1", check=True)
            shown = self.type("asn1parse", self.folder / cipher).stdout
            self.assertIn(f":aes-{cipher[3:]}-cbc\n", shown)
            self.assertIn(":PBES2\n", shown)

    def test_the_documented_command_recomputes_the_hash_of_the_table(self):
        for curve, changes in zip(CURVES, ((), [("\\1", "\\2")])):
            folder = self.folder / curve
            make_packet(folder, curve, "aes256")
            with self.subTest(curve=curve):
                result = self.type("publicKeysHashHashes.bin", folder, changes)
                self.assertEqual((result.returncode, result.stdout, result.stderr), (0, "", ""))
                os.replace(folder / "publicKey06.pem", folder / "publicKey07.pem")
                (folder / "publicKey06.pem").symlink_to("publicKey07.pem")
                self.assertEqual(self.type("publicKeysHashHashes.bin", folder, changes).returncode, 1)


class Example(unittest.TestCase):
    # The object identifiers of the curves, in DER.
    IDENTIFIERS = {"prime256v1": "06082a8648ce3d030107", "brainpoolP256t1": "06092b2403030208010108"}

    def public_key(self, curve, number):
        identifier = bytes.fromhex(self.IDENTIFIERS[curve])
        content = bytes.fromhex("0201010420") + number.to_bytes(32, "big") + bytes([0xA0, len(identifier)]) + identifier
        return tool("openssl", "ec", "-inform", "DER", "-pubout", "-outform", "DER",
                    data=bytes([0x30, len(content)]) + content)

    def point(self, curve, number):
        return self.public_key(curve, number)[-64:]

    def test_the_public_keys_and_hashes_are_correct(self):
        for curve in CURVES:
            with self.subTest(curve=curve):
                self.assertEqual(figure(f"{curve} public key").encode(), pem("PUBLIC KEY", self.public_key(curve, 1)))
                self.assertEqual(hex_figure(f"{curve} x and y"), self.point(curve, 1))
                self.assertEqual(hex_figure(f"{curve} hash"), sha256(self.point(curve, 1)))

    def test_the_private_key_is_correct(self):
        salt, vector = bytes.fromhex("0001020304050607"), bytes(range(16))
        self.assertIn(f"the password `correct horse battery` with the salt `{salt.hex()}`", DOCUMENT)
        self.assertIn(f"the initialisation vector `{vector.hex()}`", DOCUMENT)
        fixed = Layouts().fields_of(hex_figure("decrypted private key"), "Decrypted private key on prime256v1")
        self.assertEqual(int.from_bytes(fixed["number"], "big"), 1)
        self.assertEqual(fixed["X"] + fixed["Y"], self.point("prime256v1", 1))

        key = hashlib.pbkdf2_hmac("sha256", b"correct horse battery", salt, 2048, 32)
        self.assertEqual(hex_figure("derived key"), key)
        encrypted = tool("openssl", "enc", "-aes-256-cbc", "-K", key.hex(), "-iv", vector.hex(),
                         data=hex_figure("decrypted private key"))
        self.assertEqual(hex_figure("encrypted"), encrypted)

        file = figure("private key file")
        der = base64.b64decode("".join(file.splitlines()[1:-1]))
        self.assertEqual(file.encode(), pem("ENCRYPTED PRIVATE KEY", der))
        fields = Layouts().fields_of(der, "Private key file")
        self.assertEqual(fields, {"salt": salt, "initialisation vector": vector, "encrypted": encrypted})
        opened = tool("openssl", "pkcs8", "-topk8", "-nocrypt", "-outform", "DER", "-passin",
                      "pass:correct horse battery", data=file.encode())
        self.assertEqual(opened, hex_figure("decrypted private key"))

    def test_the_table_of_hashes_is_correct(self):
        points = [self.point("prime256v1", number) for number in range(1, 9)]
        self.assertEqual(hex_figure("record"), b"\1\0\0\0" + points[0])
        hashes = hashes_of_records("prime256v1", points)
        self.assertEqual(sha256(hex_figure("record")), hashes[0])
        self.assertEqual(figure("table"), "".join(each.hex() + "\n" for each in hashes))
        self.assertEqual(hex_figure("table hash"), table_hash("prime256v1", points))

    def test_every_figure_is_checked_by_a_test(self):
        with open(os.path.abspath(__file__), encoding="utf-8") as source:
            text = source.read()
        for title in re.findall(r"<!-- figure: (.*?) -->", DOCUMENT):
            for curve in CURVES:
                title = title.replace(curve, "{curve}")
            self.assertIn(f'figure(f"{title}")' if "{curve}" in title else f'figure("{title}")', text)


if __name__ == "__main__":
    unittest.main()
