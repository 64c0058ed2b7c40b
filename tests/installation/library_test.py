#!/usr/bin/python3
"""The installed library, as other programs use it: library_test.py [OPTIONS OF CMAKE FOR A BUILD OF THE TREE]

The tree is built and installed once. Then the build directory is removed and the installation moved, before anything
is built against it. KEYGEN_VERSION names the version, KEYGEN_COMPILER the compiler."""

import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
import textwrap
import unittest

OPTIONS = sys.argv[1:]
VERSION = os.environ["KEYGEN_VERSION"]
MAJOR, MINOR, _ = map(int, VERSION.split("."))
TREE = pathlib.Path(__file__).resolve().parents[2]

sys.path.append(str(TREE / "tests/support"))
from transcripts import RESET

PLAIN_MESSAGES = """\
Prime256v1 curve is selected.\x20
AES_256_cbc algorithm is selected for private key encryption
Generating Prime256v1 keys...\x20
Private key PEM file created\x20
Public key PEM file created\x20
public key hash file created\x20
Reading Private Key File...\x20
ECDSA signature generated.
Signature verification: SUCCESS\x20
"""
COLOURED_MESSAGES = "".join(
    f"\x1b[49m {line}{RESET}" for line in PLAIN_MESSAGES.replace("SUCCESS \n", "").splitlines(keepends=True)
) + f"\x1b[00;32m SUCCESS \n{RESET}"


def run(*command, status=0, **options):
    result = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                            universal_newlines=True, **options)
    if result.returncode != status:
        raise AssertionError(f"{command}: status {result.returncode}\n{result.stdout}{result.stderr}")
    return result


def build(source, folder, target, *options, **environment):
    environment = dict(os.environ, CXX=os.environ["KEYGEN_COMPILER"], **environment)
    run("cmake", "-S", str(source), "-B", str(folder), *options, env=environment)
    run("cmake", "--build", str(folder), "--parallel", "2", "--target", target, env=environment)


def files_in(folder):
    return [each for each in folder.rglob("*") if each.is_file()]


