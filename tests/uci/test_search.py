"""Search results over the protocol: report lines, best moves, mates, limits."""

import os

import uci_driver
from uci_driver import BESTMOVE, INFO_MATE, EngineTest, info_lines

MATE_IN_3 = "r1b1kb1r/pppp1ppp/5q2/4n3/3KP3/2N3PN/PPP4P/R1BQ1B1R b kq - 0 1"  # only f8c5 mates in 3
ROOK_MATE_IN_4 = "8/4k3/8/8/8/8/1R6/R6K w - - 0 1"  # b2b6 and a1a6 mate in 4
# Black has just played d7-d5 with check; only the en-passant capture e5xd6 is legal.
ONLY_EN_PASSANT = "8/8/k7/1r1pP3/2K5/8/4n3/3r4 w - d6 0 1"
STALEMATED = "fen 7k/5Q2/6K1/8/8/8/8/8 b - - 0 1"
# KRvK, White to move: a2b2 hangs the rook (a draw); the tables' own move wins.
ROOK_ENDING = "7K/8/8/8/8/2k5/R7/8 w - - 0 1"

# (FEN, depth, the bestmove line) where the best move is forced or its text is special.
FORCED = [
    ("k7/8/8/8/8/6P1/7P/r6K w - - 0 1", 5, r"bestmove h1g2( ponder [a-h][1-8][a-h][1-8])?"),  # only move
    ("4k3/P7/8/8/8/8/8/4K3 w - - 0 1", 6, r"bestmove a7a8[qr]\b.*"),
    ("4k3/8/8/8/8/8/p7/4K3 b - - 0 1", 6, r"bestmove a2a1[qr]\b.*"),
    (ONLY_EN_PASSANT, 5, r"bestmove e5d6( ponder d1d4)?"),  # printed with its landing square
]


