#!/usr/bin/env python3
"""Protocol fuzzer: feeds the engine a long random stream of UCI lines and checks it after every
step.

    python3 scripts/protocol_fuzz.py [BINARY] [--seed N] [--seconds S] [--lines N] [--shared DIR]
                                     [--quiet]

The stream mixes positions with random legal games, malformed FENs and moves, searches with good
and nonsense limits, option changes, developer commands and raw noise (blank lines, CR line ends,
tabs, random bytes, 100 KB lines). The fuzzer keeps its own copy of the game (a small 0x88 move
generator) and checks that every "go" gets exactly one "bestmove" once stopped, that the best and
ponder moves are legal, that "isready" is answered, that illegal moves are refused and legal ones
taken, that the board the engine shows is the one it was given, that no sanitizer reports on
stderr, and that the engine exits with status 0 on "quit". A fault prints the seed and the last
commands; the same seed replays the same stream.
"""

import argparse
import os
import queue
import random
import re
import subprocess
import sys
import threading
import time
from collections import Counter, deque

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

# --- the game: a 0x88 board, moves made on copies -------------------------------------------

FILES = "abcdefgh"
KNIGHT = (33, 31, 18, 14, -14, -18, -31, -33)
KING = (1, -1, 16, -16, 17, 15, -15, -17)
DIAGONAL = (17, 15, -15, -17)
STRAIGHT = (1, -1, 16, -16)
# Castling right: king from, king to, rook from, rook to, squares that must be empty.
CASTLES = {
    "K": (0x04, 0x06, 0x07, 0x05, (0x05, 0x06)),
    "Q": (0x04, 0x02, 0x00, 0x03, (0x03, 0x02, 0x01)),
    "k": (0x74, 0x76, 0x77, 0x75, (0x75, 0x76)),
    "q": (0x74, 0x72, 0x70, 0x73, (0x73, 0x72, 0x71)),
}


def square(text):
    return FILES.index(text[0]) + 16 * (int(text[1]) - 1)


def square_name(sq):
    return FILES[sq & 7] + str((sq >> 4) + 1)


