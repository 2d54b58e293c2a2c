#include "core/updater.h"

#include <chrono>
#include <exception>
#include <filesystem>
#include <limits>
#include <thread>

namespace {

const char* const kMarkerName = "QuorvelNativeMessageHost_update";
constexpr int64_t kCheckIntervalSeconds = 5;

}  // namespace

Updater::Updater(std::shared_ptr<IWriter> writer)
    : tracer("HOST-UPD", std::move(writer)), interval(kCheckIntervalSeconds) {}

void Updater::Start(std::function<void()> callback) {
    this->callback = std::move(callback);
    CheckUpdateAsync();
}

void Updater::CheckUpdateAsync() {
    worker.send([this] { CheckUpdate(); });
}

void Updater::Cancel() {
    cancelled = true;
}

void Updater::CheckUpdate() {
    WaitInterval();
    tracer.WriteEntry("Check for messagehost update");
    if (cancelled) {
        return;
    }
    if (UpdateExists()) {
        if (callback) {
            callback();
        }
        return;
    }
    CheckUpdateAsync();
}

void Updater::WaitInterval() const {
    if (interval < 1) {
        return;
    }
    constexpr int64_t kNanosecondsPerSecond = 1000000000;
    const int64_t nanoseconds =
        interval >= std::numeric_limits<int64_t>::max() / kNanosecondsPerSecond
            ? std::numeric_limits<int64_t>::max()
            : interval * kNanosecondsPerSecond;
    std::this_thread::sleep_for(std::chrono::nanoseconds(nanoseconds));
}

bool Updater::UpdateExists() {
    try {
        return std::filesystem::exists(std::filesystem::current_path() / kMarkerName);
    } catch (const std::exception& error) {
        tracer.WriteEntry(std::string("Error in UpdateExists: ") + error.what());
        return false;
    }
}
