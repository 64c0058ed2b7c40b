#!/usr/bin/python3
"""What `cmake --install` installs. KEYGEN_BUILD names the build directory, KEYGEN_LIBDIR the directory for libraries,
KEYGEN_CONFIGURATION the configuration of the build, KEYGEN_VERSION the version."""

import os
import pathlib
import re
import subprocess
import tempfile
import unittest

BUILD = os.path.realpath(os.environ["KEYGEN_BUILD"])
LIBDIR = os.environ["KEYGEN_LIBDIR"]
CONFIGURATION = os.environ["KEYGEN_CONFIGURATION"] or "noconfig"
VERSION = os.environ["KEYGEN_VERSION"]
TREE = pathlib.Path(__file__).resolve().parents[2]

PROGRAMS = {
    "bin/keygen",
    "bin/keygen-verify",
}
DATA = {
    "share/man/man1/keygen.1",
    "share/man/man1/keygen-verify.1",
    "share/bash-completion/completions/keygen",
    "share/bash-completion/completions/keygen-verify",
    "share/zsh/site-functions/_keygen",
    "share/zsh/site-functions/_keygen-verify",
    "share/fish/vendor_completions.d/keygen.fish",
    "share/fish/vendor_completions.d/keygen-verify.fish",
    "share/doc/keygen/LICENSE",
    "share/doc/keygen/README.md",
    "share/doc/keygen/CHANGELOG.md",
    "share/doc/keygen/CONTRIBUTING.md",
    "share/doc/keygen/docs/files.md",
    "share/doc/keygen/docs/many.md",
    "share/doc/keygen/docs/security.md",
    "share/doc/keygen/docs/testing.md",
    "share/doc/keygen/docs/performance.md",
    "share/doc/keygen/docs/screens/pair.svg",
    "share/doc/keygen/docs/screens/dialogue.svg",
    "share/doc/keygen/docs/library.md",
    "share/doc/keygen/docs/library/CMakeLists.txt",
    "share/doc/keygen/docs/library/first_program.cpp",
    "share/doc/keygen/docs/library/own_messages.cpp",
    "include/key_engine/console.h",
    "include/key_engine/crypto.h",
    "include/key_engine/ec_crypto.h",
    f"{LIBDIR}/libkey_engine.a",
    f"{LIBDIR}/cmake/KeyEngine/KeyEngineConfig.cmake",
    f"{LIBDIR}/cmake/KeyEngine/KeyEngineConfigVersion.cmake",
    f"{LIBDIR}/cmake/KeyEngine/KeyEngineTargets.cmake",
    f"{LIBDIR}/cmake/KeyEngine/KeyEngineTargets-{CONFIGURATION}.cmake",
    f"{LIBDIR}/pkgconfig/key_engine.pc",
}


def run(*command, **options):
    return subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          universal_newlines=True, **options)


def sources():
    """The files of the tree, without the tests, and without what was built or generated there."""
    for pattern in ("CMake*", "*.md", "LICENSE", "debian/c*", "debian/rules", "debian/*.install"):
        yield from TREE.glob(pattern)
    for folder in (".ci", ".github", "bench", "cmake", "completions", "docs", "keygen", "man", "script", "src", "verify"):
        yield from (each for each in (TREE / folder).rglob("*") if each.is_file())


