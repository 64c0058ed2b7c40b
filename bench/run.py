#!/usr/bin/env python3
"""Measures the key generator against its floors, side by side, and prints one Markdown table.

The contenders of a row take turns within one run: on a shared machine only their ratios mean something. Each
contender's files are checked once before anything is timed.
"""
import argparse
import hashlib
import os
import re
import shutil
import statistics
import subprocess
import sys
import tempfile

PASSWORDS = [f"password {i}" for i in range(8)]
PACKET_SIZE = 8


class Sample:
    """One execution of a contender: CPU and wall time in seconds, peak memory in KiB."""

    def __init__(self, measure, command, folder):
        result = subprocess.run([measure, *command], cwd=folder, stdin=subprocess.DEVNULL, capture_output=True,
                                check=True, text=True)
        cpu, wall, memory, status = result.stdout.split()
        self.cpu = float(cpu)
        self.wall = float(wall)
        self.memory = int(memory)
        if status not in ("0", "1"):
            raise RuntimeError(f"{command[0]} ended by {status}")


class Contender:
    def __init__(self, name, command, check=None):
        self.name = name
        self.command = command
        self.check = check

    def run(self, measure, check=None):
        folder = tempfile.mkdtemp(prefix="keygen bench ")
        try:
            sample = Sample(measure, self.command, folder)
            if check:
                check(folder)
            return sample
        finally:
            shutil.rmtree(folder)


def openssl(*arguments):
    return subprocess.run(["openssl", *arguments], check=True, capture_output=True).stdout


def check_keys(curve, count):
    """The password opens each private key, its public key and its hash file belong to it, the table hash is right."""

    def check(folder):
        table = b""
        for i in range(count):
            number = f"0{i}" if count > 1 else ""
            public = openssl("pkey", "-pubin", "-in", f"{folder}/keys/publicKey{number}.pem", "-outform", "DER")
            private = openssl("pkey", "-in", f"{folder}/keys/privateKey{number}.pem", "-passin",
                              f"pass:{PASSWORDS[i]}", "-pubout", "-outform", "DER")
            hash_name = f"publicKey{'Hash' if count > 1 else 'hash'}{number}.bin"
            with open(f"{folder}/keys/{hash_name}", "rb") as file:
                assert private == public and file.read() == hashlib.sha256(public[-64:]).digest(), number
            identifier = b"\2\0\0\0" if curve == "brainpoolP256t1" else b"\1\0\0\0"
            table += hashlib.sha256(identifier + public[-64:]).digest()
        if count > 1:
            with open(f"{folder}/keys/publicKeysHashHashes.bin", "rb") as file:
                assert file.read() == hashlib.sha256(table).digest()

    return check


def check_size(size):
    def check(folder):
        assert os.path.getsize(f"{folder}/noise.bin") == size

    return check


def stock_packet(curve):
    """The same files made with the stock tool: five processes a pair and one for the table."""
    script = f"""set -e
mkdir keys
for i in 0 1 2 3 4 5 6 7; do
  openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:{curve} -pkeyopt ec_param_enc:named_curve -out keys/key
  openssl pkcs8 -topk8 -in keys/key -v2 aes-256-cbc -v2prf hmacWithSHA256 -iter 2048 -passout "pass:password $i" \\
    -out keys/privateKey0$i.pem
  openssl pkey -in keys/key -pubout -out keys/publicKey0$i.pem
  grep -v -- ----- keys/publicKey0$i.pem | base64 -d | tail -c 64 > keys/point
  openssl dgst -sha256 -binary -out keys/publicKeyHash0$i.bin keys/point
  {{ printf '\\{2 if curve == "brainpoolP256t1" else 1}\\0\\0\\0'; cat keys/point; }} |
    openssl dgst -sha256 -binary >> keys/table
done
openssl dgst -sha256 -binary -out keys/publicKeysHashHashes.bin keys/table
rm keys/key keys/point keys/table
"""
    return ["sh", "-c", script]


