// In-place move making and unmaking. Everything that cannot be recomputed cheaply is saved in
// the next ply's state entry; unmaking copies it back.
#pragma once

#include "engine/board/attacks.h"
#include "engine/board/position.h"
#include "engine/board/zobrist.h"
#include "engine/eval/evaluate.h"

// Castling rights that survive a move from or to each square.
extern const uint8_t castlingRightsKept[64];

// Moves one piece between two squares on the board, the bitboards and the key.
inline void shiftPiece(positionStruct* pos, int piece, int from, int to, uint64_t& key) {
    bitboard change = squareBit(from) | squareBit(to);
    pos->bitboards[piece] ^= change;
    pos->bitboards[piece & 1] ^= change;
    pos->board[from] = EMPTY;
    pos->board[to] = static_cast<uint8_t>(piece);
    key ^= hashCodePiece[piece][from] ^ hashCodePiece[piece][to];
}

// Makes move at ply: the state entry ply + 1 receives the saved state.
inline void makeMove(positionStruct* pos, int ply, moveStruct move) {
    plyStateStruct* cur = &pos->plyState[ply];
    plyStateStruct* next = cur + 1;
    const int from = move.from, to = move.to, kind = move.kind;
    const int side = pos->sideToMove, enemy = side ^ 1;
    const int piece = pos->board[from];
    const int captured = pos->board[to];

    next->material[0] = pos->material[0];
    next->material[1] = pos->material[1];
    next->pieceSquareSum[0] = pos->pieceSquareSum[0];
    next->pieceSquareSum[1] = pos->pieceSquareSum[1];
    next->phase = pos->phase;
    next->hashKey = pos->hashKey;
    next->pawnKingHashKey = pos->pawnKingHashKey;
    next->halfMoveClock = pos->halfMoveClock;
    next->capturedPiece = static_cast<uint8_t>(captured);
    next->movedPiece = static_cast<uint8_t>(piece);
    next->enPassantSquare = 0;

    uint64_t key = pos->hashKey ^ hashCodeBlackToMove;
    uint64_t pawnKingKey = pos->pawnKingHashKey;
    if (cur->enPassantSquare) key ^= hashCodeEnpassant[cur->enPassantSquare & 7];

    uint8_t rights = cur->castlingRights & castlingRightsKept[from] & castlingRightsKept[to];
    if (rights != cur->castlingRights) key ^= hashCodeCastling[cur->castlingRights] ^ hashCodeCastling[rights];
    next->castlingRights = rights;

    if (captured) {
        pos->material[enemy] -= pieceValue[typeOf(captured)];
        pos->pieceSquareSum[enemy] -= pieceSquareOf(captured, to);
        if (typeOf(captured) != PAWN)
            pos->phase -= pieceValuePhase[typeOf(captured)];
        else
            pawnKingKey ^= hashCodePiece[captured][to];
        pos->bitboards[captured] ^= squareBit(to);
        pos->bitboards[enemy] ^= squareBit(to);
        key ^= hashCodePiece[captured][to];
    }

    const int type = typeOf(piece);
    if (kind == KIND_NORMAL || kind == KIND_DOUBLE_STEP) {
        pos->pieceSquareSum[side] += pieceSquareOf(piece, to) - pieceSquareOf(piece, from);
        shiftPiece(pos, piece, from, to, key);
        if (type == PAWN || type == KING) pawnKingKey ^= hashCodePiece[piece][from] ^ hashCodePiece[piece][to];
        if (kind == KIND_DOUBLE_STEP) {
            next->enPassantSquare = static_cast<uint8_t>(to);
            key ^= hashCodeEnpassant[to & 7];
        }
    } else if (kind == KIND_ENPASSANT) {
        const int landing = to + (side == WHITE ? 8 : -8);
        pos->board[to] = EMPTY;
        pos->pieceSquareSum[side] += pieceSquareOf(piece, landing) - pieceSquareOf(piece, from);
        shiftPiece(pos, piece, from, landing, key);
        pawnKingKey ^= hashCodePiece[piece][from] ^ hashCodePiece[piece][landing];
    } else if (kind >= KIND_CASTLE_KING) {
        const int rookFrom = kind == KIND_CASTLE_KING ? from + 3 : from - 4;
        const int rookTo = kind == KIND_CASTLE_KING ? from + 1 : from - 1;
        const int rook = WHITE_ROOK + side;
        pos->pieceSquareSum[side] += pieceSquareOf(piece, to) - pieceSquareOf(piece, from) +
                                     pieceSquareOf(rook, rookTo) - pieceSquareOf(rook, rookFrom);
        shiftPiece(pos, piece, from, to, key);
        shiftPiece(pos, rook, rookFrom, rookTo, key);
        pawnKingKey ^= hashCodePiece[piece][from] ^ hashCodePiece[piece][to];
    } else {  // promotion
        const int promoted = kind + side;
        const int promotedType = typeOf(promoted);
        pos->material[side] += pieceValue[promotedType] - pieceValue[PAWN];
        pos->pieceSquareSum[side] += pieceSquareOf(promoted, to) - pieceSquareOf(piece, from);
        pos->phase += pieceValuePhase[promotedType];
        pos->bitboards[piece] ^= squareBit(from);
        pos->bitboards[promoted] ^= squareBit(to);
        pos->bitboards[side] ^= squareBit(from) | squareBit(to);
        pos->board[from] = EMPTY;
        pos->board[to] = static_cast<uint8_t>(promoted);
        key ^= hashCodePiece[piece][from] ^ hashCodePiece[promoted][to];
        pawnKingKey ^= hashCodePiece[piece][from];
    }

    pos->hashKey = key;
    pos->pawnKingHashKey = pawnKingKey;
    pos->hashHistory[pos->historyCount++] = key;
    pos->halfMoveClock = (captured || type == PAWN) ? 0 : pos->halfMoveClock + 1;
    pos->sideToMove = static_cast<uint8_t>(enemy);
}

