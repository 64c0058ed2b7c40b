#!/usr/bin/python3
"""The command line: options, names of any kind, and the messages if nothing can be checked."""

import os
import shutil
import signal
import subprocess
import unittest

from crafted_keys import pem, public_der
from runs import InTemporaryFolder, SHELL, TREE, VERIFY, VERSION, hash_of, make_packet, replace

USAGE = """\
usage: keygen-verify [--passwords FILE | --public-only] FOLDER
       keygen-verify [--passwords FILE | --public-only] [--packet] PRIVATE PUBLIC HASH
       keygen-verify --help | --version
"""
# Names that a shell, a tool or a terminal might misinterpret.
NAMES = ["-keys", "--help", "-", "a  b", " ", "*", "[a-z]?", "$HOME", "`id`", "a'b\"c", "a\\nb", "a%sb", "&1", "~", "#",
         "äöü鍵😀", "(", "!", ";", "=", "hash"]
# Names and how they are shown: control characters become question marks.
ODD_NAMES = {"new\nline": "new?line", "end\n": "end?", "\n": "?", "tab\t": "tab?", "\033[31mred": "?[31mred",
             "\x7f": "?", "\u009b1m": "?1m", "ä\u0080\u009fß\u00a0": "ä??ß\u00a0", "a\rb": "a?b", "\x01\x1f": "??"}
# Bytes that are not characters.
BROKEN_NAMES = {b"\x9b31m": "?31m", b"\xff\xfe": "??", b"\xc3": "?", b"\xc3(": "?(", b"\xe2\x82": "??",
                b"\xe2\x82\x82": "₂", b"\xc0\x80": "??", b"\xc1\x9b": "??", b"\xe0\x82\x9b": "???",
                b"\xf0\x80\x82\x9b": "????", b"\xf5\x80\x80\x80": "????", b"\xf0\x9f\x98": "???",
                b"\xe2(\xa1": "?(?", b"\xc2\x85": "?"}


