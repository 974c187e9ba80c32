#!/usr/bin/env python3
"""Bench speed of several builds of Vorix, run in turn (A B C, A B C, ...) so that a change in the
machine's load falls on all of them alike. Prints every run, the medians and each build's ratio
to the first, and fails when the builds' bench signatures differ.

usage: compare_builds.py [--runs N] BINARY [BINARY ...]
A BINARY may carry a prefix separated by blanks, e.g. "qemu-aarch64 build-arm64/vorix".
"""
import argparse
import re
import shlex
import statistics
import subprocess
import sys


def bench(command):
    out = subprocess.run(shlex.split(command) + ["bench"], capture_output=True, text=True, check=True).stdout
    nodes, nps = re.fullmatch(r"(\d+) nodes (\d+) nps", out.strip().splitlines()[-1]).groups()
    return int(nodes), int(nps)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("binaries", nargs="+")
    args = parser.parse_args()
    speeds = {b: [] for b in args.binaries}
    signatures = set()
    for run in range(args.runs):
        for binary in args.binaries:
            nodes, nps = bench(binary)
            signatures.add(nodes)
            speeds[binary].append(nps)
        print("run %d: %s" % (run + 1, ", ".join("%d" % speeds[b][-1] for b in args.binaries)), flush=True)
    base = statistics.median(speeds[args.binaries[0]])
    for binary in args.binaries:
        median = statistics.median(speeds[binary])
        print("%-40s median %9d nps  ratio %.3f" % (binary, median, median / base))
    if len(signatures) != 1:
        print("bench signatures differ: %s" % sorted(signatures))
        sys.exit(1)
    print("bench signature: %d nodes" % signatures.pop())


if __name__ == "__main__":
    main()
