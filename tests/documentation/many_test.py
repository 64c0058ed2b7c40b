#!/usr/bin/python3
"""The recipe in docs/many.md, run word for word, for a few packets."""

import os
import re
import subprocess
import textwrap
import unittest

from tree import InTemporaryFolder, PROGRAM, TREE, VERIFY

DOCUMENT = (TREE / "docs/many.md").read_text("utf-8")
# Replaces the ssh client: a login is a home directory here, with a shell of its own, whatever the caller's shell is.
SSH = """\
#!/bin/sh
user=
while :; do
    case $1 in
    -l) user=$2@ && shift 2 ;;
    -*) shift ;;
    *) break ;;
    esac
done
login=$user$1
shift
[ "$1" != -- ] || shift
export HOME="$LOGINS/$login" SHELL=/bin/sh
cd "$HOME" && exec "$SHELL" -c "$*"
"""


def block(words):
    blocks = [textwrap.dedent(each) for each in re.findall(r"(?<=\n\n)(?: {4}.*\n)+", DOCUMENT)]
    found = [each for each in blocks if words in each]
    assert len(found) == 1, (words, found)
    return found[0]


class Recipe(InTemporaryFolder):
    def setUp(self):
        super().setUp()
        tools = self.folder / "tools"
        tools.mkdir()
        (tools / "keygen").symlink_to(PROGRAM)
        (tools / "keygen-verify").symlink_to(VERIFY)
        self.save(tools / "ssh", SSH)
        # Without /sys, as in some containers, lscpu prints an error; parallel then reads /proc/cpuinfo.
        self.save(tools / "lscpu", "#!/bin/sh\nexit 1\n")
        # GNU parallel stores its settings there. This file suppresses its notice, which is for people.
        (self.folder / "parallel").mkdir()
        (self.folder / "parallel/will-cite").touch()
        self.make_packet = re.search(r"```sh\n(.*?)```", DOCUMENT, re.S).group(1)
        self.save(self.folder / "make-packet", self.make_packet)
        self.words = [f"word {index} %s \\n" for index in range(24)]
        (self.folder / "words.txt").write_text("".join(f"{each}\n" for each in self.words))

    def save(self, path, content):
        path.write_text(content)
        path.chmod(0o755)

    def type(self, commands):
        environment = dict(os.environ, PATH=f"{self.folder}/tools:{os.environ['PATH']}", HOME=str(self.folder),
                           LOGINS=f"{self.folder}/logins", PARALLEL_HOME=f"{self.folder}/parallel")
        return subprocess.run(["bash", "-c", commands], cwd=self.folder, env=environment, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, universal_newlines=True, timeout=110,
                              start_new_session=True)

    def log(self):
        """The number, the host, the status and the command of each job."""
        lines = (self.folder / "packets.log").read_text().splitlines()[1:]
        return sorted((line.split("\t")[0], line.split("\t")[1], line.split("\t")[6], line.split("\t")[8])
                      for line in lines)

    def agreeing(self):
        return (self.folder / "packets.txt").read_text().count("\nall agrees: a packet of 8\n")

    def assert_opens(self, folder, number, index, word):
        key = self.folder / folder / "packets" / str(number) / f"privateKey{index:02}.pem"
        result = subprocess.run(["openssl", "pkey", "-in", str(key), "-passin", "stdin", "-noout"], input=f"{word}\n",
                                universal_newlines=True)
        self.assertEqual(result.returncode, 0)

    def test_packets_are_made_with_the_passwords_of_a_file(self):
        command = block("--resume --timeout 600 ./make-packet")
        result = self.type(command)
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, "", ""))
        self.assertEqual(self.log(), [(number, ":", "0", f"./make-packet packets/{number}") for number in "123"])
        self.assertEqual(self.agreeing(), 3)
        for number in (1, 2, 3):
            for index in (0, 7):
                # The document says on which line each password is.
                line = 8 * (number - 1) + index + 1
                self.assert_opens(".", number, index, self.words[line - 1])
        self.assertEqual(self.type(block("awk")).stdout, "")

        # First with nothing left to do, then with a packet missing from the log.
        before = (self.folder / "packets/1/publicKey00.pem").read_bytes()
        self.assertEqual(self.type(command).returncode, 0)
        self.assertEqual(self.agreeing(), 3)
        lines = (self.folder / "packets.log").read_text().splitlines(keepends=True)
        (self.folder / "packets.log").write_text("".join(each for each in lines if not each.startswith("2\t")))
        self.assertEqual(self.type(command).returncode, 0)
        self.assertEqual((len(self.log()), self.agreeing()), (3, 4))
        self.assertEqual((self.folder / "packets/1/publicKey00.pem").read_bytes(), before)
        self.assert_opens(".", 2, 7, self.words[15])

    def test_a_packet_that_fails_is_reported_and_can_be_made_again(self):
        command = block("--resume --timeout 600 ./make-packet")
        (self.folder / "words.txt").write_text("".join(f"{each}\n" for each in ["abc", *self.words[1:16]]))
        result = self.type(command)
        self.assertEqual((result.returncode, result.stderr),
                         (1, "packets/1: needs eight passwords of four characters or more\n"))
        failed = self.type(block("awk")).stdout.splitlines()
        self.assertEqual([each.split()[0] for each in failed], ["1"])
        (self.folder / "words.txt").write_text("".join(f"{each}\n" for each in self.words[:16]))
        result = self.type(command.replace("--resume", "--resume-failed"))
        self.assertEqual((result.returncode, result.stderr, self.agreeing()), (0, "", 2))
        self.assert_opens(".", 1, 0, self.words[0])

    def test_the_status_of_a_packet_is_that_of_the_check(self):
        (self.folder / "tools/keygen-verify").unlink()
        self.save(self.folder / "tools/keygen-verify", "#!/bin/sh\nexit 3\n")
        self.assertEqual(self.type(block("--resume --timeout 600 ./make-packet")).returncode, 3)
        self.assertEqual([status for _, _, status, _ in self.log()], ["3", "3", "3"])

    def test_new_passwords_are_generated(self):
        (self.folder / "words.txt").unlink()
        result = self.type(block("openssl rand") + "stat -c %a words.txt")
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, "600\n", ""))
        words = (self.folder / "words.txt").read_text().splitlines()
        self.assertEqual((len(words), {len(each) for each in words}, len(set(words))), (8000, {16}, 8000))

    def test_several_machines_share_the_work(self):
        for login in ("maker@one", "maker@two"):
            (self.folder / "logins" / login).mkdir(parents=True)
            self.save(self.folder / "logins" / login / "make-packet", self.make_packet)
        result = self.type(block("--sshlogin"))
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, "", ""))
        self.assertEqual(self.agreeing(), 3)
        self.assertEqual([(number, status) for number, _, status, _ in self.log()],
                         [("1", "0"), ("2", "0"), ("3", "0")])
        for number, host, _, _ in self.log():
            self.assert_opens(f"logins/{host}", int(number), 3, self.words[8 * (int(number) - 1) + 3])
        self.assertFalse((self.folder / "packets").exists())


if __name__ == "__main__":
    unittest.main()
