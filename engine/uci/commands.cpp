// The command loop: UCI commands, options and the developer commands.
#include "engine/uci/commands.h"

#include <algorithm>
#include <iostream>
#include <sstream>

#include "engine/board/attacks.h"
#include "engine/board/zobrist.h"
#include "engine/eval/evaluate.h"
#include "engine/movegen/legal.h"
#include "engine/movegen/makemove.h"
#include "engine/search/engine.h"
#include "engine/search/tablebase.h"
#include "engine/search/tt.h"
#include "engine/threads/workforce.h"
#include "engine/uci/bench.h"
#include "engine/uci/go.h"
#include "engine/uci/perftcheck.h"
#include "engine/uci/startup.h"
#include "engine/util/output.h"
#include "tuning/texel.h"

namespace {

constexpr int HASH_MAX_MB = 262144;
constexpr int THREADS_MAX = 256;
constexpr int MOVE_OVERHEAD_MAX = 60000;
constexpr int PROBE_DEPTH_MAX = 127;
// Room kept in hashHistory for the search stack above the game's own keys.
constexpr int HISTORY_HEADROOM = 2 * MAX_PLY + 8;
// The search and the walk of its principal variation each add at most MAX_PLY keys.
static_assert(HISTORY_HEADROOM > MAX_PLY, "no room for the search's keys");

int perftDepth = 6;

void printOptions() {
    say("id name Vorix 2.211\n", "id author Merrowind\n", "option name Hash type spin default 256 min 1 max 262144\n",
        "option name Threads type spin default 1 min 1 max 256\n", "option name Ponder type check default false\n",
        "option name MoveOverhead type spin default 100 min 1 max 60000\n",
        "option name SyzygyPath type string default <empty>\n",
        "option name SyzygyProbeDepth type spin default 0 min 0 max 127\n", "uciok");
}

void printHelp() {
    // The missing quote after stop is part of the text.
    say("supported UCI commands 'uci' 'ucinewgame' 'position' 'go' 'ponderhit' 'stop 'quit' 'setoption' "
        "'isready'\n",
        "other commands 'perft depth', default depth=6, change board with 'position'; 'showboard' shows "
        "the current board");
}

bool refuseWhileSearching(const std::string& what) {
    if (!isSearching()) return false;
    say("info string ", what, " is not possible while a search runs; send stop first");
    return true;
}

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// Drops the oldest keys when the game is long, keeping every key a repetition can still reach.
void compactHistory(positionStruct* pos) {
    if (pos->historyCount + HISTORY_HEADROOM < HASH_HISTORY_SIZE) return;
    int keep = std::min<int>(pos->halfMoveClock + 1, pos->historyCount);
    keep = std::min(keep, HASH_HISTORY_SIZE - HISTORY_HEADROOM - 1);
    std::copy(pos->hashHistory + pos->historyCount - keep, pos->hashHistory + pos->historyCount, pos->hashHistory);
    pos->historyCount = static_cast<uint16_t>(keep);
}

// Plays one move text on the game position; false (position unchanged) when it is not legal.
bool playMoveText(const std::string& text) {
    positionStruct* pos = &GPSData;
    moveStruct move;
    if (!legalMoveFromText(text, pos, &move)) return false;
    makeMove(pos, 0, move);
    plyStateStruct& root = pos->plyState[0];
    const plyStateStruct& next = pos->plyState[1];
    root.castlingRights = next.castlingRights;
    root.enPassantSquare = next.enPassantSquare;
    root.capturedPiece = next.capturedPiece;
    root.movedPiece = next.movedPiece;
    root.currentMove = EMPTYMOVE;
    compactHistory(pos);
    return true;
}

// A setoption command: the option's name as sent, the first word after "value" and the whole
// line (a path may hold blanks).
struct optionRequest {
    const std::string& line;
    std::string name;
    std::string value;
    bool hasValue = false;
};

// Reads "name <option> [... value <value>]"; false when the name is missing.
bool readOptionRequest(std::istringstream& words, optionRequest* request) {
    std::string word;
    words >> word;
    if (word != "name" || !(words >> request->name)) return false;
    while (words >> word) {
        if (word == "value") {
            request->hasValue = static_cast<bool>(words >> request->value);
            break;
        }
    }
    return true;
}

// The value as a number; false when there is none or it is not numeric.
bool numericValue(const optionRequest& request, int* number) {
    return request.hasValue && parseInt(request.value, number);
}

void setSyzygyPath(const optionRequest& request) {
    // A path may hold blanks: the value is the rest of the line.
    const std::string& line = request.line;
    size_t at = line.find(" value ");
    std::string value = at == std::string::npos ? std::string() : line.substr(at + 7);
    while (!value.empty() && (value.back() == ' ' || value.back() == '\r')) value.pop_back();
    while (!value.empty() && value.front() == ' ') value.erase(0, 1);
    if (refuseWhileSearching("changing SyzygyPath")) return;
    engine.syzygyPath = value;
    tablebaseInit(value);
    say("info string Syzygy tablebases used from directory : ", engine.syzygyPath);
}

void setPonder(const optionRequest& request) {
    const std::string& value = request.value;
    if (!request.hasValue || (value != "true" && value != "false")) {
        say("info string Ponder needs the value true or false; it stays ", engine.ponderOption);
        return;
    }
    engine.ponderOption = value == "true";
    say("info string Ponder set to : ", (engine.ponderOption ? 1 : 0));
}

void setHash(const optionRequest& request) {
    int number;
    if (!numericValue(request, &number)) {
        say("info string Hash needs a number; it stays ", engine.hashSize);
        return;
    }
    if (refuseWhileSearching("changing Hash")) return;
    number = std::clamp(number, 1, HASH_MAX_MB);
    if (!resizeHashTable(number)) {
        say("info string Hash of ", number, " MB cannot be allocated; it stays ", engine.hashSize);
        return;
    }
    engine.hashSize = number;
    say("info string Size of Hashtable set to : ", number);
}

void setThreads(const optionRequest& request) {
    int number;
    if (!numericValue(request, &number)) {
        say("info string Threads needs a number; it stays ", engine.nofThreads);
        return;
    }
    if (refuseWhileSearching("changing Threads")) return;
    int wanted = std::clamp(number, 1, THREADS_MAX);
    theWorkForce.setNofWorkers(wanted);
    engine.nofThreads = static_cast<int>(theWorkForce.workers.size());
    if (engine.nofThreads < wanted)
        say("info string only ", engine.nofThreads, " threads could be started: memory ran out");
    say("info string Number of threads set to : ", engine.nofThreads);
}

void setMoveOverhead(const optionRequest& request) {
    int number;
    if (!numericValue(request, &number)) {
        say("info string MoveOverhead needs a number; it stays ", engine.moveOverhead);
        return;
    }
    engine.moveOverhead = std::clamp(number, 1, MOVE_OVERHEAD_MAX);
    say("info string MoveOverhead set to : ", engine.moveOverhead);
}

void setSyzygyProbeDepth(const optionRequest& request) {
    int number;
    if (!numericValue(request, &number)) {
        say("info string SyzygyProbeDepth needs a number; it stays ", engine.syzygyProbeDepth.load());
        return;
    }
    engine.syzygyProbeDepth.store(std::clamp(number, 0, PROBE_DEPTH_MAX));
    say("info string SyzygyProbeDepth set to: ", engine.syzygyProbeDepth.load());
}

// The options by their lowercase names.
struct optionHandler {
    const char* name;
    void (*set)(const optionRequest& request);
};
const optionHandler optionHandlers[] = {
    {"syzygypath", setSyzygyPath},
    {"ponder", setPonder},
    {"hash", setHash},
    {"threads", setThreads},
    {"moveoverhead", setMoveOverhead},
    {"syzygyprobedepth", setSyzygyProbeDepth},
};

void setOption(std::istringstream& words, const std::string& line) {
    optionRequest request{line, {}, {}, false};
    if (!readOptionRequest(words, &request)) {
        say("info string setoption needs: setoption name <option> value <value>");
        return;
    }
    std::string option = lowerCase(request.name);
    for (const optionHandler& handler : optionHandlers) {
        if (option == handler.name) {
            handler.set(request);
            return;
        }
    }
    say("info string unknown option ", request.name);
}

void newGame() {
    finishPreviousSearch();
    clearHashTableMT();
    clearAllHistories();
    engine.gamePly = 0;
    engine.newGame = true;
    std::fill(GPSData.hashHistory, GPSData.hashHistory + HASH_HISTORY_SIZE, 0);
    // Deliberately answers readyok, like isready.
    say("readyok");
}

}  // namespace