// Takes back move made at ply.
inline void unmakeMove(positionStruct* pos, int ply, moveStruct move) {
    const plyStateStruct* next = &pos->plyState[ply + 1];
    const int from = move.from, to = move.to, kind = move.kind;
    const int side = pos->sideToMove ^ 1, enemy = side ^ 1;
    const int captured = next->capturedPiece;
    uint64_t unusedKey = 0;

    if (kind == KIND_NORMAL || kind == KIND_DOUBLE_STEP) {
        shiftPiece(pos, pos->board[to], to, from, unusedKey);
    } else if (kind == KIND_ENPASSANT) {
        shiftPiece(pos, pos->board[to + (side == WHITE ? 8 : -8)], to + (side == WHITE ? 8 : -8), from, unusedKey);
    } else if (kind >= KIND_CASTLE_KING) {
        const int rookFrom = kind == KIND_CASTLE_KING ? from + 3 : from - 4;
        const int rookTo = kind == KIND_CASTLE_KING ? from + 1 : from - 1;
        shiftPiece(pos, pos->board[to], to, from, unusedKey);
        shiftPiece(pos, WHITE_ROOK + side, rookTo, rookFrom, unusedKey);
    } else {
        const int pawn = WHITE_PAWN + side;
        pos->bitboards[kind + side] ^= squareBit(to);
        pos->bitboards[pawn] ^= squareBit(from);
        pos->bitboards[side] ^= squareBit(from) | squareBit(to);
        pos->board[to] = EMPTY;
        pos->board[from] = static_cast<uint8_t>(pawn);
    }
    if (captured) {
        pos->board[to] = static_cast<uint8_t>(captured);
        pos->bitboards[captured] ^= squareBit(to);
        pos->bitboards[enemy] ^= squareBit(to);
    }

    pos->sideToMove = static_cast<uint8_t>(side);
    pos->material[0] = next->material[0];
    pos->material[1] = next->material[1];
    pos->pieceSquareSum[0] = next->pieceSquareSum[0];
    pos->pieceSquareSum[1] = next->pieceSquareSum[1];
    pos->phase = next->phase;
    pos->hashKey = next->hashKey;
    pos->pawnKingHashKey = next->pawnKingHashKey;
    pos->halfMoveClock = next->halfMoveClock;
    pos->historyCount--;
}

// The key after a move, exact for ordinary moves and captures without a change of castling
// rights; used to prefetch the child's hash bucket before the move is made.
inline uint64_t keyAfterMove(const positionStruct* pos, int ply, moveStruct move) {
    int piece = pos->board[move.from];
    uint64_t key = pos->hashKey ^ hashCodeBlackToMove ^ hashCodePiece[piece][move.from] ^
                   hashCodePiece[piece][move.to] ^ hashCodePiece[pos->board[move.to]][move.to];
    int ep = pos->plyState[ply].enPassantSquare;
    if (ep) key ^= hashCodeEnpassant[ep & 7];
    return key;
}

// Whether the move just made gives check (the side now to move is in check).
inline bool givesCheck(const positionStruct* pos) { return isSideInCheck(pos, pos->sideToMove); }
