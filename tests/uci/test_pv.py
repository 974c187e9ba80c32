"""The principal variation as a GUI sees it: the ponder move, a line that stops at a draw, and a
perft too deep for the ply stack."""

import uci_driver
from uci_driver import BESTMOVE, EngineTest, info_lines

# Middle-game positions, searched once with a move time and once on a clock.
MIDDLE_GAMES = [
    "r1bqkbnr/pppp1ppp/2n5/1B2p3/4P3/5N2/PPPP1PPP/RNBQK2R b KQkq - 3 3",
    "rnbqkb1r/pp2pppp/3p1n2/8/3NP3/8/PPP2PPP/RNBQKB1R w KQkq - 1 5",
    "rnbqk2r/ppp1ppbp/3p1np1/8/2PPP3/2N5/PP3PPP/R1BQKBNR w KQkq - 0 5",
    "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1",
    "r1bq1rk1/pp2bppp/2n1pn2/3p4/2PP4/2N1PN2/PP3PPP/R2QKB1R w KQ - 0 8",
    "r2q1rk1/pp1bbppp/2n1pn2/3p4/3P4/2PBPN2/PP1N1PPP/R2QK2R w KQ - 5 9",
    "r1bqr1k1/pp3pbp/2pp1np1/4p3/2PPP3/2N1BP2/PP1Q2PP/R3KBNR w KQ - 0 10",
    "r4rk1/1pp1qppp/p1np1n2/2b1p1B1/2B1P1b1/P1NP1N2/1PP1QPPP/R4RK1 w - - 0 10",
    "2rq1rk1/pb1nbppp/1p2pn2/2pp4/2PP4/1PN1PN2/PB1QBPPP/2R2RK1 w - - 2 12",
    "r2qr1k1/1p1nbppp/p2pbn2/4p3/4P3/1NN1BP2/PPPQ2PP/2KR1B1R w - - 3 12",
    "r1b2rk1/2q1bppp/p2ppn2/1p6/3NP3/1BN1B3/PPP1QPPP/R4RK1 w - - 0 13",
    "2kr3r/ppp2ppp/2n1bn2/2b1p3/4P3/2NP1N2/PPP1BPPP/R1B2RK1 b - - 4 10",
    "r3r1k1/pp3pbp/1qp1b1p1/2B5/2BP4/Q1n2N2/P4PPP/3R1K1R w - - 4 18",
    "4rrk1/pp1n3p/3q2pQ/2p1pb2/2PP4/2P3N1/P2B2PP/4RRK1 b - - 7 19",
    "rq3rk1/ppp2ppp/1bnpb3/3N2B1/3NP3/7P/PPPQ1PP1/2KR3R w - - 7 14",
    "r1bq1r1k/b1p1npp1/p2p3p/1p6/3PP3/1B2NN2/PP3PPP/R2Q1RK1 w - - 1 16",
    "3r1rk1/p5pp/bpp1pp2/8/q1PP1P2/b3P3/P2NQRPP/1R2B1K1 b - - 6 22",
    "r1q2rk1/2p1bppp/2Pp4/p6b/Q1PNp3/4B3/PP1R1PPP/2K4R w - - 2 18",
    "4k2r/1pb2ppp/1p2p3/1R1p4/3P4/2r1PN2/P4PPP/1R4K1 b - - 3 22",
    "3q2k1/pb3p1p/4pbp1/2r5/PpN2N2/1P2P2P/5PP1/Q2R2K1 b - - 4 26",
]

# Black, far behind, holds the draw by perpetual check: Qh4+ Kg1 Qe1+ Kh2 Qh4+ ...
PERPETUAL = "7k/1Q4pp/R7/8/3q4/5P2/6PK/8 b - - 0 1"


class PrincipalVariation(EngineTest):
    def test_bestmove_carries_the_reply_of_its_principal_variation(self):
        checked = 0
        for go in ("go movetime 200", "go wtime 5000 btime 5000 winc 50 binc 50"):
            for fen in MIDDLE_GAMES:
                self.engine.command("position fen " + fen)
                lines = self.engine.search(go, timeout=30 * self.scale)
                reports = info_lines(lines)
                best = BESTMOVE.fullmatch(lines[-1])
                self.assertIsNotNone(best, lines[-1])
                if not reports:
                    continue  # stopped before the first reported depth
                pv = reports[-1].group(8).split()
                if pv[0] != best.group(1) or len(pv) < 2:
                    continue
                checked += 1
                self.assertEqual(best.group(2), pv[1], "%s after %r from %s" % (lines[-1], pv, fen))
        if not uci_driver.is_instrumented():
            self.assertGreaterEqual(checked, 20)

    def test_line_stops_at_the_position_that_repeats_the_game(self):
        # The game goes on after a search of its start, whose table entries lead on round the
        # loop. Qh4+ Kg1 are played; Qe1+ Kh2 Qh4+ brings back the position after the first
        # Qh4+, so the line must end with that move.
        self.engine.command("position fen " + PERPETUAL)
        self.engine.search("go depth 12", timeout=60 * self.scale)
        self.engine.command("position fen %s moves d4h4 h2g1" % PERPETUAL)
        lines = self.engine.search("go depth 12", timeout=60 * self.scale)
        reports = info_lines(lines)
        self.assertTrue(reports, lines)
        for report in reports:
            self.assertEqual(report.group(1), "0")
            self.assertEqual(report.group(8).split(), ["h4e1", "g1h2", "e1h4"])
        self.assertEqual(lines[-1], "bestmove h4e1 ponder g1h2")

    def test_perft_deeper_than_the_ply_stack_is_refused_at_once(self):
        self.engine.command("position fen 7k/8/8/8/8/8/8/K7 w - - 0 1")
        replies = self.engine.command("perft 2")
        self.assertIn("Perft results for depth: 2  9", replies[-1])
        for depth in ("129", "200", "2147483647"):
            sent = self.engine.send("perft " + depth)
            line = self.engine.next_line()
            self.assertRegex(line.text, r"^info string perft depth %s is too deep" % depth)
            self.assertLess(line.at - sent, 2.0 * self.scale)
            self.assertEqual(self.engine.sync(), [])
        # A refused depth is not remembered: "perft" alone runs the last depth that ran.
        replies = self.engine.command("perft")
        self.assertIn("Perft results for depth: 2  9", replies[-1])
        self.assertEqual(self.engine.quit(), 0)


if __name__ == "__main__":
    uci_driver.main()
