// Perft: the leaf count of the legal move tree, bulk-counted at the last ply.
#include "engine/movegen/perft.h"

#include "engine/board/attacks.h"
#include "engine/movegen/attackers.h"
#include "engine/movegen/legal.h"
#include "engine/movegen/makemove.h"
#include "engine/movegen/staged.h"

namespace {

// Moves of the pawns that are not pinned: pushes, double steps, captures; four moves per
// promotion.
template <int side>
inline uint64_t unpinnedPawnMoveCount(const bitboard* bb, bitboard notPinned, bitboard empty) {
    const bitboard lastRank = side == WHITE ? RANK_8 : RANK_1;
    const bitboard enemy = bb[side ^ 1];
    bitboard pawns = bb[WHITE_PAWN + side] & notPinned;
    bitboard single = (side == WHITE ? pawns << 8 : pawns >> 8) & empty;
    bitboard doubles = (side == WHITE ? (single & RANK_3) << 8 : (single & RANK_6) >> 8) & empty;
    bitboard west = (side == WHITE ? (pawns & ~FILE_A) << 7 : (pawns & ~FILE_A) >> 9) & enemy;
    bitboard east = (side == WHITE ? (pawns & ~FILE_H) << 9 : (pawns & ~FILE_H) >> 7) & enemy;
    uint64_t count =
        popCount(single & ~lastRank) + popCount(doubles) + popCount(west & ~lastRank) + popCount(east & ~lastRank);
    count +=
        4 * static_cast<uint64_t>(popCount(single & lastRank) + popCount(west & lastRank) + popCount(east & lastRank));
    return count;
}

// Moves of the knights, bishops, rooks and queens that are not pinned.
template <int side>
inline uint64_t unpinnedPieceMoveCount(const bitboard* bb, bitboard notPinned, bitboard occupied) {
    const bitboard own = bb[side];
    uint64_t count = 0;
    bitboard knights = bb[WHITE_KNIGHT + side] & notPinned;
    while (knights) count += popCount(knightAttackTable[popLowestSquare(knights)] & ~own);
    bitboard diagonal = (bb[WHITE_BISHOP + side] | bb[WHITE_QUEEN + side]) & notPinned;
    while (diagonal) count += popCount(bishopAttacks(popLowestSquare(diagonal), occupied) & ~own);
    bitboard straight = (bb[WHITE_ROOK + side] | bb[WHITE_QUEEN + side]) & notPinned;
    while (straight) count += popCount(rookAttacks(popLowestSquare(straight), occupied) & ~own);
    return count;
}

// King steps onto squares the enemy does not attack once the king has left its square.
template <int side>
inline uint64_t kingStepCount(const positionStruct* pos, int king, bitboard withoutKing) {
    uint64_t count = 0;
    bitboard steps = kingAttackTable[king] & ~pos->bitboards[side];
    while (steps) count += !isSquareAttacked(pos, popLowestSquare(steps), side ^ 1, withoutKing);
    return count;
}

// Squares a pinned piece on from could move to before the pin is taken into account.
template <int side>
inline bitboard pinnedTargets(const positionStruct* pos, int from, int piece, bitboard occupied) {
    const bitboard* bb = pos->bitboards;
    if (typeOf(piece) != PAWN) return attacksOf(typeOf(piece), from, occupied) & ~bb[side];
    int up = side == WHITE ? 8 : -8;
    bitboard targets = attackByPawnTable[side][from] & bb[side ^ 1];
    if (!(occupied & squareBit(from + up))) {
        targets |= squareBit(from + up);
        bool startRank = (from >> 3) == (side == WHITE ? 1 : 6);
        if (startRank && !(occupied & squareBit(from + 2 * up))) targets |= squareBit(from + 2 * up);
    }
    return targets;
}

// Moves of the pinned pieces, each one tested.
template <int side>
inline uint64_t pinnedMoveCount(const positionStruct* pos, int ply, int king, bitboard notPinned, bitboard occupied) {
    const bitboard lastRank = side == WHITE ? RANK_8 : RANK_1;
    uint64_t count = 0;
    bitboard pinned = pos->bitboards[side] & ~notPinned & ~squareBit(king);
    while (pinned) {
        int from = popLowestSquare(pinned);
        int piece = pos->board[from];
        bitboard targets = pinnedTargets<side>(pos, from, piece, occupied);
        while (targets) {
            int to = popLowestSquare(targets);
            moveStruct m = {static_cast<uint8_t>(from), static_cast<uint8_t>(to), KIND_NORMAL, 0};
            if (isLegalNotInCheck(pos, ply, m)) count += (typeOf(piece) == PAWN && (squareBit(to) & lastRank)) ? 4 : 1;
        }
    }
    return count;
}

// Castling: path empty, crossed and target squares not attacked (not in check here).
template <int side>
inline uint64_t castlingCount(const positionStruct* pos, int ply, bitboard occupied, bitboard withoutKing) {
    const int enemy = side ^ 1;
    uint8_t rights = pos->plyState[ply].castlingRights;
    const int home = side == WHITE ? 4 : 60;
    uint64_t count = 0;
    if ((rights & (side == WHITE ? CASTLE_WHITE_KING : CASTLE_BLACK_KING)) && !(occupied & (3ULL << (home + 1))) &&
        !isSquareAttacked(pos, home + 1, enemy, occupied) && !isSquareAttacked(pos, home + 2, enemy, withoutKing))
        count++;
    if ((rights & (side == WHITE ? CASTLE_WHITE_QUEEN : CASTLE_BLACK_QUEEN)) && !(occupied & (7ULL << (home - 3))) &&
        !isSquareAttacked(pos, home - 1, enemy, occupied) && !isSquareAttacked(pos, home - 2, enemy, withoutKing))
        count++;
    return count;
}

// En passant, including the pin along the rank the two pawns leave.
template <int side>
inline uint64_t enPassantCount(const positionStruct* pos, int ply) {
    int ep = pos->plyState[ply].enPassantSquare;
    if (!ep) return 0;
    uint64_t count = 0;
    bitboard takers = enpassantTable[ep] & pos->bitboards[WHITE_PAWN + side];
    while (takers) {
        moveStruct m = {static_cast<uint8_t>(popLowestSquare(takers)), static_cast<uint8_t>(ep), KIND_ENPASSANT, 0};
        count += isLegalNotInCheck(pos, ply, m);
    }
    return count;
}

// Number of legal moves when the side to move is not in check, counted from attack sets
// without writing the moves: only pinned pieces, king steps, castling and en passant are
// tested one by one. Equal to the number of generated moves that pass the legality filter.
template <int side>
uint64_t countLegalNotInCheck(int ply, positionStruct* pos) {
    const bitboard* bb = pos->bitboards;
    const bitboard occupied = bb[side] | bb[side ^ 1];
    const bitboard notPinned = computeNotPinned(pos);
    pos->plyState[ply].notPinned = notPinned;
    const int king = lowestSquare(bb[WHITE_KING + side]);
    const bitboard withoutKing = occupied ^ squareBit(king);
    return unpinnedPawnMoveCount<side>(bb, notPinned, ~occupied) +
           unpinnedPieceMoveCount<side>(bb, notPinned, occupied) + kingStepCount<side>(pos, king, withoutKing) +
           pinnedMoveCount<side>(pos, ply, king, notPinned, occupied) +
           castlingCount<side>(pos, ply, occupied, withoutKing) + enPassantCount<side>(pos, ply);
}

}  // namespace

uint64_t perft(int ply, int depth, positionStruct* pos) {
    if (depth < 1) return 1;
    plyStateStruct* entry = &pos->plyState[ply];
    moveStruct* list = entry->moveList;
    if (depth == 1) {
        // Bulk counting: evasions are legal as generated.
        entry->inCheck = isSideInCheck(pos, pos->sideToMove) ? 1 : 0;
        if (entry->inCheck) {
            generateMovesCaptures(ply, list, pos);
            return static_cast<uint64_t>(entry->moveListEnd - list);
        }
        return pos->sideToMove == WHITE ? countLegalNotInCheck<WHITE>(ply, pos) : countLegalNotInCheck<BLACK>(ply, pos);
    }
    generateMovesLegal(ply, list, pos);
    uint64_t nodes = 0;
    for (moveStruct* m = list; m < entry->moveListEnd; m++) {
        makeMove(pos, ply, *m);
        nodes += perft(ply + 1, depth - 1, pos);
        unmakeMove(pos, ply, *m);
    }
    return nodes;
}
