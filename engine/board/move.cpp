// Move text: long algebraic notation out of and into moveStruct.
#include "engine/board/move.h"

#include "engine/board/position.h"

const char* const promotionPieces = " pnbrqk";
const char* const promotionLabels = "  ppnnbbrrqq";

namespace {

void appendSquare(std::string& text, int square) {
    text += static_cast<char>('a' + (square & 7));
    text += static_cast<char>('1' + (square >> 3));
}

}  // namespace

std::string moveToLA(moveStruct* move, unsigned char side) {
    std::string text;
    text.reserve(5);
    appendSquare(text, move->from);
    if (move->kind == KIND_ENPASSANT) {
        // `to` holds the taken pawn; the capturing pawn lands one rank beyond it.
        appendSquare(text, move->to - 16 * side + 8);
    } else {
        appendSquare(text, move->to);
        if (move->kind >= 1 && move->kind <= 11) text += promotionLabels[move->kind];
    }
    return text;
}

std::string PVToString(positionStruct* pos) {
    std::string text;
    unsigned char side = pos->sideToMove;
    for (int i = 0; i < pos->pvLength; i++) {
        text += moveToLA(&pos->pv[i], side);
        text += ' ';
        side ^= 1;
    }
    return text;
}

bool moveFromText(const std::string& text, const positionStruct* pos, moveStruct* move) {
    if (text.size() < 4 || text.size() > 5) return false;
    if (text[0] < 'a' || text[0] > 'h' || text[2] < 'a' || text[2] > 'h') return false;
    if (text[1] < '1' || text[1] > '8' || text[3] < '1' || text[3] > '8') return false;
    int from = (text[0] - 'a') + 8 * (text[1] - '1');
    int to = (text[2] - 'a') + 8 * (text[3] - '1');
    uint8_t kind = KIND_NORMAL;
    int piece = pos->board[from];
    if (text.size() == 5) {
        const char* letter = std::strchr(promotionPieces, text[4]);
        if (text[4] == '\0' || letter == nullptr) return false;
        kind = static_cast<uint8_t>((letter - promotionPieces) * 2);
        if (!isPromotion(kind)) return false;
        // A promotion letter belongs to a pawn reaching the last rank and to nothing else.
        const bool pawnToLastRank = (piece == WHITE_PAWN && (to >> 3) == 7) || (piece == BLACK_PAWN && (to >> 3) == 0);
        if (!pawnToLastRank) return false;
    } else if (piece == WHITE_KING || piece == BLACK_KING) {
        if (text == "e1g1" || text == "e8g8") kind = KIND_CASTLE_KING;
        if (text == "e1c1" || text == "e8c8") kind = KIND_CASTLE_QUEEN;
    } else if (piece == WHITE_PAWN || piece == BLACK_PAWN) {
        if ((from & 7) != (to & 7) && pos->board[to] == 0) {
            kind = KIND_ENPASSANT;
            to += piece == WHITE_PAWN ? -8 : 8;  // the taken pawn stands behind the target
        } else if (to - from == 16 || from - to == 16) {
            kind = KIND_DOUBLE_STEP;
        }
    }
    move->from = static_cast<uint8_t>(from);
    move->to = static_cast<uint8_t>(to);
    move->kind = kind;
    move->order = 0;
    return true;
}
