// Staged move picker: stage order, hash move and killers handed out once and only when
// playable, bad captures after killers and the counter move, quiet history order, evasions.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "engine/movegen/makemove.h"
#include "engine/movegen/staged.h"
#include "engine/search/picker.h"
#include "engine/search/searchdata.h"
#include "tests/testutil.h"

namespace {

struct picked {
    std::string text;
    int stage;
    int order;
};

// A position whose move lists live in the search data's buffer, as in a search thread.
struct pickerSetup {
    testPosition p;
    std::unique_ptr<searchDataStruct> data{new searchDataStruct()};
    explicit pickerSetup(const char* fen) : p(fen) {
        p->search = data.get();
        p->plyState[0].moveList = data->moveBuffer;
    }
    // A move record carrying the moving piece in its fourth byte, as killers and hash moves do.
    moveStruct withPiece(const char* text, int piece = -1) {
        moveStruct m;
        EXPECT_TRUE(moveFromText(text, p.get(), &m)) << text;
        m.order = static_cast<uint8_t>(piece >= 0 ? piece : p->board[m.from]);
        return m;
    }
    std::vector<picked> pickAll(int ply) {
        plyStateStruct& entry = p->plyState[ply];
        entry.inCheck = isSideInCheck(p.get(), p->sideToMove) ? 1 : 0;
        initMovePicker(p.get(), ply);
        std::vector<picked> result;
        for (int guard = 0; guard < 300; guard++) {
            moveStruct m = nextMove(p.get(), ply);
            if (isEmptyMove(m)) break;
            result.push_back({moveToLA(&m, p->sideToMove), entry.moveStage, m.order});
        }
        return result;
    }
};

std::vector<std::string> textsPicked(const std::vector<picked>& moves) {
    std::vector<std::string> texts;
    for (const picked& m : moves) texts.push_back(m.text);
    return texts;
}

// Every pseudo-legal move of the position (captures and quiet moves), sorted.
std::vector<std::string> pseudoLegalTexts(const char* fen) {
    testPosition p(fen);
    p->plyState[0].inCheck = isSideInCheck(p.get(), p->sideToMove) ? 1 : 0;
    generateMovesCaptures(0, p->plyState[0].moveList, p.get());
    std::vector<moveStruct> all = listMoves(p.get(), 0);
    if (!p->plyState[0].inCheck) {
        moveStruct* quietStart = p->plyState[0].moveListEnd;
        generateMovesQuiets(0, quietStart, p.get());
        all.insert(all.end(), quietStart, p->plyState[0].moveListEnd);
    }
    return textsOf(all, p->sideToMove);
}

// e4xd5 is a good capture, Qd1xd5 loses the queen to c6xd5.
const char* const mixedFen = "4k3/8/2p5/3p4/4P3/8/8/3QK1N1 w - - 0 1";

TEST(MovePicker, HandsOutStagesInOrderAndEveryMoveOnce) {
    const struct {
        const char* name;
        const char* hash;
        const char* killer1;
        const char* killer2;
        std::vector<std::pair<std::string, int>> head;  // first moves and their stages
    } cases[] = {
        {"no hash move", nullptr, "g1f3", "e4e5", {{"e4d5", 2}, {"g1f3", 4}, {"e4e5", 5}, {"d1d5", 7}}},
        {"quiet hash move", "d1d3", "g1f3", "e4e5", {{"d1d3", 1}, {"e4d5", 2}, {"g1f3", 4}, {"e4e5", 5}, {"d1d5", 7}}},
        {"bad capture as hash move", "d1d5", "g1f3", "e4e5", {{"d1d5", 1}, {"e4d5", 2}, {"g1f3", 4}, {"e4e5", 5}}},
        {"good capture as hash move", "e4d5", "g1f3", nullptr, {{"e4d5", 1}, {"g1f3", 4}, {"d1d5", 7}}},
        {"killer equal to the hash move", "g1f3", "g1f3", "e4e5", {{"g1f3", 1}, {"e4d5", 2}, {"e4e5", 5}, {"d1d5", 7}}},
        {"no killers", nullptr, nullptr, nullptr, {{"e4d5", 2}, {"d1d5", 7}}},
    };
    const std::vector<std::string> all = pseudoLegalTexts(mixedFen);
    for (const auto& c : cases) {
        pickerSetup s(mixedFen);
        plyStateStruct& entry = s.p->plyState[0];
        if (c.hash) entry.hashMove = s.withPiece(c.hash);
        if (c.killer1) entry.killer1 = s.withPiece(c.killer1);
        if (c.killer2) entry.killer2 = s.withPiece(c.killer2);
        std::vector<picked> moves = s.pickAll(0);
        ASSERT_GE(moves.size(), c.head.size()) << c.name;
        for (size_t i = 0; i < c.head.size(); i++) {
            EXPECT_EQ(moves[i].text, c.head[i].first) << c.name << " move " << i;
            EXPECT_EQ(moves[i].stage, c.head[i].second) << c.name << " move " << i;
        }
        for (size_t i = c.head.size(); i < moves.size(); i++) {
            EXPECT_EQ(moves[i].stage, 9) << c.name << " " << moves[i].text;
        }
        std::vector<std::string> texts = textsPicked(moves);
        std::sort(texts.begin(), texts.end());
        EXPECT_EQ(texts, all) << c.name << ": every move exactly once";
    }
}

// A killer is handed out only when it is a quiet move its piece can make on this board; the
// node still hands out every one of its own moves exactly once.
TEST(MovePicker, SkipsKillersThatAreNotPlayableHere) {
    const struct {
        const char* name;
        const char* fen;
        const char* killer;
        int piece;  // -1: the piece on the from-square
    } cases[] = {
        {"piece moved away", mixedFen, "f1c4", WHITE_BISHOP},
        {"path blocked", mixedFen, "d1d6", WHITE_QUEEN},
        {"own piece on the target", mixedFen, "d1e1", WHITE_QUEEN},
        {"target is now a capture", mixedFen, "e4d5", WHITE_PAWN},
        {"knight geometry", mixedFen, "g1g3", WHITE_KNIGHT},
        {"castling without the right", "4k3/8/8/8/8/8/8/4K2R w - - 0 1", "e1g1", WHITE_KING},
        {"other piece on the from-square", "4k3/8/8/8/8/8/8/3QK3 w - - 0 1", "d1d2", WHITE_ROOK},
    };
    for (const auto& c : cases) {
        pickerSetup s(c.fen);
        s.p->plyState[0].killer1 = s.withPiece(c.killer, c.piece);
        std::vector<picked> moves = s.pickAll(0);
        for (const picked& m : moves) {
            EXPECT_FALSE(m.stage == 4 || m.stage == 5) << c.name << ": " << m.text << " handed out as a killer";
        }
        std::vector<std::string> texts = textsPicked(moves);
        std::sort(texts.begin(), texts.end());
        EXPECT_EQ(texts, pseudoLegalTexts(c.fen)) << c.name << ": every move exactly once";
    }
}

// At ply 1 the counter move of the previous move comes after both killers and before the bad
// captures; quiet moves follow by history score.
TEST(MovePicker, PlaysTheCounterMoveBeforeBadCapturesAndQuietsByHistory) {
    pickerSetup s("4k3/8/2p5/3p4/4P3/8/8/3QK1N1 b - - 0 1");
    positionStruct* pos = s.p.get();
    moveStruct kingMove = s.withPiece("e8e7");
    pos->plyState[0].currentMove = kingMove;
    makeMove(pos, 0, kingMove);
    pos->plyState[1].moveList = s.data->moveBuffer + MAX_MOVES_PER_PLY;
    pos->plyState[1].killer1 = s.withPiece("g1f3");
    pos->plyState[1].killer2 = s.withPiece("e4e5");
    s.data->counterMoves[BLACK_KING][sq("e7")] = s.withPiece("d1d3");
    s.data->history[WHITE_KING][sq("d2")] = 900;
    s.data->history[WHITE_KNIGHT][sq("h3")] = 400;
    s.data->history[WHITE_QUEEN][sq("a4")] = -700;
    s.data->counterMoveHistory[BLACK_KING - 2][sq("e7")][WHITE_QUEEN - 2][sq("b3")] = 600;
    std::vector<picked> moves = s.pickAll(1);
    const std::vector<std::pair<std::string, int>> head = {
        {"e4d5", 2}, {"g1f3", 4}, {"e4e5", 5}, {"d1d3", 6}, {"d1d5", 7}, {"e1d2", 9}, {"d1b3", 9}, {"g1h3", 9},
    };
    ASSERT_GT(moves.size(), head.size());
    for (size_t i = 0; i < head.size(); i++) {
        EXPECT_EQ(moves[i].text, head[i].first) << "move " << i;
        EXPECT_EQ(moves[i].stage, head[i].second) << "move " << i;
    }
    EXPECT_EQ(moves.back().text, "d1a4");
    std::vector<std::string> texts = textsPicked(moves);
    EXPECT_EQ(std::count(texts.begin(), texts.end(), "d1d3"), 1);
    unmakeMove(pos, 0, kingMove);
}

// A counter move recorded for another piece is not played, and the node's own move with the
// same squares still comes among the quiet moves.
TEST(MovePicker, SkipsACounterMoveOfAnotherPiece) {
    pickerSetup s("4k3/8/8/8/8/8/8/3QK3 b - - 0 1");
    positionStruct* pos = s.p.get();
    moveStruct kingMove = s.withPiece("e8e7");
    pos->plyState[0].currentMove = kingMove;
    makeMove(pos, 0, kingMove);
    pos->plyState[1].moveList = s.data->moveBuffer + MAX_MOVES_PER_PLY;
    s.data->counterMoves[BLACK_KING][sq("e7")] = s.withPiece("d1d2", WHITE_ROOK);
    std::vector<picked> moves = s.pickAll(1);
    std::vector<std::string> texts = textsPicked(moves);
    for (const picked& m : moves) EXPECT_NE(m.stage, 6) << m.text;
    EXPECT_EQ(std::count(texts.begin(), texts.end(), "d1d2"), 1);
    EXPECT_EQ(moves.size(), 21u);
    unmakeMove(pos, 0, kingMove);
}

TEST(MovePicker, AnEqualExchangeIsAGoodCapture) {
    pickerSetup s("4k3/8/2p5/3b4/8/4N3/8/3QK3 w - - 0 1");
    s.p->plyState[0].killer1 = s.withPiece("d1d2");
    std::vector<picked> moves = s.pickAll(0);
    ASSERT_GE(moves.size(), 2u);
    EXPECT_EQ(moves[0].text, "e3d5");
    EXPECT_EQ(moves[0].stage, 2);
    EXPECT_EQ(moves[1].text, "d1d2");
    EXPECT_EQ(moves[1].stage, 4);
}

TEST(MovePicker, InCheckHandsOutOnlyEvasionsByScore) {
    const char* fen = "2Q5/8/4r2R/2NP4/6B1/R7/8/1k2K3 w - - 0 1";
    testPosition reference(fen);
    const std::vector<std::string> evasions = legalTexts(reference.get());
    for (const char* hash : {static_cast<const char*>(nullptr), "e1f2", "g4e6"}) {
        pickerSetup s(fen);
        if (hash) s.p->plyState[0].hashMove = s.withPiece(hash);
        s.p->plyState[0].killer1 = s.withPiece("a3a4");  // quiet, playable, but no evasion
        std::vector<picked> moves = s.pickAll(0);
        ASSERT_FALSE(moves.empty());
        size_t first = 0;
        if (hash) {
            EXPECT_EQ(moves[0].text, hash);
            EXPECT_EQ(moves[0].stage, 1);
            first = 1;
        }
        for (size_t i = first; i < moves.size(); i++) {
            EXPECT_EQ(moves[i].stage, 99) << moves[i].text;
            if (i > first) {
                EXPECT_LE(moves[i].order, moves[i - 1].order) << moves[i].text;
            }
        }
        std::vector<std::string> texts = textsPicked(moves);
        std::sort(texts.begin(), texts.end());
        EXPECT_EQ(texts, evasions) << (hash ? hash : "no hash move");
    }
}

}  // namespace