class Bench:
    def __init__(self, programs, turns):
        self.programs = os.path.abspath(programs)
        self.turns = turns
        self.missed = []

    def program(self, name):
        return f"{self.programs}/{name}"

    def measure(self, contenders):
        for contender in contenders:
            contender.run(self.program("measure"), contender.check)
        samples = {contender.name: [] for contender in contenders}
        for _ in range(self.turns):
            for contender in contenders:
                samples[contender.name].append(contender.run(self.program("measure")))
        return samples

    def row(self, work, ours, others, bounds):
        """Prints our CPU time, and for each other contender the medians of the ratios within one turn."""
        samples = self.measure([ours, *others])
        own = samples[ours.name]
        for other in others:
            theirs = samples[other.name]
            cpu = statistics.median(a.cpu / b.cpu for a, b in zip(own, theirs))
            wall = statistics.median(a.wall / b.wall for a, b in zip(own, theirs))
            extra = statistics.median(a.memory - b.memory for a, b in zip(own, theirs)) / 1024
            bound = bounds.get(other.name)
            verdict = ""
            if bound is not None:
                verdict = f"{bound:.3g}" + ("" if cpu <= bound else " **missed**")
                if cpu > bound:
                    self.missed.append(f"{work} against {other.name}: {cpu:.3f}, bound {bound:.3g}")
            milliseconds = 1000 * statistics.median(sample.cpu for sample in own)
            memory = statistics.median(sample.memory for sample in own) / 1024
            print(f"| {work} | {other.name} | {milliseconds:.1f} ms | {cpu:.3f} | {verdict} | {wall:.3f} "
                  f"| {memory:.1f} MiB | {extra:+.1f} MiB |", flush=True)

    def instructions(self, command):
        """Instructions of one execution, by callgrind."""
        with tempfile.TemporaryDirectory(prefix="keygen bench ") as folder:
            result = subprocess.run(["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", *command],
                                    cwd=folder, check=True, capture_output=True, stdin=subprocess.DEVNULL, text=True)
            return int(re.search(r"Collected : (\d+)", result.stderr).group(1))

    def keygen(self, name, *arguments, check=None):
        return Contender(name, [self.program("keygen"), *arguments], check)

    def floors(self, curve, count):
        check = check_keys(curve, count)
        return [Contender(name, [self.program(program), kind, curve, str(count), "keys"], check)
                for name, program, kind in (("floor", "floor", "plain"), ("floor in Qt Core", "floor_in_qt", "plain"),
                                            ("lean floor in Qt Core", "floor_in_qt", "lean"))]

    def packets(self):
        bounds = {
            "prime256v1": {"floor in Qt Core": 1.00, "lean floor in Qt Core": 1.15, "openssl command line": 1 / 8},
            "brainpoolP256t1": {"floor in Qt Core": 1.03, "lean floor in Qt Core": 1.15, "openssl command line": 1 / 5},
        }
        for curve, limits in bounds.items():
            ours = self.keygen("keygen", "-n", "8", "-ecc", curve, "-pwd", *PASSWORDS, "-abs", "keys",
                               check=check_keys(curve, PACKET_SIZE))
            stock = Contender("openssl command line", stock_packet(curve), check_keys(curve, PACKET_SIZE))
            self.row(f"packet of eight, {curve}", ours, [*self.floors(curve, PACKET_SIZE), stock], limits)

    def pair(self):
        ours = self.keygen("keygen", "-pwd", PASSWORDS[0], "-abs", "keys", check=check_keys("prime256v1", 1))
        self.row("one pair", ours, self.floors("prime256v1", 1), {"floor in Qt Core": 1.10})

    def start(self):
        empty = Contender("empty in Qt Core", [self.program("empty_in_qt")])
        for work, arguments in (("version", ["-v"]), ("help", ["-h"]), ("refused command line", ["-x"])):
            self.row(work, self.keygen("keygen", *arguments), [empty], {"empty in Qt Core": 1.10})

    def random(self, mebibytes):
        size = mebibytes << 20
        floor = self.program("random_floor")
        others = [Contender("block-drawing loop", [floor, "blocks", str(size), "noise.bin"], check_size(size)),
                  Contender("openssl rand", ["openssl", "rand", "-out", "noise.bin", str(size)], check_size(size)),
                  Contender("kernel's generator", [floor, "kernel", str(size), "noise.bin"], check_size(size))]
        ours = self.keygen("keygen", "-rand", str(size), "noise.bin", check=check_size(size))
        self.row(f"random data, {mebibytes} MiB", ours, others, {"block-drawing loop": 1.05})

    def packet_instructions(self):
        own = self.instructions([self.program("keygen"), "-n", "8", "-pwd", *PASSWORDS, "-abs", "keys"])
        floor = self.instructions([self.program("floor_in_qt"), "plain", "prime256v1", "8", "keys"])
        print(f"\nInstructions of a packet (callgrind): {own:,}, {own / floor:.4f} of the floor in Qt Core "
              f"({floor:,}); bound 1.02")
        if own > 1.02 * floor:
            self.missed.append("instructions of a packet")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("programs", help="the folder of the built contenders")
    parser.add_argument("--turns", type=int, default=41)
    options = parser.parse_args()
    bench = Bench(options.programs, options.turns)
    print("| work | against | CPU time | ratio | bound | wall ratio | memory | more |")
    print("| --- | --- | --- | --- | --- | --- | --- | --- |")
    bench.packets()
    bench.pair()
    bench.start()
    # Where the processor's own generator is slow these take a while.
    bench.turns = min(3, options.turns)
    bench.random(16)
    bench.turns = 1
    bench.random(128)
    bench.packet_instructions()
    for text in bench.missed:
        print(f"missed: {text}")
    return 1 if bench.missed else 0


if __name__ == "__main__":
    sys.exit(main())
