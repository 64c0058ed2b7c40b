"""The names of the program's options, read from its own table, and what the manual says of their values."""

import pathlib
import re

TREE = pathlib.Path(__file__).resolve().parents[2]
SOURCE = TREE / "keygen/run_settings.cpp"

# Long names that the program accepts and ignores. The documents describe them separately from the options that they
# seem to mean. bash, which shows no descriptions, does not offer them.
IGNORED = {"--public-key-hash", "--prvkey-enc"}


def known_options():
    table = re.search(r"tab_command_name = \{(.*?)\};", SOURCE.read_text("utf-8"), re.S).group(1)
    return re.findall(r'"(.*?)"', table)


def manual_groups(with_value=False):
    """The groups of names that share a description in the manual; with_value: only those that take a value."""
    for line in re.findall(r"^\.It (Fl .*)$", (TREE / "man/keygen.1.in").read_text("utf-8"), re.M):
        names, value, _ = line.partition(" Ar ")
        if value or not with_value:
            yield frozenset("-" + name[len("Fl "):] for name in names.replace("\\&", "").split(" , "))


def assert_names(case, place, names, expected):
    """Fails, naming the place, unless it names the expected options and no others."""
    names, expected = set(names), set(expected)
    case.assertEqual(sorted(expected - names), [], f"{place} does not name these options")
    case.assertEqual(sorted(names - expected), [], f"{place} names options that the program does not have")
