"""What the runs of the sweep print, composed from the transcripts, message by message.

Only messages that nothing but a failed allocation causes are defined here.
"""
import os
import pathlib
import re
import sys

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1] / "support"))
from transcripts import RESET, transcript

ONE_PASSWORD = "correct horse"
PASSWORDS = [f"password {i}" for i in range(8)]
RANDOM_SIZE = 9000
ARGUMENTS = {
    "pair": ["-pwd", ONE_PASSWORD, "-abs", "keys"],
    "again": ["-pwd", ONE_PASSWORD, "-abs", "keys"],
    "packet": ["-n", "8", "-pwd", *PASSWORDS, "-abs", "packet"],
    "random": ["-rand", str(RANDOM_SIZE), "noise.bin"],
}


def messages(name, *replacements):
    """The messages of a transcript, with its paths or sizes replaced."""
    text = transcript(name)
    for there, here in replacements:
        assert there in text, (name, there)
        text = text.replace(there, here)
    assert text.endswith(RESET), name
    return [message + RESET for message in text.split(RESET)[:-1]]


def error(text):
    return "\x1b[00;31m " + text + RESET


# Messages of functions that fail only if an allocation fails.
NO_KEY = error("Error occured while generating Keypair! \n")
NO_BUFFER = error("Error: allocating buffer for PubKey hash fails\n")
# This message has no colour.
NOT_CONVERTED = "Error: converting public Key to DER Format fails \n"
NOT_ENCODED = [error("Error: creating buffer for DER fromat public key fails\n"),
               error("Error: creating DER fromat public key fails\n")]
NOT_HASHED = [error("unknown message digest "), error("Error : calculating public Key (DER Format) hash fails\n"),
              error("Error: calculating PubKey hash fails\n")]
DEFINED_HERE = [NO_KEY, NO_BUFFER, NOT_CONVERTED, *NOT_ENCODED, *NOT_HASHED]

# A run for one pair: three messages of the banner, one for the curve, then what each pair prints.
PAIR = messages("pair_prime256v1_aes256")
BANNER, SELECTED, REPORTED_PAIR = "".join(PAIR[:3]), PAIR[3], PAIR[4:]
STARTED = "".join(REPORTED_PAIR[:2])
PRIVATE_CREATED, PUBLIC_CREATED, HASH_CREATED = REPORTED_PAIR[2:5]
MADE = STARTED + PRIVATE_CREATED + PUBLIC_CREATED + HASH_CREATED


def failure(name, *replacements):
    """What a failing pair prints after its start, without the messages for the files that it created."""
    return "".join(messages(name, *replacements)[6:]).replace(PRIVATE_CREATED, "").replace(PUBLIC_CREATED, "")


PRIVATE_NOT_CREATED = failure("pair_without_private_key")
PRIVATE_NOT_WRITTEN = failure("pair_private_key_unwritten")
PUBLIC_NOT_CREATED = failure("pair_without_public_key")
PUBLIC_NOT_WRITTEN = failure("pair_public_key_unwritten")
PAIR_FAILED = messages("pair_without_hash")[-1]
HASH_FAILED = messages("pair_without_hash")[-2]
FILES_NOT_FOUND = [messages(f"pair_{name}_not_found")[-1] for name in ("private_key", "public_key", "hash")]

# In a packet, each step begins like a pair. The last step is followed by the messages about the table.
PACKET = messages("packet_prime256v1_aes256")
TABLE_REPORTED = "".join(PACKET[-3:])
TABLE_NOT_WRITTEN = "".join(messages("packet_without_table_hash")[-4:])
TABLE_NOT_FOUND = messages("packet_without_table_hash")[-1]
STEPS = [REPORTED_PAIR[0] + step for step in "".join(PACKET[4:-3]).split(REPORTED_PAIR[0])[1:]]
assert len(STEPS) == 8
NOT_EXTRACTED = messages("packet_without_public_keys")[-4]
WITHOUT_PRIVATE_KEY_3 = "".join(messages("packet_without_private_key_3"))


