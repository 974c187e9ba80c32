// Position set-up from FEN, the board text, and the from-scratch check test.
#include "engine/board/position.h"

#include <cstring>
#include <string_view>

#include "engine/board/attacks.h"
#include "engine/board/zobrist.h"

positionStruct GPSData;
moveStruct GMS[GMS_BYTES / sizeof(moveStruct)];
const char* const fenStartPos = "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1";
const char* const fenLabelPieces = "  PpNnBbRrQqKk";

namespace {

constexpr int MAX_GAME_PLY = 512;
static_assert(MAX_GAME_PLY + 1 + MAX_PLY < HASH_HISTORY_SIZE, "no room for the search's keys behind a FEN's ply");
// Bit c set for the piece codes c that enter the pawn-king key (pawns 2, 3 and kings 12, 13).
constexpr uint64_t PAWN_KING_CODES = 0x300C;

// The first six fields of a FEN as views into its text. Splits at single blanks (runs of
// blanks give empty fields) and fills the missing trailing fields: castling "-", en passant
// "-", clock "0", move number "1". count is the number of fields after filling; fields beyond
// the sixth are counted but not kept.
struct fenFieldsStruct {
    std::string_view field[6];
    size_t count = 0;
};

fenFieldsStruct fenFields(std::string_view fen) {
    fenFieldsStruct fields;
    auto add = [&fields](std::string_view text) {
        if (fields.count < 6) fields.field[fields.count] = text;
        fields.count++;
    };
    size_t start = 0;
    for (size_t i = 0; i < fen.size(); i++) {
        if (fen[i] == ' ') {
            add(fen.substr(start, i - start));
            start = i + 1;
        }
    }
    // The text behind the last blank, or the one empty field of an empty text.
    if (start < fen.size() || fen.empty()) add(fen.substr(start));
    if (fields.count == 2) add("-");
    if (fields.count == 3) add("-");
    if (fields.count == 4) add("0");
    if (fields.count == 5) add("1");
    return fields;
}

// What a placement character does: the piece code it puts down (0 for none) and how far it
// moves the square: a digit its value, "/" back 16, anything else (a letter or not) one on.
struct fenCharTableStruct {
    uint8_t code[256] = {};
    int8_t step[256] = {};
    constexpr fenCharTableStruct() {
        for (int c = 0; c < 256; c++) step[c] = 1;
        for (int d = 1; d <= 8; d++) step['0' + d] = static_cast<int8_t>(d);
        step[static_cast<uint8_t>('/')] = -16;
        const char letters[] = "PpNnBbRrQqKk";
        for (int i = 0; i < 12; i++) code[static_cast<uint8_t>(letters[i])] = static_cast<uint8_t>(i + 2);
    }
};
constexpr fenCharTableStruct fenCharTable;

// std::stoi of a field without building a string when it is a plain run of up to nine digits
// (always in range); any other text goes through std::stoi itself, with its signs, leading
// white space, trailing junk and exceptions.
int fieldToInt(std::string_view field) {
    if (field.empty() || field.size() > 9) return std::stoi(std::string(field));
    int value = 0;
    for (char c : field) {
        if (c < '0' || c > '9') return std::stoi(std::string(field));
        value = value * 10 + (c - '0');
    }
    return value;
}

int pieceCodeOf(char c) { return fenCharTable.code[static_cast<uint8_t>(c)]; }

// Castling rights whose king and rook are not on their home squares cannot be used.
uint8_t usableCastlingRights(const positionStruct* pos, uint8_t rights) {
    if (pos->board[4] != WHITE_KING) rights &= ~(CASTLE_WHITE_KING | CASTLE_WHITE_QUEEN);
    if (pos->board[60] != BLACK_KING) rights &= ~(CASTLE_BLACK_KING | CASTLE_BLACK_QUEEN);
    if (pos->board[7] != WHITE_ROOK) rights &= ~CASTLE_WHITE_KING;
    if (pos->board[0] != WHITE_ROOK) rights &= ~CASTLE_WHITE_QUEEN;
    if (pos->board[63] != BLACK_ROOK) rights &= ~CASTLE_BLACK_KING;
    if (pos->board[56] != BLACK_ROOK) rights &= ~CASTLE_BLACK_QUEEN;
    return rights;
}

// The stored square of the double-stepped pawn, or 0 when the field names no such pawn.
uint8_t enPassantFromField(const positionStruct* pos, std::string_view field) {
    if (field.size() < 2 || field[0] < 'a' || field[0] > 'h') return 0;
    int file = field[0] - 'a';
    int square = pos->sideToMove == BLACK ? file + 8 * (field[1] - '0') : file + 8 * (field[1] - '2');
    int expectedRank = pos->sideToMove == BLACK ? 3 : 4;
    if (square < 0 || square > 63 || (square >> 3) != expectedRank) return 0;
    int pawn = pos->sideToMove == BLACK ? WHITE_PAWN : BLACK_PAWN;
    int behind = pos->sideToMove == BLACK ? square - 8 : square + 8;
    int origin = pos->sideToMove == BLACK ? square - 16 : square + 16;
    if (pos->board[square] != pawn || pos->board[behind] != EMPTY || pos->board[origin] != EMPTY) return 0;
    return static_cast<uint8_t>(square);
}

}  // namespace

