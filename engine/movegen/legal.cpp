// Legal move generation, the legality filter and the board test for moves from outside the
// generators.
#include "engine/movegen/legal.h"

#include "engine/board/attacks.h"
#include "engine/movegen/attackers.h"
#include "engine/movegen/makemove.h"
#include "engine/movegen/staged.h"

// clang-format off
const uint8_t castlingRightsKept[64] = {
    15 & ~CASTLE_WHITE_QUEEN, 15, 15, 15, 15 & ~(CASTLE_WHITE_KING | CASTLE_WHITE_QUEEN), 15, 15, 15 & ~CASTLE_WHITE_KING,
    15, 15, 15, 15, 15, 15, 15, 15,
    15, 15, 15, 15, 15, 15, 15, 15,
    15, 15, 15, 15, 15, 15, 15, 15,
    15, 15, 15, 15, 15, 15, 15, 15,
    15, 15, 15, 15, 15, 15, 15, 15,
    15, 15, 15, 15, 15, 15, 15, 15,
    15 & ~CASTLE_BLACK_QUEEN, 15, 15, 15, 15 & ~(CASTLE_BLACK_KING | CASTLE_BLACK_QUEEN), 15, 15, 15 & ~CASTLE_BLACK_KING,
};
// clang-format on

bool isLegalNotInCheck(const positionStruct* pos, int ply, moveStruct move) {
    const bitboard* bb = pos->bitboards;
    const int side = pos->sideToMove, enemy = side ^ 1;
    const int from = move.from, to = move.to;
    const int king = lowestSquare(bb[WHITE_KING + side]);
    const bitboard diagonal = bb[WHITE_BISHOP + enemy] | bb[WHITE_QUEEN + enemy];
    const bitboard straight = bb[WHITE_ROOK + enemy] | bb[WHITE_QUEEN + enemy];
    bitboard occupied = occupancy(pos);

    if (from == king) {
        occupied ^= squareBit(from);
        occupied |= squareBit(to);
        return !isSquareAttacked(pos, to, enemy, occupied);
    }
    if (move.kind == KIND_ENPASSANT) {
        // Catches the pin along the rank that the two pawns leave together.
        int landing = to + (side == WHITE ? 8 : -8);
        occupied = (occupied ^ squareBit(from) ^ squareBit(to)) | squareBit(landing);
        return !(bishopAttacks(king, occupied) & diagonal) && !(rookAttacks(king, occupied) & straight);
    }
    if (pos->plyState[ply].notPinned & squareBit(from)) return true;
    occupied = (occupied ^ squareBit(from)) | squareBit(to);
    bitboard remaining = ~squareBit(to);  // a pinner standing on the target is taken
    return !(bishopAttacks(king, occupied) & diagonal & remaining) &&
           !(rookAttacks(king, occupied) & straight & remaining);
}

void generateMovesLegal(int ply, moveStruct* list, positionStruct* pos) {
    plyStateStruct* entry = &pos->plyState[ply];
    entry->inCheck = isSideInCheck(pos, pos->sideToMove) ? 1 : 0;
    generateMovesCaptures(ply, list, pos);
    if (entry->inCheck) return;  // evasions are legal already
    generateMovesQuiets(ply, entry->moveListEnd, pos);

    // Swap-remove: an illegal move is overwritten by the last one, which is examined next.
    moveStruct* end = entry->moveListEnd;
    for (moveStruct* m = list; m < end;) {
        if (isLegalNotInCheck(pos, ply, *m))
            m++;
        else
            *m = *--end;
    }
    entry->moveListEnd = end;
    pos->plyState[ply + 1].moveList = end;
}

bool isMovePseudoLegal(const positionStruct* pos, int ply, moveStruct move) {
    const int from = move.from, to = move.to, kind = move.kind;
    if (from > 63 || to > 63 || from == to) return false;
    const int piece = pos->board[from];
    const int side = pos->sideToMove;
    if (piece == EMPTY || piece != move.order || (piece & 1) != side) return false;
    const int target = pos->board[to];
    if (target != EMPTY && ((target & 1) == side || typeOf(target) == KING)) return false;
    const bitboard occupied = occupancy(pos);
    const int type = typeOf(piece);

    if (type == PAWN) {
        const int up = side == WHITE ? 8 : -8;
        const bool lastRank = (to >> 3) == (side == WHITE ? 7 : 0);
        if (kind == KIND_ENPASSANT)
            return pos->plyState[ply].enPassantSquare == to && (enpassantTable[to] & squareBit(from)) &&
                   pos->board[to + up] == EMPTY;
        if (kind == KIND_DOUBLE_STEP)
            return (from >> 3) == (side == WHITE ? 1 : 6) && to == from + 2 * up && target == EMPTY &&
                   pos->board[from + up] == EMPTY;
        if (kind != KIND_NORMAL && !isPromotion(static_cast<uint8_t>(kind))) return false;
        if (lastRank != (kind != KIND_NORMAL)) return false;
        if (target == EMPTY) return to == from + up;
        return (attackByPawnTable[side][from] & squareBit(to)) != 0;
    }
    if (kind >= KIND_CASTLE_KING) {
        if (type != KING || pos->plyState[ply].inCheck) return false;
        const int home = side == WHITE ? 4 : 60;
        if (from != home) return false;
        const bool kingSide = kind == KIND_CASTLE_KING;
        const uint8_t right = kingSide ? (side == WHITE ? CASTLE_WHITE_KING : CASTLE_BLACK_KING)
                                       : (side == WHITE ? CASTLE_WHITE_QUEEN : CASTLE_BLACK_QUEEN);
        if (!(pos->plyState[ply].castlingRights & right) || to != (kingSide ? home + 2 : home - 2)) return false;
        const bitboard between = kingSide ? 3ULL << (home + 1) : 7ULL << (home - 3);
        return !(occupied & between) && !isSquareAttacked(pos, kingSide ? home + 1 : home - 1, side ^ 1, occupied);
    }
    if (kind != KIND_NORMAL) return false;
    return (attacksOf(type, from, occupied) & squareBit(to)) != 0;
}

bool legalMoveFromText(const std::string& text, positionStruct* pos, moveStruct* move) {
    if (!moveFromText(text, pos, move)) return false;
    generateMovesLegal(0, pos->plyState[0].moveList, pos);
    for (const moveStruct* m = pos->plyState[0].moveList; m < pos->plyState[0].moveListEnd; m++)
        if (sameMove(*m, *move)) return true;
    return false;
}
