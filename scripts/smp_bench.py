#!/usr/bin/env python3
"""Lazy-SMP scaling of Vorix: nodes per second with N threads against 1 thread over fixed-time
searches of several positions, and the time to reach a fixed depth. Run on an otherwise idle
machine; prints every measurement and the ratios.

usage: smp_bench.py [vorix] [threads=2] [seconds=10] [depth=18]"""
import statistics
import subprocess
import sys
import time

POSITIONS = [
    "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1",
    "r1bq1rk1/pp2bppp/2n1pn2/3p4/2PP4/2N1PN2/PP3PPP/R2QKB1R w KQ - 0 8",
    "2rq1rk1/pb1nbppp/1p2pn2/2pp4/2PP4/1PN1PN2/PB1QBPPP/2R2RK1 w - - 2 12",
    "r1b2rk1/2q1bppp/p2ppn2/1p6/3NP3/1BN1B3/PPP1QPPP/R4RK1 w - - 0 13",
    "r4rk1/1pp1qppp/p1np1n2/2b1p1B1/2B1P1b1/P1NP1N2/1PP1QPPP/R4RK1 w - - 0 10",
    "4rrk1/pp1n3p/3q2pQ/2p1pb2/2PP4/2P3N1/P2B2PP/4RRK1 b - - 7 19",
    "8/pp2r1k1/2p1p3/3pP2p/1P1P1P1P/P5KR/8/8 w - - 0 1",
    "6k1/6p1/P6p/r1N5/5p2/7P/1b3PP1/4R1K1 w - - 0 1",
]


class Engine:
    def __init__(self, path, threads):
        self.proc = subprocess.Popen([path], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, bufsize=1)
        self.send("setoption name Threads value %d" % threads)
        self.send("setoption name Hash value 256")
        self.sync()

    def send(self, line):
        self.proc.stdin.write(line + "\n")
        self.proc.stdin.flush()

    def sync(self):
        self.send("isready")
        while self.proc.stdout.readline().strip() != "readyok":
            pass

    def search(self, fen, go):
        self.send("ucinewgame")
        self.sync()
        self.send("position fen " + fen)
        start = time.perf_counter()
        self.send("go " + go)
        last_info = ""
        while True:
            line = self.proc.stdout.readline().strip()
            if line.startswith("info score cp"):
                last_info = line
            if line.startswith("bestmove"):
                return time.perf_counter() - start, last_info

    def close(self):
        self.send("quit")
        self.proc.wait(timeout=30)


def field(info, name):
    words = info.split()
    return int(words[words.index(name) + 1]) if name in words else 0


def main():
    path = sys.argv[1] if len(sys.argv) > 1 else "build/vorix"
    threads = int(sys.argv[2]) if len(sys.argv) > 2 else 2
    seconds = float(sys.argv[3]) if len(sys.argv) > 3 else 10
    depth = int(sys.argv[4]) if len(sys.argv) > 4 else 18
    nps = {1: [], threads: []}
    depth_time = {1: [], threads: []}
    for n in (1, threads):
        engine = Engine(path, n)
        for fen in POSITIONS:
            _, info = engine.search(fen, "movetime %d" % int(seconds * 1000))
            nps[n].append(field(info, "nps"))
            elapsed, _ = engine.search(fen, "depth %d" % depth)
            depth_time[n].append(elapsed)
            print("threads %d: nps %d, depth %d in %.2f s  (%s)" % (n, nps[n][-1], depth, elapsed, fen))
        engine.close()
    nps_ratio = statistics.median(nps[threads]) / statistics.median(nps[1])
    time_ratio = sum(depth_time[1]) / sum(depth_time[threads])
    print("nps ratio %d threads / 1 thread (median over positions): %.2f" % (threads, nps_ratio))
    print("time-to-depth %d speed-up (total time 1 thread / %d threads): %.2f" % (depth, threads, time_ratio))


if __name__ == "__main__":
    main()
