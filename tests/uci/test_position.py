"""The "position" command: FEN and move text, bad input, and the quirks kept on purpose."""

import uci_driver
from uci_driver import AFTER_E4_GRID, EngineTest, grid

AFTER_E4_FEN = "rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq e3 0 1"
START_FEN = "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1"

# FENs that cannot stand: each gets one "info string" line and the position stays.
INVALID_FENS = [
    ("nine squares in a rank", "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNRR w KQkq - 0 1"),
    ("nine squares by digits", "rnbqkbnr/pppppppp/8/8/81/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1"),
    ("nine ranks", "k7/8/8/8/8/8/8/8/K7 w - - 0 1"),
    ("seven ranks", "k7/8/8/8/8/8/K7 w - - 0 1"),
    ("short rank", "rnbqkbnr/ppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1"),
    ("no white king", "4k3/8/8/8/8/8/8/8 w - - 0 1"),
    ("no black king", "8/8/8/8/8/8/8/4K3 w - - 0 1"),
    ("no kings", "8/8/8/8/8/8/8/8 w - - 0 1"),
    ("two white kings", "4k3/8/8/8/8/8/8/K3K3 w - - 0 1"),
    ("two black kings", "k3k3/8/8/8/8/8/8/4K3 w - - 0 1"),
    ("non-numeric half-move clock", START_FEN.replace("- 0 1", "- x 1")),
    ("non-numeric move number", START_FEN.replace("- 0 1", "- 0 one")),
    ("negative half-move clock", START_FEN.replace("- 0 1", "- -3 1")),
    ("en-passant rank for the wrong side", "rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq e6 0 1"),
    ("en-passant file off the board", "rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq z3 0 1"),
    ("en-passant field too long", "rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq e33 0 1"),
    ("side not to move in check", "k7/8/8/8/8/8/8/R6K w - - 0 1"),
    ("side not to move in check by a pawn", "8/8/8/8/8/5k2/4P3/4K3 w - - 0 1"),
    ("pawn on the last rank", "P3k3/8/8/8/8/8/8/4K3 b - - 0 1"),
    ("pawn on the first rank", "4k3/8/8/8/8/8/8/p3K3 w - - 0 1"),
    ("placement only", "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR"),
    ("empty", ""),
    ("moves after a bad FEN", "8/8/8/8/8/8/8/8 w - - 0 1 moves e7e5"),
]

# (moves, the legal prefix that must be in force afterwards): an illegal or malformed move gets one
# "info string" line and the moves from it on are ignored.
ILLEGAL_MOVES = [
    ("startpos", "e2e4 e7e5 e1e3 g1f3", "e2e4 e7e5"),
    ("startpos", "e2e5", ""),
    ("startpos", "e7e5", ""),  # black piece, white to move
    ("startpos", "e2e4 e7e5 e1g1", "e2e4 e7e5"),  # castling through own pieces
    ("startpos", "e2e4 zz9 d7d5", "e2e4"),
    ("startpos", "e2e4 e7e5x d2d4", "e2e4"),
    ("startpos", "e2e4 e7 d2d4", "e2e4"),
    ("startpos", "e2e4 i7i5", "e2e4"),
    ("startpos", "e2e4 e7e5 d1h5 b8c6 f1c4 g8f6 h5f7 e8f7", "e2e4 e7e5 d1h5 b8c6 f1c4 g8f6 h5f7"),  # after mate
    ("startpos", "g1f3 g8f6 f3g1 f6g8 e1e2", "g1f3 g8f6 f3g1 f6g8"),
    ("startpos", "e2e4 a7a6 e4e5 d7d5 a2a3 a6a5 e5d6", "e2e4 a7a6 e4e5 d7d5 a2a3 a6a5"),  # en passant expired
    ("fen 4k3/P7/8/8/8/8/8/4K3 w - - 0 1", "a7a8", ""),  # promotion without a piece
    ("fen 4k3/P7/8/8/8/8/8/4K3 w - - 0 1", "a7a8k", ""),
    ("fen 4k3/P7/8/8/8/8/8/4K3 w - - 0 1", "a7a8p", ""),
    ("fen 4k3/4r3/8/8/8/8/8/3K4 w - - 0 1", "d1e1", ""),  # into check
    ("fen 4k3/4r3/8/8/8/8/4B3/4K3 w - - 0 1", "e2d3", ""),  # pinned piece
    ("fen 4k3/8/8/8/8/8/5r2/R3K2R w KQ - 0 1", "e1g1", ""),  # king passes an attacked square
    ("fen r3k2r/8/8/8/8/8/8/R3K2R w KQkq - 0 1", "h1h2 a8a7 h2h1 a7a8 e1g1", "h1h2 a8a7 h2h1 a7a8"),
    ("fen r3k2r/8/8/8/8/8/8/R3K2R w KQkq - 0 1", "e1f1 a8b8 f1e1 b8a8 e1c1", "e1f1 a8b8 f1e1 b8a8"),
    ("fen 4k3/8/8/8/8/8/8/4K2R w - - 0 1", "e1g1", ""),  # no castling right in the FEN
    ("fen 4k3/8/8/8/8/8/8/R3K3 w", "e1c1", ""),  # none invented for a FEN without the field
]

