#!/usr/bin/env python3
"""Makes every call that a run reaches fail, one run for each, and looks at what the run says and leaves behind.

A run may end with a message, or by the C++ runtime's own termination where memory is not to be had. It may not crash,
hang, or report a success over a file that is missing, short or wrong.
"""
import argparse
import concurrent.futures
import hashlib
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile

from cryptography.hazmat.primitives import serialization

ONE_PASSWORD = "correct horse"
PASSWORDS = [f"password {i}" for i in range(8)]
RUNS = {
    "pair": ["-pwd", ONE_PASSWORD, "-abs", "keys"],
    "packet": ["-n", "8", "-pwd", *PASSWORDS, "-abs", "keys"],
    "random": ["-rand", "70000", "noise.bin"],
}
FUNCTIONS = ["malloc", "fopen", "open", "write", "fflush", "fclose", "chmod", "mkdir", "getrandom", "getentropy"]
# A failed allocation that no one catches ends in std::terminate, which aborts.
ALLOWED_ENDS = {0, 1}
SECONDS = 30


class Wrong(Exception):
    """What a run did and must not do."""


def binary_form(key):
    return key.public_bytes(serialization.Encoding.X962, serialization.PublicFormat.UncompressedPoint)[1:]


def stored_form(public_pem):
    return binary_form(serialization.load_pem_public_key(public_pem))


def read(path):
    try:
        with open(path, "rb") as file:
            return file.read()
    except OSError as error:
        raise Wrong(f"reported as written: {error}") from error


def check_pair(folder, password, number=""):
    """A pair that was reported: its files belong together, and the password opens the private key."""
    private = read(f"{folder}/privateKey{number}.pem")
    public = read(f"{folder}/publicKey{number}.pem")
    digest = read(f"{folder}/publicKey{'Hash' if number else 'hash'}{number}.bin")
    try:
        key = serialization.load_pem_private_key(private, password.encode())
        form = stored_form(public)
    except ValueError as error:
        raise Wrong(f"pair {number} reported, its files are unusable: {error}") from error
    if binary_form(key.public_key()) != form:
        raise Wrong(f"pair {number} reported, its keys do not belong together")
    if digest != hashlib.sha256(form).digest():
        raise Wrong(f"pair {number} reported, its hash file is wrong")


def check_table_hash(folder, output):
    """The table's hash, over the keys that could be read back: the others count as zeros."""
    forms = []
    steps = output.split("algorithm is selected for private key encryption")[1:]
    for number, step in enumerate(steps):
        # What is said after the pair's own report is about reading its public key back.
        after = re.split("Error: An error occured while generating key files|-{60}", step)[-1]
        unread = "public key fails" in after
        forms.append(bytes(64) if unread else stored_form(read(f"{folder}/publicKey0{number}.pem")))
    table = b"".join(hashlib.sha256(b"\1\0\0\0" + form).digest() for form in forms)
    if read(f"{folder}/publicKeysHashHashes.bin") != hashlib.sha256(table).digest():
        raise Wrong("table hash reported, and wrong")


def check(run, folder, status, output):
    if status not in ALLOWED_ENDS and status != -signal.SIGABRT:
        raise Wrong(f"ended by {status}")
    keys = f"{folder}/keys"
    if "Keys generated successfully." in output:
        check_pair(keys, ONE_PASSWORD)
    for number, password in enumerate(PASSWORDS):
        if f"Keys packet {number} generated successfully." in output:
            check_pair(keys, password, f"0{number}")
    if "file generated successfully." in output:
        check_table_hash(keys, output)
    if "Random data generated successfully" in output and len(read(f"{folder}/noise.bin")) != 70000:
        raise Wrong("random data reported, and short")
    reported = {"pair": "Keys generated successfully.", "packet": "file generated successfully.",
                "random": "Random data generated successfully"}[run]
    if reported not in output and "rror" not in output and "ailed" not in output and status == 0:
        raise Wrong("neither success nor error")


class Sweep:
    def __init__(self, program, shim, workers):
        self.program = program
        self.shim = shim
        self.pool = concurrent.futures.ThreadPoolExecutor(workers)

    def execute(self, run, folder, settings):
        # A blank in LD_PRELOAD parts two libraries; the folder may have one.
        folder_of_shim, shim = os.path.split(self.shim)
        environment = dict(os.environ, LD_PRELOAD=shim, LD_LIBRARY_PATH=folder_of_shim, **settings)
        try:
            result = subprocess.run([self.program, *RUNS[run]], cwd=folder, env=environment, timeout=SECONDS,
                                    input=b"n\n" * 100, capture_output=True)
        except subprocess.TimeoutExpired as error:
            raise Wrong("hangs") from error
        return result.returncode, result.stdout.decode(errors="replace")

    def count_calls(self, run):
        with tempfile.TemporaryDirectory(prefix="keygen faults ") as folder:
            counts = f"{folder}/counts"
            status, output = self.execute(run, folder, {"CALL_COUNTS": counts})
            check(run, folder, status, output)
            with open(counts, encoding="ascii") as file:
                return {name: int(count) for name, count in (line.split() for line in file)}

    def fail(self, run, function, call):
        folder = tempfile.mkdtemp(prefix="keygen faults ")
        try:
            settings = {"FAILING_CALL": function, "FAILING_AT": str(call)}
            check(run, folder, *self.execute(run, folder, settings))
            return None
        except Wrong as wrong:
            return f"{run}, {function} call {call}: {wrong}"
        finally:
            shutil.rmtree(folder, ignore_errors=True)

    def sweep(self, run, every):
        """Every call of the few functions; of the allocations, which are many, one in `every`."""
        failures = []
        for function, count in self.count_calls(run).items():
            step = every if function == "malloc" else 1
            calls = range(1, count + 1, step)
            found = [text for text in self.pool.map(lambda call: self.fail(run, function, call), calls) if text]
            print(f"{run:8} {function:12} {count:7} calls, {len(calls):7} made to fail, {len(found)} wrong", flush=True)
            failures += found
        return failures


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("program")
    parser.add_argument("shim")
    parser.add_argument("--every", type=int, default=1, help="of the allocations, make one in so many fail")
    parser.add_argument("--run", choices=RUNS, action="append", help="only this run (may be repeated)")
    options = parser.parse_args()
    sweep = Sweep(os.path.abspath(options.program), os.path.abspath(options.shim), os.cpu_count())
    failures = []
    for run in options.run or RUNS:
        failures += sweep.sweep(run, options.every)
    for text in failures[:40]:
        print(text)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
