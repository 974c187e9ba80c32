"""Drives the engine binary through its standard input for the protocol tests.

Every wait is bounded: a hung engine fails the test with the tail of the transcript instead of
hanging the test run. The engine treats the end of its input like "quit", so the pipe stays
open until `quit()` or `close()`.
"""

import os
import queue
import re
import signal
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


def _binary_is_instrumented(path):
    """True for a sanitizer build, whose replies are several times slower."""
    try:
        with open(path, "rb") as f:
            data = f.read()
    except OSError:
        return False
    return any(marker in data for marker in (b"__asan_init", b"__tsan_init", b"__msan_init"))


class EngineFailure(AssertionError):
    pass


class Line:
    __slots__ = ("text", "at")

    def __init__(self, text, at):
        self.text = text
        self.at = at  # time.monotonic() when the reader thread received it

    def __repr__(self):
        return repr(self.text)


def _matcher(pattern):
    """A predicate over a line's text: a callable as is, a string or compiled regex must match the
    whole line."""
    if callable(pattern) and not isinstance(pattern, re.Pattern):
        return pattern
    regex = re.compile(pattern) if isinstance(pattern, str) else pattern
    return lambda text: regex.fullmatch(text) is not None


class Engine:
    """One engine process. `path` defaults to the binary named on the command line."""

    def __init__(self, path=None, args=(), banner=True, options=None):
        self.path = path or engine_path()
        self.args = list(args)
        self.transcript = []  # ("<" sent | ">" received, text)
        self.lines = queue.Queue()
        self.stderr_chunks = []
        self.proc = subprocess.Popen(
            [self.path] + self.args,
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            bufsize=0,
        )
        self._reader = threading.Thread(target=self._read_stdout, daemon=True)
        self._reader.start()
        self._err_reader = threading.Thread(target=self._read_stderr, daemon=True)
        self._err_reader.start()
        if banner:
            got = [self.next_line(STARTUP_TIMEOUT).text for _ in BANNER]
            if got != BANNER:
                self.fail("unexpected banner %r" % got)
            # The banner comes before the tables are built: wait until commands are served, so
            # that reply times measured later do not include the start-up.
            early = self.sync(STARTUP_TIMEOUT)
            if early:
                self.fail("unexpected output after the banner %r" % early)
        for name, value in (options or {}).items():
            self.set_option(name, value)

    # --- low level -------------------------------------------------------------------------

    def _read_stdout(self):
        stream = self.proc.stdout
        while True:
            try:
                raw = stream.readline()
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

    def stderr_text(self):
        return b"".join(self.stderr_chunks).decode("utf-8", "replace")

    def fail(self, message):
        tail = self.transcript[-TRANSCRIPT_TAIL:]
        lines = "\n".join("  %s %s" % (d, t) for d, t in tail)
        err = self.stderr_text().strip()
        if err:
            lines += "\n  stderr:\n" + "\n".join("    " + l for l in err.splitlines()[-20:])
        raise EngineFailure("%s\n  transcript tail:\n%s" % (message, lines))

    def send(self, line):
        """Writes one command line; returns the monotonic time it was written."""
        self.transcript.append(("<", line))
        try:
            self.proc.stdin.write((line + "\n").encode())
            self.proc.stdin.flush()
        except (BrokenPipeError, OSError):
            self.fail("engine closed its input before %r (exit code %r)" % (line, self.proc.poll()))
        return time.monotonic()

    def next_line(self, timeout=REPLY_TIMEOUT):
        """The next output line; fails on timeout or end of output."""
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

    # --- waiting for replies -----------------------------------------------------------------

    def read_until(self, pattern, timeout=REPLY_TIMEOUT):
        """Every line up to and including the first that matches; fails when none comes within
        `timeout` seconds."""
        match = _matcher(pattern)
        deadline = time.monotonic() + timeout
        got = []
        while True:
            left = deadline - time.monotonic()
            if left <= 0:
                self.fail("no line matching %r within %.1f s" % (getattr(pattern, "pattern", pattern), timeout))
            line = self.next_line(left)
            got.append(line)
            if match(line.text):
                return got

    def expect(self, pattern, timeout=REPLY_TIMEOUT):
        """The first line matching `pattern` (other lines are skipped)."""
        return self.read_until(pattern, timeout)[-1]

    def expect_next(self, pattern, timeout=REPLY_TIMEOUT):
        """The very next line, which must match."""
        line = self.next_line(timeout)
        if not _matcher(pattern)(line.text):
            self.fail("expected a line matching %r, got %r" % (getattr(pattern, "pattern", pattern), line.text))
        return line

    def lines_for(self, seconds):
        """Every line that arrives within the next `seconds` (used to check that nothing comes)."""
        deadline = time.monotonic() + seconds
        got = []
        while True:
            left = deadline - time.monotonic()
            if left <= 0:
                return got
            try:
                line = self.lines.get(timeout=left)
            except queue.Empty:
                return got
            if line is None:
                self.lines.put(None)
                return got
            got.append(line)

    def sync(self, timeout=REPLY_TIMEOUT):
        """Sends "isready" and returns the texts of the lines before "readyok"."""
        self.send("isready")
        return [l.text for l in self.read_until("readyok", timeout)[:-1]]

    def command(self, line, timeout=REPLY_TIMEOUT):
        """Sends a command and returns every line it printed (up to the "readyok" of a following
        "isready")."""
        self.send(line)
        return self.sync(timeout)

    def new_game(self, timeout=REPLY_TIMEOUT):
        """Sends "ucinewgame", which answers "readyok" like "isready"."""
        self.send("ucinewgame")
        self.expect_next("readyok", timeout)

    def set_option(self, name, value):
        replies = self.command("setoption name %s value %s" % (name, value))
        if len(replies) != 1 or not replies[0].startswith("info string "):
            self.fail("setoption %s %s replied %r" % (name, value, replies))
        return replies[0]

    def search(self, go, timeout=REPLY_TIMEOUT):
        """Sends a "go" line and returns the texts up to and including "bestmove"."""
        self.send(go)
        return [l.text for l in self.read_until(r"bestmove .*", timeout)]

    # --- ending ------------------------------------------------------------------------------

    def quit(self, timeout=REPLY_TIMEOUT):
        """Sends "quit" and waits for the process to end; returns the exit code."""
        self.send("quit")
        return self.wait_exit(timeout)

    def close_input(self):
        self.transcript.append(("<", "<end of input>"))
        try:
            self.proc.stdin.close()
        except OSError:
            pass

    def wait_exit(self, timeout=REPLY_TIMEOUT):
        code = self._exit_code(timeout)
        if code is None:
            self.kill()
            self.fail("engine did not exit within %.1f s" % timeout)
        self._reader.join(5)
        self._err_reader.join(5)
        return code

    def kill(self):
        if self.proc.poll() is None:
            self.proc.send_signal(signal.SIGKILL)
            self.proc.wait()

    def close(self):
        """Ends the process whatever its state: quit, then kill after a bounded wait."""
        if self.proc.poll() is None:
            try:
                self.proc.stdin.write(b"stop\nquit\n")
                self.proc.stdin.flush()
                self.proc.stdin.close()
            except OSError:
                pass
            if self._exit_code(10.0) is None:
                self.kill()
        self._reader.join(5)
        self._err_reader.join(5)
        for stream in (self.proc.stdin, self.proc.stdout, self.proc.stderr):
            try:
                stream.close()
            except OSError:
                pass

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()
        return False


