#include "forwardingRun.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <stdexcept>
#include <thread>

#include "measuredProcess.h"
#include "timedAgent.h"

namespace {

using Clock = TimedAgent::Clock;

// Lets the forwarder start before the first frame, so that its start is not counted as latency.
// The host's workers begin their 100 ms polls together as it starts; the extra half poll puts
// the first frame between two polls of the agent port, the middle case rather than the best.
constexpr std::chrono::milliseconds kSettle(550);
constexpr std::chrono::seconds kReadDeadline(60);
// A few quick looks catch a forwarder that reads at once; later ones sleep, not to take a core
// from a forwarder that waits for its next poll.
constexpr int kYieldsBeforeSleeping = 200;
constexpr std::chrono::microseconds kPollSleep(50);

double millisecondsBetween(Clock::time_point from, Clock::time_point to) {
    return std::chrono::duration<double, std::milli>(to - from).count();
}

// One frame in flight: the next is written once the pipe is empty, which is as fast as the
// forwarder reads and never queues frames ahead of it.
void waitUntilRead(const MeasuredProcess& process) {
    const Clock::time_point deadline = Clock::now() + kReadDeadline;
    for (int look = 0; process.unreadInput() > 0; ++look) {
        if (Clock::now() > deadline) {
            throw std::runtime_error("the forwarder stopped reading its input");
        }
        if (look < kYieldsBeforeSleeping) {
            std::this_thread::yield();
        } else {
            std::this_thread::sleep_for(kPollSleep);
        }
    }
}

void addTimings(ForwardingFigures& figures, const std::vector<Clock::time_point>& writes,
                const std::vector<Clock::time_point>& arrivals, std::size_t size) {
    std::vector<double> latencies;
    std::vector<double> gaps;
    for (std::size_t i = 0; i < arrivals.size(); ++i) {
        latencies.push_back(millisecondsBetween(writes[i], arrivals[i]));
        if (i > 0) {
            gaps.push_back(millisecondsBetween(arrivals[i - 1], arrivals[i]));
        }
    }
    figures.latencyMedianMs = percentile(latencies, 0.5);
    figures.latency99Ms = percentile(latencies, 0.99);
    figures.gapMedianMs = percentile(gaps, 0.5);
    figures.gapLongestMs = percentile(gaps, 1.0);
    // A single frame has no sustained rate; its own write-to-arrival time stands for it.
    const double spanMs = arrivals.size() > 1
                              ? millisecondsBetween(arrivals.front(), arrivals.back())
                              : figures.latencyMedianMs;
    const double intervals = arrivals.size() > 1 ? static_cast<double>(arrivals.size() - 1) : 1;
    figures.framesPerSecond = spanMs > 0 ? intervals * 1000 / spanMs : 0;
    figures.megabytesPerSecond = figures.framesPerSecond * static_cast<double>(size) / 1e6;
}

void addResourceUsage(ForwardingFigures& figures, const MeasuredProcess& process) {
    figures.cpuSecondsPerFrame = process.cpuSeconds() / static_cast<double>(figures.frames);
    figures.peakResidentMiB = static_cast<double>(process.peakResidentKiB()) / 1024;
}

}  // namespace

ForwardingFigures runForwarding(const ForwardingProgram& forwarder, const std::string& socketPath,
                                const std::filesystem::path& workDir, std::size_t size,
                                std::size_t frames) {
    const std::string payload = payloadOfSize(size);
    TimedAgent agent(socketPath, payload, frames);
    MeasuredProcess process(forwarder.arguments, workDir, forwarder.program);
    std::this_thread::sleep_for(kSettle);
    std::vector<Clock::time_point> writes;
    for (std::size_t i = 0; i < frames; ++i) {
        writes.push_back(Clock::now());
        process.writeFrame(payload);
        waitUntilRead(process);
    }
    const std::vector<Clock::time_point> arrivals = agent.arrivals();
    process.closeInput();
    if (process.waitForExit(std::chrono::seconds(60)) != 0) {
        throw std::runtime_error(forwarder.label + " did not exit with status 0");
    }
    ForwardingFigures figures;
    figures.frames = frames;
    figures.delivered = arrivals.size();
    addTimings(figures, writes, arrivals, size);
    addResourceUsage(figures, process);
    return figures;
}

std::string payloadOfSize(std::size_t size) {
    static const std::string pattern = "{\"type\":\"page\",\"title\":\"Example\"} ";
    std::string payload;
    payload.reserve(size);
    while (payload.size() < size) {
        payload.append(pattern, 0, std::min(pattern.size(), size - payload.size()));
    }
    return payload;
}

double percentile(std::vector<double> values, double fraction) {
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    const auto rank =
        static_cast<std::size_t>(std::ceil(fraction * static_cast<double>(values.size())));
    return values[std::max<std::size_t>(rank, 1) - 1];
}
