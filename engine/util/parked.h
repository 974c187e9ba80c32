// A long-lived thread that parks on its own mutex and condition variable between jobs. The
// search workers and the tuning threads share this protocol.
#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>

class parkedThread {
public:
    parkedThread() = default;
    virtual ~parkedThread();
    parkedThread(const parkedThread&) = delete;
    parkedThread& operator=(const parkedThread&) = delete;

    // Blocks until this thread is idle.
    void waitToTakeABreak();
    // Hands the thread its work: lock, hasWork = true, notify one, unlock.
    void wake();

    std::mutex officeMutex;
    std::condition_variable officeCondition;  // used both ways: work arrives / thread idle
    bool quitWork = false;
    bool hasWork = true;
    std::thread officeThread;

protected:
    // Starts the thread and returns once it is parked. Called at the end of the most derived
    // constructor's set-up; the thread calls doWork() only after the next wake().
    void startThread();
    // The job run on every wake-up.
    virtual void doWork() = 0;

private:
    void atTheOffice();
};
