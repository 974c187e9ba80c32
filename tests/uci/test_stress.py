"""Random interleavings of search and control commands.

Every "go" must get exactly one "bestmove", every "isready" (and "ucinewgame") exactly one
"readyok"; the engine must never hang, crash or print anything unexpected, and must exit cleanly
on "quit".

Environment:
  VORIX_STRESS_ITERATIONS  number of random commands (default 3000, 400 for a sanitizer build)
  VORIX_STRESS_SEED        seed of the random sequence (default: a fresh one, printed)
  VORIX_ENGINE_OPTIONS     engine options set at start, e.g. "Threads=4;Hash=16"; when Threads is
                           given the run keeps that thread count between searches
"""

import os
import random
import sys
import time
import unittest

import uci_driver
from uci_driver import BESTMOVE, INFO_CP, INFO_MATE, Engine

RUY_LOPEZ = ("e2e4 e7e5 g1f3 b8c6 f1b5 a7a6 b5a4 g8f6 e1g1 f8e7 f1e1 b7b5 a4b3 d7d6 c2c3 e8g8 h2h3 c6a5 b3c2 "
             "c7c5 d2d4 d8c7").split()
QUEENS_GAMBIT = "d2d4 d7d5 c2c4 e7e6 b1c3 g8f6 c1g5 f8e7 e2e3 e8g8 g1f3 b8d7 a1c1 c7c6".split()
FENS = [
    ("r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1", "e1g1 e8c8 a2a3".split()),
    ("8/2p5/3p4/KP5r/1R3p1k/8/4P1P1/8 w - - 0 1", "e2e4 h5h6 g2g3 f4g3".split()),
    ("r1b1kb1r/pppp1ppp/5q2/4n3/3KP3/2N3PN/PPP4P/R1BQ1B1R b kq - 0 1", "f8c5 d4c5".split()),
    ("4k3/P7/8/8/8/8/8/4K3 w - - 0 1", "a7a8q e8d7".split()),
    ("8/8/8/4k3/8/8/8/R3K3 w Q - 0 1", "e1c1 e5e4".split()),
    ("6k1/5ppp/8/8/8/8/5PPP/3R2K1 w - - 0 1", []),
]
# Positions that are refused or cut short: one "info string" line each.
BAD_POSITIONS = [
    "position fen 8/8/8/8/8/8/8/8 w - - 0 1",
    "position fen rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - x 1",
    "position startpos moves e2e4 e2e4",
    "position startpos moves e2e4 e7e5 zz",
]

class StressFailure(AssertionError):
    pass


