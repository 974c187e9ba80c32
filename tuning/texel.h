// The Texel tuner: the labelled positions, the registered evaluation parameters, the pool of
// tuning threads that measures the prediction error, and the coordinate-descent loop.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "engine/board/position.h"
#include "engine/util/parked.h"

constexpr const char* TEXEL_FILE_NAME = "lichess-good.epd";
constexpr int NOF_TEXEL_WORKERS = 24;
// Scale of the logistic curve that maps a score to an expected result.
constexpr double TEXEL_K = 1.83;
// readTexelPos's result when the file cannot be opened.
constexpr int TEXEL_FILE_PROBLEM = 9;

// One labelled position.
struct texelPosStruct {
    std::string fen;
    double result;      // 1.0 White won, 0.5 draw, 0.0 otherwise
    int16_t spare = 0;  // set to 0, not used by the error
};

// The whole data set in file order.
extern std::vector<texelPosStruct> texelPositions;
// Lines of the last read that were not labelled positions (blank lines not counted).
extern int32_t texelSkippedLines;

// One registered parameter entry. A group is a run of entries over neighbouring values of one
// table; its first entry carries what printing needs.
struct texelParStruct {
    std::string name;    // progress lines and the printed table's name
    int32_t* value;      // the evaluation word this entry changes (packed or plain)
    int32_t count;       // values in the group that starts here
    int32_t firstIndex;  // index in texelPars of the group's first entry
    bool packed;         // the group holds mg/eg pairs, printed as X(mg,eg)
    bool singleEntry;    // one entry per value; otherwise two in a row (mg, then eg)
    bool pawnRows;       // the first and last 8 values of the table are not registered
    bool mirrored;       // only files a..d are registered; changes also go to files h..e
    bool plainHalf;      // the step goes to the whole word (mg half); otherwise to eg
    int32_t kind;        // 0..12: the text around the group when printed
    int32_t stepIndex;   // current index into texelIncStep
};

extern std::vector<texelParStruct> texelPars;
extern int32_t nofTexelPars;  // always texelPars.size()
constexpr int32_t texelIncStep[5] = {1, 2, 3, 5, 9};
constexpr int32_t TEXEL_MAX_STEP_INDEX = 4;

// Options of addTexelGroup.
enum texelGroupFlag : uint32_t {
    TEXEL_PACKED = 1,        // mg/eg pairs
    TEXEL_SINGLE_ENTRY = 2,  // packed: one entry per value, tuning only one half
    TEXEL_PAWN_ROWS = 4,     // leave out the first and the last row of 8
    TEXEL_MIRRORED = 8,      // register files a..d, write every change to files h..e too
    TEXEL_EG_HALF = 16,      // single entries step the end-game half instead of the whole word
};

// Registers table[0 .. nofValues - 1] as one group and returns the index of its first entry,
// or -1 when the request makes no group (no values, a kind out of 0..12, mirrored or pawn
// rows on a table that is not whole rows of 8).
int addTexelGroup(const std::string& name, int32_t* table, int nofValues, int kind, uint32_t flags,
                  int stepIndex = TEXEL_MAX_STEP_INDEX);
// Empties the registered list.
void clearTexelParameters();

// A tuning thread: parks on its own mutex and condition variable exactly like a search worker
// and, when woken, sums the squared errors of its own share of the positions.
class texelWorker : public parkedThread {
public:
    explicit texelWorker(int id);

    // Sets subsetError to the sum of squared errors over positions.
    virtual void calcTexelPosSubset();

    int32_t workerId;
    std::vector<texelPosStruct> positions;  // this thread's copy of its share
    // Written by this thread while it works, read by the tuning loop only after
    // waitToTakeABreak, whose lock orders the two.
    double subsetError = 0.0;
    positionStruct ownPosition;
    positionStruct* position;

protected:
    void doWork() override { calcTexelPosSubset(); }
};

class texelWorkForce {
public:
    ~texelWorkForce();  // joins the parked threads at exit

    // Destroys the pool (each thread waited for, then deleted from the last to the first) and
    // builds one of n parked threads.
    void setNofWorkers(int n);
    // Gives every thread its copy of its share of texelPositions: n / threads each, the
    // remainder to the last.
    void shareOutPositions();
    // Mean squared error of the predicted results over texelPositions.
    double calcTexelError();

    std::vector<texelWorker*> workers;
};

extern texelWorkForce theTexelWorkForce;

// Fills texelPositions from fileName; TEXEL_FILE_PROBLEM when it cannot be opened or holds no
// labelled position, 0 otherwise.
int readTexelPos(const char* fileName = TEXEL_FILE_NAME);
// Writes every registered group as a source table.
void printTexelParameters(std::ostream& out);
// printTexelParameters to standard output as whole lines.
void printTexelParameters();
// The coordinate descent over the registered parameters with its progress lines; the tuning
// threads must hold their shares. Returns the minimum error found.
double runTexelLoop();
// The "texel" command: reads the file, builds the tuning threads, clears the registered list
// and runs the loop.
void doTheTexel();
