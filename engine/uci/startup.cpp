// Start-up and shutdown sequences.
#include "engine/uci/startup.h"

#include "engine/board/attacks.h"
#include "engine/board/position.h"
#include "engine/board/zobrist.h"
#include "engine/eval/evaluate.h"
#include "engine/search/engine.h"
#include "engine/search/tablebase.h"
#include "engine/search/tables.h"
#include "engine/search/tt.h"
#include "engine/threads/workforce.h"
#include "engine/util/output.h"

void initBitboardConstants() {
    initAttackTables();
    initLMR();
}

void initHashCodeTables() {
    copyHashCodes();
    resizeHashTable(engine.hashSize);
}

void setGamePosition(const std::string& fen) {
    setPosition(fen, &GPSData);
    computeEvalSums(&GPSData);
    GPSData.plyState[0].moveList = GMS;
}

void initEngine() {
    say("Vorix 2.211\nby Merrowind\n\nenter 'help' to see the commands");
    initBitboardConstants();
    initHashCodeTables();
    setGamePosition(fenStartPos);
    theWorkForce.setNofWorkers(engine.nofThreads);
}

void shutdownEngine() {
    stopTheSearch();
    theWorkForce.setNofWorkers(0);
    freeHashTable();
    tablebaseFree();
}