class SearchReports(EngineTest):
    def test_depth_12_reports_from_depth_10_in_field_order(self):
        self.engine.command("position startpos")
        lines = self.engine.search("go depth 12", timeout=120 * self.scale)
        self.assert_search_result(lines)
        reports = info_lines(lines)
        self.assertEqual([int(m.group(2)) for m in reports], [10, 11, 12])
        previous_nodes = previous_time = 0
        for m in reports:
            score, depth, seldepth, nodes, nps, time_ms, tbhits = (int(g) for g in m.groups()[:7])
            self.assertGreaterEqual(seldepth, 1)
            self.assertGreaterEqual(nodes, previous_nodes)
            self.assertGreaterEqual(time_ms, max(previous_time, 1))
            self.assertEqual(nps, nodes * 1000 // time_ms)
            self.assertEqual(tbhits, 0)
            self.assertLess(abs(score), 300, "start position score out of range")
            previous_nodes, previous_time = nodes, time_ms
            self.assert_legal("startpos", m.group(8).split())
        # The best and ponder moves are the first two of the last reported line.
        best = BESTMOVE.fullmatch(lines[-1])
        self.assertIsNotNone(best.group(2), "no ponder move after a depth-12 search: %r" % lines[-1])
        self.assertEqual(list(best.groups()), reports[-1].group(8).split()[:2])

    def test_shallow_search_prints_no_score_line(self):
        position = "startpos moves e2e4 e7e5 g1f3"
        self.engine.command("position " + position)
        lines = self.engine.search("go depth 9", timeout=60 * self.scale)
        self.assertEqual(len(lines), 1, lines)
        self.assert_legal(position, lines[-1])

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
                mates = info_lines(self.engine.search("go depth 10", timeout=60 * self.scale), INFO_MATE)
                self.assertTrue(mates)
                self.assertEqual(int(mates[-1].group(1)), moves)

    def test_root_without_moves_answers_at_once(self):
        for position, go, expected in [("startpos moves f2f3 e7e5 g2g4 d8h4", "go", ["info score mate 0"]),
                                       (STALEMATED, "go", ["info score cp 0"]),
                                       (STALEMATED, "go wtime 60000 btime 60000", ["info score cp 0"]),
                                       (STALEMATED, "go depth 20", ["info score cp 0"])]:
            with self.subTest(position=position, go=go):
                self.engine.command("position " + position)
                elapsed, lines = self.timed(go, 5)
                self.assertEqual(lines, expected + ["bestmove 0000"])
                self.assertLess(elapsed, 0.5 * self.scale)

    def test_forced_and_special_best_moves(self):
        for fen, depth, bestmove in FORCED:
            with self.subTest(fen=fen):
                self.engine.command("position fen " + fen)
                self.assertRegex(self.engine.search("go depth %d" % depth, 30 * self.scale)[-1], bestmove)

    def test_node_limit_ends_the_search(self):
        for limit in (1, 2000, 50000):
            with self.subTest(nodes=limit):
                self.engine.command("position startpos")
                self.assert_legal("startpos", self.engine.search("go nodes %d" % limit, 30 * self.scale)[-1])

    def test_node_limit_bounds_the_reported_nodes(self):
        limit = 400000
        lines = self.engine.search("go nodes %d" % limit, timeout=60 * self.scale)
        for m in info_lines(lines):
            # A completed iteration cannot have overrun the limit by more than one check interval.
            self.assertLessEqual(int(m.group(4)), limit + limit // 4 + 4096, lines)

    def test_mate_limit_finds_and_reports_the_mate(self):
        for fen, moves, mating in [(MATE_IN_3, 3, {"f8c5"}), (ROOK_MATE_IN_4, 4, {"b2b6", "a1a6"})]:
            with self.subTest(fen=fen):
                self.engine.new_game()
                self.engine.command("position fen " + fen)
                lines = self.engine.search("go mate %d" % moves, timeout=60 * self.scale)
                self.assertIn(BESTMOVE.fullmatch(lines[-1]).group(1), mating)
                mates = info_lines(lines, INFO_MATE)
                self.assertTrue(mates, "no 'info score mate' line before %r: %r" % (lines[-1], lines))
                self.assertLessEqual(int(mates[-1].group(1)), moves)

    def test_ucinewgame_makes_searches_repeatable(self):
        # One thread and a depth limit: after "ucinewgame" the same search visits the same nodes.
        counts = []
        for _ in range(2):
            self.engine.new_game()
            self.engine.command("position startpos moves d2d4 g8f6 c2c4 e7e6")
            lines = self.engine.search("go depth 10", timeout=60 * self.scale)
            reports = info_lines(lines)
            self.assertTrue(reports, lines)
            counts.append((reports[-1].group(4), reports[-1].group(8), lines[-1]))
        self.assertEqual(counts[0], counts[1])

    def test_malformed_go_numbers_keep_the_defaults(self):
        for go in ["go depth x depth 2", "go movetime -5 depth 2", "go nodes -1 depth 2", "go depth 2 mate",
                   "go depth 2 wtime", "go depth 2 unknownword 17", "go depth 99999999999999999999 nodes 3000"]:
            with self.subTest(go=go):
                self.assert_search_result(self.engine.search(go, timeout=30 * self.scale))

    def test_clock_without_time_left_still_answers(self):
        self.engine.command("position startpos moves e2e4")
        for go in ["go wtime 0 btime 0", "go wtime -100 btime -100", "go btime 1 movestogo 1",
                   "go btime 0 binc 0 movestogo 0", "go btime 10 movestogo 4"]:
            with self.subTest(go=go):
                elapsed, lines = self.timed(go, 5)
                self.assert_search_result(lines)
                self.assertLess(elapsed, 0.25 * self.scale + 0.2)


class SearchMoves(EngineTest):
    def test_root_is_restricted_to_the_listed_legal_moves(self):
        # (position, go, the moves allowed, whether one info string names the ignored moves)
        cases = [
            ("startpos", "go depth 8 searchmoves a2a3 h2h3", {"a2a3", "h2h3"}, False),
            ("startpos", "go searchmoves g1h3 e2e5 z9 depth 6", {"g1h3"}, True),  # ends at "depth"
            ("startpos moves e2e4", "go depth 5 searchmoves e7e5 e7e5 nodes 100000", {"e7e5"}, False),
            # A go word is never taken for the value of the word before it.
            ("startpos", "go depth searchmoves b1a3 movetime 300", {"b1a3"}, False),
            # A mate in 3 is there, but only the listed move may be played.
            ("fen " + MATE_IN_3, "go depth 7 searchmoves a7a6", {"a7a6"}, False),
        ]
        for position, go, allowed, says in cases:
            with self.subTest(go=go):
                self.engine.command("position " + position)
                lines = self.engine.search(go, timeout=60 * self.scale)
                self.assertIn(BESTMOVE.fullmatch(lines[-1]).group(1), allowed)
                notes = [l for l in lines if l.startswith("info string")]
                self.assertEqual(len(notes), 1 if says else 0, lines)
                for m in info_lines(lines):
                    self.assertIn(m.group(8).split()[0], allowed)

    def test_no_legal_move_listed_searches_everything(self):
        for go in ["go depth 6 searchmoves e2e5 a7a6 h1h1", "go depth 6 searchmoves"]:
            with self.subTest(go=go):
                self.engine.command("position startpos")
                lines = self.engine.search(go, timeout=60 * self.scale)
                notes = [l for l in lines if l.startswith("info string")]
                self.assertEqual(len(notes), 1, lines)
                self.assertIn("searching all moves", notes[0])
                self.assert_legal("startpos", lines[-1])
        # The next "go" has no list: nothing of the last one remains.
        self.engine.search("go depth 3 searchmoves h2h3", 30 * self.scale)
        fen, depth, bestmove = FORCED[1]
        self.engine.command("position fen " + fen)
        self.assertRegex(self.engine.search("go depth %d" % depth, 30 * self.scale)[-1], bestmove)

    def test_tablebase_root_move_must_be_listed(self):
        tables = os.path.join(os.environ.get("VORIX_SHARED_DIR", ""), "syzygy")
        if not os.path.isfile(os.path.join(tables, "KRvK.rtbw")):
            self.skipTest("no KRvK table")
        self.engine.command("setoption name SyzygyPath value " + tables)
        self.engine.command("position fen " + ROOK_ENDING)
        # The tables' move, unrestricted: one line at depth 127 with a winning score.
        lines = self.engine.search("go depth 10", timeout=30 * self.scale)
        table_move = BESTMOVE.fullmatch(lines[-1]).group(1)
        self.assertEqual(len(lines), 2, lines)
        self.assertRegex(lines[0], r"info score cp 31\d\d\d depth 127 seldepth 127 .* pv %s" % table_move)
        # Listed with the drawing move, the tables still answer.
        lines = self.engine.search("go depth 10 searchmoves a2b2 " + table_move, timeout=30 * self.scale)
        self.assertEqual(lines[-1].split()[1], table_move)
        # Not listed: the search plays the listed move, even the draw.
        lines = self.engine.search("go depth 10 searchmoves a2b2", timeout=30 * self.scale)
        self.assertEqual(BESTMOVE.fullmatch(lines[-1]).group(1), "a2b2")
        self.assertEqual(int(info_lines(lines)[-1].group(1)), 0)

    def test_several_threads_keep_to_the_list(self):
        self.engine.command("setoption name Threads value 3")
        self.engine.command("position startpos")
        lines = self.engine.search("go depth 11 searchmoves b1a3 g1h3", timeout=60 * self.scale)
        self.assertIn(BESTMOVE.fullmatch(lines[-1]).group(1), {"b1a3", "g1h3"})


if __name__ == "__main__":
    uci_driver.main()
