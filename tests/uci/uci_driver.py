"""Drives the engine binary through its standard input for the protocol tests.

Every wait is bounded: a hung engine fails the test with the tail of the transcript instead of
hanging the test run. The engine treats the end of its input like "quit", so the pipe stays
open until `quit()` or `close()`.
"""

import collections
import functools
import os
import queue
import re
import subprocess
import sys
import threading
import time
import unittest

# Seconds to wait for a reply that should come at once (a sanitizer build is much slower).
REPLY_TIMEOUT = 20.0
STARTUP_TIMEOUT = 60.0
TRANSCRIPT_TAIL = 40

BANNER = ["Vorix 2.211", "by Merrowind", "", "enter 'help' to see the commands"]

# Information line grammars.
INFO_CP = re.compile(
    r"info score cp (-?\d+) depth (\d+) seldepth (\d+) nodes (\d+) nps (\d+) time (\d+) tbhits (\d+) pv "
    r"((?:[a-h][1-8][a-h][1-8][nbrq]? )+)"
)
INFO_MATE = re.compile(
    r"info score mate (-?\d+) depth (\d+) nodes (\d+) nps (\d+) time (\d+) tbhits (\d+) pv "
    r"((?:[a-h][1-8][a-h][1-8][nbrq]? )+)"
)
BESTMOVE = re.compile(r"bestmove ([a-h][1-8][a-h][1-8][nbrq]?|0000)(?: ponder ([a-h][1-8][a-h][1-8][nbrq]?))?")

# One output line and the time.monotonic() at which the reader thread received it.
Line = collections.namedtuple("Line", "text at")


class EngineFailure(AssertionError):
    pass


class Engine:
    """One engine process, started on the binary named on the command line."""

    def __init__(self):
        self.transcript = []  # ("<" sent | ">" received, text)
        self.lines = queue.Queue()
        self.stderr_chunks = []
        self.proc = subprocess.Popen([engine_path()], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                     stderr=subprocess.PIPE, bufsize=0)
        self._readers = [threading.Thread(target=self._read_stdout, daemon=True),
                         threading.Thread(target=self._read_stderr, daemon=True)]
        for reader in self._readers:
            reader.start()
        got = [self.next_line(STARTUP_TIMEOUT).text for _ in BANNER]
        if got != BANNER:
            self.fail("unexpected banner %r" % got)
        # The banner comes before the tables are built: wait until commands are served, so that
        # reply times measured later do not include the start-up.
        early = self.sync(STARTUP_TIMEOUT)
        if early:
            self.fail("unexpected output after the banner %r" % early)

    def _read_stdout(self):
        while True:
            try:
                raw = self.proc.stdout.readline()
            except (OSError, ValueError):
                raw = b""
            if not raw:
                break
            text = raw.decode("utf-8", "replace").rstrip("\n")
            self.transcript.append((">", text))
            self.lines.put(Line(text, time.monotonic()))
        self.lines.put(None)  # end of output

    def _read_stderr(self):
        while True:
            try:
                chunk = self.proc.stderr.read(4096)
            except (OSError, ValueError):
                chunk = b""
            if not chunk:
                break
            self.stderr_chunks.append(chunk)

    def fail(self, message):
        lines = "\n".join("  %s %s" % entry for entry in self.transcript[-TRANSCRIPT_TAIL:])
        err = b"".join(self.stderr_chunks).decode("utf-8", "replace").strip()
        if err:
            lines += "\n  stderr:\n" + "\n".join("    " + l for l in err.splitlines()[-20:])
        raise EngineFailure("%s\n  transcript tail:\n%s" % (message, lines))

    def send(self, line):
        """Writes one command line; returns the monotonic time it was written."""
        self.transcript.append(("<", line))
        try:
            self.proc.stdin.write((line + "\n").encode())
            self.proc.stdin.flush()
        except OSError:
            self.fail("engine closed its input before %r (exit code %r)" % (line, self.proc.poll()))
        return time.monotonic()

    def next_line(self, timeout=REPLY_TIMEOUT):
        try:
            line = self.lines.get(timeout=timeout)
        except queue.Empty:
            self.fail("no output within %.1f s" % timeout)
        if line is None:
            self.lines.put(None)
            self.fail("engine output ended (exit code %r)" % self._exit_code(1.0))
        return line

    def _exit_code(self, wait):
        try:
            return self.proc.wait(timeout=wait)
        except subprocess.TimeoutExpired:
            return None

    def read_until(self, pattern, timeout=REPLY_TIMEOUT):
        """Every line up to and including the first whose whole text matches `pattern`."""
        deadline = time.monotonic() + timeout
        got = []
        while True:
            left = deadline - time.monotonic()
            if left <= 0:
                self.fail("no line matching %r within %.1f s" % (pattern, timeout))
            got.append(self.next_line(left))
            if re.fullmatch(pattern, got[-1].text):
                return got

    def expect(self, pattern, timeout=REPLY_TIMEOUT):
        return self.read_until(pattern, timeout)[-1]

    def expect_next(self, pattern, timeout=REPLY_TIMEOUT):
        line = self.next_line(timeout)
        if not re.fullmatch(pattern, line.text):
            self.fail("expected a line matching %r, got %r" % (pattern, line.text))
        return line

    def lines_for(self, seconds):
        """Every line that arrives within the next `seconds`."""
        deadline = time.monotonic() + seconds
        got = []
        while (left := deadline - time.monotonic()) > 0:
            try:
                line = self.lines.get(timeout=left)
            except queue.Empty:
                break
            if line is None:
                self.lines.put(None)
                break
            got.append(line)
        return got

    def sync(self, timeout=REPLY_TIMEOUT):
        """Sends "isready" and returns the texts of the lines before "readyok"."""
        self.send("isready")
        return [l.text for l in self.read_until("readyok", timeout)[:-1]]

    def command(self, line, timeout=REPLY_TIMEOUT):
        """Sends a command and returns the texts it printed before a following "isready" is answered."""
        self.send(line)
        return self.sync(timeout)

    def new_game(self):
        self.send("ucinewgame")
        self.expect_next("readyok")

    def search(self, go, timeout=REPLY_TIMEOUT):
        """Sends a "go" line and returns the texts up to and including "bestmove"."""
        self.send(go)
        return [l.text for l in self.read_until(r"bestmove .*", timeout)]

    def quit(self, timeout=REPLY_TIMEOUT):
        self.send("quit")
        return self.wait_exit(timeout)

    def close_input(self):
        self.transcript.append(("<", "<end of input>"))
        self.proc.stdin.close()

    def wait_exit(self, timeout=REPLY_TIMEOUT):
        code = self._exit_code(timeout)
        if code is None:
            self.proc.kill()
            self.fail("engine did not exit within %.1f s" % timeout)
        for reader in self._readers:
            reader.join(5)
        return code

    def close(self):
        """Ends the process whatever its state: quit, then kill after a bounded wait."""
        if self.proc.poll() is None:
            try:
                self.proc.stdin.write(b"stop\nquit\n")
                self.proc.stdin.close()
            except (OSError, ValueError):
                pass
            if self._exit_code(10.0) is None:
                self.proc.kill()
                self.proc.wait()
        for reader in self._readers:
            reader.join(5)
        for stream in (self.proc.stdin, self.proc.stdout, self.proc.stderr):
            stream.close()


