"""Searches with several threads, and Threads/Hash changes around a search."""

import uci_driver
from uci_driver import BESTMOVE, EngineTest, bestmoves, info_lines


class Threads(EngineTest):
    def set_threads(self, threads):
        self.assertEqual(self.engine.command("setoption name Threads value %d" % threads),
                         ["info string Number of threads set to : %d" % threads])

    def test_one_thread_prints_no_extra_line_before_bestmove(self):
        lines = self.engine.search("go movetime 1500", timeout=30 * self.scale)
        self.assert_search_result(lines)
        depths = [int(m.group(2)) for m in info_lines(lines)]
        self.assertTrue(depths, lines)
        # One line per completed iteration, counting up from 10; the last belongs to the last one.
        self.assertEqual(depths, list(range(10, 10 + len(depths))))

    def test_two_threads_with_a_depth_limit(self):
        self.set_threads(2)
        lines = self.engine.search("go depth 12", timeout=120 * self.scale)
        self.assert_search_result(lines)
        # With a depth limit the main thread reports its own result: no extra line.
        self.assertEqual([int(m.group(2)) for m in info_lines(lines)], [10, 11, 12])
        self.assert_legal("startpos", lines[-1])

    def test_several_threads_with_a_clock(self):
        # The result comes from the deepest finished iteration of any thread: the last report
        # (the chosen helper's own line, when it is not the main thread) is the deepest, its
        # node count, summed over all threads, is the largest, and bestmove follows its line.
        positions = ["startpos moves d2d4 d7d5 c2c4", "startpos moves e2e4 c7c5 g1f3",
                     "fen r1bq1rk1/pp2bppp/2n1pn2/3p4/2PP4/2N1PN2/PP3PPP/R2QKB1R w KQ - 0 8"]
        for threads in (2, 3, 4):
            self.set_threads(threads)
            for position in positions:
                with self.subTest(threads=threads, position=position):
                    self.engine.command("position " + position)
                    elapsed, lines = self.timed("go movetime 500")
                    self.assertLess(elapsed, 0.5 + 0.2 * self.scale)
                    self.assert_search_result(lines)
                    reports = info_lines(lines)
                    if reports:
                        depths = [int(m.group(2)) for m in reports]
                        nodes = [int(m.group(4)) for m in reports]
                        self.assertEqual(depths[-1], max(depths), lines)
                        self.assertEqual(nodes, sorted(nodes), lines)
                        pv = reports[-1].group(8).split()
                        best = [m for m in BESTMOVE.fullmatch(lines[-1]).groups() if m]
                        self.assertEqual(best[:len(pv)], pv[:2], lines)
                    self.assert_legal(position, lines[-1])

    def test_stop_with_four_threads(self):
        self.set_threads(4)
        self.engine.send("go infinite")
        self.engine.lines_for(0.5)
        elapsed, lines = self.timed("stop", 10)
        self.assertLess(elapsed, 0.15 * self.scale)
        self.assert_search_result(lines)
        self.assert_legal("startpos", lines[-1])

    def test_threads_changed_between_searches(self):
        for threads in (3, 1, 2, 4, 1):
            with self.subTest(threads=threads):
                self.set_threads(threads)
                self.engine.command("position startpos moves e2e4")
                lines = self.engine.search("go depth 8", timeout=60 * self.scale)
                self.assert_search_result(lines)
                self.assert_legal("startpos moves e2e4", lines[-1])

    def test_ucinewgame_between_multi_thread_searches(self):
        self.set_threads(2)
        for _ in range(3):
            self.engine.new_game()
            self.engine.command("position startpos moves g1f3")
            lines = self.engine.search("go nodes 30000", timeout=30 * self.scale)
            self.assert_search_result(lines)
            self.assert_legal("startpos moves g1f3", lines[-1])

    def test_options_apply_right_after_bestmove(self):
        # Once "bestmove" is out the engine is idle: a Threads or Hash change sent at once must be
        # applied, not refused as if the search still ran.
        refused = []
        for i in range(300):
            self.engine.search("go depth 1", timeout=10 * self.scale)
            threads = 1 + i % 2
            replies = self.engine.command("setoption name Threads value %d" % threads)
            if replies != ["info string Number of threads set to : %d" % threads]:
                refused.append((i, replies))
        self.assertEqual(refused, [], "%d of 300 refused, first: %r" % (len(refused), refused[:1]))

    def test_threads_and_hash_are_not_changed_during_a_search(self):
        self.set_threads(2)
        self.engine.send("go infinite")
        self.engine.lines_for(0.2)
        for line in ["setoption name Threads value 3", "setoption name Hash value 8",
                     "setoption name Threads value 1"]:
            with self.subTest(line=line):
                replies = [r for r in self.engine.command(line) if not r.startswith("info score ")]
                self.assertEqual(len(replies), 1, "the search ended on %r: %r" % (line, replies))
                self.assertTrue(replies[0].startswith("info string "), replies)
                self.assertNotIn("set to", replies[0])
        self.engine.send("stop")
        self.engine.expect("bestmove.*", 10 * self.scale)
        self.assertEqual(bestmoves(self.engine.sync()), [])
        # Idle again: both options can be changed.
        self.set_threads(3)
        self.assertEqual(self.engine.command("setoption name Hash value 8"),
                         ["info string Size of Hashtable set to : 8"])
        self.assert_search_result(self.engine.search("go depth 6", timeout=60 * self.scale))


if __name__ == "__main__":
    uci_driver.main()