class Session:
    """The engine plus the bookkeeping of the replies still owed."""

    def __init__(self, rng, scale, options):
        self.rng = rng
        self.scale = scale
        self.engine = Engine(options=options)
        self.fixed_threads = "Threads" in options
        self.owed_bestmove = 0
        self.owed_readyok = 0
        self.owed_info_string = 0
        self.search_kind = None  # None, "bounded", "held" (infinite/ponder/mate: ends on stop)
        self.search_go = None
        self.last_info_string = None
        self.info_during_search = False
        self.search_position = None
        self.position = "startpos"
        self.legal_checks = []
        self.counts = {"go": 0, "bestmove": 0, "isready": 0, "readyok": 0, "stop": 0, "ponderhit": 0,
                       "setoption": 0, "position": 0, "ucinewgame": 0}
        self.violations = []

    # --- output bookkeeping ------------------------------------------------------------------

    def fail(self, message):
        self.engine.fail(message)

    def take(self, line):
        text = line.text
        if text.startswith("bestmove"):
            if self.owed_bestmove <= 0:
                self.fail("bestmove without a go: %r" % text)
            if not BESTMOVE.fullmatch(text) or text == "bestmove 0000":
                self.fail("malformed bestmove %r" % text)
            self.owed_bestmove -= 1
            self.counts["bestmove"] += 1
            if self.owed_bestmove == 0:
                if self.search_position is not None:
                    self.legal_checks.append((self.search_position, text.split()[1:]))
                self.search_kind = None
        elif text == "readyok":
            if self.owed_readyok <= 0:
                self.fail("readyok without isready")
            self.owed_readyok -= 1
            self.counts["readyok"] += 1
        elif text.startswith("info string "):
            if self.owed_info_string <= 0:
                self.fail("unexpected %r" % text)
            self.owed_info_string -= 1
            self.last_info_string = text
            # An option change may be applied once the search has ended: after its bestmove.
            self.info_during_search = self.owed_bestmove > 0
        elif INFO_CP.fullmatch(text) or INFO_MATE.fullmatch(text):
            if self.owed_bestmove <= 0:
                self.fail("search report outside a search: %r" % text)
        else:
            self.fail("unexpected line %r" % text)

    def pump(self, seconds=0.0):
        """Takes every line that arrives within `seconds` (at least those already there)."""
        for line in self.engine.lines_for(seconds) if seconds > 0 else self._ready_lines():
            self.take(line)

    def _ready_lines(self):
        got = []
        while True:
            try:
                line = self.engine.lines.get_nowait()
            except Exception:
                return got
            if line is None:
                self.engine.lines.put(None)
                self.fail("engine output ended (exit code %r)" % self.engine.proc.poll())
            got.append(line)

    def wait_until(self, done, what, timeout):
        deadline = time.monotonic() + timeout * self.scale
        while not done():
            left = deadline - time.monotonic()
            if left <= 0:
                self.fail("timed out waiting for %s" % what)
            self.take(self.engine.next_line(left))

    def settle(self):
        """Waits until every owed reply has come."""
        self.wait_until(lambda: self.owed_bestmove == 0, "bestmove", 60)
        self.isready()
        self.wait_until(lambda: self.owed_readyok == 0 and self.owed_info_string == 0, "readyok", 30)

    # --- commands ----------------------------------------------------------------------------

    def send(self, line):
        self.engine.send(line)

    def isready(self):
        self.counts["isready"] += 1
        self.owed_readyok += 1
        self.send("isready")

    def go(self):
        rng = self.rng
        if self.owed_bestmove:
            r = rng.random()
            if self.search_kind == "held" or r < 0.3:
                self.stop()  # "stop" followed at once by "go"
            elif r < 0.4:
                pass  # a bounded search: the new "go" waits until it has ended
            else:
                self.wait_until(lambda: self.owed_bestmove == 0, "bestmove before the next go", 60)
        kind = rng.choice(["depth", "nodes", "movetime", "clock", "clock", "infinite", "ponder", "mate", "bare"])
        words = ["go"]
        held = False
        if kind == "depth":
            words += ["depth", str(rng.randint(1, 7))]
        elif kind == "nodes":
            words += ["nodes", str(rng.choice([1, 10, 500, 5000, 30000]))]
        elif kind == "movetime":
            words += ["movetime", str(rng.randint(1, 40))]
        elif kind in ("clock", "ponder", "bare"):
            if kind == "ponder":
                words.append("ponder")
                held = True
            if kind != "bare" or rng.random() < 0.5:
                words += ["wtime", str(rng.randint(0, 3000)), "btime", str(rng.randint(0, 3000))]
                if rng.random() < 0.5:
                    words += ["winc", str(rng.randint(0, 100)), "binc", str(rng.randint(0, 100))]
                if rng.random() < 0.4:
                    words += ["movestogo", str(rng.randint(1, 40))]
            else:
                words += ["movetime", str(rng.randint(1, 30))]
        elif kind == "infinite":
            words.append("infinite")
            held = True
            if rng.random() < 0.3:
                words += ["depth", str(rng.randint(1, 4))]  # ends, then holds bestmove until stop
        elif kind == "mate":
            words += ["mate", str(rng.randint(1, 4))]
            held = True  # searches on until stopped, or until the last depth without a mate
        if rng.random() < 0.05:
            words.append(rng.choice(["searchmoves", "unknownword", "depth", "nodes x"]))  # ignored
        self.counts["go"] += 1
        self.owed_bestmove += 1
        self.search_kind = "held" if held else "bounded"
        self.search_go = kind
        self.search_position = self.position
        self.send(" ".join(words))

    def stop(self):
        self.counts["stop"] += 1
        self.send("stop")
        if self.search_kind == "held":
            self.search_kind = "bounded"

    def ponderhit(self):
        self.counts["ponderhit"] += 1
        self.send("ponderhit")
        # A released ponder search runs on its clock (at most a few seconds here).
        if self.search_kind == "held" and self.search_go == "ponder":
            self.search_kind = "bounded"

    def new_game(self):
        if self.search_kind == "held" and self.search_go == "mate":
            self.stop()  # the engine waits for a mate search, which may never end on its own
        self.counts["ucinewgame"] += 1
        self.owed_readyok += 1
        self.send("ucinewgame")
        # The engine finishes (and if need be stops) the running search first.
        if self.search_kind == "held":
            self.search_kind = "bounded"

    def set_position(self):
        rng = self.rng
        self.counts["position"] += 1
        if rng.random() < 0.1:
            self.owed_info_string += 1
            line = rng.choice(BAD_POSITIONS)
            self.send(line)
            if "moves" in line:
                self.position = None  # cut short: the position is the legal prefix
            return
        choice = rng.random()
        if choice < 0.4:
            moves = rng.choice([RUY_LOPEZ, QUEENS_GAMBIT])
            position = "startpos moves " + " ".join(moves[:rng.randint(0, len(moves))])
        else:
            fen, moves = rng.choice(FENS)
            position = "fen %s moves %s" % (fen, " ".join(moves[:rng.randint(0, len(moves))]))
        position = position.rstrip()
        if position.endswith(" moves"):
            position = position[:-len(" moves")]
        self.position = position
        self.send("position " + position)

    def set_threads(self):
        self.counts["setoption"] += 1
        n = self.rng.randint(1, 4)
        held = self.search_kind == "held"
        if self.owed_bestmove == 0 and not self.fixed_threads:
            self.settle()
            self.owed_info_string += 1
            self.send("setoption name Threads value %d" % n)
            self.settle()
            if self.last_info_string != "info string Number of threads set to : %d" % n:
                self.violations.append("idle: Threads %d answered %r" % (n, self.last_info_string))
        elif held:
            # A search that holds its result is certainly running: the change must not be applied.
            self.owed_info_string += 1
            self.send("setoption name Threads value %d" % n)
            self.wait_until(lambda: self.owed_info_string == 0, "the Threads reply", 30)
            if "set to" in self.last_info_string and self.info_during_search:
                self.fail("Threads applied during a search: %r" % self.last_info_string)

    def set_hash(self):
        self.counts["setoption"] += 1
        n = self.rng.randint(1, 16)
        if self.owed_bestmove == 0:
            self.owed_info_string += 1
            self.send("setoption name Hash value %d" % n)
            self.settle()
            if self.last_info_string != "info string Size of Hashtable set to : %d" % n:
                self.violations.append("idle: Hash %d answered %r" % (n, self.last_info_string))
        elif self.search_kind == "held":
            self.owed_info_string += 1
            self.send("setoption name Hash value %d" % n)
            self.wait_until(lambda: self.owed_info_string == 0, "the Hash reply", 30)
            if "set to" in self.last_info_string and self.info_during_search:
                self.fail("Hash applied during a search: %r" % self.last_info_string)

    def check_legality(self):
        """Replays recorded best moves on their positions; none may be refused."""
        self.settle()
        for position, moves in self.legal_checks:
            if position is None:
                continue
            keyword = " " if " moves " in position else " moves "
            self.owed_info_string += 1  # owed only if illegal; settled below
            self.send("position " + position + keyword + " ".join(m for m in moves if m != "ponder"))
            self.isready()
            self.wait_until(lambda: self.owed_readyok == 0, "readyok", 30)
            if self.owed_info_string == 0:
                self.fail("illegal best move %r in %r" % (moves, position))
            self.owed_info_string -= 1
        self.legal_checks = []
        if self.position is None:
            self.position = "startpos"  # the checks left some other position set
        self.send("position " + self.position)

    # --- the run -----------------------------------------------------------------------------

    def step(self):
        rng = self.rng
        action = rng.choices(
            ["go", "stop", "ponderhit", "isready", "ucinewgame", "threads", "hash", "position", "wait", "check"],
            weights=[30, 12, 6, 10, 3, 4, 3, 10, 20, 2])[0]
        if action == "go":
            self.go()
        elif action == "stop":
            self.stop()
        elif action == "ponderhit":
            self.ponderhit()
        elif action == "isready":
            self.isready()
        elif action == "ucinewgame":
            self.new_game()
        elif action == "threads":
            self.set_threads()
        elif action == "hash":
            self.set_hash()
        elif action == "position":
            if self.owed_bestmove and rng.random() < 0.7:
                self.wait_until(lambda: self.owed_bestmove == 0 or self.search_kind == "held", "bestmove", 60)
                if self.search_kind == "held":
                    self.stop()
                    self.wait_until(lambda: self.owed_bestmove == 0, "bestmove after stop", 30)
            self.set_position()
        elif action == "wait":
            self.pump(rng.choice([0.0, 0.001, 0.005, 0.02]))
        elif action == "check":
            if self.search_kind == "held":
                self.stop()
            self.check_legality()
        self.pump()

    def finish(self):
        if self.search_kind == "held":
            self.stop()
        self.settle()
        self.check_legality()
        self.settle()
        self.send("quit")
        code = self.engine.wait_exit(30 * self.scale)
        if code != 0:
            self.fail("exit code %r after quit" % code)
        err = self.engine.stderr_text()
        if "Sanitizer" in err or "runtime error" in err:
            self.fail("sanitizer report:\n" + err[-4000:])


