#!/usr/bin/env python3
"""Makes every call that a run reaches fail, one call in each run, and compares the output and the files of the run
with the expected ones.

A failed call for a file has one outcome: the whole output, the status, the files and their modes are compared. After a
failed allocation, or without random bytes, a run may stop in more than one place: its output must be a valid sequence
of the messages for the failures, with the status that belongs to it, or the C++ runtime ends the run. It must never
crash, hang, or report success for a file that is missing, short or wrong.
"""
import argparse
import concurrent.futures
import contextlib
import os
import pathlib
import re
import shutil
import signal
import stat
import subprocess
import sys
import tempfile

from expected import ARGUMENTS, NO_KEY, PAIRS, POSSIBLE, RANDOM_SIZE, DEFINED_HERE, STARTED, TABLE, expected

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1] / "support"))
from check_key_files import CheckFailed, check_pair, check_table

SECONDS = 60
# What a run does once at its end, such as the table of hashes of a packet, needs only a few of its allocations.
LAST_ALLOCATIONS = 200
# The list of a run's files, and the folders to lock.
ALLOCATIONS_BEFORE_LOCK = 100
PRIVATE_MODE, PUBLIC_MODE, DEFAULT_MODE, OVERWRITABLE_MODE = 0o400, 0o444, 0o644, 0o226


class RunError(Exception):
    """A run did something that it must not do."""


# The files that a run leaves.

def check_table_hash(folder, output):
    """Checks the hash of the table over the keys that could be read back. The others count as zeros."""
    unread = set()
    for number, step in enumerate(output.split(STARTED)[1:]):
        # Messages after the report of the pair itself are about reading its public key back.
        after = re.split("Error: An error occured while generating key files|-{60}", step)[-1]
        if "public key fails" in after:
            unread.add(number)
    check_table("prime256v1", f"{folder}/{os.path.dirname(TABLE)}", len(PAIRS["packet"]), unread)


def check_random_data(folder):
    with open(f"{folder}/noise.bin", "rb") as file:
        noise = file.read()
    if len(noise) != RANDOM_SIZE:
        raise RunError("random data is reported but too short")
    # Eight equal bytes in a row occur in one of 2^40 files.
    if re.search(rb"(?s)(.)\1{7}", noise):
        raise RunError("the reported random data is not random")


def mode_of(folder, path):
    return stat.S_IMODE(os.stat(f"{folder}/{path}").st_mode)


def check_modes(run, folder, paths, call, purpose):
    """Checks the modes of reported files. A mode that could not be set is not a failure of the run."""
    for path in paths:
        allowed = {PRIVATE_MODE} if "privateKey" in path else {PUBLIC_MODE}
        if path == "noise.bin":
            allowed = {DEFAULT_MODE}
        elif call == "chmod" and purpose == path:
            # The first of the two calls for an older file makes it writable.
            allowed |= {OVERWRITABLE_MODE} if run == "again" else {DEFAULT_MODE}
            if run != "again":
                allowed -= {PRIVATE_MODE, PUBLIC_MODE}
        elif call in ("statx", "stat") and purpose == path:
            allowed |= {DEFAULT_MODE, OVERWRITABLE_MODE}
        if mode_of(folder, path) not in allowed:
            raise RunError(f"{path} has the mode {mode_of(folder, path):04o}")


@contextlib.contextmanager
def readable(paths):
    """Files whose final mode could not be set cannot be read, except by root."""
    modes = {path: stat.S_IMODE(os.stat(path).st_mode) for path in paths}
    for path, mode in modes.items():
        os.chmod(path, mode | stat.S_IRUSR)
    yield
    for path, mode in modes.items():
        os.chmod(path, mode)


def check_reports(run, folder, output, call, purpose):
    """Checks that everything that is reported as a success really is one."""
    reported = []
    try:
        for pair in PAIRS.get(run, []):
            if pair.success in output:
                paths = [f"{folder}/{path}" for path in pair.files]
                with readable(paths):
                    check_pair("prime256v1", "aes256", *paths, pair.password.encode(), quickly=True)
                reported += pair.files
        if "file generated successfully." in output:
            check_table_hash(folder, output)
            reported.append(TABLE)
        if "Random data generated successfully" in output:
            check_random_data(folder)
            reported.append("noise.bin")
    except (CheckFailed, OSError, ValueError) as problem:
        raise RunError(f"reported as a success: {problem}") from problem
    check_modes(run, folder, reported, call, purpose)


def files_in(folder):
    return sorted(os.path.relpath(os.path.join(path, name), folder) for path, _, names in os.walk(folder)
                  for name in names)


# Calls with more than one outcome: their purpose cannot be determined from outside.
SEVERAL_OUTCOMES = {"malloc", "statx", "stat"}


def has_one_outcome(run, call):
    return call not in SEVERAL_OUTCOMES and (run == "random" or call not in ("getrandom", "getentropy"))


def check_exactly(run, folder, status, output, call, purpose):
    if call == "chmod" and not os.access(f"{folder}/{purpose}", os.W_OK):
        # An older file that is still read-only cannot be opened, except by root.
        call, purpose = "fopen", f"wb {purpose}"
    text, expected_status, expected_files = expected(run, call, purpose)
    if output != text:
        raise RunError(f"for {purpose!r}: prints {output!r}, not {text!r}")
    if status != expected_status:
        raise RunError(f"for {purpose!r}: ends by {status}, not {expected_status}")
    # Files of an earlier run are kept.
    expected_files = set(expected_files) | set(PAIRS[run][0].files if run == "again" else [])
    if set(files_in(folder)) != expected_files:
        raise RunError(f"for {purpose!r}: leaves {files_in(folder)}")


