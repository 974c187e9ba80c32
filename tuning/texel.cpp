// The Texel tuner's data and loop: reading the labelled positions, registering parameters,
// the coordinate descent over them, and printing them back as source tables.
#include "tuning/texel.h"

#include <fstream>
#include <iomanip>
#include <memory>
#include <sstream>

#include "engine/board/attacks.h"
#include "engine/board/zobrist.h"
#include "engine/eval/psqt.h"
#include "engine/util/output.h"

std::vector<texelPosStruct> texelPositions;
int32_t texelSkippedLines = 0;
std::vector<texelParStruct> texelPars;
int32_t nofTexelPars = 0;

namespace {

// The blank-separated tokens of a line (tabs and a carriage return count as blanks).
std::vector<std::string> splitTokens(const std::string& line) {
    std::vector<std::string> tokens;
    std::istringstream words(line);
    std::string word;
    while (words >> word) tokens.push_back(word);
    return tokens;
}

// One line as a labelled position: the tokens up to "c9" joined by blanks are the FEN, the
// token after it the quoted result. False when the line has no "c9", nothing after it, a
// result token too short to hold one, or a FEN whose set-up fails (a non-numeric clock).
bool parseTexelLine(const std::vector<std::string>& tokens, positionStruct* scratch, texelPosStruct* out) {
    size_t c9 = 1;
    while (c9 < tokens.size() && tokens[c9] != "c9") c9++;
    if (c9 + 1 >= tokens.size() || tokens[c9 + 1].size() < 4) return false;
    std::string fen = tokens[0];
    for (size_t i = 1; i < c9; i++) fen += " " + tokens[i];
    try {
        setPositionView(fen, scratch);
    } catch (const std::exception&) {
        return false;
    }
    // Only the three characters after the opening quote count; a result that is neither a
    // White win nor a draw is deliberately read as a Black win.
    std::string result = tokens[c9 + 1].substr(1, 3);
    out->fen = fen;
    out->result = result == "1-0" ? 1.0 : (result == "1/2" ? 0.5 : 0.0);
    out->spare = 0;
    return true;
}

// Adds delta to entry i's value, to the whole word or to the end-game half only, and copies
// the new word to the mirror square of a mirrored group.
void shiftTexelPar(int i, int delta) {
    texelParStruct& p = texelPars[i];
    int32_t word = *p.value;
    int32_t shifted = p.plainHalf ? static_cast<int32_t>(static_cast<uint32_t>(word) + static_cast<uint32_t>(delta))
                                  : packScore(mgHalf(word), egHalf(word) + delta);
    *p.value = shifted;
    if (p.mirrored) {
        int perValue = p.singleEntry ? 1 : 2;
        int file = ((i - p.firstIndex) / perValue) % 4;
        // Deliberately the whole word, and also when a failed trial restores the value: a
        // tried square leaves its mirror equal to itself even where the two differed before.
        p.value[7 - 2 * file] = shifted;
    }
}

// Tries the parameter's steps from its current index downwards, keeping the first change
// that lowers the error; returns whether one did.
bool tryTexelPar(int i, double* best) {
    texelParStruct& p = texelPars[i];
    for (;;) {
        int step = texelIncStep[p.stepIndex];
        shiftTexelPar(i, step);
        double err = theTexelWorkForce.calcTexelError();
        if (!(err < *best)) {
            shiftTexelPar(i, -2 * step);
            err = theTexelWorkForce.calcTexelError();
        }
        if (err < *best) {
            say("Min error ", err, " parameter ", i, " ", p.name, " stepsize ", p.stepIndex);
            *best = err;
            // Deliberately a success shrinks the step as well.
            if (p.stepIndex > 0) p.stepIndex--;
            return true;
        }
        shiftTexelPar(i, step);
        // Deliberately stops at index 0 without trying it: after a failed step 2 the step
        // 1 is never tried.
        if (p.stepIndex < 1) return false;
        p.stepIndex--;
        if (p.stepIndex == 0) return false;
    }
}

}  // namespace

int readTexelPos(const char* fileName) {
    texelPositions.clear();
    texelSkippedLines = 0;
    std::ifstream file(fileName);
    if (!file.is_open()) {
        say("There seems to be a problem with the tuning file. tuning not executed");
        return TEXEL_FILE_PROBLEM;
    }
    std::unique_ptr<positionStruct> scratch(new positionStruct());
    std::string line;
    while (std::getline(file, line)) {
        std::vector<std::string> tokens = splitTokens(line);
        if (tokens.empty()) continue;
        texelPosStruct labelled;
        if (parseTexelLine(tokens, scratch.get(), &labelled))
            texelPositions.push_back(std::move(labelled));
        else
            texelSkippedLines++;
    }
    // Nothing to measure the error over: treated like a file that cannot be read, rather than
    // dividing 0 by 0.
    if (texelPositions.empty()) {
        say("There seems to be a problem with the tuning file. tuning not executed");
        return TEXEL_FILE_PROBLEM;
    }
    return 0;
}

