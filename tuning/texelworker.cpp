// The tuning threads: the share-out of the positions and the error of
// the material-and-square score against the game results.
#include <cmath>
#include <cstring>

#include "engine/eval/evaluate.h"
#include "tuning/texel.h"

texelWorkForce theTexelWorkForce;

texelWorker::texelWorker(int id) : workerId(id) {
    std::memset(static_cast<void*>(&ownPosition), 0, sizeof(ownPosition));
    position = &ownPosition;
    ownPosition.workerId = id;
    startThread();  // returns once the new thread is parked
}

void texelWorker::calcTexelPosSubset() {
    double sum = 0.0;
    for (const texelPosStruct& labelled : positions) {
        setPositionView(labelled.fen, position);
        computeEvalSums(position);
        // Material, squares and tempo only: the tuned part of the evaluation, from White's view.
        int eval = static_cast<int16_t>(taperScore(packedBalance(position), position->phase));
        double predicted = 1.0 / (1.0 + std::pow(10.0, -TEXEL_K * eval / 400.0));
        double miss = labelled.result - predicted;
        sum += miss * miss;
    }
    subsetError = sum;
}

texelWorkForce::~texelWorkForce() { setNofWorkers(0); }

void texelWorkForce::setNofWorkers(int n) {
    for (texelWorker* w : workers) w->waitToTakeABreak();
    while (!workers.empty()) {
        delete workers.back();
        workers.pop_back();
    }
    for (int id = 0; id < n; id++) workers.push_back(new texelWorker(id));
}

void texelWorkForce::shareOutPositions() {
    if (workers.empty()) return;
    size_t total = texelPositions.size();
    size_t share = total / workers.size();
    for (size_t k = 0; k < workers.size(); k++) {
        auto first = texelPositions.begin() + static_cast<std::ptrdiff_t>(k * share);
        auto last = k + 1 == workers.size() ? texelPositions.end() : first + static_cast<std::ptrdiff_t>(share);
        workers[k]->positions.assign(first, last);
    }
}

double texelWorkForce::calcTexelError() {
    for (texelWorker* w : workers) w->wake();
    double sum = 0.0;
    for (texelWorker* w : workers) {
        w->waitToTakeABreak();
        sum += w->subsetError;
    }
    return sum / static_cast<double>(texelPositions.size());
}