class InstalledLibrary(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        top = pathlib.Path(os.path.realpath(folder.name))
        cls.first_places = [top / "built", top / "installed"]
        built, installed = cls.first_places
        # A compiler cache may change the names of the sources that it passes to the compiler.
        os.environ.pop("CMAKE_CXX_COMPILER_LAUNCHER", None)
        build(TREE, built, "key_engine", "-DBUILD_TESTING=OFF", "-DCMAKE_BUILD_TYPE=Release", *OPTIONS)
        run("cmake", "--install", str(built), "--prefix", str(installed), "--component", "library")
        shutil.rmtree(built)
        cls.prefix = top / "moved" / "with a blank"
        cls.prefix.parent.mkdir()
        installed.rename(cls.prefix)
        cls.pkgconfig = next(cls.prefix.glob("lib*/**/pkgconfig"))
        cls.environment = dict(os.environ, CXX=os.environ["KEYGEN_COMPILER"], CMAKE_PREFIX_PATH=str(cls.prefix),
                               PKG_CONFIG_PATH=str(cls.pkgconfig))

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def pkg_config(self, *arguments, status=0):
        return run("pkg-config", *arguments, env=self.environment, status=status).stdout

    def configure(self, project, *options, status=0):
        (self.folder / "CMakeLists.txt").write_text("cmake_minimum_required(VERSION 3.22)\nproject(caller LANGUAGES CXX)\n"
                                                    + textwrap.dedent(project))
        return run("cmake", "-S", str(self.folder), "-B", str(self.folder / "build"), *options, env=self.environment,
                   status=status)

    def test_the_commands_of_the_document_do_what_it_says(self):
        documents = self.prefix / "share/doc/keygen/docs"
        shutil.copytree(documents / "library", self.folder / "library")
        blocks = [textwrap.dedent(each) for each in
                  re.findall(r"(?<=\n\n)(?: {4}.*\n)+", (documents / "library.md").read_text("utf-8"))]

        def type_block(number, change=lambda commands: commands):
            return run("sh", "-euc", change(blocks[number]), cwd=self.folder / "library", env=self.environment)

        self.assertEqual(len(blocks), 4)
        type_block(0)
        type_block(1)
        for program in ("./first_program", "build/first_program"):
            made = type_block(2, lambda commands: commands.replace("./first_program", program))
            self.assertEqual((made.stdout, made.stderr), (COLOURED_MESSAGES, ""))
            self.assertEqual((self.folder / "library/letter.txt.sig").stat().st_size, 64)
            verified = type_block(3)
            self.assertEqual((verified.stdout, verified.stderr), ("Verified OK\n", ""))

    def test_a_program_can_supply_its_own_message_function(self):
        source = self.prefix / "share/doc/keygen/docs/library"
        run("cmake", "-S", str(source), "-B", str(self.folder), env=self.environment)
        run("cmake", "--build", str(self.folder), "--target", "plain_program", env=self.environment)
        flags = shlex.split(self.pkg_config("--cflags", "--libs", "key_engine"))
        run(os.environ["KEYGEN_COMPILER"], "-std=c++17", str(source / "own_messages.cpp"),
            str(source / "first_program.cpp"), *flags, "-o", str(self.folder / "by_pkg_config"))
        (self.folder / "letter").write_text("Dear reader,\n")
        for program in ("plain_program", "by_pkg_config"):
            made = subprocess.run([str(self.folder / program), "letter"], cwd=self.folder, input=b"correct horse\n",
                                  stdout=subprocess.PIPE, stderr=subprocess.PIPE)
            self.assertEqual((made.returncode, made.stdout, made.stderr.decode()), (0, b"", PLAIN_MESSAGES))

    def test_another_version_is_refused(self):
        versions = {f"{MAJOR}": 1, f"{MAJOR}.{MINOR}": 1, VERSION: 1, f"{MAJOR}.{MINOR + 1}": 0,
                    f"{MAJOR + 1}": 0, f"{MAJOR - 1}": 0, f"{MAJOR - 1}.{MINOR}": 0}
        shown = self.configure(f"""
            foreach(version {" ".join(versions)})
              find_package(KeyEngine ${{version}} QUIET)
              message(STATUS "version ${{version}}: ${{KeyEngine_FOUND}}")
              unset(KeyEngine_DIR CACHE)
            endforeach()
            """).stdout
        self.assertEqual(dict(re.findall(r"^-- version (\S+): (\d)$", shown, re.M)),
                         {version: str(found) for version, found in versions.items()})
        self.assertEqual(self.pkg_config("--modversion", "key_engine"), f"{VERSION}\n")

    def test_another_major_version_of_openssl_is_refused(self):
        (self.folder / "openssl").mkdir()
        (self.folder / "openssl/opensslv.h").write_text('# define OPENSSL_VERSION_STR "9.9.9"\n')
        library = self.folder / "libcrypto.so"
        library.touch()
        refused = self.configure("find_package(KeyEngine REQUIRED)", f"-DOPENSSL_INCLUDE_DIR={self.folder}",
                                 f"-DOPENSSL_CRYPTO_LIBRARY={library}", status=1).stderr
        self.assertRegex(refused,
                         r"Could NOT find OpenSSL[^:]*:\s+Found\s+unsuitable\s+version\s+\"9\.9\.9\"")

    def test_each_header_compiles_alone_and_without_warnings(self):
        flags = shlex.split(self.pkg_config("--cflags", "key_engine"))
        headers = sorted((self.prefix / "include/key_engine").iterdir())
        self.assertEqual([each.name for each in headers], ["console.h", "crypto.h", "ec_crypto.h"])
        for header in headers:
            source = self.folder / "source.cpp"
            source.write_text(f"#include <key_engine/{header.name}>\n")
            # The first of the flags are for this project; the rest name headers of other projects.
            run(os.environ["KEYGEN_COMPILER"], "-std=c++17", "-Wall", "-Wextra", "-Wpedantic", "-Werror", "-fsyntax-only",
                str(source), flags[0], *(each.replace("-I", "-isystem", 1) for each in flags[1:]))

    def test_no_file_contains_the_path_of_the_build(self):
        # The path of an OpenSSL that callers would not find is included.
        openssl = [option.split("=")[1].encode() for option in OPTIONS if "OPENSSL_ROOT_DIR=" in option]
        found = files_in(self.prefix)
        self.assertGreater(len(found), 10)
        for each in found:
            content = each.read_bytes()
            for place in openssl:
                content = content.replace(place, b"")
            for place in (TREE, *self.first_places):
                self.assertNotIn(bytes(place), content, each.name)

    def test_callers_choose_the_api_level_of_openssl(self):
        self.assertEqual([each.name for each in files_in(self.prefix) if b"OPENSSL_API_COMPAT" in each.read_bytes()], [])
        self.assertNotIn("OPENSSL_API_COMPAT", self.pkg_config("--cflags", "key_engine"))

    def test_a_tree_that_contains_this_one_behaves_the_same(self):
        document = (self.prefix / "share/doc/keygen/docs/library/CMakeLists.txt").read_text("utf-8")
        lines = [line for line in document.splitlines() if "first_program.cpp" in line or "first_program PRIVATE" in line]
        shutil.copy(TREE / "docs/library/first_program.cpp", self.folder)
        (self.folder / "CMakeLists.txt").write_text("\n".join([
            "cmake_minimum_required(VERSION 3.22)", "project(caller LANGUAGES CXX)",
            f'add_subdirectory("{TREE}" engine EXCLUDE_FROM_ALL)', *lines[:2], ""]))
        build(self.folder, self.folder / "build", "first_program", "-DCMAKE_BUILD_TYPE=Debug", *OPTIONS)
        (self.folder / "letter").write_text("Dear reader,\n")
        made = subprocess.run([str(self.folder / "build/first_program"), "letter"], cwd=self.folder,
                              input=b"correct horse\n", stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.assertEqual((made.returncode, made.stdout.decode(), made.stderr), (0, COLOURED_MESSAGES, b""))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
