#include "logger/active.h"

#include "platform/utils.h"

namespace {

constexpr int kIdlePollMs = 100;

}  // namespace

void ErrHandler(const std::exception&) {}

Active::Active() {
    worker = std::thread([this] { run(); });
}

Active::~Active() {
    stop();
}

void Active::send(std::function<void()> job) {
    std::lock_guard<std::mutex> lock(queueLock);
    queue.push_back(std::move(job));
}

void Active::stop() {
    if (done) {
        return;
    }
    send([this] { done = true; });
    worker.join();
}

void Active::run() {
    while (!done) {
        std::function<void()>* job = frontJob();
        if (job == nullptr) {
            Sleep(kIdlePollMs);
            continue;
        }
        // Run in place, outside the lock: it stays at the front of the queue until it has
        // finished, and only this thread removes jobs.
        if (*job) {
            try {
                (*job)();
            } catch (const std::exception& error) {
                ErrHandler(error);
            }
        }
        popFrontJob();
    }
}

// A deque keeps references to its elements valid when others are appended, so the front job
// needs no copy (a log line's job would copy the whole line).
std::function<void()>* Active::frontJob() {
    std::lock_guard<std::mutex> lock(queueLock);
    return queue.empty() ? nullptr : &queue.front();
}

void Active::popFrontJob() {
    // Destroyed once the lock is released: the job may hold the last reference to an object
    // whose destruction waits for a thread that is queueing a job here.
    std::function<void()> finished;
    std::lock_guard<std::mutex> lock(queueLock);
    finished = std::move(queue.front());
    queue.pop_front();
}