void positionCommand(std::istringstream& words) {
    std::string word;
    if (!(words >> word)) {
        say("info string position needs startpos or fen");
        return;
    }
    bool fromStart = word == "startpos";
    if (fromStart) {
        setGamePosition(fenStartPos);
        words >> word;  // taken as "moves" without looking at it
    } else if (word == "fen") {
        std::string fen;
        while (words >> word && word != "moves") fen += word + " ";
        std::string reason;
        if (!validateFen(fen, &reason)) {
            say("info string invalid FEN (", reason, "); the position is unchanged");
            return;
        }
        setGamePosition(fen);
    } else {
        say("info string position needs startpos or fen, not ", word);
        return;
    }
    int fenHistory = GPSData.historyCount;
    int played = 0;
    while (words >> word) {
        if (!playMoveText(word)) {
            say("info string illegal move ", word, "; the moves from it on are ignored");
            break;
        }
        played++;
    }
    GPSData.plyState[0].inCheck = isSideInCheck(&GPSData, GPSData.sideToMove) ? 1 : 0;
    if (fromStart)
        engine.gamePly = played;
    else
        engine.gamePly = fenHistory <= 1 ? 1024 : fenHistory + played;
}

bool executeCommand(const std::string& line) {
    std::istringstream words(line);
    std::string command;
    if (!(words >> command)) return true;  // a blank line is ignored
    try {
        if (command == "uci") {
            printOptions();
        } else if (command == "isready") {
            say("readyok");
        } else if (command == "ucinewgame") {
            newGame();
        } else if (command == "position") {
            positionCommand(words);
        } else if (command == "go") {
            goCommand(words);
        } else if (command == "stop") {
            stopTheSearch();
        } else if (command == "ponderhit") {
            if (theWorkForce.bossFinished.load(std::memory_order_relaxed))
                stopTheSearch();
            else
                theWorkForce.ponderSearch.store(false, std::memory_order_relaxed);
        } else if (command == "setoption") {
            setOption(words, line);
        } else if (command == "quit") {
            stopTheSearch();
            return false;
        } else if (command == "perft") {
            std::string word;
            int depth = perftDepth;
            if (words >> word && !parseInt(word, &depth)) {
                say("info string perft depth must be a number; using ", perftDepth);
                depth = perftDepth;
            }
            if (testFenPosition(depth, "current")) perftDepth = depth;  // a refused depth is not kept
        } else if (command == "rtest") {
            if (!refuseWhileSearching("rtest")) checkMoveGenWithPerft();
        } else if (command == "texel") {
            if (!refuseWhileSearching("texel")) doTheTexel();
        } else if (command == "bench") {
            if (!refuseWhileSearching("bench")) runBench();
        } else if (command == "eval") {
            say("info string eval ", evaluateN(0, &GPSData));
        } else if (command == "showboard") {
            std::string board = boardToString(&GPSData);
            board.pop_back();  // sendLine adds the last line end
            sendLine(board);
        } else if (command == "help") {
            printHelp();
        } else if (command == "evil") {
            // Accepted and ignored, deliberately (not an unknown command).
        } else {
            sendLine("Unknown command");
        }
    } catch (const std::exception& error) {
        say("info string ", command, " failed: ", error.what());
    }
    return true;
}
