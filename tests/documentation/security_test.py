#!/usr/bin/python3
"""docs/security.md: what it says about modes, older files and links is true of the built program."""

import os
import re
import unittest

from tree import InTemporaryFolder, TREE, run_program

DOCUMENT = " ".join((TREE / "docs/security.md").read_text("utf-8").split())
KEYS = ["privateKey.pem", "publicKey.pem", "publicKeyhash.bin"]


class Security(InTemporaryFolder):
    def setUp(self):
        super().setUp()
        self.addCleanup(os.umask, os.umask(0o022))

    def assert_says(self, sentence):
        self.assertTrue(sentence in DOCUMENT, sentence)

    def keygen(self, *arguments, **options):
        return run_program(*arguments, cwd=self.folder, **options)

    def mode(self, name):
        return (self.folder / name).stat().st_mode & 0o777

    def test_the_files_have_the_modes_in_the_table(self):
        self.keygen("-abs", "pair", "-pwd", "1234", "-rand", "1", "any.bin")
        self.keygen("-abs", "packet", "-n", "1", "-pwd", "1234")
        rows = re.findall(r"\| `(\w+\.\w+)` \| [^|]+ \| [^|]+ \| (0\d+) \|", DOCUMENT)
        found = {name: self.mode(f"pair/{name}") for name in KEYS}
        found["publicKeysHashHashes.bin"] = self.mode("packet/publicKeysHashHashes.bin")
        self.assertEqual({name: int(mode, 8) for name, mode in rows}, found)
        self.assert_says("0666 less the umask")
        self.assertEqual(self.mode("any.bin"), 0o666 & ~0o022)

    def test_an_older_file_is_accessible_while_it_is_replaced(self):
        self.assert_says("it first gets the mode 0226: other users can read it, and everyone can write to it, until "
                         "the new content is written and it gets its final mode. `umask 077` does not change that. "
                         "Removing the older files first does: a new file has the mode that your umask leaves until it "
                         "gets its final mode.")
        os.umask(0o077)
        self.keygen("-abs", "keys", "-pwd", "1234")
        # Without a password the run ends while the private key is being replaced.
        self.keygen("-abs", "keys")
        self.assertEqual(self.mode("keys/privateKey.pem"), 0o226)
        (self.folder / "keys/privateKey.pem").unlink()
        self.keygen("-abs", "keys")
        self.assertEqual(self.mode("keys/privateKey.pem"), 0o600)

    def test_an_old_private_key_is_lost_if_the_new_one_cannot_be_written(self):
        self.assert_says("**it is lost**, and its file is left with the mode 0226. The older public key and hash stay")
        self.keygen("-abs", "keys", "-pwd", "1234")
        older = [(self.folder / "keys" / name).read_bytes() for name in KEYS]
        result = self.keygen("-abs", "keys")
        self.assertEqual(result.returncode, 0)
        self.assertIn("Error: writing encrypted private Key fails\n", result.stdout)
        self.assertEqual(self.mode("keys/privateKey.pem"), 0o226)
        # Nor can its owner read it.
        (self.folder / "keys/privateKey.pem").chmod(0o400)
        self.assertEqual([(self.folder / "keys" / name).read_bytes() for name in KEYS], [b"", *older[1:]])

    def test_links_are_followed_and_files_keep_their_owner(self):
        self.assert_says("**Links are followed**, symbolic and hard ones.")
        self.assert_says("**A file that someone else put there first stays theirs**")
        (self.folder / "keys").mkdir()
        others = [self.folder / f"other{index}" for index in range(3)]
        for each in others:
            each.touch()
        (self.folder / "keys/privateKey.pem").symlink_to(others[0])
        os.link(others[1], self.folder / "keys/publicKey.pem")
        os.rename(others[2], self.folder / "keys/publicKeyhash.bin")
        files = [os.stat(self.folder / "keys" / name).st_ino for name in KEYS]
        self.assertEqual(self.keygen("-abs", "keys", "-pwd", "1234").returncode, 0)
        self.assertTrue((self.folder / "keys/privateKey.pem").is_symlink())
        self.assertEqual([os.stat(self.folder / "keys" / name).st_ino for name in KEYS], files)
        self.assertEqual([each.stat().st_size for each in others[:2]], [399, 178])

    def test_modes_are_not_set_on_non_ascii_paths(self):
        self.assert_says("The modes of the three files of a pair are set under the Latin-1 reading of the path")
        self.keygen("-abs", "clés", "-pwd", "1234")
        self.assertEqual([self.mode(f"clés/{name}") for name in KEYS], [0o644] * 3)

    def test_paths_that_begin_with_a_colon_are_reported_missing(self):
        self.assert_says("keep the mode that your umask leaves, and are then reported missing, with status 1.")
        result = self.keygen("-prvk", ":private.pem", "-pwd", "1234")
        self.assertEqual(result.returncode, 1)
        self.assertIn("Error: private key file path does not exist\n", result.stdout)
        self.assertEqual((self.mode(":private.pem"), (self.folder / ":private.pem").stat().st_size), (0o644, 399))

        self.assert_says("`-abs :name` creates the folder, but does not find it, and writes nothing.")
        (self.folder / "yes").write_text("y\n")
        with open(self.folder / "yes", encoding="utf-8") as answers:
            self.assertEqual(self.keygen("-abs", ":name", "-pwd", "1234", stdin=answers).returncode, 1)
        self.assertEqual(list((self.folder / ":name").iterdir()), [])

        self.assert_says("The file of `-rand` is not written either. Write `./:name`.")
        self.assertEqual(self.keygen("-rand", "1", ":any.bin").returncode, 1)
        self.assertFalse((self.folder / ":any.bin").exists())
        self.assertEqual(self.keygen("-abs", "./:name", "-pwd", "1234", "-rand", "1", "./:any.bin").returncode, 0)
        self.assertEqual(self.mode(":name/privateKey.pem"), 0o400)

    def test_only_two_kinds_of_passwords_are_shown(self):
        self.assert_says("No message shows a password, with two exceptions. A password of one to three characters is "
                         "refused and shown")
        self.assert_says("A password on the command line that begins with `-` is taken for an option, and shown")
        for password, is_shown in (("abc", True), ("-secret", True), ("good pass", False), ("x" * 1024, False)):
            self.assertEqual(password in self.keygen("-abs", "keys", "-pwd", password).stdout, is_shown, password)


if __name__ == "__main__":
    unittest.main()
