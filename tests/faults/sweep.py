#!/usr/bin/env python3
"""Makes every call that a run reaches fail, one run for each, and holds what the run says and leaves behind against
what it is to say and leave.

A failed call for a file has one outcome: the whole output, the status, the files and their modes are compared. After a
failed allocation, or without random bytes, a run may stop in more than one place: its output must be one that the
messages of the failures add up to, with the status that goes with it, or the C++ runtime ends it. It may never crash,
hang, or report a success over a file that is missing, short or wrong.
"""
import argparse
import concurrent.futures
import hashlib
import os
import re
import shutil
import signal
import stat
import subprocess
import sys
import tempfile

from cryptography.hazmat.primitives import serialization

ONE_PASSWORD = "correct horse"
PASSWORDS = [f"password {i}" for i in range(8)]
ARGUMENTS = {
    "pair": ["-pwd", ONE_PASSWORD, "-abs", "keys"],
    "again": ["-pwd", ONE_PASSWORD, "-abs", "keys"],
    "packet": ["-n", "8", "-pwd", *PASSWORDS, "-abs", "keys"],
    "random": ["-rand", "9000", "noise.bin"],
}
RANDOM_SIZE = 9000
SECONDS = 60
# What a run does once, at its end, takes few of its allocations: a packet's table of hashes, say.
LAST_ALLOCATIONS = 200
PRIVATE_MODE, PUBLIC_MODE, DEFAULT_MODE, OVERWRITABLE_MODE = 0o400, 0o444, 0o644, 0o226


class Wrong(Exception):
    """What a run did and must not do."""


# What is printed. All of it is literal; `either` and the functions that call it add up regular expressions.

RESET = "\x1b[0m\x1b[39;49m"


def message(prefix, text):
    return prefix + text + RESET


def success(text):
    return message("\x1b[00;32m ", text)


def info(text):
    return message("\x1b[49m ", text)


def reprompt(text):
    return message("\x1b[00;35m", text)


def error(text):
    return message("\x1b[00;31m ", text)


def title(text):
    return message("\x1b[36m ", text)


RULE = "    \x1b[01m  " + "-" * 67 + "\n"
BANNER = title(RULE) + title(" " * 22 + "Orvelle Key Generator v2.16.0" + " " * 30 + "\n") + title(RULE + "\n")
SELECTED = info("Prime256v1 curve is selected. \n")
STARTED = (info("AES_256_cbc algorithm is selected for private key encryption\n") +
           info("Generating Prime256v1 keys... \n"))
NO_KEY = error("Error occured while generating Keypair! \n")
PRIVATE_CREATED = info("Private key PEM file created \n")
PRIVATE_NOT_CREATED = error("Error: creating Key File fails\n")
PRIVATE_NOT_WRITTEN = error("Error: writing encrypted private Key fails\n")
PRIVATE_FAILED = error("Error occured while creating PEM file!\n")
PUBLIC_CREATED = info("Public key PEM file created \n")
PUBLIC_NOT_CREATED = error("Error: creating key file fails\n")
PUBLIC_NOT_WRITTEN = error("Error: writing key fails\n")
PUBLIC_FAILED = error("Error occured while creating public key PEM file!\n")
HASH_CREATED = info("public key hash file created \n")
HASH_FAILED = error("Error occured while creating public key hash file!\n")
PAIR_FAILED = error("Error: An error occured while generating key files\n")
ENCODING_ERRORS = [error("Error: extracting public key fails\n"),
                   error("Error: creating buffer for DER fromat public key fails\n"),
                   error("Error: creating DER fromat public key fails\n")]
DIGEST_ERROR = error("Error : calculating public Key (DER Format) hash fails\n")
TABLE_REPORTED = success("Hash of table of Hash of {algorithm + public Key} file generated successfully.\n") + info(
    "+ Hash Hash: ") + info("keys/publicKeysHashHashes.bin\n")
TABLE_MISSING = error("Error: Hash hashes file path does not exist\n")


def refusal(path, spelling):
    """A folder that is not there, and a question that is answered with n."""
    first, second = "Error: Creating file path has failed\n", "Please make sure you have entered the correct path.\n"
    question = info("keys\n") + reprompt("Warning: File path does not exist. Do you want to create it?\n(y/n)")
    return question + error(spelling(first)) + info(path + "\n") + error(spelling(second))


def in_lower_case(text):
    return text.replace("Creating", "creating").replace("Please", "please")


