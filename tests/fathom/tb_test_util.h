// Helpers shared by the tablebase tests: FEN to `pos`, the table directory, data files and
// scratch directories.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "fathom/tbprobe.h"
#include "tests/fathom/random_position.h"

namespace tbtest {

namespace fs = std::filesystem;

inline std::string syzygy_dir() { return VORIX_SYZYGY_DIR; }

inline bool have_tables() { return fs::exists(fs::path(syzygy_dir()) / "KQvK.rtbw"); }

// Registers the tables of path and returns what the registration printed.
inline std::string init_tables(const std::string& path) {
    ::testing::internal::CaptureStdout();
    tb_init(path.c_str());
    return ::testing::internal::GetCapturedStdout();
}

// A suite whose tests share the registered tables.
class TablesSuite : public ::testing::Test {
protected:
    static void SetUpTestSuite() { init_tables(syzygy_dir()); }
    static void TearDownTestSuite() { tb_free(); }
};

// Reads the position fields of a FEN; pos.ep is the en-passant target square.
inline pos parse_fen(const std::string& fen) {
    pos p{};
    std::istringstream in(fen);
    std::string board, side, castling, ep;
    int halfmove = 0;
    in >> board >> side >> castling >> ep >> halfmove;
    int sq = 56;
    for (char c : board) {
        if (c == '/')
            sq -= 16;
        else if (c >= '1' && c <= '8')
            sq += c - '0';
        else
            put_piece(p, c, c >= 'a', sq++);
    }
    p.turn = side == "w";
    p.ep = ep.size() == 2 ? uint8_t((ep[0] - 'a') + 8 * (ep[1] - '1')) : 0;
    p.rule50 = uint8_t(halfmove);
    return p;
}

// Data lines of a shared file (comment lines starting with '#' skipped), split at ';'.
inline std::vector<std::vector<std::string>> read_records(const std::string& file) {
    std::vector<std::vector<std::string>> out;
    std::ifstream in(file);
    for (std::string line; std::getline(in, line);) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream fields(line);
        out.emplace_back();
        for (std::string f; std::getline(fields, f, ';');) out.back().push_back(f);
    }
    return out;
}

// Piece counts per side and type (index " PNBRQK") of a table name such as "KRPvKR".
inline void name_counts(const std::string& name, uint8_t counts[2][7]) {
    int side = 0;
    for (char c : name) {
        if (c == 'v')
            side = 1;
        else
            counts[side][std::string(" PNBRQK").find(c)]++;
    }
}

// A fresh directory under the system temp directory, removed on destruction.
struct ScratchDir {
    fs::path path;
    explicit ScratchDir(const std::string& tag) {
        path = fs::temp_directory_path() / ("vorix_tb_" + tag + "_" + std::to_string(::getpid()));
        fs::remove_all(path);
        fs::create_directories(path);
    }
    ~ScratchDir() {
        std::error_code ec;
        fs::remove_all(path, ec);
    }
    void copy_table(const std::string& file) const {
        fs::copy_file(fs::path(syzygy_dir()) / file, path / file, fs::copy_options::overwrite_existing);
        fs::permissions(path / file, fs::perms::owner_read | fs::perms::owner_write, fs::perm_options::add);
    }
};

}  // namespace tbtest

#define SKIP_WITHOUT_TABLES() \
    if (!tbtest::have_tables()) GTEST_SKIP() << "no tables in " << tbtest::syzygy_dir()
