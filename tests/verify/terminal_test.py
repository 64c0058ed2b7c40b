#!/usr/bin/python3
"""keygen-verify asks for passwords on the terminal: once for each key, and without echo."""

import os
import pty
import select
import shutil
import signal
import subprocess
import termios
import time
import unittest

from runs import InTemporaryFolder, PASSWORDS, SHELL, VERIFY, hash_of, make_packet, make_pair, replace, table_hash_of

CLOSED = "it does not open under its password, or holds no key"


class Terminal:
    """A run on a new terminal. Messages go to the terminal, too."""

    def __init__(self, folder, *arguments, **settings):
        self.pid, self.terminal = pty.fork()
        if self.pid == 0:
            # If the tests run in the background, the signal may be ignored, and a child process inherits that.
            signal.signal(signal.SIGINT, signal.SIG_DFL)
            os.chdir(folder)
            os.execvpe(SHELL[0], [*SHELL, VERIFY, *arguments], dict(os.environ, **settings))
        self.written = ""

    def read(self, seconds=100):
        """The next part of the output; empty after its end."""
        if not select.select([self.terminal], [], [], seconds)[0]:
            raise TimeoutError(self.written)
        try:
            data = os.read(self.terminal, 65536).decode()
        except OSError:
            data = ""
        self.written += data.replace("\r\n", "\n")
        return data

    def wait_for(self, text):
        while text not in self.written:
            if not self.read():
                raise EOFError(self.written)

    def answer(self, question, answer):
        self.wait_for(question)
        # The terminal stops echoing with the question, or a moment before. Earlier input would be echoed.
        while not self.is_silent():
            time.sleep(0.01)
        os.write(self.terminal, answer)

    def interrupt(self, question):
        """Interrupts again if nothing happens: openssl ignores an interrupt after it turns echo off and before it reads."""
        self.answer(question, b"\x03")
        while not select.select([self.terminal], [], [], 5)[0]:
            os.write(self.terminal, b"\x03")

    def is_silent(self):
        return not termios.tcgetattr(self.terminal)[3] & termios.ECHO

    def end(self):
        while self.read():
            pass
        os.close(self.terminal)
        return os.waitstatus_to_exitcode(os.waitpid(self.pid, 0)[1]), self.written


def make_packet_alone(folder):
    shutil.rmtree(folder / "keys")
    make_packet(folder)


