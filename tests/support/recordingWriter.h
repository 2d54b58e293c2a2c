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
        std::lock_guard<std::mutex> lock(mutex_);
        lines_.push_back(line);
        changed_.notify_all();
    }

    std::vector<std::string> lines() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return lines_;
    }

    // The messages of the tracer lines with this tag, after the 19-character time stamp;
    // any other line stays whole, so that it shows up in a comparison.
    std::vector<std::string> messages(const std::string& tag) const {
        const std::string column = " | " + tag + " | ";
        std::vector<std::string> result;
        for (const std::string& line : lines()) {
            result.push_back(line.find(column) == 19 ? line.substr(19 + column.size()) : line);
        }
        return result;
    }

    // Waits until the lines satisfy the condition or a generous deadline passes.
    bool waitUntil(const std::function<bool(const std::vector<std::string>&)>& condition) const {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(20), [&] { return condition(lines_); });
    }

  private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::vector<std::string> lines_;
};