def check(run, folder, result, call="", when="", purpose=""):
    status, output, errors = result.returncode, result.stdout.decode(errors="replace"), result.stderr
    if when == "early" and status < 0 and call == "malloc":
        # During its initialisation the application library ends in its own ways.
        if output or (run != "again" and files_in(folder)):
            raise RunError(f"ended by {status} after it had started its work")
        return
    if status == -signal.SIGABRT and call == "malloc":
        check_reports(run, folder, output, call, purpose)
        return
    if status not in (0, 1):
        raise RunError(f"ended by {status}")
    check_reports(run, folder, output, call, purpose)
    if has_one_outcome(run, call):
        check_exactly(run, folder, status, output, call, purpose)
    elif not POSSIBLE[run][status].fullmatch(output):
        raise RunError(f"ends by {status}, which does not match {output!r}")
    if errors and NO_KEY not in output:
        raise RunError(f"writes to standard error: {errors!r}")


class Sweep:
    def __init__(self, program, shim):
        self.program = program
        self.shim = shim
        # Files in memory are faster than others.
        self.scratch = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None

    def execute(self, run, folder, settings):
        # A space in LD_PRELOAD separates two libraries, and the path of the build may contain one.
        folder_of_shim, shim = os.path.split(self.shim)
        environment = dict(os.environ, LD_PRELOAD=shim, LD_LIBRARY_PATH=folder_of_shim, **settings)
        try:
            return subprocess.run([self.program, *ARGUMENTS[run]], cwd=folder, env=environment, timeout=SECONDS,
                                  input=b"n\n" * 100, capture_output=True, umask=0o022, check=False)
        except subprocess.TimeoutExpired as problem:
            raise RunError("hangs") from problem

    def prepare(self, run, folder):
        """Creates and returns the working directory of the run."""
        os.mkdir(f"{folder}/work")
        if run == "again":
            subprocess.run([self.program, *ARGUMENTS["pair"]], cwd=f"{folder}/work", stdout=subprocess.DEVNULL,
                           umask=0o022, check=True)
        return f"{folder}/work"

    def count_calls(self, run):
        with tempfile.TemporaryDirectory(prefix="keygen faults ", dir=self.scratch) as folder:
            work = self.prepare(run, folder)
            result = self.execute(run, work, {"CALL_COUNTS": f"{folder}/counts"})
            check(run, work, result)
            with open(f"{folder}/counts", encoding="ascii") as file:
                return {name: int(count) for name, count in (line.split() for line in file)}

    def fail(self, run, call, number):
        folder = tempfile.mkdtemp(prefix="keygen faults ", dir=self.scratch)
        try:
            work = self.prepare(run, folder)
            result = self.execute(run, work, {"FAILING_CALL": call, "FAILING_AT": str(number),
                                              "FAILURE_REPORT": f"{folder}/report"})
            if not os.path.exists(f"{folder}/report"):
                # The number of allocations in the libraries differs between runs; this run ended before the call.
                check(run, work, result, "malloc")
                return None
            with open(f"{folder}/report", encoding="utf-8") as file:
                when, _, purpose = file.read().partition(" ")
            check(run, work, result, call, when, purpose)
            return None
        except RunError as wrong:
            return f"{run}, {call} call {number}: {wrong}"
        finally:
            shutil.rmtree(folder, ignore_errors=True)

    def check_messages(self):
        """Checks that the messages that no transcript contains are in the program, word for word."""
        content = pathlib.Path(self.program).read_bytes()
        for text in DEFINED_HERE:
            words = re.sub(r"\x1b\[[0-9;]*m ?", "", text).strip("\n").encode()
            if words not in content:
                raise RunError(f"the program has no such message: {words}")

    def sweep(self, pool, run, options):
        """Makes every call fail, except that of the many allocations only one in `every` and the last ones fail."""
        failures = []
        try:
            self.check_messages()
            counts = self.count_calls(run)
        except RunError as wrong:
            return [f"{run}, without a failure: {wrong}"]
        place, slices = map(int, options.slice.split("/"))
        before_lock = counts.pop("allocations_before_lock")
        for call, count in counts.items():
            numbers = range(1, count + 1)
            if call == "malloc":
                chosen = {*numbers[max(0, before_lock - ALLOCATIONS_BEFORE_LOCK):before_lock]}
                if options.every:
                    chosen |= {*numbers[::options.every], *numbers[-LAST_ALLOCATIONS:]}
                numbers = sorted(chosen)
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
    parser.add_argument("--every", type=int, default=1, metavar="N",
                        help="make only one in N allocations fail, and all of the last ones; 0 for neither. "
                        "Those just before the run locks its folders always fail")
    parser.add_argument("--run", choices=ARGUMENTS, action="append", help="only this run (may be repeated)")
    parser.add_argument("--slice", default="1/1", help="which calls: 2/3 means every third call from the second on")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), help="runs at the same time")
    options = parser.parse_args()
    sweep = Sweep(os.path.abspath(options.program), os.path.abspath(options.shim))
    failures = []
    with concurrent.futures.ProcessPoolExecutor(options.jobs) as pool:
        for run in options.run or ARGUMENTS:
            failures += sweep.sweep(pool, run, options)
    for text in failures[:40]:
        print(text)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
