// Translation of positionStruct into the prober's record and of its results into scores and
// moves.
#include "engine/search/tablebase.h"

#include <cstdio>
#include <iostream>
#include <sstream>

#include "engine/search/engine.h"
#include "engine/search/tt.h"
#include "engine/util/output.h"
#include "fathom/tbprobe.h"

int tablebaseLargest = 0;

void tablebaseInit(const std::string& path) {
    tb_init(path.c_str());
    tablebaseLargest = TB_LARGEST;
}

void tablebaseFree() {
    tb_free();
    tablebaseLargest = 0;
}

namespace {

pos toProberPosition(const positionStruct* p, uint8_t rule50) {
    const bitboard* bb = p->bitboards;
    pos record;
    record.white = bb[WHITE];
    record.black = bb[BLACK];
    record.kings = bb[WHITE_KING] | bb[BLACK_KING];
    record.queens = bb[WHITE_QUEEN] | bb[BLACK_QUEEN];
    record.rooks = bb[WHITE_ROOK] | bb[BLACK_ROOK];
    record.bishops = bb[WHITE_BISHOP] | bb[BLACK_BISHOP];
    record.knights = bb[WHITE_KNIGHT] | bb[BLACK_KNIGHT];
    record.pawns = bb[WHITE_PAWN] | bb[BLACK_PAWN];
    record.rule50 = rule50;
    // The engine keeps the double-stepped pawn's square, the prober the square behind it.
    int ep = p->plyState[0].enPassantSquare;
    record.ep = ep ? static_cast<uint8_t>(p->sideToMove == BLACK ? ep - 8 : ep + 8) : 0;
    record.turn = p->sideToMove == WHITE;
    record.move = 0;
    return record;
}

}  // namespace

int syzygyProbeWDL(int ply, const positionStruct* p) {
    pos record = toProberPosition(p, 0);
    int ep = p->plyState[ply].enPassantSquare;
    record.ep = ep ? static_cast<uint8_t>(p->sideToMove == BLACK ? ep - 8 : ep + 8) : 0;
    int success = 0;
    int wdl = probe_wdl(&record, &success);
    return success ? wdl + 2 : -1;
}

moveStruct syzygyProbeDTZ(const positionStruct* p, const std::vector<moveStruct>& allowed) {
    uint8_t rule50 = static_cast<uint8_t>(p->halfMoveClock > 255 ? 255 : p->halfMoveClock);
    pos record = toProberPosition(p, rule50);
    const bitboard* bb = p->bitboards;
    if (popCount(bb[WHITE_KING]) != 1 || popCount(bb[BLACK_KING]) != 1) return EMPTYMOVE;
    if ((record.white & record.black) || (record.kings | record.queens | record.rooks | record.bishops |
                                          record.knights | record.pawns) != (record.white | record.black))
        return EMPTYMOVE;
    if (!is_legal(&record)) return EMPTYMOVE;

    int dtz = 0;
    unsigned result = probe_root(&record, &dtz);
    if (result == 0 || result == TB_RESULT_CHECKMATE_OR_STALEMATE || result == TB_RESULT_FAILED_ROOT) return EMPTYMOVE;

    int r = p->halfMoveClock;
    int wdlClass = dtz > 0 ? (r + dtz < 101 ? 4 : 3) : dtz == 0 ? 2 : (r - dtz > 100 ? 1 : 0);

    moveStruct move;
    move.from = static_cast<uint8_t>(tbResultFrom(result));
    move.to = static_cast<uint8_t>(tbResultTo(result));
    move.kind = KIND_NORMAL;
    move.order = p->board[move.from];
    static const uint8_t promotionKinds[5] = {KIND_NORMAL, KIND_PROMOTE_QUEEN, KIND_PROMOTE_ROOK, KIND_PROMOTE_BISHOP,
                                              KIND_PROMOTE_KNIGHT};
    unsigned promotes = tbResultPromotes(result);
    if (promotes >= 1 && promotes <= 4) move.kind = promotionKinds[promotes];
    int piece = p->board[move.from];
    if (tbResultEp(result)) {
        move.kind = KIND_ENPASSANT;
        move.to = static_cast<uint8_t>(p->sideToMove == WHITE ? move.to - 8 : move.to + 8);
    } else if (typeOf(piece) == PAWN && (move.to - move.from == 16 || move.from - move.to == 16)) {
        move.kind = KIND_DOUBLE_STEP;
    }

    if (!isSearchMoveAllowed(allowed, move)) return EMPTYMOVE;

    int absDtz = dtz < 0 ? -dtz : dtz;
    int score = wdlClass == 4 ? TB_WIN_SCORE - absDtz : wdlClass == 0 ? absDtz - TB_WIN_SCORE : 0;
    say("info score cp ", score, " depth 127 seldepth 127 nodes 1 tbhits 1 time 1 pv ", moveToLA(&move, p->sideToMove));
    return move;
}
