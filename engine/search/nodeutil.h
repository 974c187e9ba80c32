// Small helpers shared by the quiescence and alpha-beta node procedures.
#pragma once

#include "engine/board/attacks.h"
#include "engine/board/position.h"
#include "engine/movegen/makemove.h"
#include "engine/movegen/staged.h"
#include "engine/search/tt.h"

// Neither side has a pawn and each side's middle-game material is at most one minor piece.
inline bool isInsufficientMaterial(const positionStruct* pos) {
    return !(pos->bitboards[WHITE_PAWN] | pos->bitboards[BLACK_PAWN]) && mgHalf(pos->material[0]) <= 361 &&
           mgHalf(pos->material[1]) <= 361;
}

// The side to move has a piece other than king and pawns.
inline bool hasNonPawnMaterial(const positionStruct* pos) {
    int side = pos->sideToMove;
    return (pos->bitboards[side] & ~(pos->bitboards[WHITE_PAWN + side] | pos->bitboards[WHITE_KING + side])) != 0;
}

// Legality of a move handed out while the side to move is in check (evasion lists are legal
// already; this serves the hash move).
inline bool isLegalInCheck(const positionStruct* pos, moveStruct move) {
    const bitboard* bb = pos->bitboards;
    const int side = pos->sideToMove, enemy = side ^ 1;
    const int king = lowestSquare(bb[WHITE_KING + side]);
    bitboard occupied = occupancy(pos);
    if (move.from == king) {
        if (move.kind >= KIND_CASTLE_KING) return false;
        return !isSquareAttacked(pos, move.to, enemy, (occupied ^ squareBit(king)) | squareBit(move.to));
    }
    bitboard checkers = (bishopAttacks(king, occupied) & (bb[WHITE_BISHOP + enemy] | bb[WHITE_QUEEN + enemy])) |
                        (rookAttacks(king, occupied) & (bb[WHITE_ROOK + enemy] | bb[WHITE_QUEEN + enemy])) |
                        (attackByPawnTable[side][king] & bb[WHITE_PAWN + enemy]) |
                        (knightAttackTable[king] & bb[WHITE_KNIGHT + enemy]);
    if (moreThanOne(checkers)) return false;
    int landing = move.kind == KIND_ENPASSANT ? move.to + (side == WHITE ? 8 : -8) : move.to;
    bitboard removed = squareBit(move.from) | (move.kind == KIND_ENPASSANT ? squareBit(move.to) : 0);
    bitboard after = (occupied & ~removed) | squareBit(landing);
    bitboard remaining = ~(squareBit(move.to));  // a captured checker no longer attacks
    return !(bishopAttacks(king, after) & (bb[WHITE_BISHOP + enemy] | bb[WHITE_QUEEN + enemy]) & remaining) &&
           !(rookAttacks(king, after) & (bb[WHITE_ROOK + enemy] | bb[WHITE_QUEEN + enemy]) & remaining) &&
           !(attackByPawnTable[side][king] & bb[WHITE_PAWN + enemy] & remaining) &&
           !(knightAttackTable[king] & bb[WHITE_KNIGHT + enemy] & remaining);
}

// Mate-distance pruning: at this ply nothing scores below being mated here or above a mate
// given right after. Narrows the window; true when it closes.
inline bool clampToMateDistance(int ply, int& alpha, int& beta) {
    if (ply - (SCORE_MATE - 1) > alpha) alpha = ply - SCORE_MATE;
    if ((SCORE_MATE + 1) - ply < beta) beta = (SCORE_MATE + 1) - ply;
    return alpha >= beta;
}

// Makes a move the search has chosen: records it as this ply's move and sets the child's
// in-check flag, known before the move from the check information.
inline void playMove(positionStruct* pos, int ply, moveStruct move, bool checking) {
    pos->plyState[ply].currentMove = move;
    makeMove(pos, ply, move);
    pos->plyState[ply + 1].inCheck = checking ? 1 : 0;
}
