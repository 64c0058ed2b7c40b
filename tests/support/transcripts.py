"""The transcripts, and what the program's messages have in common."""
import pathlib
import re

TREE = pathlib.Path(__file__).resolve().parents[2]
VERSION = re.search(r"^project\(keygen VERSION (\S+)", (TREE / "CMakeLists.txt").read_text("utf-8"), re.MULTILINE)[1]
# The end of each message.
RESET = "\x1b[0m\x1b[39;49m"


def transcript(name):
    return (TREE / "tests/transcripts" / f"{name}.txt").read_text("utf-8").replace("@VERSION@", VERSION)