class Installation(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def install(self, prefix, **environment):
        # Each installation overwrites the list of installed files in the build directory, whoever makes it.
        result = run("cmake", "--install", BUILD, "--prefix", str(prefix), env=dict(os.environ, **environment))
        self.assertEqual(result.returncode, 0, result.stdout)

    def assert_holds_the_program(self, prefix):
        found = {str(each.relative_to(prefix)): each.stat().st_mode & 0o7777
                 for each in prefix.rglob("*") if not each.is_dir()}
        expected = dict({name: 0o755 for name in PROGRAMS}, **{name: 0o644 for name in DATA})
        self.assertEqual(found, expected)
        result = run(str(prefix / "bin/keygen"), "--version")
        self.assertEqual(result.returncode, 0, result.stdout)
        self.assertIn(f"Version: v{VERSION}\n", result.stdout)
        result = run(str(prefix / "bin/keygen-verify"), "--version")
        self.assertEqual((result.returncode, result.stdout), (0, f"keygen-verify {VERSION}\n"))

    def test_the_program_can_be_installed_into_any_prefix(self):
        prefix = self.folder / "a prefix" / "with a blank"
        self.install(prefix)
        self.assert_holds_the_program(prefix)

    def test_the_program_can_be_installed_into_a_staging_directory(self):
        self.install("/usr", DESTDIR=str(self.folder))
        self.assertEqual([each.name for each in self.folder.iterdir()], ["usr"])
        self.assert_holds_the_program(self.folder / "usr")

    def test_a_private_umask_does_not_change_the_modes(self):
        mask = os.umask(0o077)
        self.addCleanup(os.umask, mask)
        self.install(self.folder / "prefix")
        self.assert_holds_the_program(self.folder / "prefix")

    def test_the_links_in_the_documents_have_targets(self):
        self.install(self.folder)
        links = 0
        for document in (self.folder / "share/doc/keygen").rglob("*.md"):
            for target in re.findall(r"\]\(([^):#]+)\)", document.read_text("utf-8")):
                links += 1
                self.assertTrue((document.parent / target).is_file(), f"{document.name}: {target}")
        self.assertGreater(links, 5)

    def test_the_manuals_contain_the_version(self):
        self.install(self.folder)
        for name in ("keygen.1", "keygen-verify.1"):
            manual = (self.folder / "share/man/man1" / name).read_text("utf-8")
            self.assertIn(f"This is the manual of version {VERSION}.\n", manual)
            self.assertNotIn("@", manual)

    def test_keygen_verify_checks_what_keygen_makes(self):
        self.install(self.folder)
        for name in ("keygen", "keygen-verify"):
            self.assertTrue(os.access(self.folder / "bin" / name, os.X_OK))
        run(str(self.folder / "bin/keygen"), "-abs", str(self.folder / "keys"), "-pwd", "secret", check=True)
        result = run(str(self.folder / "bin/keygen-verify"), "--public-only", str(self.folder / "keys"))
        self.assertEqual(result.returncode, 0, result.stdout)

    def test_the_program_does_not_search_the_build_directory_for_libraries(self):
        self.install(self.folder)
        dynamic = run("readelf", "--dynamic", "--wide", str(self.folder / "bin/keygen"), check=True).stdout
        self.assertIn("(NEEDED)", dynamic)
        for search_path in re.findall(r"\((?:RPATH|RUNPATH)\).*\[(.*)\]", dynamic):
            for folder in search_path.split(":"):
                self.assertFalse(f"{folder}/".startswith(f"{BUILD}/"), folder)

    def test_the_version_is_in_one_place(self):
        # The changelogs have entries for versions, and the screens show runs.
        elsewhere = ["CHANGELOG.md", "debian/changelog", "docs/screens/pair.svg", "docs/screens/dialogue.svg"]
        found = [str(each.relative_to(TREE)) for each in sources() if VERSION.encode() in each.read_bytes()]
        self.assertEqual(sorted(found), sorted(["CMakeLists.txt", *elsewhere]))
        self.assertEqual((TREE / "CMakeLists.txt").read_text("utf-8").count(VERSION), 1)

    def test_the_newest_entry_in_the_changelog_is_for_this_version(self):
        changes = (TREE / "CHANGELOG.md").read_text("utf-8")
        self.assertEqual(re.search(r"^## (\S+) \(\d{4}-\d\d-\d\d\)$", changes, re.M).group(1), VERSION)

    def test_the_newest_debian_package_is_for_this_version(self):
        changes = (TREE / "debian/changelog").read_text("utf-8")
        self.assertEqual(re.match(r"keygen \((\S+)-\d+\) ", changes).group(1), VERSION)

    def test_the_debian_packages_require_what_the_tests_need(self):
        needs = re.findall(r'^    ".*\|.*\| (\S+)"$', (TREE / "script/lib/setup.sh").read_text("utf-8"), re.M)
        self.assertGreater(len(needs), 10)
        control = (TREE / "debian/control").read_text("utf-8")
        listed = re.findall(r"^ ([^ ,]+)", control[:control.index("Standards-Version")], re.M)
        # Every build on Debian has a compiler and make.
        self.assertEqual(sorted(set(needs) - {"g++", "ninja-build"} - set(listed)), [])


if __name__ == "__main__":
    unittest.main()
