// Check detection before making a move.
#include "engine/movegen/check.h"

#include "engine/board/attacks.h"

void computeCheckInfo(const positionStruct* pos, checkInfoStruct* info) {
    const bitboard* bb = pos->bitboards;
    const int side = pos->sideToMove, enemy = side ^ 1;
    const int king = lowestSquare(bb[WHITE_KING + enemy]);
    const bitboard occupied = occupancy(pos);
    info->enemyKing = king;
    info->checkSquares[PAWN] = attackByPawnTable[enemy][king];
    info->checkSquares[KNIGHT] = knightAttackTable[king];
    info->checkSquares[BISHOP] = bishopAttacks(king, occupied);
    info->checkSquares[ROOK] = rookAttacks(king, occupied);
    info->checkSquares[QUEEN] = info->checkSquares[BISHOP] | info->checkSquares[ROOK];
    info->checkSquares[KING] = 0;
    // An own piece alone between an own slider and the king uncovers a check when it leaves
    // the line.
    bitboard snipers = (bishopAttackAll[king] & (bb[WHITE_BISHOP + side] | bb[WHITE_QUEEN + side])) |
                       (rookAttackAll[king] & (bb[WHITE_ROOK + side] | bb[WHITE_QUEEN + side]));
    bitboard discoverers = 0;
    while (snipers) {
        bitboard between = inBetweenSquares[king][popLowestSquare(snipers)] & occupied;
        if (between && !moreThanOne(between)) discoverers |= between & bb[side];
    }
    info->discoverers = discoverers;
}

namespace {

// Exact test for en passant, castling and promotions: the own sliders against the king over
// the occupancy after the move, and the moved pieces' own attacks.
bool specialMoveGivesCheck(const positionStruct* pos, const checkInfoStruct& info, moveStruct move) {
    const bitboard* bb = pos->bitboards;
    const int side = pos->sideToMove;
    const int king = info.enemyKing;
    bitboard occupied = occupancy(pos) ^ squareBit(move.from);
    bitboard diagonal = bb[WHITE_BISHOP + side] | bb[WHITE_QUEEN + side];
    bitboard straight = bb[WHITE_ROOK + side] | bb[WHITE_QUEEN + side];
    if (move.kind == KIND_ENPASSANT) {
        int landing = move.to + (side == WHITE ? 8 : -8);
        occupied = (occupied ^ squareBit(move.to)) | squareBit(landing);
        if (attackByPawnTable[side][landing] & squareBit(king)) return true;
    } else if (move.kind >= KIND_CASTLE_KING) {
        int rookFrom = move.kind == KIND_CASTLE_KING ? move.from + 3 : move.from - 4;
        int rookTo = move.kind == KIND_CASTLE_KING ? move.from + 1 : move.from - 1;
        occupied = (occupied ^ squareBit(rookFrom)) | squareBit(move.to) | squareBit(rookTo);
        straight = (straight & ~squareBit(rookFrom)) | squareBit(rookTo);
    } else {  // promotion
        occupied |= squareBit(move.to);
        int promoted = typeOf(move.kind);
        if (promoted == KNIGHT && (knightAttackTable[move.to] & squareBit(king))) return true;
        if (promoted == BISHOP || promoted == QUEEN) diagonal |= squareBit(move.to);
        if (promoted == ROOK || promoted == QUEEN) straight |= squareBit(move.to);
    }
    return (bishopAttacks(king, occupied) & diagonal) || (rookAttacks(king, occupied) & straight);
}

}  // namespace

bool moveGivesCheck(const positionStruct* pos, const checkInfoStruct& info, moveStruct move) {
    if (move.kind != KIND_NORMAL && move.kind != KIND_DOUBLE_STEP) return specialMoveGivesCheck(pos, info, move);
    const int type = typeOf(pos->board[move.from]);
    if (info.checkSquares[type] & squareBit(move.to)) return true;
    if (!(info.discoverers & squareBit(move.from))) return false;
    // The piece uncovers a check unless it stays on the line through the king and its square.
    const int king = info.enemyKing;
    const bitboard line = (bishopAttackAll[king] & squareBit(move.from))
                              ? bishopAttackAll[king] & bishopAttackAll[move.from]
                              : rookAttackAll[king] & rookAttackAll[move.from];
    return !((line | squareBit(king) | squareBit(move.from)) & squareBit(move.to));
}
