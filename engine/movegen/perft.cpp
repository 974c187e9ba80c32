// Perft and the move-generator self-check against a file of known counts.
#include "engine/movegen/perft.h"

#include "engine/board/attacks.h"

#include <chrono>
#include <fstream>
#include <iostream>
#include <memory>
#include <vector>

#include "engine/movegen/legal.h"
#include "engine/movegen/makemove.h"
#include "engine/movegen/staged.h"
#include "engine/search/tt.h"

#ifndef VORIX_PERFT_FILE
#define VORIX_PERFT_FILE "perft.txt"
#endif

namespace {

// Number of legal moves when the side to move is not in check, counted from attack sets
// without writing the moves: only pinned pieces, king steps, castling and en passant are
// tested one by one. Equal to the number of generated moves that pass the legality filter.
template <int side>
uint64_t countLegalNotInCheck(int ply, positionStruct* pos) {
    const bitboard* bb = pos->bitboards;
    const int enemy = side ^ 1;
    const bitboard own = bb[side];
    const bitboard occupied = own | bb[enemy];
    const bitboard empty = ~occupied;
    const bitboard notPinned = computeNotPinned(pos);
    pos->plyState[ply].notPinned = notPinned;
    const int king = lowestSquare(bb[WHITE_KING + side]);
    uint64_t count = 0;

    // Pawns that are not pinned: pushes, double steps, captures; four moves per promotion.
    const bitboard lastRank = side == WHITE ? RANK_8 : RANK_1;
    bitboard pawns = bb[WHITE_PAWN + side] & notPinned;
    bitboard single = (side == WHITE ? pawns << 8 : pawns >> 8) & empty;
    bitboard doubles = (side == WHITE ? (single & RANK_3) << 8 : (single & RANK_6) >> 8) & empty;
    bitboard west = (side == WHITE ? (pawns & ~FILE_A) << 7 : (pawns & ~FILE_A) >> 9) & bb[enemy];
    bitboard east = (side == WHITE ? (pawns & ~FILE_H) << 9 : (pawns & ~FILE_H) >> 7) & bb[enemy];
    count += popCount(single & ~lastRank) + popCount(doubles) + popCount(west & ~lastRank) + popCount(east & ~lastRank);
    count +=
        4 * static_cast<uint64_t>(popCount(single & lastRank) + popCount(west & lastRank) + popCount(east & lastRank));

    // Knights, bishops, rooks, queens that are not pinned.
    bitboard knights = bb[WHITE_KNIGHT + side] & notPinned;
    while (knights) count += popCount(knightAttackTable[popLowestSquare(knights)] & ~own);
    bitboard diagonal = (bb[WHITE_BISHOP + side] | bb[WHITE_QUEEN + side]) & notPinned;
    while (diagonal) count += popCount(bishopAttacks(popLowestSquare(diagonal), occupied) & ~own);
    bitboard straight = (bb[WHITE_ROOK + side] | bb[WHITE_QUEEN + side]) & notPinned;
    while (straight) count += popCount(rookAttacks(popLowestSquare(straight), occupied) & ~own);

    // King steps.
    bitboard steps = kingAttackTable[king] & ~own;
    bitboard withoutKing = occupied ^ squareBit(king);
    while (steps) count += !isSquareAttacked(pos, popLowestSquare(steps), enemy, withoutKing);

    // Pinned pieces: each of their moves is tested.
    bitboard pinned = own & ~notPinned & ~squareBit(king);
    while (pinned) {
        int from = popLowestSquare(pinned);
        int piece = pos->board[from];
        bitboard targets;
        if (typeOf(piece) == PAWN) {
            int up = side == WHITE ? 8 : -8;
            targets = attackByPawnTable[side][from] & bb[enemy];
            if (!(occupied & squareBit(from + up))) {
                targets |= squareBit(from + up);
                bool startRank = (from >> 3) == (side == WHITE ? 1 : 6);
                if (startRank && !(occupied & squareBit(from + 2 * up))) targets |= squareBit(from + 2 * up);
            }
        } else {
            switch (typeOf(piece)) {
                case KNIGHT: targets = knightAttackTable[from]; break;
                case BISHOP: targets = bishopAttacks(from, occupied); break;
                case ROOK: targets = rookAttacks(from, occupied); break;
                default: targets = queenAttacks(from, occupied); break;
            }
            targets &= ~own;
        }
        while (targets) {
            int to = popLowestSquare(targets);
            moveStruct m = {static_cast<uint8_t>(from), static_cast<uint8_t>(to), KIND_NORMAL, 0};
            if (isLegalNotInCheck(pos, ply, m)) count += (typeOf(piece) == PAWN && (squareBit(to) & lastRank)) ? 4 : 1;
        }
    }

    // Castling: path empty, crossed and target squares not attacked (not in check here).
    uint8_t rights = pos->plyState[ply].castlingRights;
    const int home = side == WHITE ? 4 : 60;
    if ((rights & (side == WHITE ? CASTLE_WHITE_KING : CASTLE_BLACK_KING)) && !(occupied & (3ULL << (home + 1))) &&
        !isSquareAttacked(pos, home + 1, enemy, occupied) && !isSquareAttacked(pos, home + 2, enemy, withoutKing))
        count++;
    if ((rights & (side == WHITE ? CASTLE_WHITE_QUEEN : CASTLE_BLACK_QUEEN)) && !(occupied & (7ULL << (home - 3))) &&
        !isSquareAttacked(pos, home - 1, enemy, occupied) && !isSquareAttacked(pos, home - 2, enemy, withoutKing))
        count++;

    // En passant, including the pin along the rank the two pawns leave.
    int ep = pos->plyState[ply].enPassantSquare;
    if (ep) {
        bitboard takers = enpassantTable[ep] & bb[WHITE_PAWN + side];
        while (takers) {
            moveStruct m = {static_cast<uint8_t>(popLowestSquare(takers)), static_cast<uint8_t>(ep), KIND_ENPASSANT, 0};
            count += isLegalNotInCheck(pos, ply, m);
        }
    }
    return count;
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

namespace {

// Move lists for a perft of the deepest allowed depth.
std::vector<moveStruct> perftMoveBuffer() { return std::vector<moveStruct>(MAX_PERFT_DEPTH * MAX_MOVES_PER_PLY); }

}  // namespace

bool testFenPosition(int depth, const std::string& fen) {
    if (depth > MAX_PERFT_DEPTH) {
        std::cout << "info string perft depth " << depth << " is too deep; at most " << MAX_PERFT_DEPTH << std::endl;
        return false;
    }
    std::unique_ptr<positionStruct> pos(new positionStruct(GPSData));
    if (fen != "current") setPosition(fen, pos.get());
    std::vector<moveStruct> buffer = perftMoveBuffer();
    pos->plyState[0].moveList = buffer.data();
    std::cout << boardToString(pos.get());
    auto start = std::chrono::system_clock::now();
    uint64_t nodes = perft(0, depth, pos.get());
    auto stop = std::chrono::system_clock::now();
    int64_t ns = std::chrono::duration_cast<std::chrono::nanoseconds>(stop - start).count();
    double seconds = ns / 1e9;
    std::cout << ns << " ns and " << seconds << " in seconds" << std::endl;
    std::cout << "Perft results for depth: " << depth << "  " << nodes << "  Nodes per sec: " << nodes / seconds
              << "\n";
    return true;
}

bool checkMoveGenWithPerft() { return checkMoveGenWithPerft(VORIX_PERFT_FILE); }

bool checkMoveGenWithPerft(const std::string& path) {
    std::ifstream file(path);
    if (!file) {
        std::cout << "There seems to be a problem with the perftFile. check of the move generator not executed\n";
        return false;
    }
    std::unique_ptr<positionStruct> pos(new positionStruct());
    std::vector<moveStruct> buffer = perftMoveBuffer();
    pos->plyState[0].moveList = buffer.data();
    bool ok = true;
    std::string line;
    while (std::getline(file, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        // "extended" or "full" ends the part of the file that is run, deliberately.
        if (line == "extended" || line == "full") break;
        size_t first = line.find(';');
        size_t second = line.find(';', first == std::string::npos ? first : first + 1);
        if (first == std::string::npos || second == std::string::npos) continue;
        std::string fen = line.substr(0, first);
        int depth = std::stoi(line.substr(first + 1, second - first - 1));
        uint64_t expected = std::stoull(line.substr(second + 1));
        std::string reason;
        uint64_t nodes = 0;
        auto start = std::chrono::system_clock::now();
        if (depth <= MAX_PERFT_DEPTH && validateFen(fen, &reason)) {
            setPosition(fen, pos.get());
            nodes = perft(0, depth, pos.get());
        }
        auto stop = std::chrono::system_clock::now();
        int64_t ns = std::chrono::duration_cast<std::chrono::nanoseconds>(stop - start).count();
        bool match = nodes == expected;
        ok = ok && match;
        std::cout << (match ? 1 : 0) << "; " << fen << "; " << depth << "; " << expected << "; " << nodes << "; " << ns
                  << "\n";
        allocateHashBuckets(2097152);  // the self-check leaves a 128 MB table behind, deliberately
    }
    std::cout << "Results of the perft checks is OK: " << (ok ? 1 : 0) << "\n";
    return ok;
}