REFUSALS = [refusal("keys/publicKey.pem", str), refusal("keys/privateKey.pem", str),
            refusal("keys/publicKeyhash.bin", in_lower_case)]


class Pair:
    """The files of a pair, and what is printed about them."""

    def __init__(self, password, number=None):
        text = "" if number is None else f"0{number}"
        self.number = number
        self.password = password
        self.private = f"keys/privateKey{text}.pem"
        self.public = f"keys/publicKey{text}.pem"
        self.hash = f"keys/publicKeyhash{text}.bin" if number is None else f"keys/publicKeyHash{text}.bin"
        done = "Keys generated successfully.\n" if number is None else f"Keys packet {number} generated successfully.\n"
        self.success = success(done)
        self.reported = (self.success + info("+ public key:      ") + info(self.public + "\n") +
                         info("+ private key:     ") + info(self.private + "\n") + info("+ public hash key: ") +
                         info(self.hash + "\n") + ("" if number is None else info("-" * 60 + "\n")))

    def path_error(self, path):
        return error("Error: Reading Device file fails: ") + error(path) + error("\n")

    def unread(self):
        """The public key cannot be opened for the table."""
        return self.path_error(self.public) + error("Error: reading public key fails \n")


PAIRS = {"pair": [Pair(ONE_PASSWORD)], "again": [Pair(ONE_PASSWORD)],
         "packet": [Pair(password, number) for number, password in enumerate(PASSWORDS)]}
TABLE = "keys/publicKeysHashHashes.bin"


def expected_pair(pair, call, purpose):
    """What a pair prints, and the files that it has written whole or not, when `call` failed for `purpose`."""
    writing = {"write", "interrupted", "fflush"}
    created, written = [pair.private], [pair.private]
    if (call, purpose) == ("fopen", "wb " + pair.private):
        return STARTED + PRIVATE_NOT_CREATED + PRIVATE_FAILED + PAIR_FAILED, [], []
    if purpose in (pair.private, "wb " + pair.private) and call in writing | {"fclose"}:
        return STARTED + PRIVATE_NOT_WRITTEN + PRIVATE_FAILED + PAIR_FAILED, created, []
    text = STARTED + PRIVATE_CREATED
    if (call, purpose) == ("fopen", "wb " + pair.public):
        return text + PUBLIC_NOT_CREATED + PUBLIC_FAILED + PAIR_FAILED, created, written
    created = created + [pair.public]
    if purpose in (pair.public, "wb " + pair.public) and call in writing | {"fclose"}:
        # The stream's content is flushed by a close that fails, or after a flush that failed.
        whole = call in ("fclose", "fflush")
        return text + PUBLIC_NOT_WRITTEN + PUBLIC_FAILED + PAIR_FAILED, created, written + [pair.public] * whole
    written = written + [pair.public]
    text += PUBLIC_CREATED
    if purpose in (pair.hash, "wb " + pair.hash) and call in writing | {"fopen", "fclose"}:
        created += [pair.hash] * (call != "fopen")
        return text + pair.path_error(pair.hash) + HASH_FAILED + PAIR_FAILED, created, written
    return text + HASH_CREATED + pair.reported, created + [pair.hash], written + [pair.hash]


def expected_keys(run, call, purpose):
    """Output, status and files of a run that makes keys."""
    text, status, created = BANNER, 0, []
    if (call, os.path.normpath(purpose)) == ("mkdir", "keys"):
        return text + REFUSALS[0], 1, []
    text += SELECTED
    for pair in PAIRS[run]:
        printed, pair_created, written = expected_pair(pair, call, purpose)
        text, created = text + printed, created + pair_created
        if run != "packet":
            continue
        if (call, purpose) == ("fopen", "rb " + pair.public) or pair.public not in pair_created:
            text += pair.unread()
        elif pair.public not in written:
            text += ENCODING_ERRORS[0]
    if run != "packet":
        return text, status, created
    if purpose in (TABLE, "wb " + TABLE) and call in ("fopen", "write", "interrupted", "fflush", "fclose"):
        text += error("Error: Creating file fails: ") + error(TABLE) + error("\n") + TABLE_MISSING
        return text, 1, created + [TABLE] * (call != "fopen")
    return text + TABLE_REPORTED, status, created + [TABLE]


ANNOUNCED = title("\nRandom Data Generation : \n") + info(f"    Size        : {RANDOM_SIZE} Bytes\n") + info(
    "    Output path : noise.bin\n")
