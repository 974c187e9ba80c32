// Staged move generators. Pawns are generated set-wise from shifted bitboards; pieces from
// their attack sets; every generator writes into the preallocated move buffer.
#include "engine/movegen/staged.h"

#include "engine/board/attacks.h"
#include "engine/movegen/attackers.h"

namespace {

inline moveStruct makeMove4(int from, int to, int kind, int order) {
    moveStruct m;
    m.from = static_cast<uint8_t>(from);
    m.to = static_cast<uint8_t>(to);
    m.kind = static_cast<uint8_t>(kind);
    m.order = static_cast<uint8_t>(order);
    return m;
}

inline void finishList(int ply, moveStruct* end, positionStruct* pos) {
    pos->plyState[ply].moveListEnd = end;
    pos->plyState[ply + 1].moveList = end;
}

// Direction-dependent pawn shifts for one side.
template <int side>
struct pawnShift {
    static bitboard up(bitboard b) { return side == WHITE ? b << 8 : b >> 8; }
    // Captures toward the a-file and toward the h-file.
    static bitboard captureWest(bitboard b) { return side == WHITE ? (b & ~FILE_A) << 7 : (b & ~FILE_A) >> 9; }
    static bitboard captureEast(bitboard b) { return side == WHITE ? (b & ~FILE_H) << 9 : (b & ~FILE_H) >> 7; }
    static constexpr int upStep = side == WHITE ? 8 : -8;
    static constexpr int westStep = side == WHITE ? 7 : -9;
    static constexpr int eastStep = side == WHITE ? 9 : -7;
    static constexpr bitboard lastRank = side == WHITE ? RANK_8 : RANK_1;
    static constexpr bitboard doubleStepRank = side == WHITE ? RANK_3 : RANK_6;  // after one step
};

enum captureSet { ALL_PROMOTIONS, QUEEN_PROMOTIONS };

// Pawn captures onto targets (enemy pieces), promotions split off the last rank.
template <int side, captureSet promotions>
moveStruct* pawnCaptures(const positionStruct* pos, moveStruct* list, bitboard targets) {
    typedef pawnShift<side> P;
    const int pawn = WHITE_PAWN + side;
    bitboard pawns = pos->bitboards[pawn];
    bitboard west = P::captureWest(pawns) & targets;
    bitboard east = P::captureEast(pawns) & targets;
    const int step[2] = {P::westStep, P::eastStep};
    bitboard sets[2] = {west, east};
    for (int d = 0; d < 2; d++) {
        bitboard plain = sets[d] & ~P::lastRank;
        while (plain) {
            int to = popLowestSquare(plain);
            *list++ = makeMove4(to - step[d], to, KIND_NORMAL, captureScore(pos->board[to], pawn));
        }
        bitboard promoting = sets[d] & P::lastRank;
        while (promoting) {
            int to = popLowestSquare(promoting);
            int order = 8 * pos->board[to] - 14;
            *list++ = makeMove4(to - step[d], to, KIND_PROMOTE_QUEEN, order);
            if (promotions == ALL_PROMOTIONS) {
                *list++ = makeMove4(to - step[d], to, KIND_PROMOTE_ROOK, order);
                *list++ = makeMove4(to - step[d], to, KIND_PROMOTE_BISHOP, order);
                *list++ = makeMove4(to - step[d], to, KIND_PROMOTE_KNIGHT, order);
            }
        }
    }
    return list;
}

// En-passant captures of the pawn that has just double-stepped, when it lies in targets.
template <int side>
moveStruct* enPassantCaptures(const positionStruct* pos, int ply, moveStruct* list, bitboard targets) {
    int ep = pos->plyState[ply].enPassantSquare;
    if (!ep || !(targets & squareBit(ep))) return list;
    bitboard takers = enpassantTable[ep] & pos->bitboards[WHITE_PAWN + side];
    while (takers) *list++ = makeMove4(popLowestSquare(takers), ep, KIND_ENPASSANT, ENPASSANT_SCORE);
    return list;
}

// Knight, bishop, rook, queen and king moves onto targets, with capture scores.
template <int side, bool captures>
moveStruct* pieceMoves(const positionStruct* pos, moveStruct* list, bitboard targets) {
    bitboard occupied = occupancy(pos);
    for (int piece = WHITE_KNIGHT + side; piece <= BLACK_KING; piece += 2) {
        bitboard pieces = pos->bitboards[piece];
        while (pieces) {
            int from = popLowestSquare(pieces);
            bitboard attacks = attacksOf(typeOf(piece), from, occupied) & targets;
            while (attacks) {
                int to = popLowestSquare(attacks);
                *list++ = makeMove4(from, to, KIND_NORMAL, captures ? captureScore(pos->board[to], piece) : 0);
            }
        }
    }
    return list;
}

template <int side>
moveStruct* captureMoves(const positionStruct* pos, int ply, moveStruct* list) {
    bitboard enemy = pos->bitboards[side ^ 1];
    list = pawnCaptures<side, ALL_PROMOTIONS>(pos, list, enemy);
    list = enPassantCaptures<side>(pos, ply, list, ~0ULL);
    return pieceMoves<side, true>(pos, list, enemy);
}

template <int side>
moveStruct* quiescenceMoves(const positionStruct* pos, int ply, moveStruct* list) {
    typedef pawnShift<side> P;
    bitboard enemy = pos->bitboards[side ^ 1];
    list = pawnCaptures<side, QUEEN_PROMOTIONS>(pos, list, enemy);
    list = enPassantCaptures<side>(pos, ply, list, ~0ULL);
    list = pieceMoves<side, true>(pos, list, enemy);
    bitboard pushes = P::up(pos->bitboards[WHITE_PAWN + side]) & ~occupancy(pos) & P::lastRank;
    while (pushes) {
        int to = popLowestSquare(pushes);
        *list++ = makeMove4(to - P::upStep, to, KIND_PROMOTE_QUEEN, QUIET_PROMOTION_SCORE);
    }
    return list;
}

template <int side>
moveStruct* recaptureMoves(const positionStruct* pos, int ply, moveStruct* list) {
    if (ply == 0) return list;
    bitboard square = squareBit(pos->plyState[ply - 1].currentMove.to);
    bitboard target = square & pos->bitboards[side ^ 1];
    list = pawnCaptures<side, QUEEN_PROMOTIONS>(pos, list, target);
    list = enPassantCaptures<side>(pos, ply, list, square);
    return pieceMoves<side, true>(pos, list, target);
}

template <int side>
bool castlingPathSafe(const positionStruct* pos, bitboard between, int crossed) {
    return !(occupancy(pos) & between) && !isSquareAttacked(pos, crossed, side ^ 1, occupancy(pos));
}

template <int side>
moveStruct* quietMoves(const positionStruct* pos, int ply, moveStruct* list) {
    typedef pawnShift<side> P;
    bitboard empty = ~occupancy(pos);
    bitboard single = P::up(pos->bitboards[WHITE_PAWN + side]) & empty;
    bitboard doubles = P::up(single & P::doubleStepRank) & empty;
    bitboard promoting = single & P::lastRank;
    single &= ~P::lastRank;
    while (single) {
        int to = popLowestSquare(single);
        *list++ = makeMove4(to - P::upStep, to, KIND_NORMAL, 0);
    }
    while (doubles) {
        int to = popLowestSquare(doubles);
        *list++ = makeMove4(to - 2 * P::upStep, to, KIND_DOUBLE_STEP, 0);
    }
    while (promoting) {
        int to = popLowestSquare(promoting);
        int from = to - P::upStep;
        *list++ = makeMove4(from, to, KIND_PROMOTE_QUEEN, 0);
        *list++ = makeMove4(from, to, KIND_PROMOTE_ROOK, 0);
        *list++ = makeMove4(from, to, KIND_PROMOTE_BISHOP, 0);
        *list++ = makeMove4(from, to, KIND_PROMOTE_KNIGHT, 0);
    }
    list = pieceMoves<side, false>(pos, list, empty);

    uint8_t rights = pos->plyState[ply].castlingRights;
    if (rights && !pos->plyState[ply].inCheck) {
        const int king = side == WHITE ? 4 : 60;
        const uint8_t kingSide = side == WHITE ? CASTLE_WHITE_KING : CASTLE_BLACK_KING;
        const uint8_t queenSide = side == WHITE ? CASTLE_WHITE_QUEEN : CASTLE_BLACK_QUEEN;
        if ((rights & kingSide) && castlingPathSafe<side>(pos, 3ULL << (king + 1), king + 1))
            *list++ = makeMove4(king, king + 2, KIND_CASTLE_KING, 0);
        if ((rights & queenSide) && castlingPathSafe<side>(pos, 7ULL << (king - 3), king - 1))
            *list++ = makeMove4(king, king - 2, KIND_CASTLE_QUEEN, 0);
    }
    return list;
}

// Fixed evasion scores by mover type for capturing the checker and for blocking.
const uint8_t evadeCaptureScore[5] = {250, 236, 235, 234, 233};
const uint8_t evadeBlockScore[5] = {210, 206, 205, 204, 203};

// Enemy pieces giving check to the king on square king.
template <int side>
inline bitboard checkersOf(const positionStruct* pos, int king, bitboard occupied) {
    const bitboard* bb = pos->bitboards;
    const int enemy = side ^ 1;
    return (bishopAttacks(king, occupied) & (bb[WHITE_BISHOP + enemy] | bb[WHITE_QUEEN + enemy])) |
           (rookAttacks(king, occupied) & (bb[WHITE_ROOK + enemy] | bb[WHITE_QUEEN + enemy])) |
           (attackByPawnTable[side][king] & bb[WHITE_PAWN + enemy]) |
           (knightAttackTable[king] & bb[WHITE_KNIGHT + enemy]);
}

// King steps to safe squares, with the king taken off the board so sliders see through its old
// square. Taking the checker is ordered above taking another piece.
template <int side>
inline moveStruct* kingEvasions(const positionStruct* pos, moveStruct* list, int king, bitboard occupied,
                                bitboard checkers) {
    bitboard withoutKing = occupied ^ squareBit(king);
    bitboard steps = kingAttackTable[king] & ~pos->bitboards[side];
    while (steps) {
        int to = popLowestSquare(steps);
        if (isSquareAttacked(pos, to, side ^ 1, withoutKing)) continue;
        int victim = pos->board[to];
        int order = victim ? victim - ((checkers & squareBit(to)) ? 35 : 36) : 202;
        *list++ = makeMove4(king, to, KIND_NORMAL, order & 0xFF);
    }
    return list;
}

// One pawn move, or its four promotions (queen first) when it reaches the last rank.
template <int side>
inline moveStruct* pawnEvasion(moveStruct* list, int from, int to, int order) {
    if (squareBit(to) & pawnShift<side>::lastRank) {
        for (int kind = KIND_PROMOTE_QUEEN; kind >= KIND_PROMOTE_KNIGHT; kind -= 2)
            *list++ = makeMove4(from, to, kind, order);
    } else {
        *list++ = makeMove4(from, to, KIND_NORMAL, order);
    }
    return list;
}

// Captures of the checker by the pawns, west captures first.
template <int side>
inline moveStruct* pawnCapturesOfChecker(moveStruct* list, bitboard pawns, bitboard checkers) {
    typedef pawnShift<side> P;
    const int step[2] = {P::westStep, P::eastStep};
    bitboard captures[2] = {P::captureWest(pawns) & checkers, P::captureEast(pawns) & checkers};
    for (int d = 0; d < 2; d++) {
        while (captures[d]) {
            int to = popLowestSquare(captures[d]);
            list = pawnEvasion<side>(list, to - step[d], to, evadeCaptureScore[PAWN]);
        }
    }
    return list;
}

// Pawn pushes onto a blocking square: single steps, then double steps.
template <int side>
inline moveStruct* pawnBlocks(moveStruct* list, bitboard pawns, bitboard occupied, bitboard blocks) {
    typedef pawnShift<side> P;
    bitboard empty = ~occupied;
    bitboard single = P::up(pawns) & empty;
    bitboard doubles = P::up(single & P::doubleStepRank) & empty & blocks;
    single &= blocks;
    while (single) {
        int to = popLowestSquare(single);
        list = pawnEvasion<side>(list, to - P::upStep, to, evadeBlockScore[PAWN]);
    }
    while (doubles) {
        int to = popLowestSquare(doubles);
        *list++ = makeMove4(to - 2 * P::upStep, to, KIND_DOUBLE_STEP, evadeBlockScore[PAWN]);
    }
    return list;
}

// En passant of a checking pawn that has just double-stepped, unless taking both pawns off the
// rank exposes the king along a line.
template <int side>
inline moveStruct* enPassantEvasions(const positionStruct* pos, int ply, moveStruct* list, int king, int checker,
                                     bitboard pawns, bitboard occupied) {
    typedef pawnShift<side> P;
    const bitboard* bb = pos->bitboards;
    const int enemy = side ^ 1;
    int ep = pos->plyState[ply].enPassantSquare;
    if (ep != checker) return list;
    bitboard takers = enpassantTable[ep] & pawns;
    while (takers) {
        int from = popLowestSquare(takers);
        bitboard after = (occupied ^ squareBit(from) ^ squareBit(ep)) | squareBit(ep + P::upStep);
        if (rookAttacks(king, after) & (bb[WHITE_ROOK + enemy] | bb[WHITE_QUEEN + enemy])) continue;
        if (bishopAttacks(king, after) & (bb[WHITE_BISHOP + enemy] | bb[WHITE_QUEEN + enemy])) continue;
        *list++ = makeMove4(from, ep, KIND_ENPASSANT, evadeCaptureScore[PAWN]);
    }
    return list;
}

// Knights, bishops, rooks and queens that are not pinned, onto the checker or a blocking square.
template <int side>
inline moveStruct* pieceEvasions(const positionStruct* pos, moveStruct* list, bitboard occupied, bitboard checkers,
                                 bitboard blocks, bitboard notPinned) {
    bitboard targets = checkers | blocks;
    for (int piece = WHITE_KNIGHT + side; piece <= BLACK_QUEEN; piece += 2) {
        bitboard pieces = pos->bitboards[piece] & notPinned;
        int type = typeOf(piece);
        while (pieces) {
            int from = popLowestSquare(pieces);
            bitboard attacks = attacksOf(type, from, occupied) & targets;
            while (attacks) {
                int to = popLowestSquare(attacks);
                int order = (squareBit(to) & checkers) ? evadeCaptureScore[type] : evadeBlockScore[type];
                *list++ = makeMove4(from, to, KIND_NORMAL, order);
            }
        }
    }
    return list;
}

// The legal moves out of check: king steps; against a single checker also the captures of it
// and the blocks, by pawns (en passant included) and then by the other pieces.
template <int side>
moveStruct* evasionMoves(positionStruct* pos, int ply, moveStruct* list) {
    int king = lowestSquare(pos->bitboards[WHITE_KING + side]);
    bitboard occupied = occupancy(pos);
    bitboard checkers = checkersOf<side>(pos, king, occupied);
    list = kingEvasions<side>(pos, list, king, occupied, checkers);
    if (!checkers || moreThanOne(checkers)) return list;

    int checker = lowestSquare(checkers);
    bitboard blocks = inBetweenSquares[king][checker];
    bitboard notPinned = pos->plyState[ply].notPinned;
    bitboard pawns = pos->bitboards[WHITE_PAWN + side] & notPinned;
    list = pawnCapturesOfChecker<side>(list, pawns, checkers);
    list = pawnBlocks<side>(list, pawns, occupied, blocks);
    list = enPassantEvasions<side>(pos, ply, list, king, checker, pawns, occupied);
    return pieceEvasions<side>(pos, list, occupied, checkers, blocks, notPinned);
}

}  // namespace

