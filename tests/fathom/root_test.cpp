// Root move choice: for every position of the shared root file the chosen move has the best
// WDL class available under the position's fifty-move counter, and the best DTZ within it.
#include <gtest/gtest.h>

#include <cstdlib>

#include "fathom/tbpos.h"
#include "tests/fathom/tb_test_util.h"

namespace {

class RootProbe : public ::testing::Test {
protected:
    static void SetUpTestSuite() { tb_init(tbtest::syzygy_dir().c_str()); }
    static void TearDownTestSuite() { tb_free(); }
};

// 4 win, 3 spoiled win, 2 draw, 1 saved loss, 0 loss, for a move's DTZ d and root counter r.
int move_class(int d, int r) {
    if (d > 0) return r + d <= 100 ? 4 : 3;
    if (d < 0) return r - d > 100 ? 1 : 0;
    return 2;
}

std::string move_text(unsigned from, unsigned to, unsigned promotes) {
    std::string s;
    for (unsigned sq : {from, to}) {
        s += char('a' + sq % 8);
        s += char('1' + sq / 8);
    }
    if (promotes) s += " qrbn"[promotes];
    return s;
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

TEST_F(RootProbe, PicksTheBestRankedMove) {
    SKIP_WITHOUT_TABLES();
    int checked = 0;
    for (const auto& rec : tbtest::read_records(tbtest::syzygy_dir() + "/root-cases.txt")) {
        ASSERT_EQ(rec.size(), 2u);
        const pos p = tbtest::parse_fen(rec[0]);
        const std::vector<ListedMove> moves = parse_moves(rec[1]);
        int best_class = -1, best_dtz = 0;
        for (const ListedMove& m : moves) {
            const int c = move_class(m.dtz, p.rule50);
            if (c > best_class || (c == best_class && m.dtz < best_dtz)) {
                best_class = c;
                best_dtz = m.dtz;
            }
        }
        int score = 0;
        const unsigned res = probe_root(&p, &score);
        ASSERT_NE(res, 0u) << rec[0];
        ASSERT_NE(res, TB_RESULT_CHECKMATE_OR_STALEMATE) << rec[0];
        ASSERT_NE(res, TB_RESULT_FAILED_ROOT) << rec[0];
        const std::string text = move_text(res);
        const ListedMove* chosen = nullptr;
        for (const ListedMove& m : moves)
            if (m.uci == text) chosen = &m;
        ASSERT_NE(chosen, nullptr) << rec[0] << ": " << text << " is not a legal move";
        SCOPED_TRACE(rec[0] + " chose " + text);
        EXPECT_EQ(move_class(chosen->dtz, p.rule50), best_class);
        if (best_class != 2) {
            EXPECT_EQ(chosen->dtz, best_dtz);
        }
        EXPECT_EQ(score, chosen->dtz);
        EXPECT_EQ(tbResultDtz(res), unsigned(std::abs(chosen->dtz)));
        EXPECT_EQ(tbResultWdl(res), unsigned(best_class));
        const uint64_t from = uint64_t(1) << tbResultFrom(res);
        const bool ep = (p.pawns & from) && p.ep && tbResultTo(res) == p.ep;
        EXPECT_EQ(tbResultEp(res), ep ? 1u : 0u);
        checked++;
    }
    EXPECT_EQ(checked, 150);
}

// The listed value of every root move follows from probing the position after it.
TEST_F(RootProbe, EveryMoveValueFollowsFromTheChild) {
    SKIP_WITHOUT_TABLES();
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
            int ok_wdl = 0, ok_dtz = 0;
            const int wdl = -probe_wdl(&child, &ok_wdl), d = probe_dtz(&child, &ok_dtz);
            const bool zeroing = is_capture(&p, moves[i]) || is_pawn_move(&p, moves[i]);
            const int worth = is_mate(&child) ? 1
                              : zeroing       ? (wdl == 2    ? 1
                                                 : wdl == 1  ? 101
                                                 : wdl == -1 ? -101
                                                 : wdl == -2 ? -1
                                                             : 0)
                              : d == 0        ? 0
                              : d < 0         ? 1 - d
                                              : -1 - d;
            bool found = false;
            for (const ListedMove& m : listed)
                if (m.uci == text) {
                    found = true;
                    EXPECT_TRUE(ok_wdl && ok_dtz) << rec[0] << " " << text;
                    EXPECT_EQ(wdl, m.wdl) << rec[0] << " " << text;
                    EXPECT_EQ(worth, m.dtz) << rec[0] << " " << text;
                }
            EXPECT_TRUE(found) << rec[0] << " " << text;
            checked++;
        }
    }
    EXPECT_GT(checked, 1000);
}

// The fifty-move counter moves the chosen move's class exactly at the 100-ply boundary.
TEST_F(RootProbe, FiftyMoveBoundary) {
    SKIP_WITHOUT_TABLES();
    const struct {
        const char* fen;
        int rule50;
        unsigned cls;
        int dtz;
    } cases[] = {
        {"7K/8/8/8/8/8/6Q1/k7 w - -", 89, 4, 11},
        {"7K/8/8/8/8/8/6Q1/k7 w - -", 90, 3, 11},
        {"8/8/8/8/r7/2q5/8/3k1K2 w - -", 96, 0, -4},
        {"8/8/8/8/r7/2q5/8/3k1K2 w - -", 97, 1, -4},
    };
    for (const auto& c : cases) {
        pos p = tbtest::parse_fen(c.fen);
        p.rule50 = uint8_t(c.rule50);
        int score = 0;
        const unsigned res = probe_root(&p, &score);
        EXPECT_EQ(tbResultWdl(res), c.cls) << c.fen << " at " << c.rule50;
        EXPECT_EQ(score, c.dtz) << c.fen << " at " << c.rule50;
    }
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