class Position:
    __slots__ = ("board", "white", "rights", "ep")

    @classmethod
    def from_fen(cls, fen):
        fields = fen.split()
        pos = cls()
        pos.board = ["."] * 128
        rank, file = 7, 0
        for c in fields[0]:
            if c == "/":
                rank, file = rank - 1, 0
            elif c.isdigit():
                file += int(c)
            else:
                pos.board[16 * rank + file] = c
                file += 1
        pos.white = fields[1] == "w"
        pos.rights = fields[2].replace("-", "")
        pos.ep = None if fields[3] == "-" else square(fields[3])
        return pos

    def mine(self, piece):
        return piece != "." and piece.isupper() == self.white

    def attacked(self, sq, by_white):
        b = self.board
        pawn, knight, king = ("P", "N", "K") if by_white else ("p", "n", "k")
        for d in (-15, -17) if by_white else (15, 17):
            if not (sq + d) & 0x88 and b[sq + d] == pawn:
                return True
        for steps, piece in ((KNIGHT, knight), (KING, king)):
            for d in steps:
                if not (sq + d) & 0x88 and b[sq + d] == piece:
                    return True
        for dirs, sliders in ((DIAGONAL, "BQ"), (STRAIGHT, "RQ")):
            sliders = sliders if by_white else sliders.lower()
            for d in dirs:
                t = sq + d
                while not t & 0x88:
                    if b[t] != ".":
                        if b[t] in sliders:
                            return True
                        break
                    t += d
        return False

    def pseudo_moves(self):
        """(from, to, promotion letter) for each move of the side to move, legal or not."""
        b, white = self.board, self.white
        up = 16 if white else -16
        for s in range(128):
            piece = b[s]
            if s & 0x88 or not self.mine(piece):
                continue
            kind = piece.upper()
            if kind == "P":
                targets = []
                if b[s + up] == ".":
                    targets.append(s + up)
                    if s >> 4 == (1 if white else 6) and b[s + 2 * up] == ".":
                        yield s, s + 2 * up, ""
                for t in (s + up - 1, s + up + 1):
                    if not t & 0x88 and (t == self.ep or (b[t] != "." and not self.mine(b[t]))):
                        targets.append(t)
                for t in targets:
                    for promo in "qrbn" if t >> 4 in (0, 7) else [""]:
                        yield s, t, promo
            elif kind in "NK":
                for d in KNIGHT if kind == "N" else KING:
                    if not (s + d) & 0x88 and not self.mine(b[s + d]):
                        yield s, s + d, ""
            else:
                for d in DIAGONAL if kind == "B" else STRAIGHT if kind == "R" else KING:
                    t = s + d
                    while not t & 0x88 and not self.mine(b[t]):
                        yield s, t, ""
                        if b[t] != ".":
                            break
                        t += d
        for right in self.rights:
            king_from, king_to, rook_from, _, between = CASTLES[right]
            if (right.isupper() == white and b[king_from] == ("K" if white else "k")
                    and b[rook_from] == ("R" if white else "r") and all(b[x] == "." for x in between)
                    and not self.attacked(king_from, not white)
                    and not self.attacked((king_from + king_to) // 2, not white)):
                yield king_from, king_to, ""

    def make(self, s, t, promo):
        nxt = Position()
        b = nxt.board = self.board[:]
        piece = b[s]
        b[s], b[t] = ".", piece
        if piece in "Pp":
            if t == self.ep and (s ^ t) & 7:
                b[t - (16 if self.white else -16)] = "."  # the pawn taken en passant
            if promo:
                b[t] = promo.upper() if self.white else promo
        if piece in "Kk" and abs(t - s) == 2:
            for king_from, king_to, rook_from, rook_to, _ in CASTLES.values():
                if (king_from, king_to) == (s, t):
                    b[rook_to], b[rook_from] = b[rook_from], "."
        nxt.ep = (s + t) // 2 if piece in "Pp" and abs(t - s) == 32 else None
        nxt.rights = "".join(r for r in self.rights if not {s, t} & {CASTLES[r][0], CASTLES[r][2]})
        nxt.white = not self.white
        return nxt

    def leaves_king_safe(self, nxt):
        return not nxt.attacked(nxt.board.index("K" if self.white else "k"), nxt.white)

    def legal(self):
        """Every legal move in UCI text, mapped to the position it leads to."""
        moves = {}
        for s, t, promo in self.pseudo_moves():
            nxt = self.make(s, t, promo)
            if self.leaves_king_safe(nxt):
                moves[square_name(s) + square_name(t) + promo] = nxt
        return moves

    def random_move(self, rng):
        """(move text, next position) for a random legal move, or None when there is none."""
        moves = list(self.pseudo_moves())
        rng.shuffle(moves)
        for s, t, promo in moves:
            nxt = self.make(s, t, promo)
            if self.leaves_king_safe(nxt):
                return square_name(s) + square_name(t) + promo, nxt
        return None

    def rows(self):
        """The board as the engine's grid shows it, rank 8 first, a blank for an empty square."""
        return ["".join(self.board[16 * r + f].replace(".", " ") for f in range(8)) for r in range(7, -1, -1)]


START = "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1"
POOL = [
    START,
    "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1",
    "8/2p5/3p4/KP5r/1R3p1k/8/4P1P1/8 w - - 0 1",
    "r3k2r/Pppp1ppp/1b3nbN/nP6/BBP1P3/q4N2/Pp1P2PP/R2Q1RK1 w kq - 0 1",
    "rnbq1k1r/pp1Pbppp/2p5/8/2B5/8/PPP1NnPP/RNBQK2R w KQ - 1 8",
    "rnbqkbnr/ppp1p1pp/8/3pPp2/8/8/PPPP1PPP/RNBQKBNR w KQkq f6 0 3",  # en passant
    "8/8/8/K2pP2r/8/8/8/7k w - d6 0 1",  # en passant that would expose the king
    "8/8/8/4k3/8/8/4P3/4K3 w - - 0 1",
    "8/8/4k3/8/8/8/3QK3/8 w - - 0 1",
    "8/6k1/8/8/3B4/8/1K3N2/8 b - - 0 1",
    "8/3k4/8/8/8/8/4KR2/1r6 w - - 10 60",
    "7k/8/8/8/8/8/8/K7 w - - 0 1",  # two kings only
    "8/8/3k4/8/8/4K3/8/8 b - - 0 1",
    "7k/6Q1/6K1/8/8/8/8/8 b - - 0 1",  # mate
    "rnb1kbnr/pppp1ppp/8/4p3/6Pq/5P2/PPPPP2P/RNBQKBNR w KQkq - 1 3",  # mate
    "7k/5Q2/6K1/8/8/8/8/8 b - - 0 1",  # stalemate
]

COMMANDS = {"uci", "isready", "ucinewgame", "position", "go", "stop", "ponderhit", "setoption", "quit",
            "perft", "rtest", "texel", "bench", "eval", "showboard", "help", "evil"}
BLANKS = re.compile(r"[ \t\n\r\v\f]+")  # the separators of the engine's word reader
SANITIZER_MARKERS = ("runtime error", "AddressSanitizer", "LeakSanitizer", "UndefinedBehaviorSanitizer", "ThreadSanitizer")
NONSENSE = ["-1", "-99999", "0", "99999999999999999999", "2147483648", "-2147483649", "abc", "1e3", "+5",
            "0x10", "-0", "--", "3.5", "\x00", "\udcff"]
BAD_MOVES = ["zz99", "a1", "0000", "e2e5", "e7e8x", "e1g1", "e1c1", "e8g8", "a9a1", "i2i4", "@@@@", "e2e4e5",
             "E2E4", "--", "e2", "h8h8", "a1a1q", "e7e8k", "e7e8p"]


def show(text, width=160):
    text = text if text.isprintable() and text.isascii() else ascii(text)[1:-1]
    return text if len(text) <= width else text[:width] + "... (%d chars)" % len(text)


def random_text(rng, length, common):
    """Random bytes, `common` ones more often, as text that writes back to the same bytes."""
    raw = bytes(rng.choice(common + [rng.randrange(256)]) for _ in range(length))
    return raw.decode("utf-8", "surrogateescape")


def instrumented(path):
    try:
        with open(path, "rb") as f:
            data = f.read()
        return b"__asan_init" in data or b"__tsan_init" in data
    except OSError:
        return False


class Fault(Exception):
    pass


class Search:
    __slots__ = ("pos", "due", "stopped", "allowed")

    def __init__(self, pos, due, allowed=None):
        # allowed: the legal moves of "searchmoves", None when every move may be played
        self.pos, self.due, self.stopped, self.allowed = pos, due, None, allowed


class Fuzzer:
    def __init__(self, args):
        self.args = args
        self.seed = args.seed
        self.rng = random.Random(self.seed)
        slow = instrumented(args.binary)
        self.t_reply = 20.0 if slow else 5.0  # readyok, boards, perft answers
        self.t_stop = 30.0 if slow else 10.0  # bestmove once stopped
        self.t_bounded = 60.0 if slow else 20.0  # a search that ends by itself
        self.t_quit = 60.0 if slow else 10.0
        self.syzygy = os.path.join(args.shared, "syzygy")
        self.history = deque(maxlen=40)  # commands sent
        self.recent = deque(maxlen=40)  # engine lines received
        self.lines = queue.Queue()
        self.stderr = []
        self.known = Position.from_fen(START)  # the engine's position, None when not known
        self.searches = deque()  # gos still waiting for their bestmove, oldest first
        self.stop_plan = None  # [steps left, delay, go time, ponder] of the search that needs a stop
        self.want, self.got = Counter(), Counter()  # readyok / uciok
        self.expect_illegal = deque()  # move words the engine must refuse, in order
        self.loose = False  # refusals of unknown moves are tolerated until the next sync
        self.boards = deque()  # positions of showboard / perft boards still to come
        self.rows = []
        self.fen_rejections = 0
        self.perft_safe = False  # the remembered perft depth is small
        self.stats = Counter()
        self.slowest_stop = 0.0
        self.progress = time.monotonic()
        self.actions = [
            (14, self.act_position), (6, lambda: self.act_position(bad=True)), (5, self.act_bad_fen),
            (10, self.act_go), (3, self.act_stop), (2, lambda: self.send("ponderhit")), (8, self.sync),
            (2, self.act_newgame),
            (8, self.act_setoption), (5, self.act_perft), (5, self.act_info), (7, self.act_noise),
            (1, self.act_long_line),
        ]
        self.proc = subprocess.Popen([args.binary], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                     stderr=subprocess.PIPE, bufsize=0)
        threading.Thread(target=self._read_stdout, daemon=True).start()
        self.err_thread = threading.Thread(target=self._read_stderr, daemon=True)
        self.err_thread.start()

    # --- process --------------------------------------------------------------------------

    def _read_stdout(self):
        for raw in iter(self.proc.stdout.readline, b""):
            text = raw.rstrip(b"\n").decode("utf-8", "surrogateescape")
            self.recent.append(text)
            self.lines.put((time.monotonic(), text))
        self.lines.put(None)

    def _read_stderr(self):
        for chunk in iter(lambda: self.proc.stderr.read(4096), b""):
            self.stderr.append(chunk.decode("utf-8", "replace"))

    def stderr_text(self):
        return "".join(self.stderr)

    def fail(self, message):
        raise Fault(message)

    def send(self, line, decorate=True):
        """Writes one line; clean commands sometimes get CR line ends, tabs or extra blanks."""
        ending = "\n"
        if decorate:
            r = self.rng.random()
            if r < 0.1:
                ending = "\r\n"
            elif r < 0.15:
                line = line.replace(" ", "\t")
            elif r < 0.2:
                line = "  " + line.replace(" ", "   ") + " \t"
        self.history.append(line + ending)
        self.stats["lines"] += 1
        try:
            self.proc.stdin.write((line + ending).encode("utf-8", "surrogateescape"))
            self.proc.stdin.flush()
        except OSError:
            self.fail("the engine closed its input")

    # --- replies --------------------------------------------------------------------------

    def pump(self, until=lambda: True, timeout=0.0, what="output"):
        """Handles the lines that came, then more until `until()` holds or `timeout` passes."""
        end = time.monotonic() + timeout
        while True:
            try:
                while True:
                    self.handle(self.lines.get_nowait())
            except queue.Empty:
                pass
            self.check()
            if until():
                return
            if time.monotonic() > end:
                self.fail("no %s within %.0f s" % (what, timeout))
            try:
                self.handle(self.lines.get(timeout=0.02))
            except queue.Empty:
                pass

    def check(self):
        err = self.stderr_text()
        if any(marker in err for marker in SANITIZER_MARKERS):
            self.fail("sanitizer report on stderr")
        if self.proc.poll() is not None:
            self.fail("the engine died (exit status %s)" % self.proc.returncode)
        now = time.monotonic()
        if any(s.due is not None and now > s.due for s in self.searches):
            self.fail("no bestmove in time (%d searches outstanding)" % len(self.searches))

    def handle(self, item):
        if item is None:
            try:
                self.proc.wait(5)
            except subprocess.TimeoutExpired:
                pass
            time.sleep(0.2)
            self.check()  # names a sanitizer report or the exit status first
            self.fail("the engine closed its output")
        at, text = item
        if text.find("bestmove ") > 0:
            self.fail("bestmove inside another output line: %s" % show(text))
        if text.startswith("bestmove"):
            self.on_bestmove(text.split(" "), at)
        elif text in ("readyok", "uciok"):
            self.got[text] += 1
            if self.got[text] > self.want[text]:
                self.fail("%s that nothing asked for" % text)
        elif text.startswith("info string illegal move "):
            word = text[len("info string illegal move "):].rsplit("; the moves from it on", 1)[0]
            if self.expect_illegal:
                expected = self.expect_illegal.popleft()
                if word != expected:
                    self.fail("accepted the illegal move %s (refused %s after it)" % (show(expected), show(word)))
            elif not self.loose:
                self.fail("refused the legal move %s" % show(word))
        elif text.startswith("info string invalid FEN"):
            self.fen_rejections += 1
        elif len(text) == 33 and text.startswith("| "):
            self.rows.append(text[2::4])
            if len(self.rows) == 8:
                self.on_board(self.rows)
                self.rows = []

    def on_bestmove(self, words, at):
        if not self.searches:
            self.fail("bestmove without a go")
        search = self.searches.popleft()
        self.stats["bestmoves"] += 1
        if search.stopped is not None:
            self.slowest_stop = max(self.slowest_stop, at - search.stopped)
        if len(words) not in (2, 4) or (len(words) == 4 and words[2] != "ponder"):
            self.fail("malformed bestmove line")
        best = words[1]
        if not re.fullmatch(r"[a-h][1-8][a-h][1-8][qrbn]?|0000", best):
            self.fail("malformed best move %s" % show(best))
        if search.pos is None:
            return
        legal = search.pos.legal()
        if best == "0000" and legal:
            self.fail("bestmove 0000 with %d legal moves" % len(legal))
        if best != "0000" and best not in legal:
            self.fail("illegal best move %s" % best)
        if search.allowed is not None and best not in search.allowed:
            self.fail("best move %s is not among searchmoves %s" % (best, " ".join(sorted(search.allowed))))
        if len(words) == 4 and (best == "0000" or words[3] not in legal[best].legal()):
            self.fail("illegal ponder move %s" % show(words[3]))

    def on_board(self, rows):
        if not self.boards:
            self.fail("a board nobody asked for")
        expected = self.boards.popleft()[1]
        if expected is not None and rows != expected.rows():
            self.fail("the engine shows another board:\n  %s\nexpected\n  %s" %
                      ("\n  ".join(rows), "\n  ".join(expected.rows())))

    def sync(self):
        """isready; everything asked for before must have come with its readyok."""
        self.send("isready")
        self.stats["isready"] += 1
        self.want["readyok"] += 1
        self.pump(lambda: all(self.got[k] >= n for k, n in self.want.items()), self.t_reply, "readyok")
        if self.expect_illegal:
            self.fail("accepted the illegal move %s" % show(self.expect_illegal[0]))
        while self.boards and self.boards[0][0] == "maybe":
            self.boards.popleft()
        if self.boards:
            self.fail("no board shown for showboard or perft")
        self.loose = False

    # --- searches -------------------------------------------------------------------------

    def stop_searches(self):
        """stop (after ponderhit now and then) and wait for every outstanding bestmove."""
        hit, pause = self.rng.random() < 0.5, self.rng.uniform(0, 0.05)
        ponder = False
        if self.stop_plan:
            _, delay, started, ponder = self.stop_plan
            time.sleep(max(0.0, started + delay - time.monotonic()))
        if hit and ponder:
            self.send("ponderhit")
            time.sleep(pause)
        self.send("stop")
        self.after_stop()

    def after_stop(self):
        self.stop_plan = None
        now = time.monotonic()
        base = max([s.due for s in self.searches if s.due is not None] + [now])
        for s in self.searches:
            s.due, s.stopped = base + self.t_stop, now
        self.pump(lambda: not self.searches, self.t_stop * 2, "bestmove after stop")

    def start_go(self, line, bounded, ponder=False, allowed=None):
        if self.stop_plan:
            self.stop_searches()
        if len(self.searches) >= 2:
            self.pump(lambda: len(self.searches) < 2, self.t_bounded * 2, "bestmove")
        steps, delay = self.rng.randint(0, 3), self.rng.uniform(0, 0.3)
        self.send(line)
        self.stats["gos"] += 1
        now = time.monotonic()
        self.searches.append(Search(self.known, now + self.t_bounded if bounded else None, allowed))
        if not bounded:
            self.stop_plan = [steps, delay, now, ponder]

    def act_go(self):
        rng = self.rng
        r = rng.random()
        pairs, bounded = [], r < 0.55
        clock = [["wtime", str(rng.randint(10, 3000))], ["btime", str(rng.randint(10, 3000))]]
        clock += rng.sample([["winc", str(rng.randint(0, 100))], ["binc", str(rng.randint(0, 100))],
                             ["movestogo", str(rng.randint(1, 40))]], rng.randint(0, 3))
        if bounded:  # limits that end the search by themselves
            for key in rng.sample(["depth", "movetime", "nodes", "clock"], rng.randint(1, 2)):
                pairs += clock if key == "clock" else [[key, str(rng.randint(1, {"depth": 8, "movetime": 200,
                                                                                   "nodes": 50000}[key]))]]
        elif r < 0.75:
            pairs = rng.choice([[["infinite"]], [["ponder"]], [["ponder"]] + clock, [["ponder"], ["infinite"]],
                                [["infinite"], ["depth", "3"]], [["mate", str(rng.randint(1, 5))]]])
        elif r < 0.82:
            pairs = []
        else:
            keys = ["wtime", "btime", "winc", "binc", "movestogo", "depth", "nodes", "mate", "movetime"]
            for key in rng.sample(keys + ["infinite", "ponder", "searchmoves", "junk"], rng.randint(1, 4)):
                if key in keys:
                    value = rng.choice(NONSENSE + [None, str(rng.randint(1, 9))])
                    pairs.append([key] if value is None else [key, value])
                else:
                    pairs.append([key])
        rng.shuffle(pairs)
        allowed = None
        if rng.random() < 0.25:  # a root move list, legal moves mixed with others
            legal = sorted(self.known.legal()) if self.known else []
            listed = rng.sample(legal, rng.randint(0, min(3, len(legal))))
            listed += rng.sample(["e2e4", "a7a8q", "h1h1", "z9z9", "e1g1", "-"], rng.randint(0, 2))
            pairs.insert(rng.randint(0, len(pairs)), ["searchmoves"] + listed)
            if self.known:
                allowed = set(listed) & set(self.known.legal()) or None
        line = " ".join(["go"] + [w for p in pairs for w in p])
        self.start_go(line, bounded, ponder=any(p[0] == "ponder" for p in pairs), allowed=allowed)

    def act_stop(self):
        self.send("stop")
        self.after_stop()

    # --- positions ------------------------------------------------------------------------

    def random_fen(self):
        fen = self.rng.choice(POOL)
        if self.rng.random() < 0.2:  # odd but valid clocks
            fields = fen.split()
            fields[4] = self.rng.choice(["0", "1", "99", "100", "150", "65535", "999999999"])
            fields[5] = self.rng.choice(["0", "1", "2", "300", "511", "512", "99999", "999999999"])
            fen = " ".join(fields)
        return fen

    def random_game(self, pos):
        r = self.rng.random()
        plies = self.rng.randint(0, 12) if r < 0.7 else self.rng.randint(13, 80) if r < 0.97 else \
            self.rng.randint(81, 400)
        moves, positions = [], [pos]
        for _ in range(plies):
            step = pos.random_move(self.rng)
            if step is None:
                break
            moves.append(step[0])
            pos = step[1]
            positions.append(pos)
        return moves, positions

    def bad_move(self, pos):
        """A word the engine must refuse as a move in `pos`."""
        rng, legal = self.rng, pos.legal()
        moves = sorted(legal) or ["e2e4"]
        promos = [m for m in moves if len(m) == 5] or ["e7e8q"]
        while True:
            word = rng.choice([
                "".join(rng.choice(FILES) + rng.choice("12345678") for _ in range(2)),  # any squares
                rng.choice(moves) + rng.choice(["x", "+", "#", "qq", "="]),
                rng.choice(promos)[:4] + rng.choice(["", "Q", "k", "p", "K"]),
                rng.choice(moves)[:4] + "q",
                rng.choice(BAD_MOVES),
                rng.choice("abcdefgh12345678") * 5000,
                random_text(rng, rng.randint(1, 9), [0, 0xFF, 0xC3, 0x80, 0x1C]),
            ])
            if word and word not in legal and not BLANKS.search(word):
                return word

    def position_line(self, fen, words):
        if fen == START and self.rng.random() < 0.6:
            skip = self.rng.choice(["moves", "moves", "moves", "xyz", "e2e4"])  # the word after startpos is not read
            return "position startpos" + (" " + " ".join([skip] + words) if words or self.rng.random() < 0.5 else "")
        return "position fen " + fen + (" moves " + " ".join(words) if words or self.rng.random() < 0.5 else "")

    def act_position(self, bad=False):
        fen = self.random_fen()
        moves, positions = self.random_game(Position.from_fen(fen))
        tail, wrong = [], None
        if bad:
            cut = self.rng.randint(0, len(moves))
            moves, positions = moves[:cut], positions[:cut + 1]
            wrong = self.bad_move(positions[-1])
            tail = [wrong] + self.rng.sample(["e2e4", "a1", "e7e5", "zz99", "g1f3"], self.rng.randint(0, 3))
        self.send(self.position_line(fen, moves + tail))
        self.known = positions[-1]
        if wrong is not None:
            self.expect_illegal.append(wrong)

    def mutate(self, fen):
        rng = self.rng
        fields = fen.split(" ")
        kind = rng.randrange(9)
        i = rng.randrange(len(fen))
        if kind == 0:
            return fen[:i] + rng.choice("pnbrqkPNBRQK0123456789/-wbx ") + fen[i + 1:]
        if kind == 1:
            return fen[:i] + fen[i + 1:]
        if kind == 2:
            return fen[:i] + fen[i:i + rng.randint(1, 8)] * rng.randint(2, 4) + fen[i:]
        if kind == 3 and len(fields) > 1:
            fields.pop(rng.randrange(len(fields)))
        elif kind == 4:
            fields.insert(rng.randrange(len(fields) + 1), rng.choice(["junk", "0", "KQkq", "w", "-"]))
        elif kind == 5 and len(fields) > 5:
            fields[rng.choice([4, 5])] = rng.choice(NONSENSE[:13] + ["1000000000", "-100"])
        elif kind == 6 and len(fields) > 3:
            fields[rng.randrange(1, 4)] = rng.choice(["x", "W", "B", "white", "e3", "e6", "z9", "a0", "KQkqKQkq",
                                                      "X", "h6h6", "-e"])
        elif kind == 7:
            fields[0] = fields[0].replace(rng.choice("kKqQp"), rng.choice(["1", "P", "k", "K", "Q"]), 1)
        else:
            fields[0] = fields[0] * rng.randint(2, 1000)
        return " ".join(fields)[:100000]

    def act_bad_fen(self):
        fen = self.rng.choice(POOL)
        moves = self.random_game(Position.from_fen(fen))[0][:6]
        for _ in range(self.rng.randint(1, 3)):
            fen = self.mutate(fen)
        rejected = self.fen_rejections
        self.send("position fen " + fen + (" moves " + " ".join(moves) if self.rng.random() < 0.5 else ""))
        self.loose = True  # the moves may not fit whatever the engine made of the FEN
        self.sync()
        if self.fen_rejections == rejected:  # taken: a position the fuzzer cannot follow
            self.known = None

    # --- other commands -------------------------------------------------------------------

    def act_newgame(self):
        if self.stop_plan:
            self.stop_searches()
        self.send("ucinewgame")
        self.want["readyok"] += 1

    def act_setoption(self):
        rng = self.rng
        name = rng.choice(["Hash", "Threads", "Ponder", "MoveOverhead", "SyzygyPath", "SyzygyProbeDepth",
                           "hash", "THREADS", "Hsh", "UCI_Chess960", "Move", "x" * 300])
        low = name.lower()
        good = {"hash": str(rng.randint(1, 64)), "threads": str(rng.randint(1, 4)),
                "ponder": rng.choice(["true", "false"]), "moveoverhead": str(rng.randint(1, 500)),
                "syzygypath": rng.choice([self.syzygy, self.syzygy, "<empty>", "/nonexistent/tables",
                                          self.syzygy + ":/nowhere", "/tmp/a b", ":::", "/" + "x" * 5000]),
                "syzygyprobedepth": str(rng.randint(0, 10))}.get(low, str(rng.randint(0, 9)))
        bad = rng.choice(["-5", "0", "abc", "1.5", "64MB", "TRUE", "yes", "1"]
                         + (["99999999999999999999", "60001", "128", "-2147483649"]
                            if low not in ("hash", "threads") else []))
        value = good if rng.random() < 0.6 else bad
        self.send(rng.choice(["setoption name " + name, "setoption name %s value" % name,
                              rng.choice(["setoption", "setoption name", "setoption value 3"]),
                              "setoption %s value 3" % name,
                              "setoption name %s junk words value %s" % (name, value)]
                             + ["setoption name %s value %s" % (name, value)] * 6))

    def act_perft(self):
        rng = self.rng
        hostile = rng.choice(["0", "-1", "200", "99999", "2147483648", "99999999999999999999", "-99999"])
        garbage = rng.choice(["abc", "4x", "", "3.5", "\x00", "--"])
        r = rng.random()
        if r < 0.6:  # a depth that finishes at once
            depth = rng.randint(1, 4 if self.known else 3)
            self.perft_safe = True
            self.boards.append(("board", self.known))
            self.send("perft %d" % depth)
            return
        # A depth the engine cannot hold must be refused at once; a word that is no number falls back
        # on the remembered depth, which must be a small one here.
        word = hostile if r < 0.85 or not self.perft_safe else garbage
        self.boards.append(("maybe", self.known))
        self.send(("perft " + word).rstrip())
        self.sync()

    def act_info(self):
        command = self.rng.choice(["showboard", "eval", "help", "uci"])
        if command == "showboard":
            self.boards.append(("board", self.known))
        if command == "uci":
            self.want["uciok"] += 1
        self.send(command)

    def act_noise(self):
        rng = self.rng
        kind = rng.randrange(7)
        junk = rng.choice(["junk", "1 2 3", "\x00", "\udcff\udcfe", "moves e2e4", "name value"])
        if kind == 0:
            self.send(rng.choice(["", " ", "\t", " \t \t", "\r", "\x0b\x0c"]), decorate=False)
        elif kind == 1:  # random bytes; a first word that is a command gets a prefix
            line = random_text(rng, rng.randint(1, 200), [0, 0xFF, 0xC3, 0x0D, 0x09, 0x20]).replace("\n", " ")
            first = BLANKS.split(line.strip(" \t\r\v\f"), 1)[0]
            self.send(("x" + line) if first in COMMANDS else line, decorate=False)
        elif kind == 2:
            self.send("isready " + junk)
            self.want["readyok"] += 1
        elif kind == 3:
            command = rng.choice(["eval", "help", "showboard", "evil"])
            if command == "showboard":
                self.boards.append(("board", self.known))
            self.send(command + " " + junk)
        elif kind == 4:  # refused: the position stays
            self.send(rng.choice(["position", "position moves e2e4", "position start", "position " + junk]))
        elif kind == 5:
            command = rng.choice(["stop", "ponderhit"])
            self.send(command + " " + junk)
            if command == "stop":
                self.after_stop()
        else:
            self.send(rng.choice(["Uci", "ISREADY", "go_", "perft4", "quit_", "xyzzy"]))

    def act_long_line(self):
        rng = self.rng
        kind = rng.randrange(5)
        if kind == 0:
            self.send("".join(rng.choice("abcdefgh12345678/ ") for _ in range(100000)).replace(" ", "x"))
        elif kind == 1:
            self.send("position startpos moves e2e4 " + "a1 " * 33000)
            self.known = Position.from_fen(START).legal()["e2e4"]
            self.expect_illegal.append("a1")
        elif kind == 2:
            self.start_go("go " + "depth 2 " * 12500, bounded=True)
        elif kind == 3:
            self.send("isready" + " " * 100000)
            self.want["readyok"] += 1
        else:
            self.send("setoption name MoveOverhead value " + "9" * 100000)

    # --- the run --------------------------------------------------------------------------

    def step(self):
        if self.stop_plan:
            if self.stop_plan[0] <= 0:
                self.stop_searches()
            else:
                self.stop_plan[0] -= 1
        action = self.rng.choices([a for _, a in self.actions], [w for w, _ in self.actions])[0]
        action()
        self.pump()
        self.progress = time.monotonic()

    def run(self):
        start = time.monotonic()
        self.pump(lambda: len(self.recent) >= 4, 60.0, "banner")
        self.send("setoption name Hash value 16", decorate=False)
        self.sync()
        last_note = start
        while time.monotonic() - start < self.args.seconds and \
                (self.args.lines is None or self.stats["lines"] < self.args.lines):
            self.step()
            if not self.args.quiet and time.monotonic() - last_note > 10:
                last_note = time.monotonic()
                print("  %4.0f s  %d lines, %d gos" % (last_note - start, self.stats["lines"], self.stats["gos"]),
                      flush=True)
        if self.stop_plan and self.rng.random() < 0.5:
            self.stop_searches()  # otherwise quit has to end the search
        self.sync()
        self.send("quit", decorate=False)
        try:
            code = self.proc.wait(self.t_quit)
        except subprocess.TimeoutExpired:
            self.fail("the engine did not exit within %.0f s of quit" % self.t_quit)
        self.err_thread.join(10)
        try:
            for item in iter(lambda: self.lines.get(timeout=5), None):
                self.handle(item)  # quit may end a search with its bestmove
        except queue.Empty:
            pass
        if any(marker in self.stderr_text() for marker in SANITIZER_MARKERS):
            self.fail("sanitizer report on stderr")
        if code != 0:
            self.fail("exit status %d after quit" % code)
        return time.monotonic() - start

    def report(self, message):
        time.sleep(0.5)  # lets a sanitizer finish its report
        if self.proc.poll() is None:
            self.proc.kill()
        self.err_thread.join(5)
        print("FAULT: %s" % message)
        print("seed %d, after %d lines; replay: python3 scripts/protocol_fuzz.py %s --seed %d --lines %d"
              % (self.seed, self.stats["lines"], self.args.binary, self.seed, self.stats["lines"]))
        print("last commands sent:")
        for line in list(self.history):
            print("  < " + show(line))
        print("last engine lines:")
        for line in list(self.recent)[-30:]:
            print("  > " + show(line))
        err = self.stderr_text().strip().splitlines()
        if err:
            print("stderr (last 40 lines):")
            for line in err[-40:]:
                print("  " + line)
        sys.stdout.flush()


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("binary", nargs="?", default=os.path.join(ROOT, "build", "vorix"))
    parser.add_argument("--seed", type=int, default=None)
    parser.add_argument("--seconds", type=float, default=120.0)
    parser.add_argument("--lines", type=int, default=None)
    parser.add_argument("--shared", default=os.path.normpath(os.path.join(ROOT, "..", "shared")))
    parser.add_argument("--quiet", action="store_true")
    args = parser.parse_args()
    if args.seed is None:
        args.seed = random.SystemRandom().randrange(1 << 32)
    print("protocol fuzz of %s, seed %d" % (args.binary, args.seed), flush=True)
    fuzzer = Fuzzer(args)

    def watchdog():  # a write into a hung engine blocks; nothing else would end the run then
        while True:
            time.sleep(5)
            if time.monotonic() - fuzzer.progress > 4 * fuzzer.t_bounded:
                fuzzer.report("no progress for %.0f s: the engine does not read its input" % (4 * fuzzer.t_bounded))
                os._exit(1)

    threading.Thread(target=watchdog, daemon=True).start()
    try:
        seconds = fuzzer.run()
    except Fault as fault:
        fuzzer.report(str(fault))
        return 1
    s = fuzzer.stats
    print("clean: seed %d, %.0f s, %d lines, %d gos, %d bestmoves, %d isready, %.0f lines/s, slowest bestmove "
          "after stop %.0f ms" % (args.seed, seconds, s["lines"], s["gos"], s["bestmoves"], s["isready"],
                                  s["lines"] / seconds, 1000 * fuzzer.slowest_stop))
    return 0


if __name__ == "__main__":
    sys.exit(main())