RANDOM_REPORTED = success("\nRandom data generated successfully : noise.bin\n")
RANDOM_FAILED = error("\nFailed to create random data file : noise.bin")
RANDOM_NOT_CREATED = error("Failed to create output file : noise.bin")
RANDOM_NOT_WRITTEN = error("Error while writing in file : noise.bin")


def expected_random(call, purpose):
    text = BANNER + ANNOUNCED
    if call in ("getentropy", "getrandom") or (call, purpose) == ("open", "noise.bin"):
        return text + RANDOM_NOT_CREATED + RANDOM_FAILED, 1, []
    if purpose == "noise.bin" and call in ("write", "close"):
        return text + RANDOM_NOT_WRITTEN + RANDOM_FAILED, 1, ["noise.bin"]
    # A signal that comes in between, or half of what was to be written, is no failure.
    return text + RANDOM_REPORTED, 0, ["noise.bin"]


def either(*choices):
    return "(?:" + "|".join(choices) + ")"


def failures_of_pair(pair):
    """A regular expression for what a pair that has no success to report prints."""
    literal = re.escape
    hash_errors = either(
        literal(error("Error: allocating buffer for PubKey hash fails\n")),
        literal(pair.path_error(pair.hash)),
        either(either(*map(literal, ENCODING_ERRORS)) + literal("Error: converting public Key to DER Format fails \n"),
               either(literal(error("unknown message digest ")), "") + literal(DIGEST_ERROR)) +
        literal(error("Error: calculating PubKey hash fails\n")))
    after_public = literal(PUBLIC_CREATED) + hash_errors + literal(HASH_FAILED)
    after_private = literal(PRIVATE_CREATED) + either(
        either(literal(PUBLIC_NOT_CREATED), literal(PUBLIC_NOT_WRITTEN)) + literal(PUBLIC_FAILED), after_public)
    return literal(STARTED) + either(
        literal(NO_KEY),
        either(literal(PRIVATE_NOT_CREATED), literal(PRIVATE_NOT_WRITTEN)) + literal(PRIVATE_FAILED),
        after_private) + literal(PAIR_FAILED)


MISSING_FILES = [error(f"Error: {kind} file path does not exist\n") for kind in
                 ("private key", "public key", "public hash key")]


def possible_outputs(run):
    """Regular expressions for all that a run may print, by its status."""
    literal = re.escape
    if run == "random":
        return {0: literal(BANNER + ANNOUNCED + RANDOM_REPORTED),
                1: literal(BANNER + ANNOUNCED) + either(literal(RANDOM_NOT_CREATED), literal(RANDOM_NOT_WRITTEN)) +
                   literal(RANDOM_FAILED)}
    start = literal(BANNER + SELECTED)
    ended, going_on = [], start
    for pair in PAIRS[run]:
        made = literal(STARTED + PRIVATE_CREATED + PUBLIC_CREATED + HASH_CREATED)
        ended.append(going_on + made + either(*map(literal, MISSING_FILES)))
        going_on += either(made + literal(pair.reported), failures_of_pair(pair))
        if run == "packet":
            going_on += either(literal(pair.unread()), *map(literal, ENCODING_ERRORS), "")
    ended.append(literal(BANNER) + either(*map(literal, REFUSALS)))
    if run == "packet":
        unwritten = either(literal(error("Error: Creating file fails: ") + error(TABLE) + error("\n")), "")
        ended.append(going_on + unwritten + literal(TABLE_MISSING))
        going_on += literal(TABLE_REPORTED)
    return {0: going_on, 1: either(*ended)}


POSSIBLE = {run: {status: re.compile(text) for status, text in possible_outputs(run).items()} for run in ARGUMENTS}


# What is left behind.

def binary_form(key):
    return key.public_bytes(serialization.Encoding.X962, serialization.PublicFormat.UncompressedPoint)[1:]


def stored_form(public_pem):
    return binary_form(serialization.load_pem_public_key(public_pem))


def read(path):
    try:
        with open(path, "rb") as file:
            return file.read()
    except OSError as problem:
        raise Wrong(f"reported as written: {problem}") from problem


def check_pair(folder, pair):
    """A pair that was reported: its files belong together, and the password opens the private key."""
    private, public, digest = (read(f"{folder}/{path}") for path in (pair.private, pair.public, pair.hash))
    try:
        key = serialization.load_pem_private_key(private, pair.password.encode())
        form = stored_form(public)
    except ValueError as problem:
        raise Wrong(f"{pair.private} reported, its files are unusable: {problem}") from problem
    if binary_form(key.public_key()) != form:
        raise Wrong(f"{pair.private} reported, its keys do not belong together")
    if digest != hashlib.sha256(form).digest():
        raise Wrong(f"{pair.hash} reported, and wrong")