bool hasOnePiecePerSquare(const positionStruct* pos) {
    int pieces = 0;
    for (int code = WHITE_PAWN; code <= BLACK_KING; code++) pieces += popCount(pos->bitboards[code]);
    return pieces == popCount(occupancy(pos));
}

bool isSideInCheck(const positionStruct* pos, int side) {
    bitboard kings = pos->bitboards[WHITE_KING + side];
    if (!kings) return false;
    int king = lowestSquare(kings);
    int enemy = side ^ 1;
    bitboard occupied = occupancy(pos);
    const bitboard* bb = pos->bitboards;
    if (bishopAttacks(king, occupied) & (bb[WHITE_BISHOP + enemy] | bb[WHITE_QUEEN + enemy])) return true;
    if (rookAttacks(king, occupied) & (bb[WHITE_ROOK + enemy] | bb[WHITE_QUEEN + enemy])) return true;
    if (attackByPawnTable[side][king] & bb[WHITE_PAWN + enemy]) return true;
    if (knightAttackTable[king] & bb[WHITE_KNIGHT + enemy]) return true;
    return (kingAttackTable[king] & bb[WHITE_KING + enemy]) != 0;
}

void setPosition(std::string fen, positionStruct* pos) { setPositionView(fen, pos); }

void setPositionView(std::string_view fen, positionStruct* pos) {
    fenFieldsStruct split = fenFields(fen);
    // Only a lone placement field is still short here. Deliberately filled with "-" as clock
    // too, so that such a FEN throws from std::stoi like any other malformed clock.
    if (split.count == 1) {
        split.field[1] = "w";
        for (int i = 2; i < 6; i++) split.field[i] = "-";
        split.count = 6;
    }
    const std::string_view* fields = split.field;

    // Placement from a8. Unknown letters count as one empty square; squares that fall off the
    // board are not written. Written without branches on the character (they mispredict on
    // every other square): a character that places nothing writes into the spare entries
    // board[64] and bitboards[14] instead. The colour sets are the unions of the piece sets.
    uint8_t board[65] = {};
    bitboard bitboards[15] = {};
    int square = 56;
    for (char c : fields[0]) {
        uint8_t index = static_cast<uint8_t>(c);
        int code = fenCharTable.code[index];
        // All ones when the character puts a piece on the board, else 0; the slots below are
        // picked with it by masking, which compilers do not turn back into a branch.
        int places = -static_cast<int>((code != EMPTY) & (static_cast<unsigned>(square) < 64));
        board[64 + ((square - 64) & places)] = static_cast<uint8_t>(code);
        bitboards[14 + ((code - 14) & places)] |= squareBit(square & 63);
        square += fenCharTable.step[index];
    }
    for (int code = WHITE_PAWN; code <= BLACK_KING; code++) bitboards[code & 1] |= bitboards[code];
    std::memcpy(pos->board, board, sizeof(pos->board));
    std::memcpy(pos->bitboards, bitboards, sizeof(pos->bitboards));

    pos->sideToMove = (!fields[1].empty() && fields[1][0] == 'w') ? WHITE : BLACK;

    uint8_t rights = 0;
    for (char c : fields[2]) {
        if (c == 'K') rights |= CASTLE_WHITE_KING;
        if (c == 'Q') rights |= CASTLE_WHITE_QUEEN;
        if (c == 'k') rights |= CASTLE_BLACK_KING;
        if (c == 'q') rights |= CASTLE_BLACK_QUEEN;
    }
    rights = usableCastlingRights(pos, rights);
    uint8_t enPassant = fields[3] == "-" ? 0 : enPassantFromField(pos, fields[3]);

    int clock = fieldToInt(fields[4]);
    int moveNumber = fieldToInt(fields[5]);
    pos->halfMoveClock = static_cast<uint16_t>(clock < 0 ? 0 : (clock > 65535 ? 65535 : clock));
    int64_t ply = pos->sideToMove + 2 * (static_cast<int64_t>(moveNumber) - 1);  // long is 32 bits on armhf
    if (ply < 0) ply = 0;
    if (ply > MAX_GAME_PLY) ply = MAX_GAME_PLY;
    pos->historyCount = static_cast<uint16_t>(ply + 1);

    pos->hashKey = hashCodeCastling[rights];
    pos->pawnKingHashKey = 0;
    if (hasOnePiecePerSquare(pos)) {
        // One pass over the occupied squares, each piece read from the board: a single loop
        // exit to predict instead of twelve.
        bitboard occupied = occupancy(pos);
        while (occupied) {
            int sq = popLowestSquare(occupied);
            int code = pos->board[sq];
            uint64_t key = hashCodePiece[code][sq];
            pos->hashKey ^= key;
            pos->pawnKingHashKey ^= key & -((PAWN_KING_CODES >> code) & 1);
        }
    } else {
        for (int code = WHITE_PAWN; code <= BLACK_KING; code++) {
            bitboard pieces = pos->bitboards[code];
            while (pieces) {
                int sq = popLowestSquare(pieces);
                pos->hashKey ^= hashCodePiece[code][sq];
                if (typeOf(code) == PAWN || typeOf(code) == KING) pos->pawnKingHashKey ^= hashCodePiece[code][sq];
            }
        }
    }
    if (enPassant) pos->hashKey ^= hashCodeEnpassant[enPassant & 7];
    if (pos->sideToMove == BLACK) pos->hashKey ^= hashCodeBlackToMove;
    // Keys of an earlier game must not be mistaken for repetitions of this one.
    std::memset(pos->hashHistory, 0, sizeof(pos->hashHistory));
    pos->hashHistory[ply] = pos->hashKey;

    plyStateStruct& entry = pos->plyState[0];
    entry.castlingRights = rights;
    entry.enPassantSquare = enPassant;
    entry.capturedPiece = 0;
    entry.movedPiece = 0;
    entry.currentMove = EMPTYMOVE;
    entry.inCheck = isSideInCheck(pos, pos->sideToMove) ? 1 : 0;
}

