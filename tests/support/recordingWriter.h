#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "logger/iWriter.h"

// Keeps every line it is given; safe to use from several threads.
class RecordingWriter : public IWriter {
  public:
    void Update(const std::string& line) override {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            lines_.push_back(line);
        }
        changed_.notify_all();
    }

    std::vector<std::string> lines() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return lines_;
    }

    // Waits until the lines satisfy the condition or a generous deadline passes.
    bool waitUntil(const std::function<bool(const std::vector<std::string>&)>& condition,
                   std::chrono::seconds deadline = std::chrono::seconds(20)) const {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, deadline, [&] { return condition(lines_); });
    }

    // Waits for at least `count` lines.
    bool waitForLines(std::size_t count) const {
        return waitUntil(
            [count](const std::vector<std::string>& lines) { return lines.size() >= count; });
    }

  private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::vector<std::string> lines_;
};