bool isSquareAttacked(const positionStruct* pos, int square, int by, bitboard occupied) {
    const bitboard* bb = pos->bitboards;
    return (attackByPawnTable[by ^ 1][square] & bb[WHITE_PAWN + by]) ||
           (knightAttackTable[square] & bb[WHITE_KNIGHT + by]) || (kingAttackTable[square] & bb[WHITE_KING + by]) ||
           (bishopAttacks(square, occupied) & (bb[WHITE_BISHOP + by] | bb[WHITE_QUEEN + by])) ||
           (rookAttacks(square, occupied) & (bb[WHITE_ROOK + by] | bb[WHITE_QUEEN + by]));
}

bitboard computeNotPinned(const positionStruct* pos) {
    const bitboard* bb = pos->bitboards;
    int side = pos->sideToMove, enemy = side ^ 1;
    int king = lowestSquare(bb[WHITE_KING + side]);
    bitboard occupied = occupancy(pos);
    bitboard snipers = (bishopAttackAll[king] & (bb[WHITE_BISHOP + enemy] | bb[WHITE_QUEEN + enemy])) |
                       (rookAttackAll[king] & (bb[WHITE_ROOK + enemy] | bb[WHITE_QUEEN + enemy]));
    bitboard pinned = 0;
    while (snipers) {
        bitboard between = inBetweenSquares[king][popLowestSquare(snipers)] & occupied;
        if (between && !moreThanOne(between)) pinned |= between;
    }
    return ~(pinned & bb[side]);
}

