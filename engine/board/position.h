// The position record: board, bitboards, keys, incremental evaluation sums, key history and
// the per-ply state stack that move making and the search walk up and down.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

#include "engine/board/bitboard.h"
#include "engine/board/move.h"

// Piece codes index fenLabelPieces: colour = code & 1, type = (code - 2) / 2.
// Codes 0 and 1 double as the indices of the white and black occupancy bitboards.
enum pieceCode : uint8_t {
    EMPTY = 0,
    WHITE_PAWN = 2,
    BLACK_PAWN,
    WHITE_KNIGHT,
    BLACK_KNIGHT,
    WHITE_BISHOP,
    BLACK_BISHOP,
    WHITE_ROOK,
    BLACK_ROOK,
    WHITE_QUEEN,
    BLACK_QUEEN,
    WHITE_KING,
    BLACK_KING,
};
enum pieceType { PAWN = 0, KNIGHT, BISHOP, ROOK, QUEEN, KING };
constexpr int WHITE = 0;
constexpr int BLACK = 1;

inline int pieceOf(int type, int side) { return type * 2 + 2 + side; }
inline int typeOf(int piece) { return (piece - 2) >> 1; }

// Castling rights bits.
constexpr uint8_t CASTLE_WHITE_KING = 1;
constexpr uint8_t CASTLE_BLACK_KING = 2;
constexpr uint8_t CASTLE_WHITE_QUEEN = 4;
constexpr uint8_t CASTLE_BLACK_QUEEN = 8;

constexpr int MAX_PLY = 128;
// Deepest ply at which the search still makes moves: a node above it returns its static
// evaluation. Moves made at this ply write plyState[SEARCH_PLY_LIMIT + 1].
constexpr int SEARCH_PLY_LIMIT = MAX_PLY - 2;
constexpr int HASH_HISTORY_SIZE = 1024;
constexpr int GMS_BYTES = 32768;
// Moves of one position never exceed this, so a search stack of MAX_PLY lists fits in
// MAX_PLY * MAX_MOVES_PER_PLY records.
constexpr int MAX_MOVES_PER_PLY = 256;

struct searchDataStruct;

// State of one ply. Entry 0 describes the position as set; entry p + 1 is written when a move
// is made at ply p: the saved fields keep the values from before that move, the others describe
// the position after it.
struct plyStateStruct {
    int32_t material[2];        // saved
    int32_t pieceSquareSum[2];  // saved
    moveStruct* moveList;       // this ply's slice of the move buffer
    moveStruct currentMove;     // move played or searched from this ply; 0 after a null move
    int16_t phase;              // saved
    uint8_t capturedPiece;      // piece taken by the move that led here
    uint8_t enPassantSquare;    // square of a pawn that has just double-stepped, 0 = none
    uint8_t castlingRights;
    uint8_t inCheck;  // the side to move is in check
    uint8_t flag;
    uint8_t movedPiece;        // piece code of the move that led here (0 after a null move)
    moveStruct* moveListEnd;   // behind the last move of this ply's list
    uint64_t notPinned;        // complement of the own pieces pinned to the own king
    uint64_t hashKey;          // saved
    uint64_t pawnKingHashKey;  // saved
    uint16_t halfMoveClock;    // saved
    int16_t staticEval;        // -32767 when in check
    uint8_t moveStage;         // move picker stage
    moveStruct hashMove;
    moveStruct killer1;
    moveStruct killer2;
    moveStruct counterMove;
    moveStruct* cursor;      // move picker: next unread move
    moveStruct* captureEnd;  // move picker: end of the capture list
};

struct positionStruct {
    uint8_t board[64];
    uint64_t hashKey;
    uint64_t pawnKingHashKey;
    bitboard bitboards[14];
    uint8_t sideToMove;
    int32_t material[2];        // packed piece values per colour, kings not counted
    int32_t pieceSquareSum[2];  // packed piece-square values per colour, kings included
    int16_t phase;

    // Search bookkeeping.
    uint64_t nodeCount;
    uint64_t qNodeCount;
    uint64_t tbHits;
    int32_t timeCheckCounter;
    uint8_t selDepth;

    uint16_t historyCount;  // valid entries of hashHistory (game ply + 1 after setPosition)
    uint16_t halfMoveClock;
    uint64_t hashHistory[HASH_HISTORY_SIZE];
    plyStateStruct plyState[MAX_PLY + 1];

    // Per-thread search data (histories, move buffer); null outside a search thread.
    searchDataStruct* search;
    int32_t workerId;
    // The stop flag of the search this position belongs to, read at every node (a copy of
    // search->control's flag address, one load closer).
    const std::atomic<bool>* stopFlag;

    // Root results of the thread's search.
    moveStruct rootBestMove;  // move that last raised alpha at the root
    int32_t bestMoveChanges;  // changes of rootBestMove in the current iteration
    int16_t rootScore;        // score of the last completed iteration
    int16_t completedDepth;   // depth of the last completed iteration
    uint8_t iterationDone;    // an iteration result is stored
    uint8_t pvHasPonder;      // ponderMove is known
    moveStruct bestMove;      // best move of the last completed iteration
    moveStruct ponderMove;    // expected reply to bestMove
    int16_t pvLength;         // moves in pv
    moveStruct pv[MAX_PLY];   // principal variation of the last completed iteration
};

extern positionStruct GPSData;
extern moveStruct GMS[GMS_BYTES / sizeof(moveStruct)];
extern const char* const fenStartPos;
extern const char* const fenLabelPieces;

// Replaces the position by the FEN (missing trailing fields are filled in; a FEN of only
// placement and side is accepted). Throws std::invalid_argument / std::out_of_range from
// std::stoi on a malformed clock field.
void setPosition(std::string fen, positionStruct* pos);
// setPosition without copying the text: the same result, no allocation for a well-formed FEN.
void setPositionView(std::string_view fen, positionStruct* pos);
// Checks that a FEN can be set without harm; on failure returns false and a reason.
bool validateFen(const std::string& fen, std::string* reason);
// The board as a text grid.
std::string boardToString(positionStruct* pos);
// Whether no square is in two piece sets, so that the board names every piece of the sets.
// Only a FEN that places two pieces on one square breaks this.
bool hasOnePiecePerSquare(const positionStruct* pos);
// Whether the king of `side` is attacked.
bool isSideInCheck(const positionStruct* pos, int side);

// Whether the position repeats one of the game or the search path since the last capture or pawn
// move (same side to move, so at least four plies back).
inline bool isRepetition(const positionStruct* pos) {
    if (pos->halfMoveClock <= 3) return false;
    int lowest = pos->historyCount - 1 - pos->halfMoveClock;
    if (lowest < 0) lowest = 0;
    for (int i = pos->historyCount - 5; i >= lowest; i -= 2)
        if (pos->hashHistory[i] == pos->hashKey) return true;
    return false;
}

inline bitboard occupancy(const positionStruct* pos) { return pos->bitboards[0] | pos->bitboards[1]; }
inline int mgHalf(int32_t packed) { return static_cast<int16_t>(static_cast<uint32_t>(packed) & 0xFFFF); }
inline int egHalf(int32_t packed) { return (packed + 32768) >> 16; }
