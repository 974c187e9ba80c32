"""Search results over the protocol: report lines, best moves, mates, limits."""

import re
import unittest

import uci_driver
from uci_driver import BESTMOVE, INFO_CP, INFO_MATE, Engine

MATE_IN_3 = "r1b1kb1r/pppp1ppp/5q2/4n3/3KP3/2N3PN/PPP4P/R1BQ1B1R b kq - 0 1"  # only f8c5 mates in 3
ROOK_MATE_IN_4 = "8/4k3/8/8/8/8/1R6/R6K w - - 0 1"  # b2b6 and a1a6 mate in 4
ONE_LEGAL_MOVE = "k7/8/8/8/8/6P1/7P/r6K w - - 0 1"  # Kh1-g2 only
# Black has just played d7-d5 with check; only the en-passant capture e5xd6 is legal.
ONLY_EN_PASSANT = "8/8/k7/1r1pP3/2K5/8/4n3/3r4 w - d6 0 1"
CHECKMATED = "startpos moves f2f3 e7e5 g2g4 d8h4"
STALEMATED = "fen 7k/5Q2/6K1/8/8/8/8/8 b - - 0 1"


def info_lines(lines, grammar):
    return [grammar.fullmatch(l) for l in lines if grammar.fullmatch(l)]


class SearchReports(unittest.TestCase):
    def setUp(self):
        self.engine = Engine()
        self.scale = uci_driver.time_scale()

    def tearDown(self):
        self.engine.close()

    def assert_legal_line(self, position, moves):
        keyword = " " if " moves " in position else " moves "
        replies = self.engine.command("position " + position + keyword + " ".join(moves))
        self.assertEqual(replies, [], "illegal sequence %s from %s" % (moves, position))

    def test_depth_12_reports_from_depth_10_in_field_order(self):
        self.engine.command("position startpos")
        lines = self.engine.search("go depth 12", timeout=120 * self.scale)
        body, last = lines[:-1], lines[-1]
        for line in body:
            self.assertTrue(INFO_CP.fullmatch(line) or INFO_MATE.fullmatch(line), "bad info line %r" % line)
        reports = info_lines(body, INFO_CP)
        self.assertEqual([int(m.group(2)) for m in reports], [10, 11, 12])
        previous_nodes = previous_time = 0
        for m in reports:
            depth, seldepth, nodes, nps, time_ms = (int(m.group(i)) for i in (2, 3, 4, 5, 6))
            self.assertGreaterEqual(seldepth, 1)
            self.assertGreaterEqual(nodes, previous_nodes)
            self.assertGreaterEqual(time_ms, previous_time)
            self.assertGreaterEqual(time_ms, 1)
            self.assertEqual(nps, nodes * 1000 // time_ms)
            self.assertEqual(int(m.group(7)), 0)
            self.assertLess(abs(int(m.group(1))), 300, "start position score out of range")
            previous_nodes, previous_time = nodes, time_ms
            self.assert_legal_line("startpos", m.group(8).split())
            self.engine.command("position startpos")
        best = BESTMOVE.fullmatch(last)
        self.assertIsNotNone(best, last)
        self.assertIsNotNone(best.group(2), "no ponder move after a depth-12 search: %r" % last)
        self.assert_legal_line("startpos", [best.group(1), best.group(2)])
        pv = reports[-1].group(8).split()
        self.assertEqual(best.group(1), pv[0])
        self.assertEqual(best.group(2), pv[1])

    def test_shallow_search_prints_no_score_line(self):
        self.engine.command("position startpos moves e2e4 e7e5 g1f3")
        lines = self.engine.search("go depth 9", timeout=60 * self.scale)
        self.assertEqual(lines[:-1], [])
        best = BESTMOVE.fullmatch(lines[-1])
        self.assertIsNotNone(best, lines[-1])
        self.assert_legal_line("startpos moves e2e4 e7e5 g1f3", [m for m in best.groups() if m])

    def test_mate_in_3_is_reported(self):
        self.engine.command("position fen " + MATE_IN_3)
        lines = self.engine.search("go depth 12", timeout=60 * self.scale)
        mates = info_lines(lines, INFO_MATE)
        self.assertTrue(mates, lines)
        self.assertTrue(all(m.group(1) == "3" for m in mates), lines)
        self.assertEqual(mates[-1].group(7).split()[0], "f8c5")
        # A mate in 3 takes 5 plies: it is not announced before depth 5.
        self.assertTrue(all(int(m.group(2)) >= 5 for m in mates), lines)
        self.assertRegex(lines[-1], r"bestmove f8c5 ponder d4c5")

    def test_being_mated_reports_a_negative_count(self):
        # "mate -N" with N = (plies to mate) / 2 + 1 for both signs, deliberately: after f8c5
        # white is mated on the 4th ply (mate -3); in the en-passant position on the 2nd (mate -2).
        for position, moves in [("fen %s moves f8c5" % MATE_IN_3, -3), ("fen " + ONLY_EN_PASSANT, -2)]:
            with self.subTest(position=position):
                self.engine.new_game()
                self.engine.command("position " + position)
                lines = self.engine.search("go depth 10", timeout=60 * self.scale)
                mates = info_lines(lines, INFO_MATE)
                self.assertTrue(mates, lines)
                self.assertEqual(int(mates[-1].group(1)), moves, lines)

    def test_checkmated_root_answers_at_once(self):
        self.engine.command("position " + CHECKMATED)
        start = self.engine.send("go")
        lines = self.engine.read_until("bestmove.*", 5 * self.scale)
        self.assertEqual([l.text for l in lines], ["info score mate 0", "bestmove 0000"])
        self.assertLess(lines[-1].at - start, 0.5 * self.scale)

    def test_stalemated_root_answers_at_once(self):
        self.engine.command("position " + STALEMATED)
        for go in ["go", "go wtime 60000 btime 60000", "go depth 20"]:
            with self.subTest(go=go):
                start = self.engine.send(go)
                lines = self.engine.read_until("bestmove.*", 5 * self.scale)
                self.assertEqual(lines[-1].text, "bestmove 0000")
                self.assertFalse(any(l.text.startswith("info score mate") for l in lines), lines)
                self.assertLess(lines[-1].at - start, 0.5 * self.scale)

    def test_only_legal_move_is_played(self):
        self.engine.command("position fen " + ONE_LEGAL_MOVE)
        lines = self.engine.search("go depth 5", timeout=30 * self.scale)
        self.assertRegex(lines[-1], r"bestmove h1g2( ponder [a-h][1-8][a-h][1-8])?")

    def test_best_move_text_of_promotions(self):
        self.engine.command("position fen 4k3/P7/8/8/8/8/8/4K3 w - - 0 1")
        lines = self.engine.search("go depth 6", timeout=30 * self.scale)
        self.assertRegex(lines[-1], r"bestmove a7a8[qr]\b.*")
        self.engine.command("position fen 4k3/8/8/8/8/8/p7/4K3 b - - 0 1")
        lines = self.engine.search("go depth 6", timeout=30 * self.scale)
        self.assertRegex(lines[-1], r"bestmove a2a1[qr]\b.*")

    def test_en_passant_best_move_is_printed_with_its_landing_square(self):
        self.engine.command("position fen " + ONLY_EN_PASSANT)
        lines = self.engine.search("go depth 5", timeout=30 * self.scale)
        self.assertRegex(lines[-1], r"bestmove e5d6( ponder d1d4)?")

    def test_node_limit_ends_the_search(self):
        self.engine.command("position startpos")
        for limit in (1, 2000, 50000):
            with self.subTest(nodes=limit):
                lines = self.engine.search("go nodes %d" % limit, timeout=30 * self.scale)
                best = BESTMOVE.fullmatch(lines[-1])
                self.assertIsNotNone(best, lines[-1])
                self.assertNotEqual(best.group(1), "0000")
                self.assert_legal_line("startpos", [m for m in best.groups() if m])
                self.engine.command("position startpos")

    def test_node_limit_bounds_the_reported_nodes(self):
        self.engine.new_game()
        self.engine.command("position startpos")
        limit = 400000
        lines = self.engine.search("go nodes %d" % limit, timeout=60 * self.scale)
        for m in info_lines(lines, INFO_CP):
            # A completed iteration cannot have overrun the limit by more than one check interval.
            self.assertLessEqual(int(m.group(4)), limit + limit // 4 + 4096, lines)

    def test_mate_limit_finds_and_reports_the_mate(self):
        cases = [
            (MATE_IN_3, 3, {"f8c5"}),
            (ROOK_MATE_IN_4, 4, {"b2b6", "a1a6"}),
        ]
        for fen, moves, mating in cases:
            with self.subTest(fen=fen):
                self.engine.new_game()
                self.engine.command("position fen " + fen)
                lines = self.engine.search("go mate %d" % moves, timeout=60 * self.scale)
                best = BESTMOVE.fullmatch(lines[-1])
                self.assertIsNotNone(best, lines[-1])
                self.assertIn(best.group(1), mating)
                mates = info_lines(lines, INFO_MATE)
                self.assertTrue(mates, "no 'info score mate' line before %r: %r" % (lines[-1], lines))
                self.assertLessEqual(int(mates[-1].group(1)), moves)

    def test_ucinewgame_makes_searches_repeatable(self):
        # One thread and a depth limit: after "ucinewgame" the same search visits the same nodes.
        position = "position startpos moves d2d4 g8f6 c2c4 e7e6"
        counts = []
        for _ in range(2):
            self.engine.new_game()
            self.engine.command(position)
            lines = self.engine.search("go depth 10", timeout=60 * self.scale)
            reports = info_lines(lines, INFO_CP)
            self.assertTrue(reports, lines)
            counts.append((reports[-1].group(4), reports[-1].group(8), lines[-1]))
        self.assertEqual(counts[0], counts[1])

    def test_malformed_go_numbers_keep_the_defaults(self):
        self.engine.command("position startpos")
        for go in ["go depth x depth 2", "go movetime -5 depth 2", "go nodes -1 depth 2", "go depth 2 mate",
                   "go depth 2 wtime", "go depth 2 unknownword 17", "go depth 99999999999999999999 nodes 3000"]:
            with self.subTest(go=go):
                lines = self.engine.search(go, timeout=30 * self.scale)
                best = BESTMOVE.fullmatch(lines[-1])
                self.assertIsNotNone(best, lines[-1])
                self.assertNotEqual(best.group(1), "0000")

    def test_search_length_follows_the_own_clock(self):
        # The side to move has 300 ms and no increment; the other side has ten minutes and a
        # large increment, which must not lengthen the search.
        cases = [("startpos", "go wtime 300 btime 600000 winc 0 binc 20000"),
                 ("startpos moves e2e4", "go wtime 600000 btime 300 winc 20000 binc 0")]
        for position, go in cases:
            with self.subTest(go=go):
                self.engine.command("position " + position)
                start = self.engine.send(go)
                lines = self.engine.read_until("bestmove.*", 120 * self.scale)
                self.assertLess(lines[-1].at - start, 0.3 + 0.2 * self.scale)

    def test_clock_without_time_left_still_answers(self):
        self.engine.command("position startpos moves e2e4")
        for go in ["go wtime 0 btime 0", "go wtime -100 btime -100", "go btime 1 movestogo 1",
                   "go btime 0 binc 0 movestogo 0", "go btime 10 movestogo 4"]:
            with self.subTest(go=go):
                start = self.engine.send(go)
                lines = self.engine.read_until("bestmove.*", 5 * self.scale)
                best = BESTMOVE.fullmatch(lines[-1].text)
                self.assertIsNotNone(best, lines[-1])
                self.assertNotEqual(best.group(1), "0000")
                self.assertLess(lines[-1].at - start, 0.25 * self.scale + 0.2)


if __name__ == "__main__":
    uci_driver.main()