# (position, the board it shows as a FEN placement): the move kind is taken from the board.
BOARDS = [
    ("startpos", "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR"),
    ("fen r3k2r/8/8/8/8/8/8/R3K2R w KQkq - 0 1 moves e1g1", "r3k2r/8/8/8/8/8/8/R4RK1"),
    ("fen r3k2r/8/8/8/8/8/8/R3K2R w KQkq - 0 1 moves e1c1", "r3k2r/8/8/8/8/8/8/2KR3R"),
    ("fen r3k2r/8/8/8/8/8/8/R3K2R b KQkq - 0 1 moves e8c8 e1g1", "2kr3r/8/8/8/8/8/8/R4RK1"),
    ("fen r3k2r/8/8/8/8/8/8/R3K2R b KQkq - 0 1 moves e8g8", "r4rk1/8/8/8/8/8/8/R3K2R"),
    ("startpos moves e2e4 a7a6 e4e5 d7d5 e5d6", "rnbqkbnr/1pp1pppp/p2P4/8/8/8/PPPP1PPP/RNBQKBNR"),
    ("startpos moves a2a3 d7d5 a3a4 d5d4 e2e4 d4e3", "rnbqkbnr/ppp1pppp/8/8/P7/4p3/1PPP1PPP/RNBQKBNR"),
    ("fen rnbqkbnr/ppp1pppp/8/3pP3/8/8/PPPP1PPP/RNBQKBNR w KQkq d6 0 3 moves e5d6",
     "rnbqkbnr/ppp1pppp/3P4/8/8/8/PPPP1PPP/RNBQKBNR"),
    ("fen 4k3/P7/8/8/8/8/8/4K3 w - - 0 1 moves a7a8n", "N3k3/8/8/8/8/8/8/4K3"),
    ("fen 4k3/8/8/8/8/8/p7/1N2K3 b - - 0 1 moves a2b1q", "4k3/8/8/8/8/8/8/1q2K3"),
    # A king move e1g1 that is not castling.
    ("fen 4k3/8/8/8/8/8/8/4K3 w - - 0 1 moves e1f1 e8f8 f1g1", "5k2/8/8/8/8/8/8/6K1"),
    # A FEN of placement and side only.
    ("fen 4k3/8/8/8/8/8/8/R3K3 b", "4k3/8/8/8/8/8/8/R3K3"),
    # An unknown piece letter is an empty square.
    ("fen 4k3/8/8/3x4/8/8/8/4K3 w - - 0 1", "4k3/8/8/8/8/8/8/4K3"),
    # The game ply is capped internally; the position must still be usable.
    ("fen " + START_FEN.replace("- 0 1", "- 0 300") + " moves e2e4", "rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR"),
    ("fen " + START_FEN.replace("- 0 1", "- 0 99999"), "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR"),
    # 600 plies of knight shuffles: the key history must not overflow.
    ("startpos moves " + " ".join(["g1f3 g8f6 f3g1 f6g8"] * 150), "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR"),
]


class Position(EngineTest):
    def assert_refused(self, line):
        replies = self.engine.command(line)
        self.assertEqual(len(replies), 1, replies)
        self.assertTrue(replies[0].startswith("info string "), replies)

    def test_invalid_position_is_refused_and_the_position_stays(self):
        for line in ["position fen " + fen for _, fen in INVALID_FENS] + ["position", "position moves e2e4",
                                                                          "position start"]:
            with self.subTest(line=line):
                self.engine.command("position fen " + AFTER_E4_FEN)
                self.assert_refused(line)
                self.assertEqual(self.engine.command("showboard"), AFTER_E4_GRID)
                # Black is still to move.
                self.assert_legal("fen " + AFTER_E4_FEN, self.engine.search("go depth 1")[-1])

    def test_illegal_move_stops_the_move_list(self):
        for start, moves, legal_prefix in ILLEGAL_MOVES:
            with self.subTest(start=start, moves=moves):
                self.assertEqual(self.engine.command("position %s moves %s" % (start, legal_prefix)), [])
                expected = self.engine.command("showboard")
                self.assert_refused("position %s moves %s" % (start, moves))
                self.assertEqual(self.engine.command("showboard"), expected)

    def test_illegal_move_keeps_the_side_to_move_of_the_prefix(self):
        self.assert_refused("position startpos moves e2e4 e1e1 g1f3")
        self.assert_legal("startpos moves e2e4", self.engine.search("go depth 1")[-1])

    def test_boards_and_side_to_move(self):
        for position, placement in BOARDS:
            with self.subTest(position=position[:80]):
                self.assertEqual(self.engine.command("position " + position), [])
                self.assertEqual(self.engine.command("showboard"), grid(placement))
                self.assert_legal(position, self.engine.search("go depth 4", 30 * self.scale)[-1])


if __name__ == "__main__":
    uci_driver.main()
