#!/usr/bin/env python3
"""Perft speed of Vorix against Debian's stockfish, measured the same way for both engines:
the time from sending the perft command to the line with the node count, engine already
started. Prints every run, the medians of five runs and the nodes-per-second ratio."""
import statistics
import subprocess
import sys
import time

STARTPOS = "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1"
KIWIPETE = "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1"
CASES = [("startpos", STARTPOS, 6, 119060324), ("kiwipete", KIWIPETE, 5, 193690690)]
RUNS = 5


class Engine:
    def __init__(self, command):
        self.proc = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, bufsize=1)
        self.send("isready")
        self.wait_for(lambda line: line == "readyok")

    def send(self, line):
        self.proc.stdin.write(line + "\n")
        self.proc.stdin.flush()

    def wait_for(self, predicate):
        while True:
            line = self.proc.stdout.readline()
            if not line:
                raise RuntimeError("engine ended")
            line = line.strip()
            if predicate(line):
                return line

    def close(self):
        self.send("quit")
        self.proc.wait(timeout=10)


def time_perft(engine, fen, command, result_prefix, count_field):
    """Seconds from sending the perft command to its result line, and the node count."""
    engine.send("position fen " + fen)
    start = time.perf_counter()
    engine.send(command)
    line = engine.wait_for(lambda l: l.startswith(result_prefix))
    elapsed = time.perf_counter() - start
    return int(line.split()[count_field]), elapsed


def time_vorix(engine, fen, depth):
    return time_perft(engine, fen, "perft %d" % depth, "Perft results for depth:", 5)


def time_stockfish(engine, fen, depth):
    return time_perft(engine, fen, "go perft %d" % depth, "Nodes searched:", 2)


def main():
    vorix_path = sys.argv[1] if len(sys.argv) > 1 else "build/vorix"
    stockfish_path = sys.argv[2] if len(sys.argv) > 2 else "/usr/games/stockfish"
    vorix = Engine([vorix_path])
    stockfish = Engine([stockfish_path])
    stockfish.send("setoption name Threads value 1")
    ok = True
    for name, fen, depth, expected in CASES:
        v_times, s_times = [], []
        for run in range(RUNS):
            nodes, t = time_vorix(vorix, fen, depth)
            ok = ok and nodes == expected
            v_times.append(t)
            nodes, t = time_stockfish(stockfish, fen, depth)
            ok = ok and nodes == expected
            s_times.append(t)
            print("%s perft %d run %d: vorix %.3f s, stockfish %.3f s" % (name, depth, run + 1, v_times[-1], s_times[-1]))
        v_nps = expected / statistics.median(v_times)
        s_nps = expected / statistics.median(s_times)
        print("%s perft %d median: vorix %.1f Mnps, stockfish %.1f Mnps, ratio %.2f"
              % (name, depth, v_nps / 1e6, s_nps / 1e6, v_nps / s_nps))
    vorix.close()
    stockfish.close()
    if not ok:
        print("node counts differ from the known values")
        sys.exit(1)


if __name__ == "__main__":
    main()
