// Root move choice: for every position of the shared root file the chosen move has the best
// WDL class available under the position's fifty-move counter, and the best DTZ within it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "fathom/tbpos.h"
#include "tests/fathom/tb_test_util.h"

namespace {

class RootProbe : public tbtest::TablesSuite {};

// 4 win, 3 spoiled win, 2 draw, 1 saved loss, 0 loss, for a move's DTZ d and root counter r.
int move_class(int d, int r) {
    if (d > 0) return r + d <= 100 ? 4 : 3;
    if (d < 0) return r - d > 100 ? 1 : 0;
    return 2;
}

std::string move_text(unsigned from, unsigned to, unsigned promotes) {
    std::string s = {char('a' + from % 8), char('1' + from / 8), char('a' + to % 8), char('1' + to / 8)};
    return promotes ? s + " qrbn"[promotes] : s;
}

std::string move_text(unsigned res) { return move_text(tbResultFrom(res), tbResultTo(res), tbResultPromotes(res)); }

struct ListedMove {
    std::string uci;
    int wdl, dtz;
};

std::vector<ListedMove> parse_moves(const std::string& field) {
    std::vector<ListedMove> out;
    std::istringstream in(field);
    std::string item;
    while (std::getline(in, item, ',')) {
        const size_t a = item.find(':'), b = item.find(':', a + 1);
        out.push_back({item.substr(0, a), std::stoi(item.substr(a + 1, b - a - 1)), std::stoi(item.substr(b + 1))});
    }
    return out;
}

// The move probe_root chooses under p's fifty-move counter has the best class and, unless
// drawn, the best DTZ of the listed moves; returns that best DTZ.
int expect_best_ranked(const pos& p, const std::vector<ListedMove>& moves, const std::string& fen) {
    int best_class = -1, best_dtz = 0;
    for (const ListedMove& m : moves) {
        const int c = move_class(m.dtz, p.rule50);
        if (c > best_class || (c == best_class && m.dtz < best_dtz)) {
            best_class = c;
            best_dtz = m.dtz;
        }
    }
    SCOPED_TRACE(fen + " at counter " + std::to_string(p.rule50));
    int score = 0;
    const unsigned res = probe_root(&p, &score);
    EXPECT_TRUE(res != 0 && res != TB_RESULT_CHECKMATE_OR_STALEMATE && res != TB_RESULT_FAILED_ROOT) << res;
    const std::string text = move_text(res);
    const ListedMove* chosen = nullptr;
    for (const ListedMove& m : moves)
        if (m.uci == text) chosen = &m;
    if (!chosen) {
        ADD_FAILURE() << text << " is not a legal move";
        return best_dtz;
    }
    EXPECT_EQ(move_class(chosen->dtz, p.rule50), best_class) << text;
    EXPECT_TRUE(best_class == 2 || chosen->dtz == best_dtz) << text << " dtz " << chosen->dtz << ", best " << best_dtz;
    EXPECT_EQ(score, chosen->dtz);
    EXPECT_EQ(tbResultDtz(res), unsigned(std::abs(chosen->dtz)));
    EXPECT_EQ(tbResultWdl(res), unsigned(best_class));
    const uint64_t from = uint64_t(1) << tbResultFrom(res);
    const bool ep = (p.pawns & from) && p.ep && tbResultTo(res) == p.ep;
    EXPECT_EQ(tbResultEp(res), ep ? 1u : 0u);
    return best_dtz;
}

// Every root of the shared file (150 of them), at its own counter and on both sides of the
// counter where its best move's class changes: d plies to the next zeroing move win, or lose,
// only while counter + |d| <= 100.
TEST_F(RootProbe, PicksTheBestRankedMove) {
    SKIP_WITHOUT_TABLES();
    int checked = 0;
    for (const auto& rec : tbtest::read_records(tbtest::syzygy_dir() + "/root-cases.txt")) {
        ASSERT_EQ(rec.size(), 2u);
        pos p = tbtest::parse_fen(rec[0]);
        const std::vector<ListedMove> moves = parse_moves(rec[1]);
        expect_best_ranked(p, moves, rec[0]);
        p.rule50 = 0;
        const int d = std::abs(expect_best_ranked(p, moves, rec[0]));
        for (int counter : {100 - d, 101 - d}) {
            if (d == 0 || counter < 0) continue;
            p.rule50 = uint8_t(counter);
            expect_best_ranked(p, moves, rec[0]);
        }
        checked++;
    }
    EXPECT_EQ(checked, 150);
}

// The listed value of every root move follows from probing the position after it: a mate 1, a
// zeroing move by its WDL, any other move one ply further than the child's DTZ.
TEST_F(RootProbe, EveryMoveValueFollowsFromTheChild) {
    SKIP_WITHOUT_TABLES();
    const int zeroing_dtz[5] = {-1, -101, 0, 101, 1};  // by WDL -2..2
    int checked = 0;
    for (const auto& rec : tbtest::read_records(tbtest::syzygy_dir() + "/root-cases.txt")) {
        const pos p = tbtest::parse_fen(rec[0]);
        uint16_t moves[TB_MAX_MOVES];
        const int n = gen_legal(&p, moves);
        const std::vector<ListedMove> listed = parse_moves(rec[1]);
        ASSERT_EQ(size_t(n), listed.size()) << rec[0];
        for (int i = 0; i < n; i++) {
            pos child;
            do_move(&child, &p, moves[i]);
            const std::string text = move_text(move_from(moves[i]), move_to(moves[i]), move_promotes(moves[i]));
            SCOPED_TRACE(rec[0] + " " + text);
            int ok_wdl = 0, ok_dtz = 0;
            const int wdl = -probe_wdl(&child, &ok_wdl), d = probe_dtz(&child, &ok_dtz);
            int worth = d < 0 ? 1 - d : d > 0 ? -1 - d : 0;
            if (is_capture(&p, moves[i]) || is_pawn_move(&p, moves[i])) worth = zeroing_dtz[wdl + 2];
            if (is_mate(&child)) worth = 1;
            auto m = std::find_if(listed.begin(), listed.end(), [&](const ListedMove& l) { return l.uci == text; });
            ASSERT_TRUE(m != listed.end());
            EXPECT_TRUE(ok_wdl && ok_dtz);
            EXPECT_EQ(wdl, m->wdl);
            EXPECT_EQ(worth, m->dtz);
            checked++;
        }
    }
    EXPECT_GT(checked, 1000);
}

TEST_F(RootProbe, NoMoveAndRefusedPositions) {
    SKIP_WITHOUT_TABLES();
    int score = 7;
    for (const char* fen : {"k7/1Q6/1K6/8/8/8/8/8 b - - 0 1", "k7/8/1Q6/8/8/8/8/K7 b - - 0 1"}) {
        const pos p = tbtest::parse_fen(fen);
        EXPECT_EQ(probe_root(&p, &score), TB_RESULT_CHECKMATE_OR_STALEMATE) << fen;
    }
    // A missing king, the side not to move in check, too many pieces, a pawn on the last rank.
    for (const char* fen : {"8/8/8/8/8/8/8/K7 w - - 0 1", "kQ6/8/8/8/8/8/8/K7 w - - 0 1",
                            "k7/8/8/8/8/8/8/KQRBN3 w - - 0 1", "k6P/8/8/8/8/8/8/K7 w - - 0 1"}) {
        const pos p = tbtest::parse_fen(fen);
        EXPECT_EQ(probe_root(&p, &score), 0u) << fen;
        int ok = 1;
        probe_wdl(&p, &ok);
        EXPECT_EQ(ok, 0) << fen;
    }
}

}  // namespace
