#!/usr/bin/env python3
"""Mutation testing: plants one small fault at a time in a scratch copy of the sources, rebuilds
and runs the tests, and reports which faults the tests notice.

Every mutant is a file, a one-line snippet that must occur exactly once in that file, its
replacement and a category. The run never writes into the working tree it is started from: the
tracked (and untracked, not ignored) files are copied into a scratch directory, configured and
built there once, the baseline must pass every test, and then each mutant is applied, built
incrementally, tested and taken back.

Tests run sharpest first and stop at the first failure: the GoogleTest binaries directly (fail
fast), then the other CTest tests (the protocol tests), and last every test whose name contains
"bench", so that a mutant caught only by the bench tests is reported as such. --no-bench skips
those tests altogether.

    python3 scripts/mutate.py                  # every mutant
    python3 scripts/mutate.py --list           # check and print the list, build nothing
    python3 scripts/mutate.py --only search fathom-index-side
"""

import argparse
import collections
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import time
from pathlib import Path

Mutant = collections.namedtuple("Mutant", "id category path old new")

CATEGORIES = ("board", "movegen", "eval", "search", "threads", "clock", "fathom", "tuning")

# fmt: off
MUTANTS = [
    # Board: FEN, Zobrist keys, en passant, check test, move text.
    Mutant("board-ep-table-a-file", "board", "engine/board/attacks.cpp",
           "if (file > 0) enpassantTable[sq] |= squareBit(sq - 1);",
           "if (file >= 0) enpassantTable[sq] |= squareBit(sq - 1);"),
    Mutant("board-ep-table-h-file", "board", "engine/board/attacks.cpp",
           "if (file < 7) enpassantTable[sq] |= squareBit(sq + 1);",
           "if (file <= 7) enpassantTable[sq] |= squareBit(sq + 1);"),
    Mutant("board-fen-ep-key", "board", "engine/board/position.cpp",
           "if (enPassant) pos->hashKey ^= hashCodeEnpassant[enPassant & 7];",
           ";"),
    Mutant("board-fen-ep-rank", "board", "engine/board/position.cpp",
           "int expectedRank = pos->sideToMove == BLACK ? 3 : 4;",
           "int expectedRank = pos->sideToMove == BLACK ? 4 : 3;"),
    Mutant("board-fen-castle-rook", "board", "engine/board/position.cpp",
           "if (pos->board[7] != WHITE_ROOK) rights &= ~CASTLE_WHITE_KING;",
           "if (pos->board[6] != WHITE_ROOK) rights &= ~CASTLE_WHITE_KING;"),
    Mutant("board-check-pawn-side", "board", "engine/board/position.cpp",
           "if (attackByPawnTable[side][king] & bb[WHITE_PAWN + enemy]) return true;",
           "if (attackByPawnTable[enemy][king] & bb[WHITE_PAWN + enemy]) return true;"),
    Mutant("board-zobrist-ep-keys", "board", "engine/board/zobrist.cpp",
           "hashCodeEnpassant[file] = hashCodeRandomNumber[784 + file];",
           "hashCodeEnpassant[file] = hashCodeRandomNumber[785 + file];"),
    Mutant("board-move-text-ep", "board", "engine/board/move.cpp",
           "appendSquare(text, move->to - 16 * side + 8);",
           "appendSquare(text, move->to + 16 * side - 8);"),

    # Move generation: staged generators, legality, make/unmake, check detection, perft.
    Mutant("movegen-pawn-west-edge", "movegen", "engine/movegen/staged.cpp",
           "(b & ~FILE_A) << 7",
           "(b & ~FILE_H) << 7"),
    Mutant("movegen-ep-takers-side", "movegen", "engine/movegen/staged.cpp",
           "bitboard takers = enpassantTable[ep] & pos->bitboards[WHITE_PAWN + side];",
           "bitboard takers = enpassantTable[ep] & pos->bitboards[WHITE_PAWN + (side ^ 1)];"),
    Mutant("movegen-castle-crossed-square", "movegen", "engine/movegen/staged.cpp",
           "castlingPathSafe<side>(pos, 3ULL << (king + 1), king + 1)",
           "castlingPathSafe<side>(pos, 3ULL << (king + 1), king + 2)"),
    Mutant("movegen-evasion-ep", "movegen", "engine/movegen/staged.cpp",
           "if (ep != checker) return list;",
           "if (ep == checker) return list;"),
    Mutant("movegen-attacked-by-pawn", "movegen", "engine/movegen/staged.cpp",
           "(attackByPawnTable[by ^ 1][square] & bb[WHITE_PAWN + by])",
           "(attackByPawnTable[by][square] & bb[WHITE_PAWN + by])"),
    Mutant("movegen-legal-ep-rank-pin", "movegen", "engine/movegen/legal.cpp",
           "occupied = (occupied ^ squareBit(from) ^ squareBit(to)) | squareBit(landing);",
           "occupied = (occupied ^ squareBit(from)) | squareBit(landing);"),
    Mutant("movegen-legal-pin-square", "movegen", "engine/movegen/legal.cpp",
           "if (pos->plyState[ply].notPinned & squareBit(from)) return true;",
           "if (pos->plyState[ply].notPinned & squareBit(to)) return true;"),
    Mutant("movegen-make-clock", "movegen", "engine/movegen/makemove.h",
           "pos->halfMoveClock = (captured || type == PAWN) ? 0 : pos->halfMoveClock + 1;",
           "pos->halfMoveClock = (type == PAWN) ? 0 : pos->halfMoveClock + 1;"),
    Mutant("movegen-make-ep-key", "movegen", "engine/movegen/makemove.h",
           "key ^= hashCodeEnpassant[to & 7];",
           ";"),
    Mutant("movegen-unmake-rook-side", "movegen", "engine/movegen/makemove.h",
           "shiftPiece(pos, WHITE_ROOK + side, rookTo, rookFrom, unusedKey);",
           "shiftPiece(pos, WHITE_ROOK + enemy, rookTo, rookFrom, unusedKey);"),
    Mutant("movegen-perft-black-west-edge", "movegen", "engine/movegen/perft.cpp",
           "(pawns & ~FILE_A) >> 9",
           "(pawns & ~FILE_H) >> 9"),
    Mutant("movegen-check-discoverers", "movegen", "engine/movegen/check.cpp",
           "discoverers |= between & bb[side];",
           "discoverers |= between & bb[side ^ 1];"),

    # Evaluation.
    Mutant("eval-tempo-sign", "eval", "engine/eval/evaluate.h",
           "? d + TEMPO_BONUS : d - TEMPO_BONUS;",
           "? d + TEMPO_BONUS : d + TEMPO_BONUS;"),
    Mutant("eval-square-mirror", "eval", "engine/eval/evaluate.h",
           "square ^ ((~piece & 1) * 56)",
           "square ^ ((piece & 1) * 56)"),
    Mutant("eval-phase-counts-pawns", "eval", "engine/eval/evaluate.cpp",
           "if (type != PAWN && type != KING) pos->phase",
           "if (type != KING) pos->phase"),
    Mutant("eval-pawn-value", "eval", "engine/eval/psqt.cpp",
           "int32_t pieceValue[6] = {S(82, 97),",
           "int32_t pieceValue[6] = {S(83, 97),"),
    Mutant("eval-knight-square", "eval", "engine/eval/psqt.cpp",
           "S( -85, -95), S( -50, -32),",
           "S( -85, -95), S( -49, -32),"),
    Mutant("eval-promotion-phase", "eval", "engine/movegen/makemove.h",
           "pos->phase += pieceValuePhase[promotedType];",
           ";"),

    # Search: hash cut-off, pruning and reductions, draw rules, aspiration, tables, ordering.
    Mutant("search-tt-cut-bound", "search", "engine/search/alfabeta.cpp",
           "((hashed.bound != BOUND_UPPER && hashed.score >= beta) ||",
           "((hashed.bound != BOUND_LOWER && hashed.score >= beta) ||"),
    Mutant("search-tt-cut-depth", "search", "engine/search/alfabeta.cpp",
           "ply > 0 && hashed.depth >= depth &&",
           "ply > 0 && hashed.depth > depth &&"),
    Mutant("search-rfp-depth", "search", "engine/search/alfabeta.cpp",
           "depth <= RFP_DEPTH && !isMateScore(pruneValue)",
           "depth < RFP_DEPTH && !isMateScore(pruneValue)"),
    Mutant("search-razor-index", "search", "engine/search/alfabeta.cpp",
           "razor[*improving][depth]",
           "razor[!*improving][depth]"),
    Mutant("search-null-reduction", "search", "engine/search/alfabeta.cpp",
           "int reduction = depth / 4 + 3 +",
           "int reduction = depth / 4 + 4 +"),
    Mutant("search-lmp-count", "search", "engine/search/alfabeta.cpp",
           "moveCount >= LMP[improving][depth]",
           "moveCount > LMP[improving][depth]"),
    Mutant("search-lmr-improving", "search", "engine/search/alfabeta.cpp",
           "if (!improving) reduction++;",
           "if (improving) reduction++;"),
    Mutant("search-cutoff-bound", "search", "engine/search/alfabeta.cpp",
           "storeHash(pos->hashKey, ply, move, score, depth, BOUND_LOWER);",
           "storeHash(pos->hashKey, ply, move, score, depth, BOUND_EXACT);"),
    Mutant("search-fifty-move-rule", "search", "engine/search/alfabeta.cpp",
           "if (pos->halfMoveClock > 99) return 0;",
           "if (pos->halfMoveClock > 100) return 0;"),
    Mutant("search-repetition-clock", "search", "engine/board/position.h",
           "if (pos->halfMoveClock <= 3) return false;",
           "if (pos->halfMoveClock <= 4) return false;"),
    Mutant("search-repetition-start", "search", "engine/board/position.h",
           "for (int i = pos->historyCount - 5; i >= lowest; i -= 2)",
           "for (int i = pos->historyCount - 7; i >= lowest; i -= 2)"),
    Mutant("search-insufficient-material", "search", "engine/search/nodeutil.h",
           "mgHalf(pos->material[0]) <= 361 &&",
           "mgHalf(pos->material[0]) < 361 &&"),
    Mutant("search-lmr-table", "search", "engine/search/tables.cpp",
           "if (moveNumber == 3)",
           "if (moveNumber == 4)"),
    Mutant("search-aspiration-fail-low", "search", "engine/search/root.cpp",
           "w.beta = (w.alpha + w.beta) / 2;",
           ";"),
    Mutant("search-aspiration-fail-high", "search", "engine/search/root.cpp",
           "score + widths[w.failHigh];",
           "score + widths[w.failHigh - 1];"),
    Mutant("search-qs-tt-bound", "search", "engine/search/quiescence.cpp",
           "(hashed.score >= beta && hashed.bound != BOUND_UPPER)",
           "(hashed.score >= beta && hashed.bound != BOUND_LOWER)"),
    Mutant("search-tt-mate-shift", "search", "engine/search/tt.h",
           "if (score > MATE_THRESHOLD) return score - ply;",
           "if (score > MATE_THRESHOLD) return score + ply;"),
    Mutant("search-picker-equal-exchange", "search", "engine/search/picker.cpp",
           "seeValue[pos->board[move.from]] >= 0) return true;",
           "seeValue[pos->board[move.from]] > 0) return true;"),

    # Threads: the reporting thread, node totals, helper iterations.
    Mutant("threads-report-key", "threads", "engine/threads/workforce.cpp",
           "if (key > bestKey) {",
           "if (key < bestKey) {"),
    Mutant("threads-total-nodes", "threads", "engine/search/control.h",
           "total += i == self ? own : progress[i]->nodes",
           "total = i == self ? own : progress[i]->nodes"),
    Mutant("threads-final-nodes", "threads", "engine/threads/workforce.cpp",
           "nodes += w->ownNodes();",
           "nodes = w->ownNodes();"),
    Mutant("threads-skip-iteration", "threads", "engine/search/root.cpp",
           "return ahead >= needed;",
           "return ahead > needed;"),

    # Clock: time allocation and the time checks.
    Mutant("clock-increment-side", "clock", "engine/uci/go.cpp",
           "static_cast<long long>(engine.inc[s]) * (n - 1)",
           "static_cast<long long>(engine.inc[s ^ 1]) * (n - 1)"),
    Mutant("clock-side-to-move", "clock", "engine/uci/go.cpp",
           "allocateTime(GPSData.sideToMove);",
           "allocateTime(GPSData.sideToMove ^ 1);"),
    Mutant("clock-hard-factor", "clock", "engine/uci/go.cpp",
           "= 5 * budgets.soft;",
           "= 4 * budgets.soft;"),
    Mutant("clock-hard-limit-check", "clock", "engine/search/alfabeta.cpp",
           "startTime >= limits.hardTime)",
           "startTime >= limits.softTime)"),

    # Tablebases: position rules, decoding, indexing, probing.
    Mutant("fathom-ep-target-rank", "fathom", "fathom/tbpos.cpp",
           "p->black & (uint64_t(1) << (ep - 8))",
           "p->black & (uint64_t(1) << (ep + 8))"),
    Mutant("fathom-ep-capturer-side", "fathom", "fathom/tbpos.cpp",
           "ATT.pawn[white ? 1 : 0][ep]",
           "ATT.pawn[white ? 0 : 1][ep]"),
    Mutant("fathom-decode-symbol-length", "fathom", "fathom/tbdecode.cpp",
           "if (litidx <= symlen[sym]) break;",
           "if (litidx < symlen[sym]) break;"),
    Mutant("fathom-decode-block-walk", "fathom", "fathom/tbdecode.cpp",
           "while (lit > int64_t(read_le16(d->sizetable + 2 * size_t(b)))) {",
           "while (lit >= int64_t(read_le16(d->sizetable + 2 * size_t(b)))) {"),
    Mutant("fathom-index-side", "fathom", "fathom/tbindex.cpp",
           "side = p->turn != swap ? 0 : 1;",
           "side = p->turn == swap ? 0 : 1;"),
    Mutant("fathom-dtz-halved-flag", "fathom", "fathom/tbprobe.cpp",
           "(wdl == 2 && (st->flags & 4))",
           "(wdl == 2 && (st->flags & 8))"),
    Mutant("fathom-root-rank-fifty", "fathom", "fathom/tbprobe.cpp",
           "return worth + c <= 100 ?",
           "return worth + c < 100 ?"),
    Mutant("fathom-swapped-key", "fathom", "fathom/tbcore.cpp",
           "if (key2 != key) add_to_hash(e, key2);",
           ";"),

    # Texel tuner.
    Mutant("tuning-mirror-square", "tuning", "tuning/texel.cpp",
           "p.value[7 - 2 * file] = shifted;",
           "p.value[6 - 2 * file] = shifted;"),
    Mutant("tuning-end-game-half", "tuning", "tuning/texel.cpp",
           "packScore(mgHalf(word), egHalf(word) + delta)",
           "packScore(mgHalf(word) + delta, egHalf(word))"),
    Mutant("tuning-result-label", "tuning", "tuning/texel.cpp",
           'out->result = result == "1-0" ? 1.0 : (result == "1/2" ? 0.5 : 0.0);',
           'out->result = result == "1-0" ? 0.0 : (result == "1/2" ? 0.5 : 1.0);'),
    Mutant("tuning-share-remainder", "tuning", "tuning/texelworker.cpp",
           "auto last = k + 1 == workers.size() ?",
           "auto last = k == workers.size() ?"),
]
# fmt: on

