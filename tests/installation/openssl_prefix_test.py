#!/usr/bin/python3
"""OPENSSL_ROOT_DIR is used as it is given, or refused: headers of one version are never combined with a library of
another. KEYGEN_CXX names the compiler, KEYGEN_TRIPLET the directory of the architecture on a multi-arch system."""

import os
import pathlib
import re
import subprocess
import tempfile
import unittest

TREE = pathlib.Path(__file__).resolve().parents[2]
COMPILER = os.environ["KEYGEN_CXX"]
TRIPLET = os.environ["KEYGEN_TRIPLET"] or "some-architecture"
OLDER, NEWER = "0x1010106fL", "0x1010117fL"

PROJECT = f"""
cmake_minimum_required(VERSION 3.22)
project(prefix LANGUAGES CXX)
include("{TREE}/cmake/MatchingOpenSSL.cmake")
message(STATUS "taken: ${{OPENSSL_INCLUDE_DIR}} and ${{OPENSSL_CRYPTO_LIBRARY}}")
"""
MISMATCH = "The headers of OpenSSL and its library do not belong together"
INCOMPLETE = "holds no headers or no library of OpenSSL"


def write(path, text):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text, "ascii")


class Prefix(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.temporary = tempfile.TemporaryDirectory(prefix="keygen prefix ")
        cls.addClassCleanup(cls.temporary.cleanup)
        cls.folder = pathlib.Path(cls.temporary.name)
        write(cls.folder / "CMakeLists.txt", PROJECT)
        cls.libraries = {version: cls.make_library(version) for version in (OLDER, NEWER)}

    @classmethod
    def make_library(cls, version):
        source, library = cls.folder / f"{version}.cpp", cls.folder / f"{version}.so"
        write(source, f'extern "C" unsigned long OpenSSL_version_num() {{ return {version}; }}\n')
        subprocess.run([COMPILER, "-shared", "-fPIC", "-o", library, source], check=True)
        return library

    def prefix(self, headers=None, library=None, architecture=""):
        """A directory with headers and a library of these versions, in the subdirectories of an architecture, as on
        Debian, or in those of a build of OpenSSL."""
        prefix = pathlib.Path(tempfile.mkdtemp(dir=self.folder))
        if headers:
            write(prefix / "include/openssl/opensslv.h", f"# define OPENSSL_VERSION_NUMBER  {headers}\n")
            write(prefix / "include/openssl/crypto.h", "#include <openssl/opensslv.h>\n#include <openssl/opensslconf.h>\n"
                  'extern "C" unsigned long OpenSSL_version_num();\n')
            write(prefix / "include" / architecture / "openssl/opensslconf.h", "")
        if library:
            (prefix / "lib" / architecture).mkdir(parents=True)
            (prefix / "lib" / architecture / "libcrypto.so").symlink_to(self.libraries[library])
        return prefix

    def configure(self, prefix, fresh=True):
        build = self.folder / "build"
        if fresh:
            # Keeps what is known about the compiler.
            (build / "CMakeCache.txt").unlink(missing_ok=True)
        result = subprocess.run(
            ["cmake", "-S", self.folder, "-B", build, f"-DCMAKE_CXX_COMPILER={COMPILER}", f"-DOPENSSL_ROOT_DIR={prefix}",
             f"-DCMAKE_LIBRARY_ARCHITECTURE={TRIPLET}"],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, universal_newlines=True)
        # CMake wraps the lines of its messages.
        return result.returncode, re.sub(r"\s+", " ", result.stdout)

    def assert_takes(self, prefix, architecture="", **how):
        status, output = self.configure(prefix, **how)
        self.assertEqual(status, 0, output)
        library = prefix / "lib" / architecture / "libcrypto.so"
        self.assertIn(f"-- taken: {prefix}/include and {library} ", output)

    def assert_refuses(self, prefix, reason, **how):
        status, output = self.configure(prefix, **how)
        self.assertNotEqual(status, 0, output)
        self.assertIn(reason, output)

    def test_a_prefix_with_matching_headers_and_library_is_used(self):
        for version in (OLDER, NEWER):
            self.assert_takes(self.prefix(version, version))

    def test_a_prefix_with_directories_for_the_architecture_is_used(self):
        self.assert_takes(self.prefix(OLDER, OLDER, TRIPLET), TRIPLET)

    def test_a_prefix_with_headers_of_another_version_is_refused(self):
        self.assert_refuses(self.prefix(NEWER, OLDER), MISMATCH)
        self.assert_refuses(self.prefix(OLDER, NEWER, TRIPLET), MISMATCH)

    def test_a_prefix_without_headers_or_library_is_refused_whatever_the_system_has(self):
        for prefix in (self.prefix(), self.prefix(headers=NEWER), self.prefix(library=NEWER)):
            self.assert_refuses(prefix, INCOMPLETE)

    def test_a_prefix_is_used_after_another_one_was_refused_in_the_same_build_directory(self):
        self.assert_refuses(self.prefix(NEWER, OLDER), MISMATCH)
        self.assert_takes(self.prefix(NEWER, NEWER), fresh=False)


if __name__ == "__main__":
    unittest.main()