def check_table_hash(folder, output):
    """The table's hash, over the keys that could be read back: the others count as zeros."""
    forms = []
    steps = output.split("algorithm is selected for private key encryption")[1:]
    for pair, step in zip(PAIRS["packet"], steps, strict=True):
        # What is said after the pair's own report is about reading its public key back.
        after = re.split("Error: An error occured while generating key files|-{60}", step)[-1]
        unread = "public key fails" in after
        forms.append(bytes(64) if unread else stored_form(read(f"{folder}/{pair.public}")))
    table = b"".join(hashlib.sha256(b"\1\0\0\0" + form).digest() for form in forms)
    if read(f"{folder}/{TABLE}") != hashlib.sha256(table).digest():
        raise Wrong("table hash reported, and wrong")


def check_random_data(folder):
    noise = read(f"{folder}/noise.bin")
    if len(noise) != RANDOM_SIZE:
        raise Wrong("random data reported, and short")
    # Eight bytes alike in a row come once in 2^40 files.
    if re.search(rb"(?s)(.)\1{7}", noise):
        raise Wrong("random data reported that is not random")


def mode_of(folder, path):
    return stat.S_IMODE(os.stat(f"{folder}/{path}").st_mode)


def check_modes(run, folder, paths, call, purpose):
    """Of files that were reported. A mode that could not be set is no failure of the run."""
    for path in paths:
        wanted = {PRIVATE_MODE} if "privateKey" in path else {PUBLIC_MODE}
        if path == "noise.bin":
            wanted = {DEFAULT_MODE}
        elif call == "chmod" and purpose == path:
            # Of an older file's two calls, the first makes it writable.
            wanted |= {OVERWRITABLE_MODE} if run == "again" else {DEFAULT_MODE}
            if run != "again":
                wanted -= {PRIVATE_MODE, PUBLIC_MODE}
        elif call in ("statx", "stat") and purpose == path:
            wanted |= {DEFAULT_MODE, OVERWRITABLE_MODE}
        if mode_of(folder, path) not in wanted:
            raise Wrong(f"{path} has the mode {mode_of(folder, path):04o}")


def check_reports(run, folder, output, call, purpose):
    """What is reported as a success is one."""
    reported = []
    for pair in PAIRS.get(run, []):
        if pair.success in output:
            check_pair(folder, pair)
            reported += [pair.private, pair.public, pair.hash]
    if "file generated successfully." in output:
        check_table_hash(folder, output)
        reported.append(TABLE)
    if "Random data generated successfully" in output:
        check_random_data(folder)
        reported.append("noise.bin")
    check_modes(run, folder, reported, call, purpose)


def files_in(folder):
    return sorted(os.path.relpath(os.path.join(path, name), folder) for path, _, names in os.walk(folder)
                  for name in names)


# Calls with more than one outcome: what they are for cannot be told from outside.
SEVERAL_OUTCOMES = {"malloc", "statx", "stat"}


def has_one_outcome(run, call):
    return call not in SEVERAL_OUTCOMES and (run == "random" or call not in ("getrandom", "getentropy"))


def check_exactly(run, folder, status, output, call, purpose):
    text, wanted_status, wanted_files = (expected_random(call, purpose) if run == "random" else
                                         expected_keys(run, call, purpose))
    if output != text:
        raise Wrong(f"for {purpose!r}: prints {output!r}, not {text!r}")
    if status != wanted_status:
        raise Wrong(f"for {purpose!r}: ends by {status}, not {wanted_status}")
    # Files of an earlier run stay.
    wanted_files = set(wanted_files) | ({PAIRS[run][0].private, PAIRS[run][0].public, PAIRS[run][0].hash}
                                        if run == "again" else set())
    if set(files_in(folder)) != wanted_files:
        raise Wrong(f"for {purpose!r}: leaves {files_in(folder)}")