class Pair:
    """The files of a pair, and what is printed about them."""

    def __init__(self, password, number=None):
        text = "" if number is None else f"0{number}"
        folder, hash_name = ("keys", "hash") if number is None else ("packet", "Hash")
        self.number = number
        self.password = password
        self.private = f"{folder}/privateKey{text}.pem"
        self.public = f"{folder}/publicKey{text}.pem"
        self.hash = f"{folder}/publicKey{hash_name}{text}.bin"
        self.files = [self.private, self.public, self.hash]
        self.reported = "".join(REPORTED_PAIR) if number is None else STEPS[number]
        assert self.reported.startswith(MADE) and all(path in self.reported for path in self.files)
        # The first message after the files reports the success.
        self.success = self.reported[len(MADE):].split(RESET)[0]
        self.hash_not_written = failure("pair_without_hash", ("keys/publicKeyhash.bin", self.hash))
        # The messages after the failure of pair 3, whose public key cannot be opened for the table.
        after = WITHOUT_PRIVATE_KEY_3.split(PAIR_FAILED)[1].split(STARTED)[0]
        self.unread = after.replace("packet/publicKey03.pem", self.public)


PAIRS = {"pair": [Pair(ONE_PASSWORD)], "again": [Pair(ONE_PASSWORD)],
         "packet": [Pair(password, number) for number, password in enumerate(PASSWORDS)]}
TABLE = "packet/publicKeysHashHashes.bin"


def refusals(folder):
    """A missing directory, and a question answered with n: for each of the three paths."""
    question = "".join(messages("base_folder_declined", ("new/sub", folder))[3:5])
    names = [("public_key_folder_declined", "a/p.pem", "publicKey.pem"),
             ("private_key_folder_declined", "b/k.pem", "privateKey.pem"),
             ("hash_folder_declined", "c/h.bin", "publicKeyhash.bin")]
    return [question + "".join(messages(name, (there, f"{folder}/{here}"))[-3:]) for name, there, here in names]


def expected_pair(pair, call, purpose):
    """What a pair prints if `call` failed for `purpose`, the files that it created, and those that it completed."""
    writing = {"write", "interrupted", "fflush"}
    created, written = [pair.private], [pair.private]
    if (call, purpose) == ("fopen", "wb " + pair.private):
        return STARTED + PRIVATE_NOT_CREATED, [], []
    if purpose in (pair.private, "wb " + pair.private) and call in writing | {"fclose"}:
        return STARTED + PRIVATE_NOT_WRITTEN, created, []
    text = STARTED + PRIVATE_CREATED
    if (call, purpose) == ("fopen", "wb " + pair.public):
        return text + PUBLIC_NOT_CREATED, created, written
    created = created + [pair.public]
    if purpose in (pair.public, "wb " + pair.public) and call in writing | {"fclose"}:
        # A close that fails still flushes the stream, and so does the close after a failed flush.
        whole = call in ("fclose", "fflush")
        return text + PUBLIC_NOT_WRITTEN, created, written + [pair.public] * whole
    written = written + [pair.public]
    if purpose in (pair.hash, "wb " + pair.hash) and call in writing | {"fopen", "fclose"}:
        return text + PUBLIC_CREATED + pair.hash_not_written, created + [pair.hash] * (call != "fopen"), written
    return pair.reported, pair.files, pair.files


def expected_keys(run, call, purpose):
    """The output, the status and the files of a run that makes keys."""
    folder = os.path.dirname(PAIRS[run][0].private)
    if (call, os.path.normpath(purpose)) == ("mkdir", folder):
        return BANNER + refusals(folder)[0], 1, []
    text, created = BANNER + SELECTED, []
    for pair in PAIRS[run]:
        printed, pair_created, written = expected_pair(pair, call, purpose)
        text, created = text + printed, created + pair_created
        if run != "packet":
            continue
        if (call, purpose) == ("fopen", "rb " + pair.public) or pair.public not in pair_created:
            text += pair.unread
        elif pair.public not in written:
            text += NOT_EXTRACTED
    if run != "packet":
        return text, 0, created
    if purpose in (TABLE, "wb " + TABLE) and call in ("fopen", "write", "interrupted", "fflush", "fclose"):
        return text + TABLE_NOT_WRITTEN, 1, created + [TABLE] * (call != "fopen")
    return text + TABLE_REPORTED, 0, created + [TABLE]


