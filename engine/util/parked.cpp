// The parking protocol of long-lived threads.
#include "engine/util/parked.h"

void parkedThread::startThread() {
    officeThread = std::thread(&parkedThread::atTheOffice, this);
    waitToTakeABreak();
}

parkedThread::~parkedThread() {
    if (!officeThread.joinable()) return;
    quitWork = true;  // published by the lock in wake
    wake();
    officeThread.join();
}

void parkedThread::wake() {
    std::lock_guard<std::mutex> lock(officeMutex);
    hasWork = true;
    officeCondition.notify_one();
}

void parkedThread::waitToTakeABreak() {
    std::unique_lock<std::mutex> lock(officeMutex);
    officeCondition.wait(lock, [this] { return !hasWork; });
}

// Thread body: go idle (releasing a waiter), wait for work, run it, repeat until told to quit.
void parkedThread::atTheOffice() {
    for (;;) {
        std::unique_lock<std::mutex> lock(officeMutex);
        hasWork = false;
        officeCondition.notify_one();
        officeCondition.wait(lock, [this] { return hasWork; });
        if (quitWork) return;
        lock.unlock();
        doWork();
    }
}
