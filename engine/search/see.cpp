// Swap-list static exchange evaluation over the attack tables.
#include "engine/search/see.h"

#include "engine/board/attacks.h"
#include "engine/search/tables.h"

namespace {

bitboard attackersOf(const positionStruct* pos, int square, bitboard occupied) {
    const bitboard* bb = pos->bitboards;
    bitboard diagonal = bb[WHITE_BISHOP] | bb[BLACK_BISHOP] | bb[WHITE_QUEEN] | bb[BLACK_QUEEN];
    bitboard straight = bb[WHITE_ROOK] | bb[BLACK_ROOK] | bb[WHITE_QUEEN] | bb[BLACK_QUEEN];
    return ((attackByPawnTable[BLACK][square] & bb[WHITE_PAWN]) | (attackByPawnTable[WHITE][square] & bb[BLACK_PAWN]) |
            (knightAttackTable[square] & (bb[WHITE_KNIGHT] | bb[BLACK_KNIGHT])) |
            (kingAttackTable[square] & (bb[WHITE_KING] | bb[BLACK_KING])) |
            (bishopAttacks(square, occupied) & diagonal) | (rookAttacks(square, occupied) & straight)) &
           occupied;
}

}  // namespace

int staticExchange(const positionStruct* pos, moveStruct move) {
    const bitboard* bb = pos->bitboards;
    const int from = move.from, to = move.to;
    int gain[40];
    int depth = 0;
    bitboard occupied = occupancy(pos) ^ squareBit(from);
    int target = to;
    if (move.kind == KIND_ENPASSANT) {
        // The taken pawn leaves its square; the exchange goes on where the capturer lands.
        target = to + (pos->sideToMove == WHITE ? 8 : -8);
        occupied ^= squareBit(to);
    }
    gain[0] = seeValue[pos->board[to]];
    int onTarget = seeValue[pos->board[from]];  // value of the piece now standing on the target
    int side = pos->sideToMove ^ 1;
    bitboard attackers = attackersOf(pos, target, occupied);
    const bitboard diagonal = bb[WHITE_BISHOP] | bb[BLACK_BISHOP] | bb[WHITE_QUEEN] | bb[BLACK_QUEEN];
    const bitboard straight = bb[WHITE_ROOK] | bb[BLACK_ROOK] | bb[WHITE_QUEEN] | bb[BLACK_QUEEN];

    for (;;) {
        bitboard own = attackers & bb[side];
        if (!own) break;
        int piece = WHITE_PAWN + side;
        while (!(bb[piece] & own)) piece += 2;
        bitboard fromBit = bb[piece] & own;
        fromBit &= 0 - fromBit;
        // A king may only take last: with an enemy attacker left the capture is illegal.
        if (typeOf(piece) == KING && (attackers & bb[side ^ 1] & ~fromBit)) break;
        depth++;
        gain[depth] = onTarget - gain[depth - 1];
        onTarget = seeValue[piece];
        occupied ^= fromBit;
        // Sliders behind the piece just used join in.
        attackers |= (bishopAttacks(target, occupied) & diagonal) | (rookAttacks(target, occupied) & straight);
        attackers &= occupied;
        side ^= 1;
        if (depth >= 38) break;
    }
    while (depth > 0) {
        gain[depth - 1] = -(-gain[depth - 1] > gain[depth] ? -gain[depth - 1] : gain[depth]);
        depth--;
    }
    return gain[0];
}

bool exchangeAtLeast(const positionStruct* pos, moveStruct move, int threshold) {
    int captured = seeValue[pos->board[move.to]];
    if (captured - threshold - seeValue[pos->board[move.from]] >= 0) return true;
    if (captured - threshold < 0) return false;
    return staticExchange(pos, move) >= threshold;
}