BENCH_WORD = re.compile("bench", re.IGNORECASE)
SCRATCH_MARKER = ".vorix-mutate"


# ---------------------------------------------------------------------------------------------
# The mutant list


def locate(root, mutant):
    """(line number, error text or None) of the mutant's snippet in its file under root."""
    path = root / mutant.path
    if not path.is_file():
        return 0, "file not found"
    if "\n" in mutant.old or "\n" in mutant.new:
        return 0, "snippet or replacement spans lines"
    if mutant.old == mutant.new:
        return 0, "replacement equals the snippet"
    text = path.read_text(encoding="utf-8")
    count = text.count(mutant.old)
    if count != 1:
        return 0, "snippet occurs %d times" % count
    return text[: text.index(mutant.old)].count("\n") + 1, None


def validate(root, mutants):
    """Line numbers by id, and the list of problems (empty when the list is valid)."""
    lines, problems = {}, []
    seen = set()
    for m in mutants:
        if m.id in seen:
            problems.append("%s: duplicate id" % m.id)
        seen.add(m.id)
        if m.category not in CATEGORIES:
            problems.append("%s: unknown category %s" % (m.id, m.category))
        line, error = locate(root, m)
        if error:
            problems.append("%s: %s: %s" % (m.id, m.path, error))
        lines[m.id] = line
    return lines, problems


