// The developer commands around perft: "perft" on the game position and the "rtest" self-check
// against a file of known counts. Output goes out in whole lines, as a search may print meanwhile.
#include "engine/uci/perftcheck.h"

#include <chrono>
#include <fstream>
#include <memory>
#include <vector>

#include "engine/board/position.h"
#include "engine/movegen/perft.h"
#include "engine/search/tt.h"
#include "engine/util/output.h"

#ifndef VORIX_PERFT_FILE
#define VORIX_PERFT_FILE "perft.txt"
#endif

namespace {

// Move lists for a perft of the deepest allowed depth.
std::vector<moveStruct> perftMoveBuffer() { return std::vector<moveStruct>(MAX_PERFT_DEPTH * MAX_MOVES_PER_PLY); }

}  // namespace

bool testFenPosition(int depth, const std::string& fen) {
    if (depth > MAX_PERFT_DEPTH) {
        say("info string perft depth ", depth, " is too deep; at most ", MAX_PERFT_DEPTH);
        return false;
    }
    std::unique_ptr<positionStruct> pos(new positionStruct(GPSData));
    if (fen != "current") setPosition(fen, pos.get());
    std::vector<moveStruct> buffer = perftMoveBuffer();
    pos->plyState[0].moveList = buffer.data();
    std::string board = boardToString(pos.get());
    board.pop_back();  // sendLine ends the last line
    sendLine(board);
    auto start = std::chrono::system_clock::now();
    uint64_t nodes = perft(0, depth, pos.get());
    auto stop = std::chrono::system_clock::now();
    int64_t ns = std::chrono::duration_cast<std::chrono::nanoseconds>(stop - start).count();
    double seconds = ns / 1e9;
    say(ns, " ns and ", seconds, " in seconds");
    say("Perft results for depth: ", depth, "  ", nodes, "  Nodes per sec: ", nodes / seconds);
    return true;
}

bool checkMoveGenWithPerft() { return checkMoveGenWithPerft(VORIX_PERFT_FILE); }

bool checkMoveGenWithPerft(const std::string& path) {
    std::ifstream file(path);
    if (!file) {
        sendLine("There seems to be a problem with the perftFile. check of the move generator not executed");
        return false;
    }
    std::unique_ptr<positionStruct> pos(new positionStruct());
    std::vector<moveStruct> buffer = perftMoveBuffer();
    pos->plyState[0].moveList = buffer.data();
    bool ok = true;
    std::string line;
    while (std::getline(file, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        // "extended" or "full" ends the part of the file that is run, deliberately.
        if (line == "extended" || line == "full") break;
        size_t first = line.find(';');
        size_t second = line.find(';', first == std::string::npos ? first : first + 1);
        if (first == std::string::npos || second == std::string::npos) continue;
        std::string fen = line.substr(0, first);
        int depth = std::stoi(line.substr(first + 1, second - first - 1));
        uint64_t expected = std::stoull(line.substr(second + 1));
        std::string reason;
        uint64_t nodes = 0;
        auto start = std::chrono::system_clock::now();
        if (depth <= MAX_PERFT_DEPTH && validateFen(fen, &reason)) {
            setPosition(fen, pos.get());
            nodes = perft(0, depth, pos.get());
        }
        auto stop = std::chrono::system_clock::now();
        int64_t ns = std::chrono::duration_cast<std::chrono::nanoseconds>(stop - start).count();
        bool match = nodes == expected;
        ok = ok && match;
        say(match ? 1 : 0, "; ", fen, "; ", depth, "; ", expected, "; ", nodes, "; ", ns);
        allocateHashBuckets(2097152);  // the self-check leaves a 128 MB table behind, deliberately
    }
    say("Results of the perft checks is OK: ", ok ? 1 : 0);
    return ok;
}
