#!/usr/bin/env python3
"""Measures the key generator against its floors, side by side, and prints one Markdown table.

The contenders of a row take turns within one run, because on a shared machine only their ratios are meaningful. Each
contender's files are checked once before anything is timed.
"""
import argparse
import os
import pathlib
import re
import shlex
import shutil
import statistics
import subprocess
import sys
import tempfile

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1] / "tests/support"))
from check_key_files import check_packet, check_pair

PASSWORDS = [f"password {i}" for i in range(8)]
PACKET_SIZE = 8
MIB = 1 << 20

PARTS = ("packets", "pair", "start", "random", "growth", "instructions")
COLUMNS = ("work", "against", "CPU time", "ratio", "bound", "wall ratio", "memory", "above", "bound, MiB")


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
            raise RuntimeError(f"{command} ended with {status}")


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


def check_keys(curve, count):
    """Checks that the passwords open the private keys, that each pair matches, and that the table hash is right."""
    def check(folder):
        keys = f"{folder}/keys"
        if count > 1:
            check_packet(curve, "aes256", keys, [password.encode() for password in PASSWORDS])
        else:
            check_pair(curve, "aes256", f"{keys}/privateKey.pem", f"{keys}/publicKey.pem", f"{keys}/publicKeyhash.bin",
                       PASSWORDS[0].encode())

    return check


def check_size(size):
    def check(folder):
        assert os.path.getsize(f"{folder}/noise.bin") == size

    return check


