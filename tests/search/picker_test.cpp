// Staged move picker: stage order, hash move and killers handed out once and only when
// playable, bad captures after killers and the counter move, quiet history order, evasions.
// Stages: 1 hash move, 2 good captures, 4 and 5 killers, 6 counter move, 7 bad captures,
// 9 quiet moves, 99 evasions.
#include <gtest/gtest.h>

#include <algorithm>

#include "engine/movegen/makemove.h"
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
    // Plays a move at ply 0, so that the picker runs at ply 1 with that move before it.
    void playFirst(const char* text) {
        moveStruct m = withPiece(text);
        p->plyState[0].currentMove = m;
        makeMove(p.get(), 0, m);
        p->plyState[1].moveList = data->moveBuffer + MAX_MOVES_PER_PLY;
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
    // Checks the first moves and their stages, and that quiet moves (stage 9) follow.
    static void expectHead(const std::vector<picked>& moves, const std::vector<std::pair<std::string, int>>& head,
                           const std::string& name) {
        ASSERT_GE(moves.size(), head.size()) << name;
        for (size_t i = 0; i < moves.size(); i++) {
            EXPECT_EQ(moves[i].text, i < head.size() ? head[i].first : moves[i].text) << name << " move " << i;
            EXPECT_EQ(moves[i].stage, i < head.size() ? head[i].second : 9) << name << " " << moves[i].text;
        }
    }
    // Checks that the picked moves are every pseudo-legal move of the node exactly once.
    void expectEveryMoveOnce(const std::vector<picked>& moves, int ply, const std::string& name) {
        std::vector<std::string> texts;
        for (const picked& m : moves) texts.push_back(m.text);
        std::sort(texts.begin(), texts.end());
        EXPECT_EQ(texts, textsOf(pseudoLegalMoves(p.get(), ply), p->sideToMove)) << name;
    }
};

// e4xd5 is a good capture, Qd1xd5 loses the queen to c6xd5; in the second, Ne3xd5 is even.
const char* const mixedFen = "4k3/8/2p5/3p4/4P3/8/8/3QK1N1 w - - 0 1";
const char* const equalFen = "4k3/8/2p5/3b4/8/4N3/8/3QK3 w - - 0 1";

TEST(MovePicker, HandsOutStagesInOrderAndEveryMoveOnce) {
    const struct {
        const char* name;
        const char* hash;
        const char* killer1;
        const char* killer2;
        std::vector<std::pair<std::string, int>> head;  // first moves and their stages
        const char* fen = mixedFen;
    } cases[] = {
        {"no hash move", nullptr, "g1f3", "e4e5", {{"e4d5", 2}, {"g1f3", 4}, {"e4e5", 5}, {"d1d5", 7}}},
        {"quiet hash move", "d1d3", "g1f3", "e4e5", {{"d1d3", 1}, {"e4d5", 2}, {"g1f3", 4}, {"e4e5", 5}, {"d1d5", 7}}},
        {"bad capture as hash move", "d1d5", "g1f3", "e4e5", {{"d1d5", 1}, {"e4d5", 2}, {"g1f3", 4}, {"e4e5", 5}}},
        {"good capture as hash move", "e4d5", "g1f3", nullptr, {{"e4d5", 1}, {"g1f3", 4}, {"d1d5", 7}}},
        {"killer equal to the hash move", "g1f3", "g1f3", "e4e5", {{"g1f3", 1}, {"e4d5", 2}, {"e4e5", 5}, {"d1d5", 7}}},
        {"no killers", nullptr, nullptr, nullptr, {{"e4d5", 2}, {"d1d5", 7}}},
        {"an equal exchange is good", nullptr, "d1d2", nullptr, {{"e3d5", 2}, {"d1d2", 4}, {"d1d5", 7}}, equalFen},
    };
    for (const auto& c : cases) {
        pickerSetup s(c.fen);
        plyStateStruct& entry = s.p->plyState[0];
        if (c.hash) entry.hashMove = s.withPiece(c.hash);
        if (c.killer1) entry.killer1 = s.withPiece(c.killer1);
        if (c.killer2) entry.killer2 = s.withPiece(c.killer2);
        std::vector<picked> moves = s.pickAll(0);
        pickerSetup::expectHead(moves, c.head, c.name);
        s.expectEveryMoveOnce(moves, 0, c.name);
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
        s.expectEveryMoveOnce(moves, 0, c.name);
    }
}