int addTexelGroup(const std::string& name, int32_t* table, int nofValues, int kind, uint32_t flags, int stepIndex) {
    bool mirrored = (flags & TEXEL_MIRRORED) != 0;
    bool pawnRows = (flags & TEXEL_PAWN_ROWS) != 0;
    int skipped = pawnRows ? 8 : 0;
    if (nofValues - 2 * skipped < 1 || kind < 0 || kind > 12) return -1;
    if ((mirrored || pawnRows) && nofValues % 8 != 0) return -1;
    texelParStruct entry;
    entry.name = name;
    entry.firstIndex = nofTexelPars;
    entry.packed = (flags & TEXEL_PACKED) != 0;
    entry.singleEntry = !entry.packed || (flags & TEXEL_SINGLE_ENTRY) != 0;
    entry.pawnRows = pawnRows;
    entry.mirrored = mirrored;
    entry.kind = kind;
    entry.stepIndex = stepIndex < 0 ? 0 : (stepIndex > TEXEL_MAX_STEP_INDEX ? TEXEL_MAX_STEP_INDEX : stepIndex);
    int count = 0;
    for (int v = skipped; v < nofValues - skipped; v++) {
        if (mirrored && v % 8 >= 4) continue;
        entry.value = table + v;
        entry.plainHalf = entry.singleEntry ? (flags & TEXEL_EG_HALF) == 0 : true;
        texelPars.push_back(entry);
        if (!entry.singleEntry) {
            entry.plainHalf = false;
            texelPars.push_back(entry);
        }
        count++;
    }
    for (int i = entry.firstIndex; i < static_cast<int>(texelPars.size()); i++) texelPars[i].count = count;
    nofTexelPars = static_cast<int32_t>(texelPars.size());
    return entry.firstIndex;
}

void clearTexelParameters() {
    texelPars.clear();
    nofTexelPars = 0;
}

void printTexelParameters(std::ostream& out) {
    int i = 0;
    while (i < nofTexelPars) {
        const texelParStruct& p = texelPars[i];
        int k = p.kind;
        // Step 1. Lead-in, and the opening brace for all but scalars and continued tables
        if (k <= 9)
            out << "TCONST combEval " << p.name << " = ";
        else if (k == 10)
            out << "TCONST combEval pieceSquareScore[6][NOFSQUARES] = ";
        else
            out << "// " << p.name << "\n";
        if (k != 1 && k != 3 && k != 11 && k != 12) out << "\n{\n";

        // Step 2. Fixed values the table holds before the registered ones
        if (k == 5 || k == 6 || k == 7) out << " X(   0,   0), ";
        if (k == 7) out << " X(   0,   0), ";
        if (k == 8) out << " 0, ";
        if (k == 9) out << " X(  82,  94), ";  // deliberately fixed, whatever the pawn's value

        // Step 3. The values, 8 to a line
        int n = p.count * (p.mirrored ? 2 : 1);
        const int32_t* values = p.value;
        if (p.pawnRows) {
            n += 16;
            values -= 8;
        }
        for (int v = 0; v < n; v++) {
            if (p.packed)
                out << "X(" << std::setw(4) << mgHalf(values[v]) << "," << std::setw(4) << egHalf(values[v]) << ")";
            else
                out << values[v];
            if (v + 1 < n) out << ", ";
            if ((v + 1) % 8 == 0) out << "\n";
        }

        // Step 4. Fixed values after them, and the close
        if (k == 6 || k == 7) out << ", X( 0, 0) ";
        if (k == 9) out << ", X(12000, 12000) ";
        if (k == 1 || k == 3)
            out << ";\n";
        else if (k != 10 && k != 11)
            out << "\n};\n";

        i += p.singleEntry ? p.count : 2 * p.count;
    }
}

void printTexelParameters() {
    std::ostringstream text;
    printTexelParameters(text);
    std::string lines = text.str();
    if (lines.empty()) return;
    if (lines.back() == '\n') lines.pop_back();  // sendLine ends the last line
    sendLine(lines);
}

double runTexelLoop() {
    printTexelParameters();
    double best = theTexelWorkForce.calcTexelError();
    say("Starting error ", best);

    int pass = 0;
    bool improved = true;
    while (improved) {
        improved = false;
        for (int i = 0; i < nofTexelPars; i++) improved = tryTexelPar(i, &best) || improved;
        pass++;
        say("");
        say(" Improving: ", pass);
        if (pass % 10 == 0) printTexelParameters();
    }

    say("Ending error ", theTexelWorkForce.calcTexelError(), " Minimum error ", best);
    printTexelParameters();
    return best;
}

void doTheTexel() {
    // Step 1. Constant tables and keys, as the set-up of positions needs them
    initAttackTables();
    copyHashCodes();

    // Step 2. The data set
    if (readTexelPos() != 0) {
        if (texelSkippedLines > 0) say("info string skipped ", texelSkippedLines, " malformed lines");
        return;
    }

    // Step 3. Fresh tuning threads, each with its own copy of its share
    theTexelWorkForce.setNofWorkers(NOF_TEXEL_WORKERS);
    theTexelWorkForce.shareOutPositions();

    // Step 4. The loop. Deliberately over an empty list: nothing is registered for a plain
    // "texel", so the run measures the error once and makes one empty pass.
    say("Starting texel tuning....");
    clearTexelParameters();
    runTexelLoop();

    if (texelSkippedLines > 0) say("info string skipped ", texelSkippedLines, " malformed lines");
}
