"""Control of a running search: time limits, stop, isready, quit, pondering, infinite search.

Reply times are measured from the moment the command is written to the moment its reply is read,
and are checked only against generous upper bounds (scaled up for sanitizer builds)."""

import uci_driver
from uci_driver import BESTMOVE, Engine, EngineTest, bestmoves

# 20 plies of a Ruy Lopez: white to move at game ply 20, a middle game for the time allocation.
MIDDLE_GAME = ("startpos moves e2e4 e7e5 g1f3 b8c6 f1b5 a7a6 b5a4 g8f6 e1g1 f8e7 f1e1 b7b5 a4b3 d7d6 c2c3 e8g8 "
               "h2h3 c6a5 b3c2 c7c5")

# Searches on a clock: (commands before "go", go, hard limit in s, slack in s for reading the clock,
# unwinding and printing, stretched for slow builds).
CLOCKS = [
    # Game ply 20, one thread, 100 ms overhead: soft 29 ms, hard 145 ms for the side to move.
    (["position " + MIDDLE_GAME], "go wtime 1000 btime 100000 winc 0 binc 0", 0.145, 0.2),
    # Black to move: black's clock counts, not white's.
    (["position " + MIDDLE_GAME + " d2d4"], "go wtime 100000 btime 1000", 0.145, 0.2),
    # 300 ms and no increment: the other side's ten minutes and large increment must not count.
    (["position startpos"], "go wtime 300 btime 600000 winc 0 binc 20000", 0.3, 0.2),
    (["position startpos moves e2e4"], "go wtime 600000 btime 300 winc 20000 binc 0", 0.3, 0.2),
    # The last move before the time control with 2 s left: hard limit 1.9 s, it must beat the flag.
    (["position " + MIDDLE_GAME], "go wtime 2000 btime 2000 movestogo 1", 1.9, 0.1),
    (["setoption name Ponder value true", "position " + MIDDLE_GAME], "go wtime 1000 btime 1000", 0.16, 0.2),
    # 10 s on the clock with 9.9 s reserved: short of time, the hard limit is 150 ms (without the
    # reserve it would be about 1.5 s).
    (["setoption name Ponder value false", "setoption name MoveOverhead value 9900", "position " + MIDDLE_GAME],
     "go wtime 10000 btime 10000", 0.15, 0.2),
]

# Searches that hold their bestmove: (position, commands 0.1 s apart, seconds after the last
# without a bestmove, the command that releases it, its reply bound as (s, s stretched for slow builds)).
HELD = [
    ("startpos", ["go infinite"], 0.5, "stop", (0, 0.1)),
    # A finished infinite search keeps its bestmove until "stop".
    ("startpos", ["go infinite depth 4"], 0.5, "stop", (0, 0.1)),
    ("startpos", ["go ponder wtime 1000 btime 1000"], 0.3, "stop", (0, 0.1)),
    ("startpos", ["go ponder depth 4"], 0.5, "ponderhit", (0, 0.1)),
    # The hard limit of this clock is 145 ms: a ponder search runs on past it, and after
    # "ponderhit" the clock counts from "go", so the limit has already passed.
    (MIDDLE_GAME, ["go ponder wtime 1000 btime 1000"], 0.6, "ponderhit", (0.145, 0.2)),
    # After "ponderhit" this is a normal search with a budget of more than a second.
    ("startpos", ["go ponder wtime 100000 btime 100000", "ponderhit"], 0.4, "stop", (0, 0.1)),
]


class SearchControl(EngineTest):
    def test_movetime_is_used_and_not_exceeded(self):
        for movetime in (0.1, 0.5):
            with self.subTest(movetime=movetime):
                elapsed, lines = self.timed("go movetime %d" % (movetime * 1000))
                self.assert_search_result(lines)
                # Only the hard limit ends a movetime search.
                self.assertGreater(elapsed, movetime * 0.9)
                self.assertLess(elapsed, movetime + 0.2 * self.scale)

    def test_clock_time_stays_within_the_hard_limit(self):
        for commands, go, hard, slack in CLOCKS:
            with self.subTest(commands=commands, go=go):
                for command in commands:
                    self.engine.command(command)
                elapsed, lines = self.timed(go)
                self.assert_search_result(lines)
                self.assertLess(elapsed, hard + slack * self.scale)

    def test_held_search_answers_only_when_released(self):
        for position, commands, quiet, release, (bound, stretched) in HELD:
            with self.subTest(commands=commands):
                self.engine.command("position " + position)
                seen = []
                for i, command in enumerate(commands):
                    self.engine.send(command)
                    seen += self.engine.lines_for(quiet if i == len(commands) - 1 else 0.1)
                self.assertEqual(bestmoves([l.text for l in seen]), [])
                elapsed, lines = self.timed(release)
                self.assertLess(elapsed, bound + stretched * self.scale, "%r answered late" % release)
                self.assert_search_result(lines)

    def test_isready_is_answered_during_a_search(self):
        self.engine.send("go infinite")
        self.engine.lines_for(0.2)
        for _ in range(3):
            elapsed, lines = self.timed("isready", 5, until="readyok")
            self.assertLess(elapsed, 0.1 * self.scale)
            self.assertEqual(bestmoves(lines), [])
        elapsed, lines = self.timed("stop")
        self.assertLess(elapsed, 0.1 * self.scale)
        self.assert_search_result(lines)

    def test_quit_and_end_of_input_end_the_process(self):
        for go in (None, "go infinite", "go wtime 100000 btime 100000"):
            for ending in ("quit", "end of input"):
                with self.subTest(go=go, ending=ending):
                    self.engine.close()
                    self.engine = Engine()
                    if go:
                        self.engine.send(go)
                        self.engine.lines_for(0.3)
                    if ending == "quit":
                        self.engine.send("quit")
                    else:
                        self.engine.close_input()
                    self.assertEqual(self.engine.wait_exit(2 * self.scale), 0)
                    if not go:
                        self.assertEqual(self.engine.lines_for(0.1), [])

    def test_immediate_stop_still_gives_a_legal_move(self):
        # A search stopped before its first iteration ends must still name a real move.
        for threads in (1, 3):
            self.engine.command("setoption name Threads value %d" % threads)
            for position in ["startpos", "startpos moves e2e4 c7c5 g1f3", "fen 4k3/P7/8/8/8/8/8/4K3 w - - 0 1"]:
                with self.subTest(threads=threads, position=position):
                    self.engine.command("position " + position)
                    self.engine.send("go infinite")
                    self.engine.send("stop")
                    self.assert_legal(position, self.engine.expect("bestmove.*", 10 * self.scale).text)

    def test_every_go_gets_one_bestmove(self):
        # (commands, None for a pause of 0.2 s; the number of bestmoves they are owed)
        for commands, owed in [(["go infinite", None, "stop", "stop", "stop"], 1),
                               (["go infinite", None, "stop", "go depth 3"], 2),
                               # The second "go" waits for the first search to end.
                               (["go depth 7", "go depth 2"], 2)]:
            with self.subTest(commands=commands):
                for command in commands:
                    if command:
                        self.engine.send(command)
                    else:
                        self.engine.lines_for(0.2)
                for _ in range(owed):
                    self.assertRegex(self.engine.expect("bestmove.*", 60 * self.scale).text, BESTMOVE)
                self.assertEqual(bestmoves(self.engine.sync()), [])


if __name__ == "__main__":
    uci_driver.main()
