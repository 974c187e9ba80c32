"""The principal variation as a GUI sees it: the ponder move, a line that stops at a draw, and a
perft too deep for the ply stack."""

import os

import uci_driver
from uci_driver import BESTMOVE, EngineTest, info_lines

# Middle-game positions, searched once with a move time and once on a clock.
with open(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "data", "middlegames.txt")) as f:
    MIDDLE_GAMES = [line.strip() for line in f if line.strip()]

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