def stock_packet(curve):
    """The same files made with the openssl command: five of its processes for each pair, and one for the table."""
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

    def keygen(self, name, *arguments, check=None):
        return Contender(name, [self.program("keygen"), *arguments], check)

    def packet(self, curve):
        return self.keygen("keygen", "-n", "8", "-ecc", curve, "-pwd", *PASSWORDS, "-abs", "keys",
                           check=check_keys(curve, PACKET_SIZE))

    def floor(self, name, kind, curve, count):
        return Contender(name, [self.program("floor"), kind, curve, str(count), "keys"], check_keys(curve, count))

    def measure(self, contenders, turns):
        for contender in contenders:
            contender.run(self.program("measure"), contender.check)
        samples = {contender.name: [] for contender in contenders}
        for _ in range(turns):
            for contender in contenders:
                samples[contender.name].append(contender.run(self.program("measure")))
        return samples

    def verdict(self, text, value, bound):
        """A bound as the table shows it; a missed bound is reported again at the end."""
        if bound is None:
            return ""
        if value <= bound:
            return f"{bound:.4g}"
        self.missed.append(f"{text}: {value:.4g}, bound {bound:.4g}")
        return f"{bound:.4g} **missed**"

    @staticmethod
    def line(*cells):
        print("| " + " | ".join(cells) + " |", flush=True)

    def row(self, work, own, name, theirs, bound=None, above=None, most=None):
        """Our CPU time and peak memory, and the medians of the ratios within one turn. The bound on memory
        is `above`, in MiB more than the other's, or `most`, in MiB."""
        cpu = statistics.median(a.cpu / b.cpu for a, b in zip(own, theirs))
        wall = statistics.median(a.wall / b.wall for a, b in zip(own, theirs))
        milliseconds = 1000 * statistics.median(sample.cpu for sample in own)
        memory = statistics.median(sample.memory for sample in own) / 1024
        extra = statistics.median(a.memory - b.memory for a, b in zip(own, theirs)) / 1024
        text = f"{work} against {name}"
        memory_bound = self.verdict(f"{text}, memory", memory, most) or self.verdict(f"{text}, memory", extra, above)
        self.line(work, name, f"{milliseconds:.1f} ms", f"{cpu:.3f}", self.verdict(text, cpu, bound), f"{wall:.3f}",
                  f"{memory:.1f} MiB", f"{extra:+.1f} MiB", memory_bound)

    def rows(self, work, ours, others, bounds, turns=None, above=None, most=None):
        """One row for each other contender. `above` applies to the floor only."""
        samples = self.measure([ours, *others], turns or self.turns)
        for other in others:
            self.row(work, samples[ours.name], other.name, samples[other.name], bounds.get(other.name),
                     above if other.name == "floor" else None, most)

    def packets(self):
        for curve, floor, stock in (("prime256v1", 1.00, 1 / 8), ("brainpoolP256t1", 1.03, 1 / 5)):
            others = [self.floor("floor", "plain", curve, PACKET_SIZE),
                      self.floor("lean floor", "lean", curve, PACKET_SIZE),
                      Contender("openssl command line", stock_packet(curve), check_keys(curve, PACKET_SIZE))]
            self.rows(f"packet of eight, {curve}", self.packet(curve), others,
                      {"floor": floor, "lean floor": 1.15, "openssl command line": stock}, above=2)

    def pair(self):
        ours = self.keygen("keygen", "-pwd", PASSWORDS[0], "-abs", "keys", check=check_keys("prime256v1", 1))
        self.rows("one pair", ours, [self.floor("floor", "plain", "prime256v1", 1)], {"floor": 1.10})

    def start(self):
        empty = Contender("empty in Qt Core", [self.program("empty_in_qt")])
        for work, arguments in (("version", ["-v"]), ("help", ["-h"]), ("refused command line", ["-x"])):
            self.rows(work, self.keygen("keygen", *arguments), [empty], {"empty in Qt Core": 1.10})

    def random(self):
        # This takes minutes where the processor's own generator is slow.
        size = 16 * MIB
        check = check_size(size)
        others = [Contender("block-drawing loop", [self.program("random_floor"), str(size), "noise.bin"], check),
                  Contender("openssl rand", ["openssl", "rand", "-out", "noise.bin", str(size)], check)]
        ours = self.keygen("keygen", "-rand", str(size), "noise.bin", check=check)
        self.rows("random data, 16 MiB", ours, others, {"block-drawing loop": 1.05}, min(5, self.turns), most=28)

    def growth(self):
        """Packets in a row, and two side by side, against one alone."""
        packet = self.packet("prime256v1")
        one = Contender("one packet", packet.command, packet.check)
        into = packet.command[:-1]
        with tempfile.TemporaryDirectory(prefix="keygen bench ") as folder:
            turns = [(Sample(self.program("measure"), [*into, str(i)], folder), one.run(self.program("measure")))
                     for i in range(100)]
        self.row("100 packets in a row, each", [own for own, _ in turns], one.name, [alone for _, alone in turns])
        two = Contender("two", ["sh", "-ec", f"{shlex.join(into)} one & {shlex.join(into)} other; wait"])
        self.rows("two packets side by side", two, [one], {})

    def count(self, contender):
        """The instructions of one execution, counted by callgrind. Also checks its files."""
        with tempfile.TemporaryDirectory(prefix="keygen bench ") as folder:
            result = subprocess.run(
                ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", *contender.command],
                cwd=folder, check=True, capture_output=True, stdin=subprocess.DEVNULL, text=True)
            contender.check(folder)
            return int(re.search(r"Collected : (\d+)", result.stderr).group(1))

    def instructions(self):
        for curve in ("prime256v1", "brainpoolP256t1"):
            work = f"instructions of a packet, {curve}"
            own = self.count(self.packet(curve))
            ratio = own / self.count(self.floor("floor", "plain", curve, PACKET_SIZE))
            self.line(work, "floor", f"{own / 1e6:.1f} million", f"{ratio:.4f}",
                      self.verdict(f"{work} against floor", ratio, 1.02), "", "", "", "")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("programs", help="the folder of the built contenders")
    parser.add_argument("--turns", type=int, default=41, help="measurements of each contender (default: %(default)s)")
    parser.add_argument("--only", nargs="+", choices=PARTS, default=PARTS, help="the parts of the table to measure")
    options = parser.parse_args()
    bench = Bench(options.programs, options.turns)
    bench.line(*COLUMNS)
    bench.line(*["---"] * len(COLUMNS))
    for part in options.only:
        getattr(bench, part)()
    for text in bench.missed:
        print(f"missed: {text}", file=sys.stderr)
    return 1 if bench.missed else 0


if __name__ == "__main__":
    sys.exit(main())