def select(mutants, only):
    if not only:
        return list(mutants), []
    ids = {m.id for m in mutants}
    unknown = [w for w in only if w not in ids and w not in CATEGORIES]
    chosen = [m for m in mutants if m.id in only or m.category in only]
    return chosen, unknown


# ---------------------------------------------------------------------------------------------
# Scratch copy and build


def run(cmd, cwd, timeout=None, env=None):
    """Runs a command in its own process group; returns (exit code, output, timed out). On a
    timeout the whole group is killed, so an engine started by a test does not linger."""
    proc = subprocess.Popen(cmd, cwd=str(cwd), env=env, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                            stdin=subprocess.DEVNULL, start_new_session=True)
    try:
        out, _ = proc.communicate(timeout=timeout)
        return proc.returncode, out.decode("utf-8", "replace"), False
    except subprocess.TimeoutExpired:
        try:
            os.killpg(proc.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        try:
            out, _ = proc.communicate(timeout=30)
        except subprocess.TimeoutExpired:  # a process outside the group still holds the pipe
            proc.kill()
            out = b""
        return -signal.SIGKILL, out.decode("utf-8", "replace"), True
    except BaseException:
        try:
            os.killpg(proc.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        proc.wait()
        raise


def source_files(root):
    """Tracked files and untracked files that git does not ignore, relative to root."""
    out = subprocess.run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"], cwd=str(root),
                         check=True, capture_output=True).stdout.decode("utf-8", "surrogateescape")
    names = sorted({n for n in out.split("\0") if n})
    return [n for n in names if (root / n).is_file() and not (root / n).is_symlink()]


def sync_tree(root, src):
    """Makes src a copy of the source files of root. Only files whose content differs are
    written (with a fresh time stamp), so an earlier build there stays incremental."""
    manifest = src / ".mutate-manifest"
    previous = set(manifest.read_text().splitlines()) if manifest.exists() else set()
    names = source_files(root)
    written = 0
    for name in names:
        data = (root / name).read_bytes()
        target = src / name
        if target.is_file() and target.read_bytes() == data:
            continue
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_bytes(data)
        shutil.copymode(str(root / name), str(target))
        written += 1
    for name in previous - set(names):
        stale = src / name
        if stale.is_file():
            stale.unlink()
    manifest.write_text("\n".join(names) + "\n")
    return len(names), written


def prepare_scratch(scratch):
    if scratch.exists() and any(scratch.iterdir()) and not (scratch / SCRATCH_MARKER).exists():
        sys.exit("mutate: %s exists and was not made by this script; choose another --scratch" % scratch)
    scratch.mkdir(parents=True, exist_ok=True)
    (scratch / SCRATCH_MARKER).write_text("scratch directory of scripts/mutate.py\n")


def configure(src, build, shared):
    if (build / "CMakeCache.txt").exists():
        return 0, ""
    cmd = ["cmake", "-S", str(src), "-B", str(build), "-DCMAKE_BUILD_TYPE=Release", "-DVORIX_TESTS=ON",
           "-DVORIX_SHARED_DIR=%s" % shared,
           # Test lists are read when ctest runs, so a mutant cannot fail the build through them.
           "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST"]
    code, out, _ = run(cmd, src)
    return code, out


def build_all(build, jobs, timeout):
    code, out, timed_out = run(["cmake", "--build", str(build), "-j", str(jobs)], build, timeout)
    return code == 0 and not timed_out, out


def first_compiler_error(out):
    for line in out.splitlines():
        if " error: " in line or line.startswith("error:") or "undefined reference" in line:
            return line.strip()[:160]
    return "build failed"


# ---------------------------------------------------------------------------------------------
# Tests


class TestPlan:
    """The registered tests, split into the GoogleTest binaries (run directly, fail fast), the
    other CTest tests, and the tests whose names contain "bench"."""

    def __init__(self, build):
        code, out, _ = run(["ctest", "--show-only=json-v1"], build, 600)
        if code != 0:
            raise RuntimeError("ctest --show-only failed:\n" + out[-2000:])
        data = json.loads(out[out.index("{"):])
        self.gtest = collections.OrderedDict()  # binary -> [(ctest name, gtest filter)]
        self.workdir = {}
        self.other = []  # ctest names of tests that are not GoogleTest cases
        for test in data.get("tests", []):
            name = test["name"]
            command = test.get("command") or []
            props = {p["name"]: p["value"] for p in test.get("properties", [])}
            gfilter = next((a[len("--gtest_filter="):] for a in command if a.startswith("--gtest_filter=")), None)
            if gfilter is not None and command:
                self.gtest.setdefault(command[0], []).append((name, gfilter))
                self.workdir[command[0]] = props.get("WORKING_DIRECTORY", str(build))
            else:
                self.other.append(name)
        # The engine's own unit tests first: they are the quickest to fail.
        self.gtest = collections.OrderedDict(
            sorted(self.gtest.items(), key=lambda kv: (Path(kv[0]).name != "vorix_tests", kv[0])))

    def count(self):
        return sum(len(v) for v in self.gtest.values()) + len(self.other)


def cmake_regex_escape(text):
    return re.sub(r"([\\^$.|?*+()\[\]{}])", r"\\\1", text)


def names_regex(names):
    return "^(" + "|".join(cmake_regex_escape(n) for n in names) + ")$"


def parse_gtest_failure(out, code):
    failed = re.search(r"^\[  FAILED  \] (\S+)", out, re.M)
    if failed:
        return failed.group(1)
    runs = re.findall(r"^\[ RUN      \] (\S+)", out, re.M)
    where = runs[-1] if runs else "startup"
    return "%s (exit %s)" % (where, code)


def parse_ctest_failure(out):
    # "1/9 Test #3: protocol.test_position ......***Failed    0.21 sec", "***Timeout", "***Exception:
    # SegFault", "***Not Run"
    for line in out.splitlines():
        m = re.search(r"Test\s+#\d+: (\S+) \.*\s*\*\*\*([A-Za-z][A-Za-z :]*?)\s+[\d.]+ sec", line)
        if m:
            return "%s (%s)" % (m.group(1), m.group(2).strip())
    m = re.search(r"The following tests FAILED:\s*\n\s*\d+ - (\S+)", out)
    if m:
        return m.group(1)
    return None


class Deadline:
    def __init__(self, seconds):
        self.end = time.monotonic() + seconds

    def left(self):
        return max(1.0, self.end - time.monotonic())

    def passed(self):
        return time.monotonic() >= self.end


def run_gtest(binary, workdir, gfilter, deadline):
    cmd = [binary, "--gtest_fail_fast", "--gtest_color=no"]
    if gfilter:
        cmd.append("--gtest_filter=" + gfilter)
    code, out, timed_out = run(cmd, workdir, deadline.left())
    if timed_out:
        return "timeout", Path(binary).name
    if code != 0:
        return "fail", parse_gtest_failure(out, code)
    return "pass", None


def run_ctest(build, names, jobs, deadline):
    cmd = ["ctest", "-R", names_regex(names), "-j", str(jobs), "--stop-on-failure", "--no-tests=error"]
    code, out, timed_out = run(cmd, build, deadline.left())
    if timed_out:
        return "timeout", "ctest stage (%d tests)" % len(names)
    if code != 0:
        return "fail", parse_ctest_failure(out) or "ctest exit %d" % code
    return "pass", None


def stages(plan, build, jobs, with_bench):
    """The test stages in order, as (label, is bench stage, callable(deadline), the CTest names
    of a CTest stage or None)."""
    result = []
    for binary, tests in plan.gtest.items():
        bench = [f for n, f in tests if BENCH_WORD.search(n)]
        plain = [f for n, f in tests if not BENCH_WORD.search(n)]
        if plain:
            gfilter = "-" + ":".join(bench) if bench else ""
            result.append((Path(binary).name, False,
                           lambda d, b=binary, f=gfilter: run_gtest(b, plan.workdir[b], f, d), None))
    other = [n for n in plan.other if not BENCH_WORD.search(n)]
    if other:
        result.append(("ctest", False, lambda d, n=other: run_ctest(build, n, jobs, d), other))
    if with_bench:
        for binary, tests in plan.gtest.items():
            bench = [f for n, f in tests if BENCH_WORD.search(n)]
            if bench:
                result.append((Path(binary).name + " bench", True,
                               lambda d, b=binary, f=":".join(bench): run_gtest(b, plan.workdir[b], f, d), None))
        bench_other = [n for n in plan.other if BENCH_WORD.search(n)]
        if bench_other:
            result.append(("ctest bench", True, lambda d, n=bench_other: run_ctest(build, n, jobs, d), bench_other))
    return result


def confirm_ctest_failure(build, names, where, stage, deadline):
    """Runs a failed CTest stage's failing test again (the protocol tests drive a real engine
    against the clock); when it passes, the whole stage once more, as the failure stopped it
    early. Returns the stage's final (outcome, failing test)."""
    failed = where.split(" ")[0] if where else ""
    if failed in names:
        again, where_again = run_ctest(build, [failed], 1, deadline)
        if again != "pass":
            return again, where_again if again == "fail" else where
    return stage(deadline)


def run_tests(test_stages, timeout, build=None):
    """Runs the stages until one fails. Returns (status, failing test, caught by a bench stage).
    A failure in a CTest stage counts only when it repeats."""
    deadline = Deadline(timeout)
    unconfirmed = None
    for label, is_bench, stage, names in test_stages:
        outcome, where = stage(deadline)
        if outcome == "fail" and names is not None and not deadline.passed():
            first = where
            outcome, where = confirm_ctest_failure(build, names, where, stage, deadline)
            if outcome == "pass":
                unconfirmed = unconfirmed or first
                continue
        if outcome == "timeout":
            return "TIMEOUT", where, is_bench
        if outcome == "fail":
            return "CAUGHT", where, is_bench
    return "SURVIVED", ("unconfirmed: " + unconfirmed) if unconfirmed else "", False


# ---------------------------------------------------------------------------------------------
# Main


def default_shared_dir(root):
    return (root.parent / "shared").resolve()


def print_list(mutants, lines, problems):
    for m in mutants:
        where = "%s:%s" % (m.path, lines.get(m.id) or "?")
        print("%-32s %-8s %s" % (m.id, m.category, where))
        print("    - %s" % m.old)
        print("    + %s" % m.new)
    counts = collections.Counter(m.category for m in mutants)
    print("%d mutants: %s" % (len(mutants), ", ".join("%s %d" % (c, counts[c]) for c in CATEGORIES if counts[c])))
    for p in problems:
        print("INVALID " + p)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--only", nargs="+", metavar="CATEGORY|ID", help="run only these categories or mutant ids")
    parser.add_argument("--list", action="store_true", help="check the snippets and print the list; build nothing")
    parser.add_argument("--jobs", type=int, default=2, help="parallel jobs of the build and of ctest (default 2)")
    parser.add_argument("--timeout", type=float, default=600, help="seconds of testing per mutant (default 600)")
    parser.add_argument("--keep", action="store_true", help="keep the scratch directory for a later, incremental run")
    parser.add_argument("--no-bench", action="store_true", help="skip every test whose name contains 'bench'")
    parser.add_argument("--scratch", default="/tmp/vorix-mutate", help="scratch directory (default /tmp/vorix-mutate)")
    parser.add_argument("--shared-dir", help="VORIX_SHARED_DIR for the build (default ../shared of the repository)")
    args = parser.parse_args()

    root = Path(__file__).resolve().parent.parent
    lines, problems = validate(root, MUTANTS)
    chosen, unknown = select(MUTANTS, args.only)
    if args.list:
        print_list(chosen, lines, problems)
        if unknown:
            print("unknown category or id: %s" % " ".join(unknown))
        return 2 if problems or unknown else 0
    if problems:
        for p in problems:
            print("INVALID " + p)
        print("mutate: the mutant list does not match the sources; nothing was run")
        return 2
    if unknown:
        print("mutate: unknown category or id: %s (categories: %s)" % (" ".join(unknown), " ".join(CATEGORIES)))
        return 2
    if not chosen:
        print("mutate: nothing selected")
        return 0

    scratch = Path(args.scratch).resolve()
    shared = Path(args.shared_dir).resolve() if args.shared_dir else default_shared_dir(root)
    src = scratch / "src"
    build = src / "build-mutate"
    prepare_scratch(scratch)
    src.mkdir(exist_ok=True)
    interrupted = False

    def on_term(signum, frame):
        raise KeyboardInterrupt

    signal.signal(signal.SIGTERM, on_term)
    try:
        started = time.monotonic()
        total, written = sync_tree(root, src)
        print("scratch copy %s: %d files, %d written" % (src, total, written), flush=True)
        code, out = configure(src, build, shared)
        if code != 0:
            print(out[-3000:])
            print("mutate: configuring the scratch build failed")
            return 1
        t = time.monotonic()
        ok, out = build_all(build, args.jobs, 3600)
        if not ok:
            print(out[-3000:])
            print("mutate: the unmodified sources do not build")
            return 1
        print("baseline build %.0f s" % (time.monotonic() - t), flush=True)
        plan = TestPlan(build)
        test_stages = stages(plan, build, args.jobs, not args.no_bench)
        t = time.monotonic()
        status, where, _ = run_tests(test_stages, max(args.timeout, 1800), build)
        if status != "SURVIVED" or where:
            print("mutate: the unmodified sources fail their tests: %s %s" % (status, where))
            return 1
        print("baseline tests %.0f s (%d tests%s); shared dir %s" %
              (time.monotonic() - t, plan.count(), ", bench tests skipped" if args.no_bench else "", shared))
        print("test order: %s" % ", then ".join(stage[0] for stage in test_stages), flush=True)
        print()

        results = []
        # Mutants of one file run back to back: a header is then rebuilt once per mutant, the
        # restore folded into the next mutant's build.
        order = sorted(chosen, key=lambda m: [x.path for x in chosen].index(m.path))
        for m in order:
            results.append(run_mutant(m, lines[m.id], src, build, args, test_stages))
            r = results[-1]
            print("%-32s %-8s %-40s %-10s %-48s %6.1f s" %
                  (m.id, m.category, "%s:%d" % (m.path, lines[m.id]), r["status"], r["where"] or "-", r["seconds"]),
                  flush=True)
        summarize(results, args.no_bench, time.monotonic() - started)
    except KeyboardInterrupt:
        interrupted = True
        print("\nmutate: interrupted")
    finally:
        if not args.keep and scratch.exists() and (scratch / SCRATCH_MARKER).exists():
            shutil.rmtree(str(scratch), ignore_errors=True)
    return 130 if interrupted else 0


def run_mutant(m, line, src, build, args, test_stages):
    path = src / m.path
    original = path.read_bytes()
    text = original.decode("utf-8")
    started = time.monotonic()
    result = {"mutant": m, "status": "", "where": "", "bench_only": False}
    try:
        if text.count(m.old) != 1:
            result.update(status="INVALID", where="snippet not found once in the copy")
            return result
        path.write_bytes(text.replace(m.old, m.new, 1).encode("utf-8"))
        ok, out = build_all(build, args.jobs, 3600)
        if not ok:
            result.update(status="BUILD-FAIL", where=first_compiler_error(out))
            return result
        status, where, bench_only = run_tests(test_stages, args.timeout, build)
        result.update(status=status, where=where, bench_only=bench_only)
        return result
    finally:
        path.write_bytes(original)
        now = time.time()
        os.utime(str(path), (now, now))  # newer than the mutant's objects: the next build redoes them
        result["seconds"] = time.monotonic() - started


def summarize(results, no_bench, seconds):
    built = [r for r in results if r["status"] in ("CAUGHT", "TIMEOUT", "SURVIVED")]
    caught = [r for r in built if r["status"] in ("CAUGHT", "TIMEOUT")]
    bench_only = [r for r in caught if r["bench_only"]]
    build_fail = [r for r in results if r["status"] == "BUILD-FAIL"]
    invalid = [r for r in results if r["status"] == "INVALID"]
    print()
    print("caught %d of %d (timeouts %d)" % (len(caught), len(built),
                                              sum(r["status"] == "TIMEOUT" for r in caught)))
    if no_bench:
        print("tests whose name contains 'bench' were skipped")
    else:
        print("caught only by tests whose name contains 'bench': %d (caught without them: %d of %d)" %
              (len(bench_only), len(caught) - len(bench_only), len(built)))
        for r in bench_only:
            print("    %s (%s)" % (r["mutant"].id, r["where"]))
    print("build failures (not counted): %d%s" %
          (len(build_fail), "".join("\n    %s: %s" % (r["mutant"].id, r["where"]) for r in build_fail)))
    if invalid:
        print("not applied: %s" % " ".join(r["mutant"].id for r in invalid))
    print("per category:")
    for category in CATEGORIES:
        rows = [r for r in built if r["mutant"].category == category]
        if not rows:
            continue
        got = [r for r in rows if r["status"] != "SURVIVED"]
        only = [r for r in got if r["bench_only"]]
        survivors = [r["mutant"].id for r in rows if r["status"] == "SURVIVED"]
        print("  %-8s caught %2d of %2d%s%s" % (category, len(got), len(rows),
                                                 " (bench only %d)" % len(only) if only else "",
                                                 "; survived: " + " ".join(survivors) if survivors else ""))
    print("total %.0f s, %.1f s per mutant" % (seconds, seconds / max(1, len(results))))


if __name__ == "__main__":
    sys.exit(main())
