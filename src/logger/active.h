#pragma once

#include <atomic>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>

// A private worker thread that runs posted jobs one at a time, in posting order. An idle
// worker looks at its queue every 100 milliseconds. Neither copyable nor movable: the
// worker refers to the object by address.
class Active {
  public:
    Active();  // throws std::system_error when the thread cannot be started
    ~Active();

    Active(const Active&) = delete;
    Active& operator=(const Active&) = delete;

    // Queues a job; callable from any thread, including from a job of this object.
    void send(std::function<void()> job);

    // Runs every job queued so far, then ends the worker and joins it. Jobs queued behind
    // the stop never run. A second call returns at once. Never call it from a job.
    void stop();

  private:
    void run();
    std::function<void()>* frontJob();
    void popFrontJob();

    std::deque<std::function<void()>> queue;  // guarded by queueLock
    std::atomic<bool> done{false};
    std::mutex queueLock;
    std::thread worker;
};

// Receives what a job threw; failed jobs are not reported anywhere else.
void ErrHandler(const std::exception& error);