// At ply 1 the counter move of the previous move comes after both killers and before the bad
// captures; quiet moves follow by history score.
TEST(MovePicker, PlaysTheCounterMoveBeforeBadCapturesAndQuietsByHistory) {
    pickerSetup s("4k3/8/2p5/3p4/4P3/8/8/3QK1N1 b - - 0 1");
    s.playFirst("e8e7");
    s.p->plyState[1].killer1 = s.withPiece("g1f3");
    s.p->plyState[1].killer2 = s.withPiece("e4e5");
    s.data->counterMoves[BLACK_KING][sq("e7")] = s.withPiece("d1d3");
    s.data->history[WHITE_KING][sq("d2")] = 900;
    s.data->history[WHITE_KNIGHT][sq("h3")] = 400;
    s.data->history[WHITE_QUEEN][sq("a4")] = -700;
    s.data->counterMoveHistory[BLACK_KING - 2][sq("e7")][WHITE_QUEEN - 2][sq("b3")] = 600;
    std::vector<picked> moves = s.pickAll(1);
    pickerSetup::expectHead(
        moves, {{"e4d5", 2}, {"g1f3", 4}, {"e4e5", 5}, {"d1d3", 6}, {"d1d5", 7}, {"e1d2", 9}, {"d1b3", 9}, {"g1h3", 9}},
        "counter move");
    EXPECT_EQ(moves.back().text, "d1a4");
    s.expectEveryMoveOnce(moves, 1, "counter move");
}

// A counter move recorded for another piece is not played, and the node's own move with the
// same squares still comes among the quiet moves.
TEST(MovePicker, SkipsACounterMoveOfAnotherPiece) {
    pickerSetup s("4k3/8/8/8/8/8/8/3QK3 b - - 0 1");
    s.playFirst("e8e7");
    s.data->counterMoves[BLACK_KING][sq("e7")] = s.withPiece("d1d2", WHITE_ROOK);
    std::vector<picked> moves = s.pickAll(1);
    for (const picked& m : moves) EXPECT_NE(m.stage, 6) << m.text;
    s.expectEveryMoveOnce(moves, 1, "counter move of another piece");
}

TEST(MovePicker, InCheckHandsOutOnlyEvasionsByScore) {
    const char* fen = "2Q5/8/4r2R/2NP4/6B1/R7/8/1k2K3 w - - 0 1";
    testPosition reference(fen);
    generateMovesLegal(0, reference->plyState[0].moveList, reference.get());
    const std::vector<std::string> evasions = textsOf(listMoves(reference.get(), 0), WHITE);
    for (const char* hash : {static_cast<const char*>(nullptr), "e1f2", "g4e6"}) {
        pickerSetup s(fen);
        if (hash) s.p->plyState[0].hashMove = s.withPiece(hash);
        s.p->plyState[0].killer1 = s.withPiece("a3a4");  // quiet, playable, but no evasion
        std::vector<picked> moves = s.pickAll(0);
        ASSERT_FALSE(moves.empty());
        EXPECT_TRUE(!hash || (moves[0].text == hash && moves[0].stage == 1)) << moves[0].text;
        std::vector<std::string> texts;
        for (size_t i = 0; i < moves.size(); i++) {
            texts.push_back(moves[i].text);
            if (hash && i == 0) continue;
            EXPECT_EQ(moves[i].stage, 99) << moves[i].text;
            EXPECT_TRUE(i <= (hash ? 1u : 0u) || moves[i].order <= moves[i - 1].order) << moves[i].text;
        }
        std::sort(texts.begin(), texts.end());
        EXPECT_EQ(texts, evasions) << (hash ? hash : "no hash move");
    }
}

}  // namespace
