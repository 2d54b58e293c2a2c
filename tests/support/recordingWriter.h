#pragma once

#include <chrono>
#include <condition_variable>
#include <ctime>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "logger/iWriter.h"
#include "support/logLine.h"

// Keeps every line it is given; safe to use from several threads.
class RecordingWriter : public IWriter {
  public:
    void Update(const std::string& line) override {
        std::lock_guard<std::mutex> lock(mutex_);
        lines_.push_back(line);
        arrivals_.push_back(std::time(nullptr));
        changed_.notify_all();
    }

    std::vector<std::string> lines() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return lines_;
    }

    // The messages of the tracer lines with this tag, stamped between this writer's creation
    // and the line's arrival; any other line stays whole (see checkedEntry).
    std::vector<std::string> messages(const std::string& tag) const {
        const std::string column = tag + " | ";
        std::lock_guard<std::mutex> lock(mutex_);
        std::vector<std::string> result;
        for (std::size_t i = 0; i < lines_.size(); ++i) {
            const std::string entry = checkedEntry(lines_[i], created_, arrivals_[i]);
            result.push_back(entry.rfind(column, 0) == 0 ? entry.substr(column.size()) : entry);
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
    const std::time_t created_ = std::time(nullptr);
    std::vector<std::string> lines_;
    std::vector<std::time_t> arrivals_;  // when each line came, beside it
};
