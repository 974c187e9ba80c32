// The four-byte move record and its long algebraic text.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>

// Move kinds (third byte of moveStruct).
enum moveKind : uint8_t {
    KIND_NORMAL = 0,
    KIND_PROMOTE_KNIGHT = 4,  // promotions carry the white code of the new piece;
    KIND_PROMOTE_BISHOP = 6,  // the mover's colour is added when the move is made
    KIND_PROMOTE_ROOK = 8,
    KIND_PROMOTE_QUEEN = 10,
    KIND_ENPASSANT = 12,  // `to` is the square of the pawn taken, not the landing square
    KIND_DOUBLE_STEP = 13,
    KIND_CASTLE_KING = 14,  // `to` is the king's target square
    KIND_CASTLE_QUEEN = 15,
};

// Byte 0 from square, byte 1 to square, byte 2 kind, byte 3 ordering key. Two moves with equal
// first three bytes are the same move. In the hash table, killers and counter moves the fourth
// byte holds the moving piece's code instead of an ordering key.
struct moveStruct {
    uint8_t from;
    uint8_t to;
    uint8_t kind;
    uint8_t order;
};

constexpr moveStruct EMPTYMOVE = {0, 0, 0, 0};

inline uint32_t moveWord(moveStruct m) {
    uint32_t w;
    std::memcpy(&w, &m, 4);
    return w;
}

inline moveStruct wordMove(uint32_t w) {
    moveStruct m;
    std::memcpy(&m, &w, 4);
    return m;
}

// Same from, to and kind (the ordering byte is not part of a move's identity).
inline bool sameMove(moveStruct a, moveStruct b) { return ((moveWord(a) ^ moveWord(b)) & 0xFFFFFFu) == 0; }
inline bool isEmptyMove(moveStruct m) { return (moveWord(m) & 0xFFFFFFu) == 0; }
inline bool isPromotion(uint8_t kind) { return kind >= KIND_PROMOTE_KNIGHT && kind <= KIND_PROMOTE_QUEEN; }

// Index of a promotion letter times two is the promotion kind ("n" 4 .. "q" 10).
extern const char* const promotionPieces;
// Lowercase promotion letter by kind (or by any piece code).
extern const char* const promotionLabels;

struct positionStruct;

// Long algebraic text of a move made by side (0 white, 1 black); side matters for en passant.
std::string moveToLA(moveStruct* move, unsigned char side);
// The principal variation held in the position's ply entries, each move followed by a blank.
std::string PVToString(positionStruct* pos);
// Reads a move in long algebraic text against the position, deciding its kind from the board.
// Returns false when the text is not a well-formed move text.
bool moveFromText(const std::string& text, const positionStruct* pos, moveStruct* move);