# --- helpers shared by the scripts ---------------------------------------------------------------

_ENGINE_PATH = None


def engine_path():
    if _ENGINE_PATH is None:
        raise RuntimeError("run the script as: python3 <script> <path to vorix>")
    return _ENGINE_PATH


def time_scale():
    """Factor for reply deadlines: VORIX_TIME_SCALE, else 5 for a sanitizer build, else 1."""
    text = os.environ.get("VORIX_TIME_SCALE")
    if text:
        return float(text)
    return 5.0 if _binary_is_instrumented(engine_path()) else 1.0


def is_instrumented():
    return _binary_is_instrumented(engine_path())


def env_options(variable="VORIX_ENGINE_OPTIONS"):
    """Engine options from the environment, "Name=value" pairs separated by ";" or ",", e.g.
    VORIX_ENGINE_OPTIONS="Threads=4;Hash=16"."""
    options = {}
    for item in re.split(r"[;,]", os.environ.get(variable, "")):
        item = item.strip()
        if not item:
            continue
        name, _, value = item.partition("=")
        options[name.strip()] = value.strip()
    return options


def main():
    """Runs the unittest cases of the calling script; the first argument is the engine binary."""
    global _ENGINE_PATH
    if len(sys.argv) < 2:
        sys.exit("usage: %s <path to vorix> [unittest arguments]" % sys.argv[0])
    _ENGINE_PATH = os.path.abspath(sys.argv[1])
    if not os.access(_ENGINE_PATH, os.X_OK):
        sys.exit("not an executable: %s" % _ENGINE_PATH)
    unittest.main(argv=[sys.argv[0]] + sys.argv[2:], verbosity=2)


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
