#!/usr/bin/python3
"""Passwords from a file: any text, one per line, and never exposed."""

import os
import shutil
import subprocess
import unittest

from crafted_keys import CURVES, coordinates, encrypted, pem, private_der, public_der
from runs import InTemporaryFolder, PASSWORDS, SHELL, hash_of, make_packet, make_pair, replace, sha256_hex

PRIVATE = "keys/privateKey.pem"
CLOSED = f"{PRIVATE}: it does not open under its password, or holds no key"
TOO_LONG = f"{PRIVATE}: its password has more than 1023 bytes, which openssl does not take"


class Passwords(InTemporaryFolder):
    def words(self, content):
        (self.folder / "words.txt").write_bytes(content)

    def use(self, password):
        """Replaces the pair with the key of number 5, encrypted under the password."""
        point = CURVES["prime256v1"].public_point(5)
        replace(self.folder / "keys/publicKey.pem", pem("PUBLIC KEY", public_der("prime256v1", point)))
        replace(self.folder / "keys/publicKeyhash.bin", bytes.fromhex(sha256_hex(coordinates(point))))
        replace(self.folder / PRIVATE, encrypted(private_der("prime256v1", 5, point), password))

    def assert_agrees(self, *arguments, **options):
        line = f"keys/publicKey.pem: prime256v1, AES-256-CBC, {hash_of(self.folder / 'keys/publicKey.pem')}\n"
        self.assertEqual(self.run_verify(*(arguments or ("--passwords", "words.txt", "keys")), **options),
                         (0, line + "all agrees: 1 pair\n", ""))

    def test_a_password_may_be_any_text(self):
        for text in ("a  b", " begins with a blank", "ends with a blank ", "\ttabs\t", "$(id) `id` ${PATH}",
                     "'\"quotes\"'", "back\\slash\\n\\101", "50% of %s %d %n", "*?[a-z]", "Schlüssel",
                     "鍵鍵鍵鍵", "=\\075", "zero", "long", "unread", "unread\x01"):
            with self.subTest(password=text):
                make_pair(self.folder, password=text)
                self.words(text.encode() + b"\n")
                self.assert_agrees()

    def test_the_last_line_may_lack_its_line_end(self):
        for text in (b"correct horse", b"correct horse\n"):
            self.words(text)
            self.assert_agrees()

    def test_a_password_may_look_like_an_option(self):
        """The command line of the program does not accept it, but its dialogue does."""
        self.use("-passin")
        self.words(b"-passin\n")
        self.assert_agrees()

    def test_a_password_may_contain_every_byte_except_a_line_end(self):
        everything = bytes(each for each in range(1, 256) if each != 10)
        for text in (everything, everything[::-1], b"\xc3\x81\xc2\x88" + everything[:40]):
            self.use(text)
            self.words(text + b"\n")
            self.assert_agrees()

    def test_a_carriage_return_is_part_of_the_password(self):
        make_pair(self.folder, password="secret\r")
        self.words(b"secret\r\n")
        self.assert_agrees()
        self.words(b"secret\n")
        self.assert_finds([CLOSED], "keys")

    def test_each_character_of_the_password_matters(self):
        for wrong in (b" correct horse", b"correct horse ", b"correct  horse", b"Correct horse", b"correct horse\t"):
            self.words(wrong + b"\n")
            self.assert_finds([CLOSED], "keys")

    def test_a_password_may_have_1023_bytes(self):
        for password in ("x" * 1023, "é" * 511, "é" * 511 + "x", "€" * 341):
            with self.subTest(length=len(password)):
                make_pair(self.folder, password=password)
                self.words(password.encode() + b"\n")
                self.assert_agrees()

    def test_passwords_that_openssl_does_not_accept_are_reported(self):
        """The program accepts up to 1023 characters, and uses their first 1024 bytes."""
        for password in ("é" * 512, "€" * 1023):
            with self.subTest(length=len(password)):
                make_pair(self.folder, password=password)
                self.words(password.encode() + b"\n")
                self.assert_finds([TOO_LONG], "keys", status=2)
        for size in (70000, 70001):
            self.words(b"x" * size)
            self.assert_finds([TOO_LONG], "keys", status=2)

    def test_lines_that_are_not_passwords_are_reported(self):
        for content, reason in (
                (b"", "words.txt holds no password for it"),
                (b"\n", "its password in words.txt is an empty line"),
                (b"\ncorrect horse\n", "its password in words.txt is an empty line"),
                (b"correct\0 horse\n", "its password in words.txt holds a zero byte"),
                (b"\0", "its password in words.txt holds a zero byte")):
            with self.subTest(content=content):
                self.words(content)
                self.assert_finds([f"{PRIVATE}: {reason}"], "keys", status=2)

    def test_anything_after_the_last_password_is_ignored(self):
        for rest in (b"another\n", b"\n\n", b"\0", b"y" * 2000):
            self.words(b"correct horse\n" + rest)
            self.assert_agrees()

    def test_the_file_is_read_only_as_far_as_needed(self):
        words = self.folder / "words.txt"
        self.words(b"correct horse\n")
        os.truncate(words, 1 << 40)
        self.assert_agrees()
        words.unlink()
        words.symlink_to("/dev/zero")
        self.assert_finds([f"{PRIVATE}: its password in words.txt holds a zero byte"], "keys", status=2)

    def test_a_missing_password_does_not_hide_the_others(self):
        make_packet(self.folder)
        for path in ((self.folder / PRIVATE), (self.folder / "keys/publicKey.pem"),
                     (self.folder / "keys/publicKeyhash.bin")):
            path.unlink()
        self.words("\n".join(PASSWORDS[:6]).encode() + b"\n")
        status, output, errors = self.with_passwords("keys")
        missing = "".join(f"keys/privateKey{number}.pem: words.txt holds no password for it\n"
                          for number in ("06", "07"))
        self.assertEqual((status, errors), (2, missing))
        self.assertEqual([line.split(":")[0] for line in output.splitlines()],
                         [f"keys/publicKey{number:02}.pem" for number in range(6)] + ["keys/publicKeysHashHashes.bin"])

    def test_passwords_can_come_from_a_pipe(self):
        for name in ("/dev/stdin", "/dev/fd/0"):
            self.assert_agrees("--passwords", name, "keys", stdin=None, input=b"correct horse")

    def test_passwords_can_come_from_another_file_descriptor(self):
        self.words(b"correct horse\n")
        for number in range(3, 9):
            shell = ("sh", "-c", f'exec "$@" {number}<words.txt', "sh", *SHELL)
            self.assert_agrees("--passwords", f"/dev/fd/{number}", "keys", shell=shell)

    def test_passwords_can_come_from_a_named_pipe(self):
        os.mkfifo(self.folder / "pipe")
        writer = subprocess.Popen(["sh", "-c", "echo 'correct horse' >pipe"], cwd=self.folder)
        self.addCleanup(writer.wait)
        # Opening the pipe changes its time.
        before = self.state
        self.state = lambda: {path: about for path, about in before().items() if path.name != "pipe"}
        self.assert_agrees("--passwords", "pipe", "keys")

    def test_a_missing_file_and_a_folder_are_refused(self):
        (self.folder / "a folder").mkdir()
        for name, reason in (("nowhere.txt", "nowhere.txt is missing"), ("a folder", "a folder is a folder")):
            self.assertEqual(self.run_verify("--passwords", name, "keys"), (2, "", f"keygen-verify: {reason}\n"))

    def test_the_name_of_the_file_may_contain_anything(self):
        for name in ("-words", "a b*?", "new\nline", "quote'"):
            (self.folder / "words.txt").rename(self.folder / name)
            self.assert_agrees("--passwords", name, "keys")
            (self.folder / name).rename(self.folder / "words.txt")

    def test_no_password_is_in_an_argument_list_or_in_the_environment(self):
        tools = self.folder.parent / "tools"
        tools.mkdir()
        log = self.folder.parent / "log"
        for name in ("openssl", "od", "awk", "ls", "sed", "printf", "cat", "tr", "head", "dd", "test", "env"):
            (tools / name).write_text(f'#!/bin/sh\n{{ echo "$0 $*"; /usr/bin/env; }} >>"{log}"\n'
                                      f'exec "{shutil.which(name)}" "$@"\n')
            (tools / name).chmod(0o755)
        make_pair(self.folder, password="horse battery")
        self.words(b"horse battery\n")
        # Environment variables with the names of the script's own variables must not be passed on with its values.
        self.assert_agrees(environment={"PATH": f"{tools}:{os.environ['PATH']}", "password": "x", "passwords": "y"})
        said = log.read_text()
        self.assertIn("openssl pkcs8", said)
        for part in ("horse", "battery", "\\150\\157\\162", b"horse".hex(), "104 111 114"):
            self.assertNotIn(part, said)
        # The private number is not there either.
        command = ["openssl", "pkey", "-in", PRIVATE, "-passin", "pass:horse battery", "-text", "-noout"]
        shown = subprocess.run(command, cwd=self.folder, stdout=subprocess.PIPE, check=True,
                               universal_newlines=True).stdout
        number = shown[shown.index("priv:") + 5:shown.index("pub:")].replace(":", "").split()
        self.assertNotIn("".join(number)[-40:], said)


if __name__ == "__main__":
    unittest.main()