bool validateFen(const std::string& fen, std::string* reason) {
    fenFieldsStruct split = fenFields(fen);
    const std::string_view* fields = split.field;
    if (split.count < 2 || fields[0].empty()) {
        *reason = "a FEN needs at least the placement and the side to move";
        return false;
    }
    int ranks = 1, squaresInRank = 0;
    int kings[2] = {0, 0}, counts[2] = {0, 0}, pawns[2] = {0, 0};
    int extra[2] = {0, 0};  // pieces beyond the initial set, each one needs a promoted pawn
    int typeCount[2][6] = {};
    for (size_t i = 0; i < fields[0].size(); i++) {
        char c = fields[0][i];
        if (c == '/') {
            if (squaresInRank != 8) break;
            ranks++;
            squaresInRank = 0;
            continue;
        }
        if (c >= '1' && c <= '8') {
            squaresInRank += c - '0';
        } else {
            int code = pieceCodeOf(c);
            if (code >= WHITE_PAWN) {
                int side = code & 1, type = typeOf(code);
                typeCount[side][type]++;
                counts[side]++;
                if (type == KING) kings[side]++;
                if (type == PAWN) {
                    pawns[side]++;
                    if (ranks == 1 || ranks == 8) {
                        *reason = "a pawn stands on the first or last rank";
                        return false;
                    }
                }
            }
            squaresInRank++;
        }
        if (squaresInRank > 8) break;
    }
    if (ranks != 8 || squaresInRank != 8) {
        *reason = "the placement must have 8 ranks of 8 squares";
        return false;
    }
    for (int side = 0; side < 2; side++) {
        const char* name = side == 0 ? "white" : "black";
        if (kings[side] != 1) {
            *reason = std::string(name) + " must have exactly one king";
            return false;
        }
        extra[side] = (typeCount[side][QUEEN] > 1 ? typeCount[side][QUEEN] - 1 : 0) +
                      (typeCount[side][ROOK] > 2 ? typeCount[side][ROOK] - 2 : 0) +
                      (typeCount[side][BISHOP] > 2 ? typeCount[side][BISHOP] - 2 : 0) +
                      (typeCount[side][KNIGHT] > 2 ? typeCount[side][KNIGHT] - 2 : 0);
        if (counts[side] > 16 || pawns[side] + extra[side] > 8) {
            *reason = std::string(name) + " has more pieces than a game can produce";
            return false;
        }
    }
    for (int f = 4; f <= 5 && f < static_cast<int>(split.count); f++) {
        std::string_view text = fields[f];
        bool digits = !text.empty() && text.size() <= 9;
        for (char c : text) digits = digits && c >= '0' && c <= '9';
        if (!digits) {
            *reason = std::string(f == 4 ? "the half-move clock" : "the move number") +
                      " is not a number: " + std::string(text);
            return false;
        }
    }
    if (fields[3] != "-") {
        std::string_view ep = fields[3];
        bool whiteToMove = !fields[1].empty() && fields[1][0] == 'w';
        if (ep.size() != 2 || ep[0] < 'a' || ep[0] > 'h' || ep[1] != (whiteToMove ? '6' : '3')) {
            *reason = "the en-passant square is not valid: " + std::string(ep);
            return false;
        }
    }
    positionStruct* probe = new positionStruct;
    setPosition(fen, probe);
    bool standing = !isSideInCheck(probe, probe->sideToMove ^ 1);
    delete probe;
    if (!standing) {
        *reason = "the side not to move is in check";
        return false;
    }
    return true;
}

std::string boardToString(positionStruct* pos) {
    static const char* separator = "+---+---+---+---+---+---+---+---+\n";
    std::string text = separator;
    for (int rank = 7; rank >= 0; rank--) {
        for (int file = 0; file < 8; file++) {
            text += "| ";
            text += fenLabelPieces[pos->board[file + 8 * rank]];
            text += ' ';
        }
        text += "|\n";
        text += separator;
    }
    return text;
}
