"""The names of the program's options, read from its own table."""

import pathlib
import re

SOURCE = pathlib.Path(__file__).resolve().parents[2] / "keygen/run_settings.cpp"

# Long names that the program accepts and ignores. The documents describe them separately from the options that they
# seem to mean. bash, which shows no descriptions, does not offer them.
IGNORED = {"--public-key-hash", "--prvkey-enc"}


def known_options():
    table = re.search(r"tab_command_name = \{(.*?)\};", SOURCE.read_text("utf-8"), re.S).group(1)
    return re.findall(r'"(.*?)"', table)