SIZES = ("16 Bytes", f"{RANDOM_SIZE} Bytes")
RANDOM = messages("random_data", SIZES)
ANNOUNCED = "".join(RANDOM[:-1])
RANDOM_NOT_CREATED, RANDOM_FAILED = messages("random_data_without_folder", ("missing/noise.bin", "noise.bin"))[-2:]
RANDOM_NOT_WRITTEN = messages("random_data_on_full_device", ("full.bin", "noise.bin"))[-2]


def expected_random(call, purpose):
    if call in ("getentropy", "getrandom") or (call, purpose) == ("open", "noise.bin"):
        return ANNOUNCED + RANDOM_NOT_CREATED + RANDOM_FAILED, 1, []
    if purpose == "noise.bin" and call in ("write", "close"):
        return ANNOUNCED + RANDOM_NOT_WRITTEN + RANDOM_FAILED, 1, ["noise.bin"]
    # An interruption by a signal, or a partial write, is not a failure.
    return "".join(RANDOM), 0, ["noise.bin"]


def expected(run, call, purpose):
    """The output, the status and the files of a run in which `call` failed for `purpose`."""
    return expected_random(call, purpose) if run == "random" else expected_keys(run, call, purpose)


def either(*choices):
    return "(?:" + "|".join(choices) + ")"


def failures_of_pair(pair):
    """A regular expression for what a failing pair prints."""
    literal = re.escape
    not_encoded = either(literal(NOT_EXTRACTED), *map(literal, NOT_ENCODED))
    no_hash = either(
        literal(pair.hash_not_written),
        either(literal(NO_BUFFER),
               either(not_encoded + literal(NOT_CONVERTED),
                      either(literal(NOT_HASHED[0]), "") + literal(NOT_HASHED[1])) + literal(NOT_HASHED[2])) +
        literal(HASH_FAILED + PAIR_FAILED))
    no_public_key = either(literal(PUBLIC_NOT_CREATED), literal(PUBLIC_NOT_WRITTEN))
    no_private_key = either(literal(PRIVATE_NOT_CREATED), literal(PRIVATE_NOT_WRITTEN))
    return literal(STARTED) + either(
        literal(NO_KEY + PAIR_FAILED), no_private_key,
        literal(PRIVATE_CREATED) + either(no_public_key, literal(PUBLIC_CREATED) + no_hash))


def possible_outputs(run):
    """Regular expressions for everything that a run may print if an allocation fails, by its status."""
    literal = re.escape
    if run == "random":
        return {0: literal("".join(RANDOM)),
                1: literal(ANNOUNCED) + either(literal(RANDOM_NOT_CREATED), literal(RANDOM_NOT_WRITTEN)) +
                   literal(RANDOM_FAILED)}
    folder = os.path.dirname(PAIRS[run][0].private)
    ended, going_on = [literal(BANNER) + either(*map(literal, refusals(folder)))], literal(BANNER + SELECTED)
    for pair in PAIRS[run]:
        ended.append(going_on + literal(MADE) + either(*map(literal, FILES_NOT_FOUND)))
        going_on += either(literal(pair.reported), failures_of_pair(pair))
        if run == "packet":
            going_on += either(literal(pair.unread), literal(NOT_EXTRACTED), *map(literal, NOT_ENCODED), "")
    if run == "packet":
        ended.append(going_on + either(literal(TABLE_NOT_WRITTEN), literal(TABLE_NOT_FOUND)))
        going_on += literal(TABLE_REPORTED)
    return {0: going_on, 1: either(*ended)}


POSSIBLE = {run: {status: re.compile(text) for status, text in possible_outputs(run).items()} for run in ARGUMENTS}
