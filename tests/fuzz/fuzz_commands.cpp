// libFuzzer target: feeds the lines of each input to the command handler. Every input starts
// from the same state (start position, one thread, a 1 MB table, default options, a new game),
// so a crash reproduces from its input alone. Unbounded or huge work is tamed: "go" gets a small
// depth and is waited for, "perft" runs at depth 2 at most, "rtest", "texel" and "bench" are
// skipped, Hash and Threads are capped, SyzygyPath is "<empty>" or, for the value "syzygy", the
// directory in VORIX_SYZYGY_DIR. Output goes to /dev/null unless VORIX_FUZZ_VERBOSE is set.
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "engine/search/engine.h"
#include "engine/uci/commands.h"
#include "engine/uci/go.h"
#include "engine/uci/startup.h"

namespace {

constexpr size_t MAX_LINES = 64;
constexpr long HASH_LIMIT_MB = 4;
constexpr long THREADS_LIMIT = 4;
constexpr int PERFT_LIMIT = 2;

std::vector<std::string> words(const std::string& line) {
    std::istringstream in(line);
    return {std::istream_iterator<std::string>(in), std::istream_iterator<std::string>()};
}

std::string lower(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

std::string join(const std::vector<std::string>& parts) {
    std::string out;
    for (const std::string& p : parts) out += (out.empty() ? "" : " ") + p;
    return out;
}

// Decimal integer text in the form the engine accepts ("-" and digits); saturates when too large.
bool integerText(const std::string& w, long long* value) {
    const size_t digits = w.size() > 0 && w[0] == '-' ? 1 : 0;
    if (w.size() == digits || w.find_first_not_of("0123456789", digits) != std::string::npos) return false;
    *value = std::strtoll(w.c_str(), nullptr, 10);
    return true;
}

// Keeps the clock and flag words of a "go" line and bounds the search by a small depth: a word
// that takes a value keeps it unless the next word is itself a keyword; "depth" is dropped.
std::string boundedGo(const std::vector<std::string>& w) {
    static const std::set<std::string> valued = {"wtime", "btime", "winc", "binc",    "movestogo",
                                                 "depth", "nodes", "mate", "movetime"};
    auto keyword = [](const std::string& k) { return k == "ponder" || k == "infinite" || valued.count(k) > 0; };
    std::vector<std::string> out{"go"};
    for (size_t i = 1; i < w.size(); i++) {
        if (w[i] == "ponder" || w[i] == "infinite") {
            out.push_back(w[i]);
        } else if (valued.count(w[i]) && i + 1 < w.size() && !keyword(w[i + 1])) {
            if (w[i] != "depth") out.insert(out.end(), {w[i], w[i + 1]});
            i++;
        }
    }
    out.push_back("depth");
    out.push_back(w.size() % 2 ? "1" : "2");
    return join(out);
}

// The line to execute in place of `line`; false when the line is skipped.
bool tame(const std::string& line, std::string* out) {
    *out = line;
    std::vector<std::string> w = words(line);
    if (w.empty()) return true;
    const std::string& command = w[0];
    if (command == "go") {
        *out = boundedGo(w);
        return true;
    }
    if (command == "rtest" || command == "texel" || command == "bench") return false;
    if (command == "perft") {
        long long depth;
        if (w.size() < 2 || !integerText(w[1], &depth) || depth > PERFT_LIMIT)
            *out = "perft " + std::to_string(PERFT_LIMIT);
        return true;
    }
    if (command == "setoption" && w.size() >= 3 && w[1] == "name") {
        std::string option = lower(w[2]);
        size_t valueAt = 0;
        for (size_t i = 3; i + 1 < w.size(); i++)
            if (w[i] == "value") {
                valueAt = i + 1;
                break;
            }
        if (option == "syzygypath") {
            const char* dir = std::getenv("VORIX_SYZYGY_DIR");
            bool wanted = valueAt && w[valueAt] == "syzygy" && dir != nullptr;
            *out = std::string("setoption name SyzygyPath value ") + (wanted ? dir : "<empty>");
            return true;
        }
        if (valueAt && (option == "hash" || option == "threads")) {
            long long value;
            long long limit = option == "hash" ? HASH_LIMIT_MB : THREADS_LIMIT;
            if (integerText(w[valueAt], &value) && value > limit) {
                w[valueAt] = std::to_string(limit);
                *out = join(w);
            }
        }
    }
    return true;
}

void resetEngine() {
    finishPreviousSearch();
    if (engine.nofThreads != 1) executeCommand("setoption name Threads value 1");
    if (engine.hashSize != 1) executeCommand("setoption name Hash value 1");
    if (engine.moveOverhead != 100) executeCommand("setoption name MoveOverhead value 100");
    if (engine.syzygyProbeDepth != 0) executeCommand("setoption name SyzygyProbeDepth value 0");
    if (engine.ponderOption) executeCommand("setoption name Ponder value false");
    if (!engine.syzygyPath.empty() && engine.syzygyPath != "<empty>")
        executeCommand("setoption name SyzygyPath value <empty>");
    executeCommand("ucinewgame");
    executeCommand("position startpos");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    if (std::getenv("VORIX_FUZZ_VERBOSE") == nullptr && std::freopen("/dev/null", "w", stdout) == nullptr) return 1;
    engine.hashSize = 1;  // the table is allocated by initEngine
    initEngine();
    std::atexit(shutdownEngine);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    resetEngine();
    std::string input(reinterpret_cast<const char*>(data), size);
    size_t start = 0, lines = 0;
    while (start < input.size() && lines < MAX_LINES) {
        size_t end = input.find('\n', start);
        if (end == std::string::npos) end = input.size();
        std::string line;
        bool keep = tame(input.substr(start, end - start), &line);
        start = end + 1;
        lines++;
        if (!keep) continue;
        if (!executeCommand(line)) break;  // "quit"
        if (line.compare(0, 3, "go ") == 0) finishPreviousSearch();
    }
    finishPreviousSearch();
    return 0;
}
