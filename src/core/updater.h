#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>

#include "logger/active.h"
#include "logger/tracer.h"

class IWriter;

// Watches the working directory for the marker of a pending update of the host, every five
// seconds on a worker of its own, and reports the first find through the callback. It never
// reads or removes the marker.
class Updater {
  public:
    explicit Updater(std::shared_ptr<IWriter> writer);

    // Stores the callback (called on the worker) and queues the first check.
    void Start(std::function<void()> callback);
    void CheckUpdateAsync();

    // Ends the watch at the next check, which still logs its entry. Callable from any thread.
    void Cancel();

    // One look for the marker; errors are logged and count as no marker.
    bool UpdateExists();

  private:
    void CheckUpdate();
    void WaitInterval() const;

    Tracer tracer;
    std::function<void()> callback;  // set before the first check, read only by the worker
    std::atomic<bool> cancelled{false};
    int64_t interval;  // seconds before each check
    Active worker;     // last member: stopped before the rest goes
};
