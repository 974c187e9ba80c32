"""Control of a running search: time limits, stop, isready, quit, pondering, infinite search.

Reply times are measured from the moment the command is written to the moment its reply is read,
and are checked only against generous upper bounds (scaled up for sanitizer builds)."""

import unittest

import uci_driver
from uci_driver import BESTMOVE, Engine

# 20 plies of a Ruy Lopez: white to move at game ply 20, a middle game for the time allocation.
MIDDLE_GAME = ("startpos moves e2e4 e7e5 g1f3 b8c6 f1b5 a7a6 b5a4 g8f6 e1g1 f8e7 f1e1 b7b5 a4b3 d7d6 c2c3 e8g8 "
               "h2h3 c6a5 b3c2 c7c5")
# Slack allowed past a time limit for reading the clock, unwinding and printing.
MARGIN = 0.2


class SearchControl(unittest.TestCase):
    def setUp(self):
        self.engine = Engine()
        self.scale = uci_driver.time_scale()
        self.margin = MARGIN * self.scale

    def tearDown(self):
        self.engine.close()

    def timed_search(self, go, bound):
        """Sends `go`, returns (seconds to "bestmove", lines)."""
        start = self.engine.send(go)
        lines = self.engine.read_until("bestmove.*", bound + 30 * self.scale)
        elapsed = lines[-1].at - start
        self.assertRegex(lines[-1].text, BESTMOVE)
        self.assertNotEqual(lines[-1].text, "bestmove 0000")
        return elapsed, [l.text for l in lines]

    def assert_no_bestmove_for(self, seconds):
        lines = [l.text for l in self.engine.lines_for(seconds)]
        self.assertFalse([l for l in lines if l.startswith("bestmove")], lines)
        return lines

    def assert_prompt_bestmove(self, command, bound):
        start = self.engine.send(command)
        lines = self.engine.read_until("bestmove.*", 30 * self.scale)
        self.assertLess(lines[-1].at - start, bound, "%r answered late" % command)
        self.assertRegex(lines[-1].text, BESTMOVE)
        self.assert_single_bestmove()
        return lines

    def assert_single_bestmove(self):
        after = self.engine.sync()
        self.assertFalse([l for l in after if l.startswith("bestmove")], after)

    def test_movetime_is_used_and_not_exceeded(self):
        self.engine.command("position startpos")
        for movetime in (100, 500):
            with self.subTest(movetime=movetime):
                elapsed, _ = self.timed_search("go movetime %d" % movetime, movetime / 1000)
                self.assertLess(elapsed, movetime / 1000 + self.margin)
                # Only the hard limit ends a movetime search.
                self.assertGreater(elapsed, movetime / 1000 * 0.9)
                self.assert_single_bestmove()

    def test_clock_time_stays_within_the_hard_limit(self):
        # Game ply 20, one thread, 100 ms overhead: soft 29 ms, hard 145 ms for the side to move.
        self.engine.command("position " + MIDDLE_GAME)
        elapsed, _ = self.timed_search("go wtime 1000 btime 100000 winc 0 binc 0", 0.145)
        self.assertLess(elapsed, 0.145 + self.margin)
        # Black to move: black's clock counts, not white's.
        self.engine.command("position " + MIDDLE_GAME + " d2d4")
        elapsed, _ = self.timed_search("go wtime 100000 btime 1000", 0.145)
        self.assertLess(elapsed, 0.145 + self.margin)

    def test_last_move_before_the_time_control(self):
        # movestogo 1 with 2 s on the clock: hard limit 1.9 s; the answer must beat the flag.
        self.engine.command("position " + MIDDLE_GAME)
        elapsed, _ = self.timed_search("go wtime 2000 btime 2000 movestogo 1", 1.9)
        self.assertLess(elapsed, 1.9 + 0.1 * self.scale)

    def test_large_overhead_shortens_the_search(self):
        # 10 s on the clock with 9.9 s reserved: short of time, the hard limit is 150 ms (without
        # the reserve it would be about 1.5 s).
        self.engine.command("setoption name MoveOverhead value 9900")
        self.engine.command("position " + MIDDLE_GAME)
        elapsed, _ = self.timed_search("go wtime 10000 btime 10000", 0.15)
        self.assertLess(elapsed, 0.15 + self.margin)

    def test_stop_ends_an_infinite_search(self):
        self.engine.command("position startpos")
        self.engine.send("go infinite")
        self.assert_no_bestmove_for(0.5)
        self.assert_prompt_bestmove("stop", 0.1 * self.scale)

    def test_isready_is_answered_during_a_search(self):
        self.engine.command("position startpos")
        self.engine.send("go infinite")
        self.engine.lines_for(0.2)
        for _ in range(3):
            start = self.engine.send("isready")
            lines = self.engine.read_until("readyok", 5 * self.scale)
            self.assertLess(lines[-1].at - start, 0.1 * self.scale)
            self.assertFalse([l for l in lines if l.text.startswith("bestmove")], lines)
        self.assert_prompt_bestmove("stop", 0.1 * self.scale)

    def test_quit_during_a_search_ends_the_process(self):
        self.engine.command("position startpos")
        self.engine.send("go infinite")
        self.engine.lines_for(0.3)
        self.engine.send("quit")
        self.assertEqual(self.engine.wait_exit(2 * self.scale), 0)

    def test_end_of_input_during_a_search_ends_the_process(self):
        self.engine.command("position startpos")
        self.engine.send("go wtime 100000 btime 100000")
        self.engine.lines_for(0.3)
        self.engine.close_input()
        self.assertEqual(self.engine.wait_exit(2 * self.scale), 0)

    def test_stop_and_ponderhit_without_a_search_are_silent(self):
        for line in ["stop", "ponderhit", "stop", "ponderhit"]:
            self.assertEqual(self.engine.command(line), [])

    def test_immediate_stop_still_gives_a_legal_move(self):
        # A search stopped before its first iteration ends must still name a real move.
        for threads in (1, 3):
            self.engine.command("setoption name Threads value %d" % threads)
            for position in ["startpos", "startpos moves e2e4 c7c5 g1f3", "fen 4k3/P7/8/8/8/8/8/4K3 w - - 0 1"]:
                with self.subTest(threads=threads, position=position):
                    self.engine.command("position " + position)
                    self.engine.send("go infinite")
                    self.engine.send("stop")
                    line = self.engine.expect("bestmove.*", 10 * self.scale).text
                    best = BESTMOVE.fullmatch(line)
                    self.assertIsNotNone(best, line)
                    self.assertNotEqual(best.group(1), "0000")
                    moves = " ".join(m for m in best.groups() if m)
                    keyword = " " if " moves " in position else " moves "
                    self.assertEqual(self.engine.command("position " + position + keyword + moves), [])

    def test_repeated_stops_give_one_bestmove(self):
        self.engine.send("go infinite")
        self.engine.lines_for(0.2)
        self.engine.send("stop")
        self.engine.send("stop")
        self.engine.send("stop")
        self.engine.expect("bestmove.*", 5 * self.scale)
        self.assert_single_bestmove()

    def test_stop_followed_at_once_by_go(self):
        self.engine.command("position startpos")
        self.engine.send("go infinite")
        self.engine.lines_for(0.2)
        self.engine.send("stop")
        self.engine.send("go depth 3")
        first = self.engine.expect("bestmove.*", 5 * self.scale)
        second = self.engine.expect("bestmove.*", 30 * self.scale)
        self.assertRegex(first.text, BESTMOVE)
        self.assertRegex(second.text, BESTMOVE)
        self.assert_single_bestmove()

    def test_second_go_waits_for_the_first_search(self):
        self.engine.command("position startpos")
        self.engine.send("go depth 7")
        self.engine.send("go depth 2")
        lines = self.engine.read_until("bestmove.*", 60 * self.scale)
        lines += self.engine.read_until("bestmove.*", 60 * self.scale)
        self.assertEqual(len([l for l in lines if l.text.startswith("bestmove")]), 2)
        self.assert_single_bestmove()

    def test_finished_infinite_search_holds_bestmove_until_stop(self):
        self.engine.command("position startpos")
        self.engine.send("go infinite depth 4")
        self.assert_no_bestmove_for(0.5)
        self.assert_prompt_bestmove("stop", 0.1 * self.scale)

    def test_ponder_search_ignores_the_clock_until_ponderhit(self):
        self.engine.command("position " + MIDDLE_GAME)
        self.engine.send("go ponder wtime 1000 btime 1000")
        # The hard limit of this clock is 145 ms; a ponder search must run on past it.
        self.assert_no_bestmove_for(0.6)
        # After "ponderhit" the clock counts from "go", so the hard limit has already passed.
        self.assert_prompt_bestmove("ponderhit", 0.145 + self.margin)

    def test_ponderhit_during_a_long_ponder_search_keeps_searching(self):
        self.engine.command("position startpos")
        self.engine.send("go ponder wtime 100000 btime 100000")
        self.engine.lines_for(0.1)
        self.engine.send("ponderhit")
        # Now a normal search with a budget of more than a second.
        self.assert_no_bestmove_for(0.4)
        self.assert_prompt_bestmove("stop", 0.1 * self.scale)

    def test_ponderhit_after_the_ponder_search_finished(self):
        self.engine.command("position startpos")
        self.engine.send("go ponder depth 4")
        self.assert_no_bestmove_for(0.5)
        self.assert_prompt_bestmove("ponderhit", 0.1 * self.scale)

    def test_stop_ends_a_ponder_search(self):
        self.engine.command("position startpos")
        self.engine.send("go ponder wtime 1000 btime 1000")
        self.assert_no_bestmove_for(0.3)
        self.assert_prompt_bestmove("stop", 0.1 * self.scale)

    def test_ponder_option_still_answers_in_time(self):
        self.engine.command("setoption name Ponder value true")
        self.engine.command("position " + MIDDLE_GAME)
        elapsed, lines = self.timed_search("go wtime 1000 btime 1000", 0.16)
        self.assertLess(elapsed, 0.16 + self.margin)


if __name__ == "__main__":
    uci_driver.main()