class OnTheTerminal(InTemporaryFolder):
    def line(self, name, cipher="AES-256-CBC"):
        return f"{name}: prime256v1, {cipher}, {hash_of(self.folder / name)}\n"

    def test_a_pair_asks_for_its_password(self):
        run = Terminal(self.folder, "keys")
        run.answer("keys/privateKey.pem: Enter Password:", b"correct horse\n")
        self.assertEqual(run.end(), (0, "keys/privateKey.pem: Enter Password:\n" + self.line("keys/publicKey.pem") +
                                     "all agrees: 1 pair\n"))

    def test_a_password_may_contain_outer_spaces_and_non_ascii_letters(self):
        make_pair(self.folder, password="  größer $HOME\\n % ")
        run = Terminal(self.folder, "keys")
        run.answer("Enter Password:", "  größer $HOME\\n % \n".encode())
        self.assertEqual(run.end()[0], 0)

    def test_a_packet_asks_once_for_each_key_in_order(self):
        make_packet_alone(self.folder)
        run = Terminal(self.folder, "keys")
        expected = ""
        for index, password in enumerate(PASSWORDS):
            question = f"keys/privateKey{index:02}.pem: Enter Password:"
            run.answer(question, password.encode() + b"\n")
            expected += question + "\n"
            expected += self.line(f"keys/publicKey{index:02}.pem")
        table = table_hash_of("prime256v1", sorted(self.folder.glob("keys/publicKey0*")))
        expected += f"keys/publicKeysHashHashes.bin: {table}\nall agrees: a packet of 8\n"
        self.assertEqual(run.end(), (0, expected))

    def test_a_wrong_password_is_not_asked_for_again(self):
        run = Terminal(self.folder, "keys")
        run.answer("Enter Password:", b"wrong password\n")
        self.assertEqual(run.end(), (1, "keys/privateKey.pem: Enter Password:\n"
                                     f"keys/privateKey.pem: {CLOSED}\n"))

    def test_an_empty_password_opens_no_key(self):
        for answer in (b"\n", b"\x04"):
            run = Terminal(self.folder, "keys")
            run.answer("Enter Password:", answer)
            status, written = run.end()
            self.assertEqual((status, written.splitlines()[-1]), (1, f"keys/privateKey.pem: {CLOSED}"))

    def test_no_password_is_asked_for_if_the_key_cannot_be_opened(self):
        replace(self.folder / "keys/privateKey.pem", b"")
        self.assertEqual(Terminal(self.folder, "keys").end(), (1, "keys/privateKey.pem: it is empty\n"))

    def test_no_password_is_asked_for_public_keys(self):
        self.assertEqual(Terminal(self.folder, "--public-only", "keys").end()[0], 0)

    def test_no_password_is_asked_for_with_passwords_from_a_file(self):
        self.assertEqual(Terminal(self.folder, "--passwords", "words.txt", "keys").end(),
                         (0, self.line("keys/publicKey.pem") + "all agrees: 1 pair\n"))

    def test_control_characters_in_a_name_do_not_reach_the_terminal(self):
        (self.folder / "keys").rename(self.folder / "a\033[2Jb")
        run = Terminal(self.folder, "a\033[2Jb")
        run.answer("a?[2Jb/privateKey.pem: Enter Password:", b"correct horse\n")
        self.assertNotIn("\033", run.end()[1])

    def test_an_interrupt_ends_the_run(self):
        make_packet_alone(self.folder)
        run = Terminal(self.folder, "keys")
        run.answer("keys/privateKey00.pem: Enter Password:", b"first1\n")
        run.interrupt("keys/privateKey01.pem: Enter Password:")
        status, written = run.end()
        self.assertEqual(status, -signal.SIGINT)
        self.assertNotIn("privateKey02", written)

    def test_the_terminal_echoes_again_after_an_interrupt(self):
        """Observed from a shell on the same terminal, which continues to run."""
        pid, terminal = pty.fork()
        if pid == 0:
            signal.signal(signal.SIGINT, signal.SIG_DFL)
            os.chdir(self.folder)
            command = " ".join(f"'{each}'" for each in [*SHELL, VERIFY, "keys"])
            os.execvp("bash", ["bash", "--norc", "-c", f"trap : INT; {command}; echo ended $?; read -r line"])
        run = Terminal.__new__(Terminal)
        run.pid, run.terminal, run.written = pid, terminal, ""
        run.interrupt("Enter Password:")
        run.wait_for("ended 130")
        while run.is_silent():
            time.sleep(0.01)
        os.write(terminal, b"\n")
        self.assertEqual(run.end()[0], 0)

    def test_passwords_are_not_read_from_standard_input(self):
        """There is a terminal, but standard input is something else."""
        run = Terminal(self.folder, "keys")
        run.answer("Enter Password:", b"correct horse\n")
        self.assertEqual(run.end()[0], 0)
        status, output, errors = self.run_verify("keys", stdin=None, input=b"correct horse\n")
        self.assertEqual((status, output, errors),
                         (2, "", "keys/privateKey.pem: there is no terminal to ask for its password on\n"))

    def test_everything_else_is_checked_without_a_terminal(self):
        make_packet(self.folder)
        (self.folder / "keys/publicKeysHashHashes.bin").unlink()
        missing = "it is missing\n"
        none = "there is no terminal to ask for its password on\n"
        status, output, errors = self.run_verify("keys")
        self.assertEqual((status, output), (1, ""))
        self.assertEqual(errors, f"keys/privateKey.pem: {none}" +
                         "".join(f"keys/privateKey{index:02}.pem: {none}" for index in range(8)) +
                         f"keys/publicKeysHashHashes.bin: {missing}")

    def test_the_question_goes_to_the_terminal_even_if_standard_error_does_not(self):
        """Findings go to standard error, and the question to the terminal."""
        pid, terminal = pty.fork()
        if pid == 0:
            os.chdir(self.folder)
            result = subprocess.run([*SHELL, VERIFY, "keys"], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                    stderr=subprocess.PIPE)
            os.write(1, b"status %d, %d lines, %d of errors\n" %
                     (result.returncode, result.stdout.count(b"\n"), result.stderr.count(b"\n")))
            os._exit(0)
        run = Terminal.__new__(Terminal)
        run.pid, run.terminal, run.written = pid, terminal, ""
        run.answer("Enter Password:", b"correct horse\n")
        self.assertEqual(run.end()[1], "keys/privateKey.pem: Enter Password:\nstatus 0, 2 lines, 0 of errors\n")


if __name__ == "__main__":
    unittest.main()
