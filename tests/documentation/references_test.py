#!/usr/bin/python3
"""The references in the documents have targets, and the map in CONTRIBUTING.md lists each file of the program,
in the order of the build."""

import re
import unittest

from tree import TREE

DOCUMENTS = [*TREE.glob("*.md"), *(TREE / "docs").glob("*.md")]
# The documents in the package have the same relative paths as in the tree.
PACKAGED = "usr/share/doc/keygen/"


class References(unittest.TestCase):
    def test_links_have_targets(self):
        links = 0
        for document in DOCUMENTS:
            text = document.read_text("utf-8")
            for target, place in re.findall(r"\]\(([^):#]*)(?:#([\w-]+))?\)", text):
                with self.subTest(document=document.name, target=target, place=place):
                    links += 1
                    found = document.parent / target if target else document
                    self.assertTrue(found.is_file())
                    if place:
                        headings = re.findall(r"^#+ (.*)$", found.read_text("utf-8"), re.M)
                        self.assertIn(place, [each.lower().replace(" ", "-") for each in headings])
        self.assertGreater(links, 5)

    def test_links_in_the_package_have_targets(self):
        patterns = (TREE / "debian/keygen.install").read_text("utf-8").split()
        packaged = {each for pattern in patterns if pattern.startswith(PACKAGED)
                    for each in TREE.glob(pattern[len(PACKAGED):])}
        for document in DOCUMENTS:
            for target in re.findall(r"\]\(([^):#]+)(?:#[\w-]+)?\)", document.read_text("utf-8")):
                with self.subTest(document=document.name, target=target):
                    found = (document.parent / target).resolve()
                    self.assertTrue(packaged & {found, *found.parents})

    def test_named_files_exist(self):
        folders = "bench|cmake|completions|docs|keygen|man|script|src|tests|verify|[.]ci"
        for document in DOCUMENTS:
            # A part in capitals is a placeholder for any name.
            for name in re.findall(r"`((?:%s)/[a-z0-9_./-]*)" % folders, document.read_text("utf-8")):
                with self.subTest(document=document.name, name=name):
                    self.assertTrue((TREE / name).exists() or (TREE / f"{name}.h").exists())

    def files_of_the_map(self):
        text = (TREE / "CONTRIBUTING.md").read_text("utf-8")
        table = re.search(r"^## The map$(.*?)^## ", text, re.M | re.S)[1]
        shown = []
        for name in re.findall(r"^\| `(.*?)` \|", table, re.M):
            # A name without an extension means a header and its source.
            shown += [name] if "." in name else [f"{name}.cpp", f"{name}.h"]
        return shown

    def test_the_map_lists_each_file_of_the_program_once(self):
        files = [str(each.relative_to(TREE)) for folder in ("keygen", "src") for each in (TREE / folder).iterdir()]
        self.assertEqual(sorted(self.files_of_the_map()), sorted(files))

    def test_the_build_lists_the_files_in_the_order_of_the_map(self):
        text = (TREE / "CMakeLists.txt").read_text("utf-8")
        for library in ("key_engine", "keygen_frontend"):
            listed = re.search(rf"^add_library\({library} STATIC\n((?: +\w+/\S+\n)+)", text, re.M)[1].split()
            with self.subTest(library=library):
                self.assertEqual(listed, [each for each in self.files_of_the_map() if each in listed])


if __name__ == "__main__":
    unittest.main()