def check(run, folder, result, call="", when="", purpose=""):
    status, output, errors = result.returncode, result.stdout.decode(errors="replace"), result.stderr
    if when == "early" and status < 0 and call == "malloc":
        # While the application library sets itself up it ends in ways of its own.
        if output or (run != "again" and files_in(folder)):
            raise Wrong(f"ended by {status} after it had begun")
        return
    if status == -signal.SIGABRT and call == "malloc":
        check_reports(run, folder, output, call, purpose)
        return
    if status not in (0, 1):
        raise Wrong(f"ended by {status}")
    check_reports(run, folder, output, call, purpose)
    if has_one_outcome(run, call):
        check_exactly(run, folder, status, output, call, purpose)
    elif not POSSIBLE[run][status].fullmatch(output):
        raise Wrong(f"ends by {status}, which does not go with {output!r}")
    if errors and NO_KEY not in output:
        raise Wrong(f"writes to standard error: {errors!r}")


class Sweep:
    def __init__(self, program, shim):
        self.program = program
        self.shim = shim

    def execute(self, run, folder, settings):
        # A blank in LD_PRELOAD parts two libraries; the folder may have one.
        folder_of_shim, shim = os.path.split(self.shim)
        environment = dict(os.environ, LD_PRELOAD=shim, LD_LIBRARY_PATH=folder_of_shim, **settings)
        try:
            return subprocess.run([self.program, *ARGUMENTS[run]], cwd=folder, env=environment, timeout=SECONDS,
                                  input=b"n\n" * 100, capture_output=True, umask=0o022, check=False)
        except subprocess.TimeoutExpired as problem:
            raise Wrong("hangs") from problem

    def prepare(self, run, folder):
        """The folder that the run works in."""
        os.mkdir(f"{folder}/work")
        if run == "again":
            subprocess.run([self.program, *ARGUMENTS["pair"]], cwd=f"{folder}/work", stdout=subprocess.DEVNULL,
                           umask=0o022, check=True)
        return f"{folder}/work"

    def count_calls(self, run):
        with tempfile.TemporaryDirectory(prefix="keygen faults ") as folder:
            work = self.prepare(run, folder)
            result = self.execute(run, work, {"CALL_COUNTS": f"{folder}/counts"})
            check(run, work, result)
            with open(f"{folder}/counts", encoding="ascii") as file:
                return {name: int(count) for name, count in (line.split() for line in file)}

    def fail(self, run, call, number):
        folder = tempfile.mkdtemp(prefix="keygen faults ")
        try:
            work = self.prepare(run, folder)
            result = self.execute(run, work, {"FAILING_CALL": call, "FAILING_AT": str(number),
                                              "FAILURE_REPORT": f"{folder}/report"})
            if not os.path.exists(f"{folder}/report"):
                # The libraries do not allocate equally often in each run; this one ended before.
                check(run, work, result, "malloc")
                return None
            with open(f"{folder}/report", encoding="utf-8") as file:
                when, _, purpose = file.read().partition(" ")
            check(run, work, result, call, when, purpose)
            return None
        except Wrong as wrong:
            return f"{run}, {call} call {number}: {wrong}"
        finally:
            shutil.rmtree(folder, ignore_errors=True)

    def sweep(self, pool, run, every, place, slices):
        """Every call of the few functions; of the allocations, which are many, one in `every`, and the last."""
        failures = []
        try:
            counts = self.count_calls(run)
        except Wrong as wrong:
            return [f"{run}, without a failure: {wrong}"]
        for call, count in counts.items():
            numbers = range(1, count + 1)
            if call == "malloc":
                numbers = sorted({*numbers[::every], *numbers[-LAST_ALLOCATIONS:]})
            numbers = numbers[place - 1::slices]
            jobs = len(numbers)
            results = pool.map(self.fail, [run] * jobs, [call] * jobs, numbers, chunksize=8)
            found = [text for text in results if text]
            print(f"{run:8} {call:12} {count:7} calls, {jobs:7} made to fail, {len(found)} wrong", flush=True)
            failures += found
        return failures


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("program")
    parser.add_argument("shim")
    parser.add_argument("--every", type=int, default=1, help="of the allocations, make one in so many fail, and all of the last")
    parser.add_argument("--run", choices=ARGUMENTS, action="append", help="only this run (may be repeated)")
    parser.add_argument("--slice", default="1/1", help="of the calls, 2/3 being each third from the second on")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), help="runs at the same time")
    options = parser.parse_args()
    place, slices = map(int, options.slice.split("/"))
    sweep = Sweep(os.path.abspath(options.program), os.path.abspath(options.shim))
    failures = []
    with concurrent.futures.ProcessPoolExecutor(options.jobs) as pool:
        for run in options.run or ARGUMENTS:
            failures += sweep.sweep(pool, run, options.every, place, slices)
    for text in failures[:40]:
        print(text)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
