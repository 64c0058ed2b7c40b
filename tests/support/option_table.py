"""The names of the program's options, from its own table."""

import pathlib
import re

SOURCE = pathlib.Path(__file__).resolve().parents[2] / "keygen/run_settings.cpp"

# Long spellings that the program accepts and ignores. They are described apart from what they seem to mean, and bash,
# which shows no descriptions, does not offer them.
IGNORED = {"--public-key-hash", "--prvkey-enc"}


def known_options():
    table = re.search(r"tab_command_name = \{(.*?)\};", SOURCE.read_text("utf-8"), re.S).group(1)
    return re.findall(r'"(.*?)"', table)