class Usage(InTemporaryFolder):
    def tools(self, **scripts):
        """Creates a directory with scripts in place of commands. Returns an environment with it first in PATH."""
        folder = self.folder.parent / "tools"
        shutil.rmtree(folder, ignore_errors=True)
        folder.mkdir()
        for name, script in scripts.items():
            (folder / name).write_text(f"#!/bin/sh\n{script}\n")
            (folder / name).chmod(0o755)
        return {"PATH": f"{folder}:{os.environ['PATH']}"}

    def line(self, name, shown=None):
        return f"{shown or name}: prime256v1, AES-256-CBC, {hash_of(self.folder / name)}\n"

    def assert_stops(self, reason, *arguments, usage="", **options):
        self.assertEqual(self.run_verify(*arguments, **options), (2, "", f"keygen-verify: {reason}\n{usage}"))

    def assert_refuses(self, reason, *arguments):
        self.assert_stops(reason, *arguments, usage=USAGE)

    def test_help_is_printed(self):
        for arguments in (["--help"], ["--public-only", "--help"], ["--help", "--unknown"]):
            status, output, errors = self.run_verify(*arguments)
            self.assertEqual((status, errors), (0, ""))
            self.assertTrue(output.startswith(USAGE + "\n"))
            for word in ("--passwords FILE", "--public-only", "--packet", "--help", "--version", "Status: 0 "):
                self.assertIn(f"\n{'  ' if word[0] == '-' else ''}{word}", output)
            self.assertEqual([line for line in output.splitlines() if len(line) > 87], [])

    def test_the_version_is_printed(self):
        self.assertEqual(self.run_verify("--version"), (0, f"keygen-verify {VERSION}\n", ""))

    def test_the_script_in_the_tree_prints_the_version(self):
        for script in (TREE / "verify/keygen-verify", "keygen-verify", "verify/keygen-verify"):
            folder = TREE / "verify" if script == "keygen-verify" else TREE
            result = subprocess.run([*SHELL, str(script), "--version"], cwd=folder, stdin=subprocess.DEVNULL,
                                    stdout=subprocess.PIPE, stderr=subprocess.PIPE, universal_newlines=True)
            self.assertEqual((result.returncode, result.stdout, result.stderr), (0, f"keygen-verify {VERSION}\n", ""))

    def test_wrong_options_are_refused(self):
        self.assert_refuses("unknown option: --public", "--public", "keys")
        self.assert_refuses("unknown option: -h", "-h")
        self.assert_refuses("unknown option: -?x", "-\nx")
        self.assert_refuses("--passwords takes a file", "--passwords")
        self.assert_refuses("--passwords takes a file", "--passwords", "", "keys")
        for order in (["--passwords", "words.txt", "--public-only"], ["--public-only", "--passwords", "words.txt"]):
            self.assert_refuses("--passwords and --public-only exclude each other", *order, "keys")

    def test_a_wrong_number_of_names_is_refused(self):
        names = ["keys/privateKey.pem", "keys/publicKey.pem", "keys/publicKeyhash.bin"]
        for arguments in ([], names[:2], [*names, "more"], ["--packet"], ["--packet", "keys"], ["--packet", *names[:2]],
                          ["--packet", *names, "more"], ["--"], ["keys", "--public-only"]):
            self.assert_refuses("give a folder, or three files", *arguments)

    def test_a_folder_without_keys_is_refused(self):
        self.assert_stops("nowhere is not a folder", "nowhere")
        self.assert_stops("words.txt is not a folder", "words.txt")
        self.assert_stops(" is not a folder", "")
        (self.folder / "empty").mkdir()
        self.assert_stops("empty holds no file of a pair or a packet", "empty")
        (self.folder / "empty/publicKey08.pem").write_text("")
        self.assert_stops("empty holds no file of a pair or a packet", "empty")
        # A private key alone is not enough to check public keys.
        shutil.copy(self.folder / "keys/privateKey.pem", self.folder / "empty/privateKey.pem")
        self.assert_stops("empty holds no file of a pair or a packet", "--public-only", "empty")
        self.assertEqual(self.with_passwords("empty")[0], 2)
        shutil.move(self.folder / "empty/privateKey.pem", self.folder / "empty/privateKey00.pem")
        self.assert_stops("empty holds no file of a pair or a packet", "--public-only", "empty")
        self.assertEqual(self.with_passwords("empty")[0], 1)

    def test_its_own_file_descriptor_is_refused(self):
        self.assert_refuses("--passwords cannot take /dev/fd/9, which keygen-verify uses itself",
                            "--passwords", "/dev/fd/9", "keys")

    def test_names_of_no_packet_are_refused(self):
        self.assert_stops("there is no file of a packet under these names", "--packet", "a.pem", "b.pem", "c.bin")

    def test_a_missing_tool_is_reported(self):
        tools = self.folder.parent / "tools"
        tools.mkdir()
        for name in ("openssl", "awk", "od", "ls", "sed", *SHELL[:1]):
            (tools / name).symlink_to(shutil.which(name))
        for name in ("openssl", "awk", "od"):
            (tools / name).rename(tools / "renamed")
            self.assert_stops(f"there is no {name} command", "keys", environment={"PATH": str(tools)})
            self.assertEqual(self.run_verify("--help", environment={"PATH": str(tools)})[0], 0)
            (tools / "renamed").rename(tools / name)

    def test_an_awk_that_is_killed_is_reported(self):
        self.assertEqual(self.run_verify("--public-only", "keys", environment=self.tools(awk="kill -KILL $$")),
                         (2, "", "keys/publicKey.pem: awk ended without a result\n"))
        for variable, arguments in (("longest", ["--passwords", "words.txt", "keys"]),
                                    ("number", ["--packet", "kéys", "käys", "köys"])):
            environment = self.tools(awk=f'case "$*" in *{variable}=*) kill -KILL $$ ;; esac; '
                                         f'exec "{shutil.which("awk")}" "$@"')
            self.assert_stops("awk ended without a result", *arguments, environment=environment)

    def test_a_broken_openssl_is_reported(self):
        environment = self.tools(openssl="echo 'cannot be loaded' >&2; exit 127")
        self.assertEqual(self.with_passwords("keys", environment=environment),
                         (2, "", "keys/publicKey.pem: the openssl command does not know the curve prime256v1\n"))
        # What needs no openssl is checked.
        replace(self.folder / "keys/privateKey.pem", b"")
        self.assertEqual(self.with_passwords("keys", environment=environment),
                         (1, "", "keys/publicKey.pem: the openssl command does not know the curve prime256v1\n"
                          "keys/privateKey.pem: it is empty\n"))

    def test_an_openssl_without_a_curve_is_reported(self):
        """As on systems whose openssl does not include brainpoolP256t1."""
        real = shutil.which("openssl")
        for said in ("exit 1", "echo Key is invalid; exit"):
            environment = self.tools(openssl=f'case "$*" in *-pubcheck*) {said} ;; esac; exec "{real}" "$@"')
            self.assertEqual(self.run_verify("--public-only", "keys", environment=environment),
                             (2, "", "keys/publicKey.pem: the openssl command does not know the curve prime256v1\n"))

    def test_an_openssl_without_sha256_is_reported(self):
        real = shutil.which("openssl")
        for said in (":", "echo 12 stdin", "printf '%064d' 0 | tr 0 X", "printf '%063d' 0", "printf '%065d' 0"):
            environment = self.tools(openssl=f'case "$*" in dgst*) {said}; exit ;; esac; exec "{real}" "$@"')
            self.assert_stops("the openssl command computes no SHA-256", "--public-only", "keys",
                              environment=environment)

    def test_settings_of_openssl_do_not_matter(self):
        (self.folder / "openssl.cnf").write_text("openssl_conf = nothing\n[nothing]\nproviders = none\n"
                                                 "[none]\nnull = null\n[null]\nactivate = 1\n")
        self.assertEqual(self.with_passwords("keys", environment={"OPENSSL_CONF": str(self.folder / "openssl.cnf")}),
                         (0, self.line("keys/publicKey.pem") + "all agrees: 1 pair\n", ""))

    def test_settings_of_the_shell_do_not_matter(self):
        # As LC_ALL, a locale that is not installed makes bash print a warning before it reads the script.
        turkish = {"LC_ALL": "", "LANG": "tr_TR.UTF-8"}
        for settings in ({"IFS": "e"}, {"LC_ALL": "C.UTF-8"}, turkish, {"CDPATH": "/:/tmp"},
                         {"POSIXLY_CORRECT": "1"}, {"ENV": "/dev/null/x"},
                         {"digest": "x", "passwords": "=a", "name": "x", "folder": "/", "public_block": "x"}):
            self.assertEqual(self.with_passwords("keys", environment=settings),
                             (0, self.line("keys/publicKey.pem") + "all agrees: 1 pair\n", ""))

    def test_a_shell_without_a_builtin_printf_is_refused(self):
        if SHELL[0] == "bash":
            shell = ["bash", "--posix", "-c", 'enable -n printf; . "$0"']
            printf = subprocess.run(["bash", "-c", "enable -n printf; command -v printf"], stdout=subprocess.PIPE)
            self.assertTrue(printf.stdout.startswith(b"/"))
            status, output, errors = self.run_verify("--passwords", "words.txt", "keys", shell=shell)
            self.assertEqual((status, output, errors),
                             (2, "", "keygen-verify: the printf of this shell is not its own\n"))
        else:
            shown = subprocess.run([*SHELL, "-c", "command -v printf"], stdout=subprocess.PIPE).stdout
            self.assertEqual(shown, b"printf\n")

    def test_a_folder_name_may_contain_anything(self):
        good = self.run_verify("--public-only", "keys")
        self.assertEqual(good[0], 0)
        previous = "keys"
        for name, shown in [*((each, each) for each in NAMES), *ODD_NAMES.items(),
                            *((os.fsdecode(key), value) for key, value in BROKEN_NAMES.items())]:
            with self.subTest(name=name):
                (self.folder / previous).rename(self.folder / name)
                previous = name
                self.assertEqual(self.run_verify("--public-only", "--", name),
                                 (0, good[1].replace("keys/", f"{shown}/"), ""))

    def test_file_names_may_contain_anything(self):
        names = ["private", "public", "hash"]
        for name, shown in [("-x*?", "-x*?"), ("&2", "&2"), *ODD_NAMES.items()]:
            with self.subTest(name=name):
                folder = self.folder / "files"
                folder.mkdir()
                for part, source in zip(names, ("privateKey.pem", "publicKey.pem", "publicKeyhash.bin")):
                    shutil.copy(self.folder / "keys" / source, folder / (name + part))
                digest = hash_of(folder / f"{name}public")
                run = ["--passwords", "../words.txt", "--", *(name + part for part in names)]
                self.assertEqual(self.run_verify(*run, cwd=folder),
                                 (0, f"{shown}public: prime256v1, AES-256-CBC, {digest}\nall agrees: 1 pair\n", ""))
                (folder / f"{name}hash").unlink()
                (folder / f"{name}hash").write_bytes(bytes(32))
                (folder / f"{name}private").chmod(0o444)
                self.assertEqual(self.run_verify(*run, cwd=folder), (
                    1, "", f"{shown}hash: it is not the SHA-256 of X and Y in {shown}public\n"
                    f"{shown}private: warning: other users may read it\n"))
                shutil.rmtree(folder)

    def test_inaccessible_folders_and_files_are_reported(self):
        """Root can access them, so everything agrees for root."""
        root = os.geteuid() == 0
        agrees = (0, self.line("keys/publicKey.pem") + "all agrees: 1 pair\n", "")
        for name in ("publicKey.pem", "publicKeyhash.bin", "privateKey.pem"):
            path = self.folder / "keys" / name
            mode = path.stat().st_mode
            path.chmod(0)
            self.assertEqual(self.with_passwords("keys"),
                             agrees if root else (2, "", f"keys/{name}: it cannot be read\n"))
            path.chmod(mode)
        (self.folder / "words.txt").chmod(0)
        self.assertEqual(self.with_passwords("keys"),
                         agrees if root else (2, "", "keygen-verify: words.txt cannot be read\n"))
        (self.folder / "words.txt").chmod(0o600)
        (self.folder / "keys").chmod(0o600)
        self.addCleanup((self.folder / "keys").chmod, 0o700)
        if root:
            self.assertEqual(self.with_passwords("keys"), agrees)
        else:
            result = subprocess.run([*SHELL, VERIFY, "--public-only", "keys"], cwd=self.folder, stderr=subprocess.PIPE)
            self.assertEqual((result.returncode, result.stderr), (2, b"keygen-verify: keys cannot be entered\n"))

    def test_a_read_error_is_reported(self):
        make_packet(self.folder, passwords=["only one"])
        names = ["publicKey.pem", "publicKeyhash.bin", "publicKey00.pem", "publicKeyHash00.bin",
                 "publicKeysHashHashes.bin"]
        environment = self.tools(od="echo 45 45; exit 1")
        self.assertEqual(self.run_verify("--public-only", "keys", environment=environment),
                         (2, "", "".join(f"keys/{name}: it cannot be read\n" for name in names)))
        self.assertEqual(self.run_verify("--passwords", "words.txt", "keys", environment=environment),
                         (2, "", "keygen-verify: words.txt cannot be read\n"))

    def test_an_output_error_is_reported(self):
        failed = "keygen-verify: the {} could not be written\n"
        with open("/dev/full", "wb") as full:
            self.assertEqual(self.run_verify("--public-only", "keys", stdout=full)[::2], (2, failed.format("output")))
            for option in ("--help", "--version"):
                self.assertEqual(self.run_verify(option, stdout=full)[::2], (2, failed.format("output")))
            # A finding takes precedence, and is printed to standard error.
            replace(self.folder / "keys/publicKeyhash.bin", b"")
            self.assertEqual(self.run_verify("--public-only", "keys", stdout=full)[::2],
                             (1, "keys/publicKeyhash.bin: it has 0 bytes, not 32\n"))

    def closing(self, streams):
        return [*SHELL, "-c", f'exec "$@" {streams}', "sh", *SHELL]

    def test_closed_streams_change_only_the_output(self):
        good = self.line("keys/publicKey.pem") + "all agrees: 1 pair\n"
        closed = "keygen-verify: the output could not be written\n"
        for streams, expected in (("<&-", (0, good, "")), ("2>&-", (0, good, "")), (">&-", (2, "", closed)),
                                  ("<&- 2>&-", (0, good, "")), ("<&- >&-", (2, "", closed)),
                                  ("<&- >&- 2>&-", (2, "", ""))):
            with self.subTest(streams=streams):
                self.assertEqual(self.with_passwords("keys", shell=self.closing(streams)), expected)
        replace(self.folder / "keys/publicKeyhash.bin", bytes(32))
        for streams in ("<&- >&- 2>&-", "2>&-"):
            self.assertEqual(self.with_passwords("keys", shell=self.closing(streams)), (1, "", ""))

    def test_a_reader_that_ends_early_ends_the_run(self):
        process = subprocess.Popen([*SHELL, VERIFY, "--public-only", "keys"], cwd=self.folder, stdin=subprocess.DEVNULL,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        process.stdout.close()
        self.assertEqual((process.stderr.read(), process.wait()), (b"", -signal.SIGPIPE))
        process.stderr.close()

    def test_the_tools_of_busybox_suffice(self):
        """As on a system that has no others."""
        folder = self.folder.parent / "busybox tools"
        folder.mkdir()
        for name in ("awk", "od", "ls", "sed"):
            (folder / name).symlink_to(shutil.which("busybox"))
        make_packet(self.folder, "-ecc", "brainpoolP256t1", passwords=["only one"])
        (self.folder / "words.txt").write_text("correct horse\nonly one\n")
        (self.folder / "keys").rename(self.folder / "Schlüssel\n")
        good = self.with_passwords("Schlüssel\n")
        self.assertEqual(good[::2], (0, ""))
        environment = {"PATH": f"{folder}:{os.environ['PATH']}"}
        self.assertEqual(self.with_passwords("Schlüssel\n", environment=environment), good)
        replace(self.folder / "Schlüssel\n/publicKey.pem", pem("PUBLIC KEY", public_der("prime256v1", (0, 0))))
        self.assertEqual(self.with_passwords("Schlüssel\n", environment=environment)[2].splitlines()[0],
                         "Schlüssel?/publicKey.pem: its point is not on the curve prime256v1")

    def test_files_named_like_arguments_of_tools_do_not_matter(self):
        """The working directory contains files with the names of arguments that the script passes to tools."""
        for name in ("-An", "-N", "u1", "x1", "-v", "label=PUBLIC KEY", "openssl", "dgst"):
            (self.folder / name).write_text("#!/bin/sh\nexit 1\n")
        self.assertEqual(self.with_passwords("keys"),
                         (0, self.line("keys/publicKey.pem") + "all agrees: 1 pair\n", ""))


if __name__ == "__main__":
    unittest.main()
