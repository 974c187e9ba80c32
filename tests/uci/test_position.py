"""The "position" command: FEN and move text, bad input, and the quirks kept on purpose."""

import unittest

import uci_driver
from uci_driver import Engine
from test_replies import AFTER_E4_GRID, START_GRID, grid

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
]

# (position and moves, expected grid rows from rank 8 down): the move kind is taken from the board.
MOVE_KINDS = [
    ("white castles king side", "fen r3k2r/8/8/8/8/8/8/R3K2R w KQkq - 0 1 moves e1g1",
     ["r...k..r", "........", "........", "........", "........", "........", "........", "R....RK."]),
    ("white castles queen side", "fen r3k2r/8/8/8/8/8/8/R3K2R w KQkq - 0 1 moves e1c1",
     ["r...k..r", "........", "........", "........", "........", "........", "........", "..KR...R"]),
    ("black castles both ways", "fen r3k2r/8/8/8/8/8/8/R3K2R b KQkq - 0 1 moves e8c8 e1g1",
     ["..kr...r", "........", "........", "........", "........", "........", "........", "R....RK."]),
    ("black castles king side", "fen r3k2r/8/8/8/8/8/8/R3K2R b KQkq - 0 1 moves e8g8",
     ["r....rk.", "........", "........", "........", "........", "........", "........", "R...K..R"]),
    ("white takes en passant", "startpos moves e2e4 a7a6 e4e5 d7d5 e5d6",
     ["rnbqkbnr", ".pp.pppp", "p..P....", "........", "........", "........", "PPPP.PPP", "RNBQKBNR"]),
    ("black takes en passant", "startpos moves a2a3 d7d5 a3a4 d5d4 e2e4 d4e3",
     ["rnbqkbnr", "ppp.pppp", "........", "........", "P.......", "....p...", ".PPP.PPP", "RNBQKBNR"]),
    ("en passant from a FEN", "fen " + "rnbqkbnr/ppp1pppp/8/3pP3/8/8/PPPP1PPP/RNBQKBNR w KQkq d6 0 3 moves e5d6",
     ["rnbqkbnr", "ppp.pppp", "...P....", "........", "........", "........", "PPPP.PPP", "RNBQKBNR"]),
    ("promotion to a knight", "fen 4k3/P7/8/8/8/8/8/4K3 w - - 0 1 moves a7a8n",
     ["N...k...", "........", "........", "........", "........", "........", "........", "....K..."]),
    ("black promotes with a capture", "fen 4k3/8/8/8/8/8/p7/1N2K3 b - - 0 1 moves a2b1q",
     ["....k...", "........", "........", "........", "........", "........", "........", ".q..K..."]),
    ("king move e1g1 that is not castling", "fen 4k3/8/8/8/8/8/8/4K3 w - - 0 1 moves e1f1 e8f8 f1g1",
     [".....k..", "........", "........", "........", "........", "........", "........", "......K."]),
]


class Position(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.engine = Engine()

    @classmethod
    def tearDownClass(cls):
        cls.engine.close()

    def board_after(self, position):
        replies = self.engine.command("position " + position)
        self.assertEqual(replies, [], "position %s" % position)
        return self.engine.command("showboard")

    def test_invalid_fen_is_refused_and_the_position_stays(self):
        for reason, fen in INVALID_FENS:
            with self.subTest(reason=reason):
                self.engine.command("position fen " + AFTER_E4_FEN)
                replies = self.engine.command("position fen " + fen)
                self.assertEqual(len(replies), 1, replies)
                self.assertTrue(replies[0].startswith("info string "), replies)
                self.assertEqual(self.engine.command("showboard"), AFTER_E4_GRID)
                # Black is still to move: the answer is a black move.
                bestmove = self.engine.search("go depth 1")[-1]
                self.assertRegex(bestmove, r"bestmove [a-h][5-8]")

    def test_invalid_fen_with_moves_plays_none_of_them(self):
        self.engine.command("position startpos")
        replies = self.engine.command("position fen 8/8/8/8/8/8/8/8 w - - 0 1 moves e2e4")
        self.assertEqual(len(replies), 1, replies)
        self.assertEqual(self.engine.command("showboard"), START_GRID)

    def test_position_without_startpos_or_fen(self):
        for line in ["position", "position moves e2e4", "position start"]:
            with self.subTest(line=line):
                self.engine.command("position fen " + AFTER_E4_FEN)
                replies = self.engine.command(line)
                self.assertEqual(len(replies), 1, replies)
                self.assertTrue(replies[0].startswith("info string "), replies)
                self.assertEqual(self.engine.command("showboard"), AFTER_E4_GRID)

    def test_illegal_move_stops_the_move_list(self):
        for start, moves, legal_prefix in ILLEGAL_MOVES:
            with self.subTest(start=start, moves=moves):
                expected = self.board_after(start + (" moves " + legal_prefix if legal_prefix else ""))
                replies = self.engine.command("position %s moves %s" % (start, moves))
                self.assertEqual(len(replies), 1, replies)
                self.assertTrue(replies[0].startswith("info string "), replies)
                self.assertEqual(self.engine.command("showboard"), expected)

    def test_illegal_move_keeps_the_side_to_move_of_the_prefix(self):
        # After "e2e4" black is to move, so the engine answers with a black move.
        replies = self.engine.command("position startpos moves e2e4 e1e1 g1f3")
        self.assertEqual(len(replies), 1, replies)
        self.assertRegex(self.engine.search("go depth 1")[-1], r"bestmove [a-h][5-8]")

    def test_move_kinds_are_read_from_the_board(self):
        for name, position, rows in MOVE_KINDS:
            with self.subTest(name=name):
                self.assertEqual(self.board_after(position), grid(rows))

    def test_fen_of_placement_and_side_only_is_accepted(self):
        self.assertEqual(self.board_after("fen 4k3/8/8/8/8/8/8/R3K3 b"),
                         grid(["....k...", "........", "........", "........", "........", "........", "........",
                               "R...K..."]))
        # Black to move; no castling rights were invented for the rook on a1.
        self.assertRegex(self.engine.search("go depth 1")[-1], r"bestmove e8")
        replies = self.engine.command("position fen 4k3/8/8/8/8/8/8/R3K3 w moves e1c1")
        self.assertEqual(len(replies), 1, replies)

    def test_unknown_piece_letter_is_an_empty_square(self):
        self.assertEqual(self.board_after("fen 4k3/8/8/3x4/8/8/8/4K3 w - - 0 1"),
                         grid(["....k...", "........", "........", "........", "........", "........", "........",
                               "....K..."]))

    def test_move_number_far_in_the_game_is_accepted(self):
        # The game ply is capped internally; the position must still be usable.
        self.assertEqual(self.board_after("fen " + START_FEN.replace("- 0 1", "- 0 300") + " moves e2e4"),
                         AFTER_E4_GRID)
        self.assertEqual(self.board_after("fen " + START_FEN.replace("- 0 1", "- 0 99999")), START_GRID)
        self.assertRegex(self.engine.search("go depth 3")[-1], uci_driver.BESTMOVE)

    def test_long_move_list(self):
        # 600 plies of knight shuffles: the key history must not overflow.
        shuffle = "g1f3 g8f6 f3g1 f6g8 " * 150
        self.assertEqual(self.board_after("startpos moves " + shuffle.strip()), START_GRID)
        self.assertRegex(self.engine.search("go depth 4")[-1], uci_driver.BESTMOVE)


if __name__ == "__main__":
    uci_driver.main()
