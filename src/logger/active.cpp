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
        if (queuedJobs() == 0) {
            Sleep(kIdlePollMs);
            continue;
        }
        // The job stays at the front of the queue until it has finished.
        std::function<void()> job = frontJob();
        if (job) {
            try {
                job();
            } catch (const std::exception& error) {
                ErrHandler(error);
            }
        }
        popFrontJob();
    }
}

std::size_t Active::queuedJobs() {
    std::lock_guard<std::mutex> lock(queueLock);
    return queue.size();
}

std::function<void()> Active::frontJob() {
    std::lock_guard<std::mutex> lock(queueLock);
    return queue.front();
}

void Active::popFrontJob() {
    std::lock_guard<std::mutex> lock(queueLock);
    queue.pop_front();
}