def info_lines(lines, grammar=INFO_CP):
    """The matches of `grammar` among the texts `lines`."""
    return [m for m in map(grammar.fullmatch, lines) if m]


def bestmoves(lines):
    return [l for l in lines if l.startswith("bestmove")]


def grid(placement):
    """The showboard text of a FEN piece placement."""
    separator = "+---+---+---+---+---+---+---+---+"
    lines = [separator]
    for rank in placement.split("/"):
        squares = "".join(" " * int(c) if c.isdigit() else c for c in rank)
        lines += ["".join("| %s " % c for c in squares) + "|", separator]
    return lines


START_GRID = grid("rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR")
AFTER_E4_GRID = grid("rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR")


class EngineTest(unittest.TestCase):
    """A fresh engine for every test; `scale` stretches deadlines for slow builds."""

    def setUp(self):
        self.scale = time_scale()
        self.engine = Engine()

    def tearDown(self):
        self.engine.close()

    def timed(self, command, timeout=30, until="bestmove.*"):
        """Sends `command`; returns (seconds until the line matching `until`, texts up to it)."""
        start = self.engine.send(command)
        lines = self.engine.read_until(until, timeout * self.scale)
        return lines[-1].at - start, [l.text for l in lines]

    def assert_search_result(self, lines):
        """Every line but the last is a search report, the last names a move, and no bestmove follows."""
        for line in lines[:-1]:
            self.assertTrue(INFO_CP.fullmatch(line) or INFO_MATE.fullmatch(line), "bad line %r" % line)
        self.assertIsNotNone(BESTMOVE.fullmatch(lines[-1]), lines[-1])
        self.assertNotEqual(lines[-1], "bestmove 0000")
        self.assertEqual(bestmoves(self.engine.sync()), [])

    def assert_legal(self, position, moves):
        """`moves`, a list or a bestmove line naming a real move, can be played from `position`."""
        if isinstance(moves, str):
            best = BESTMOVE.fullmatch(moves)
            self.assertIsNotNone(best, moves)
            self.assertNotEqual(best.group(1), "0000")
            moves = [m for m in best.groups() if m]
        keyword = " " if " moves " in position else " moves "
        replies = self.engine.command("position " + position + keyword + " ".join(moves))
        self.assertEqual(replies, [], "illegal sequence %s from %s" % (moves, position))


_ENGINE_PATH = None


def engine_path():
    if _ENGINE_PATH is None:
        raise RuntimeError("run the script as: python3 <script> <path to vorix>")
    return _ENGINE_PATH


@functools.lru_cache(maxsize=None)
def is_instrumented():
    """True for a sanitizer build, whose replies are several times slower."""
    try:
        with open(engine_path(), "rb") as f:
            data = f.read()
    except OSError:
        return False
    return any(marker in data for marker in (b"__asan_init", b"__tsan_init", b"__msan_init"))


def time_scale():
    """Factor for reply deadlines: VORIX_TIME_SCALE, else 5 for a sanitizer build, else 1."""
    text = os.environ.get("VORIX_TIME_SCALE")
    if text:
        return float(text)
    return 5.0 if is_instrumented() else 1.0


def main():
    """Runs the unittest cases of the calling script; the first argument is the engine binary."""
    global _ENGINE_PATH
    if len(sys.argv) < 2:
        sys.exit("usage: %s <path to vorix> [unittest arguments]" % sys.argv[0])
    _ENGINE_PATH = os.path.abspath(sys.argv[1])
    if not os.access(_ENGINE_PATH, os.X_OK):
        sys.exit("not an executable: %s" % _ENGINE_PATH)
    unittest.main(argv=[sys.argv[0]] + sys.argv[2:], verbosity=2)
