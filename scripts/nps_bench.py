#!/usr/bin/env python3
"""Search speed of Vorix's bench against Debian's ethereal-chess bench, both on one thread,
run alternately five times. Prints every run, the medians and the ratio."""
import re
import statistics
import subprocess
import sys

RUNS = 5


def vorix_nps(path):
    out = subprocess.run([path, "bench"], capture_output=True, text=True, check=True).stdout
    nodes, nps = re.search(r"^(\d+) nodes (\d+) nps$", out.strip().splitlines()[-1]).groups()
    return int(nodes), int(nps)


def ethereal_nps(path):
    out = subprocess.run([path, "bench"], capture_output=True, text=True, check=True).stdout
    return int(re.search(r"NPS\s*:\s*(\d+)", out).group(1))


def main():
    vorix = sys.argv[1] if len(sys.argv) > 1 else "build/vorix"
    ethereal = sys.argv[2] if len(sys.argv) > 2 else "/usr/games/ethereal-chess"
    v, e = [], []
    signature = None
    for run in range(RUNS):
        nodes, nps = vorix_nps(vorix)
        if signature is not None and nodes != signature:
            print("bench signature changed between runs: %d vs %d" % (signature, nodes))
            sys.exit(1)
        signature = nodes
        v.append(nps)
        e.append(ethereal_nps(ethereal))
        print("run %d: vorix %d nps, ethereal %d nps" % (run + 1, v[-1], e[-1]))
    print("bench signature: %d nodes" % signature)
    print("median: vorix %d nps, ethereal %d nps, ratio %.2f"
          % (statistics.median(v), statistics.median(e), statistics.median(v) / statistics.median(e)))


if __name__ == "__main__":
    main()