void generateMovesEvade(int ply, moveStruct* list, positionStruct* pos) {
    moveStruct* end =
        pos->sideToMove == WHITE ? evasionMoves<WHITE>(pos, ply, list) : evasionMoves<BLACK>(pos, ply, list);
    finishList(ply, end, pos);
}

void generateMovesCaptures(int ply, moveStruct* list, positionStruct* pos) {
    pos->plyState[ply].notPinned = computeNotPinned(pos);
    if (pos->plyState[ply].inCheck) return generateMovesEvade(ply, list, pos);
    moveStruct* end =
        pos->sideToMove == WHITE ? captureMoves<WHITE>(pos, ply, list) : captureMoves<BLACK>(pos, ply, list);
    finishList(ply, end, pos);
}

void generateMovesQuiets(int ply, moveStruct* list, positionStruct* pos) {
    moveStruct* end = pos->sideToMove == WHITE ? quietMoves<WHITE>(pos, ply, list) : quietMoves<BLACK>(pos, ply, list);
    finishList(ply, end, pos);
}

void generateMovesQuiescence(int ply, moveStruct* list, positionStruct* pos) {
    pos->plyState[ply].notPinned = computeNotPinned(pos);
    if (pos->plyState[ply].inCheck) return generateMovesEvade(ply, list, pos);
    moveStruct* end =
        pos->sideToMove == WHITE ? quiescenceMoves<WHITE>(pos, ply, list) : quiescenceMoves<BLACK>(pos, ply, list);
    finishList(ply, end, pos);
}

void generateMovesRecapture(int ply, moveStruct* list, positionStruct* pos) {
    pos->plyState[ply].notPinned = computeNotPinned(pos);
    if (pos->plyState[ply].inCheck) return generateMovesEvade(ply, list, pos);
    moveStruct* end =
        pos->sideToMove == WHITE ? recaptureMoves<WHITE>(pos, ply, list) : recaptureMoves<BLACK>(pos, ply, list);
    finishList(ply, end, pos);
}
