"""Searches with several threads, and Threads/Hash changes around a search."""

import unittest

import uci_driver
from uci_driver import BESTMOVE, INFO_CP, INFO_MATE, Engine


def bestmoves(lines):
    return [l for l in lines if l.startswith("bestmove")]


def cp_depths(lines):
    return [int(INFO_CP.fullmatch(l).group(2)) for l in lines if INFO_CP.fullmatch(l)]


class Threads(unittest.TestCase):
    def setUp(self):
        self.engine = Engine()
        self.scale = uci_driver.time_scale()

    def tearDown(self):
        self.engine.close()

    def assert_legal(self, position, best_line):
        best = BESTMOVE.fullmatch(best_line)
        self.assertIsNotNone(best, best_line)
        self.assertNotEqual(best.group(1), "0000")
        moves = " ".join(m for m in best.groups() if m)
        keyword = " " if " moves " in position else " moves "
        self.assertEqual(self.engine.command("position " + position + keyword + moves), [])

    def assert_one_search_result(self, lines):
        for line in lines[:-1]:
            self.assertTrue(INFO_CP.fullmatch(line) or INFO_MATE.fullmatch(line), "bad line %r" % line)
        self.assertEqual(len(bestmoves(lines)), 1, lines)
        self.assertEqual(bestmoves(self.engine.sync()), [])

    def test_one_thread_prints_no_extra_line_before_bestmove(self):
        self.engine.command("position startpos")
        lines = self.engine.search("go movetime 1500", timeout=30 * self.scale)
        self.assert_one_search_result(lines)
        depths = cp_depths(lines)
        self.assertTrue(depths, lines)
        # One line per completed iteration, counting up from 10; the last belongs to the last one.
        self.assertEqual(depths, list(range(10, 10 + len(depths))))

    def test_two_threads_with_a_depth_limit(self):
        self.assertEqual(self.engine.command("setoption name Threads value 2"),
                         ["info string Number of threads set to : 2"])
        self.engine.command("position startpos")
        lines = self.engine.search("go depth 12", timeout=120 * self.scale)
        self.assert_one_search_result(lines)
        # With a depth limit the main thread reports its own result: no extra line.
        self.assertEqual(cp_depths(lines), [10, 11, 12])
        self.assert_legal("startpos", lines[-1])

    def test_several_threads_with_a_clock(self):
        # The result comes from the deepest finished iteration of any thread: the last report
        # (the chosen helper's own line, when it is not the main thread) is the deepest, its
        # node count, summed over all threads, is the largest, and bestmove follows its line.
        positions = ["startpos moves d2d4 d7d5 c2c4", "startpos moves e2e4 c7c5 g1f3",
                     "fen r1bq1rk1/pp2bppp/2n1pn2/3p4/2PP4/2N1PN2/PP3PPP/R2QKB1R w KQ - 0 8"]
        for threads in (2, 3, 4):
            self.engine.command("setoption name Threads value %d" % threads)
            for position in positions:
                with self.subTest(threads=threads, position=position):
                    self.engine.command("position " + position)
                    start = self.engine.send("go movetime 500")
                    lines = self.engine.read_until("bestmove.*", 30 * self.scale)
                    self.assertLess(lines[-1].at - start, 0.5 + 0.2 * self.scale)
                    texts = [l.text for l in lines]
                    self.assert_one_search_result(texts)
                    reports = [INFO_CP.fullmatch(t) for t in texts if INFO_CP.fullmatch(t)]
                    if not reports:
                        continue
                    depths = [int(m.group(2)) for m in reports]
                    nodes = [int(m.group(4)) for m in reports]
                    self.assertEqual(depths[-1], max(depths), texts)
                    self.assertEqual(nodes, sorted(nodes), texts)
                    pv = reports[-1].group(8).split()
                    best = BESTMOVE.fullmatch(texts[-1])
                    self.assertEqual(best.group(1), pv[0], texts)
                    if len(pv) > 1:
                        self.assertEqual(best.group(2), pv[1], texts)
                    self.assert_legal(position, texts[-1])

    def test_stop_with_four_threads(self):
        self.engine.command("setoption name Threads value 4")
        self.engine.command("position startpos")
        self.engine.send("go infinite")
        self.engine.lines_for(0.5)
        start = self.engine.send("stop")
        lines = self.engine.read_until("bestmove.*", 10 * self.scale)
        self.assertLess(lines[-1].at - start, 0.15 * self.scale)
        self.assert_one_search_result([l.text for l in lines])
        self.assert_legal("startpos", lines[-1].text)

    def test_threads_changed_between_searches(self):
        for threads in (3, 1, 2, 4, 1):
            with self.subTest(threads=threads):
                self.assertEqual(self.engine.command("setoption name Threads value %d" % threads),
                                 ["info string Number of threads set to : %d" % threads])
                self.engine.command("position startpos moves e2e4")
                lines = self.engine.search("go depth 8", timeout=60 * self.scale)
                self.assert_one_search_result(lines)
                self.assert_legal("startpos moves e2e4", lines[-1])

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
        self.engine.command("setoption name Threads value 2")
        self.engine.command("position startpos")
        self.engine.send("go infinite")
        self.engine.lines_for(0.2)
        for line in ["setoption name Threads value 3", "setoption name Hash value 8",
                     "setoption name Threads value 1"]:
            with self.subTest(line=line):
                replies = self.engine.command(line)
                self.assertFalse(bestmoves(replies), "the search ended on %r: %r" % (line, replies))
                replies = [r for r in replies if not INFO_CP.fullmatch(r) and not INFO_MATE.fullmatch(r)]
                self.assertEqual(len(replies), 1, replies)
                self.assertTrue(replies[0].startswith("info string "), replies)
                self.assertNotIn("set to", replies[0])
        self.engine.send("stop")
        self.engine.expect("bestmove.*", 10 * self.scale)
        self.assertEqual(bestmoves(self.engine.sync()), [])
        # Idle again: both options can be changed.
        self.assertEqual(self.engine.command("setoption name Threads value 3"),
                         ["info string Number of threads set to : 3"])
        self.assertEqual(self.engine.command("setoption name Hash value 8"),
                         ["info string Size of Hashtable set to : 8"])
        lines = self.engine.search("go depth 6", timeout=60 * self.scale)
        self.assert_one_search_result(lines)

    def test_ucinewgame_between_multi_thread_searches(self):
        self.engine.command("setoption name Threads value 2")
        for _ in range(3):
            self.engine.new_game()
            self.engine.command("position startpos moves g1f3")
            lines = self.engine.search("go nodes 30000", timeout=30 * self.scale)
            self.assert_one_search_result(lines)
            self.assert_legal("startpos moves g1f3", lines[-1])


if __name__ == "__main__":
    uci_driver.main()