class Stress(unittest.TestCase):
    maxDiff = None

    def test_random_interleavings(self):
        default = "400" if uci_driver.is_instrumented() else "3000"
        iterations = int(os.environ.get("VORIX_STRESS_ITERATIONS", default))
        seed = int(os.environ.get("VORIX_STRESS_SEED", str(random.SystemRandom().randrange(1 << 32))))
        options = uci_driver.env_options()
        print("\nstress: seed %d, %d iterations, options %r (rerun with VORIX_STRESS_SEED=%d)"
              % (seed, iterations, options, seed), file=sys.stderr, flush=True)
        session = Session(random.Random(seed), uci_driver.time_scale(), options)
        started = time.monotonic()
        try:
            for _ in range(iterations):
                session.step()
            session.finish()
        except AssertionError as failure:
            session.engine.close()
            raise StressFailure("seed %d: %s" % (seed, failure)) from None
        finally:
            session.engine.close()
        counts = session.counts
        print("stress: %.1f s, %s" % (time.monotonic() - started, counts), file=sys.stderr, flush=True)
        self.assertEqual(counts["bestmove"], counts["go"])
        self.assertEqual(counts["readyok"], counts["isready"] + counts["ucinewgame"])
        self.assertEqual(session.violations, [], "seed %d: options refused while idle" % seed)


if __name__ == "__main__":
    uci_driver.main()
