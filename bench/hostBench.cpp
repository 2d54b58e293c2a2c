// The end-to-end benchmark: runs the real host under a fake user entry, feeds it frames of
// several sizes and measures what reaches a timestamping agent, beside two references on the
// same input: a minimal blocking forwarder and, when installed, socat as a plain byte pump.
// Then the idle host's CPU use and the time of "--version". Prints Markdown to standard output.
//
// Usage: quorvelHostBench [--quick]   (--quick: tiny sizes and a short idle run, as CI runs it)
// Exits with 1 when a run fails or frames go missing; the goals never change the exit status.

#include <signal.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "forwardingRun.h"
#include "measuredProcess.h"
#include "platform/utils.h"
#include "support/fakeUser.h"
#include "support/hostProcess.h"
#include "support/tempDir.h"

namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

struct FrameSeries {
    std::size_t size;
    std::size_t frames;
};

struct Settings {
    std::vector<FrameSeries> series;  // the last one is the large single frame of the memory goal
    std::chrono::seconds idle;
    int versionRuns;
};

const Settings kFullRun{
    {{100, 100}, {10 * 1024, 100}, {1 << 20, 30}, {16 << 20, 1}}, std::chrono::seconds(30), 20};
const Settings kQuickRun{{{100, 3}, {10 * 1024, 2}, {64 * 1024, 1}}, std::chrono::seconds(1), 3};

// The goals the figures are held against.
constexpr double kMinFramesPerSecond = 9;
constexpr double kPollsPerSecond = 10;  // an idle worker looks at its queue every 100 ms
constexpr double kMaxIdleCpuPercent = 0.2;
constexpr double kMaxPayloadCopies = 5;
constexpr double kMaxVersionMs = 5;

struct Row {
    std::string label;
    ForwardingFigures figures;
};

struct IdleFigures {
    double seconds = 0;
    double cpuSeconds = 0;
    double peakResidentMiB = 0;
};

std::string sizeLabel(std::size_t size) {
    if (size >= (1 << 20) && size % (1 << 20) == 0) {
        return std::to_string(size >> 20) + " MiB";
    }
    if (size >= 1024 && size % 1024 == 0) {
        return std::to_string(size >> 10) + " KiB";
    }
    return std::to_string(size) + " B";
}

std::string fixed(double value, int decimals) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(decimals) << value;
    return text.str();
}

std::string verdict(bool met) {
    return met ? "**met**" : "**not met**";
}

bool installed(const std::string& program) {
    const char* path = std::getenv("PATH");
    std::istringstream folders(path ? path : "");
    for (std::string folder; std::getline(folders, folder, ':');) {
        if (!folder.empty() && access((fs::path(folder) / program).c_str(), X_OK) == 0) {
            return true;
        }
    }
    return false;
}

std::string cpuModel() {
    std::ifstream cpuinfo("/proc/cpuinfo");
    for (std::string line; std::getline(cpuinfo, line);) {
        if (line.rfind("model name", 0) == 0) {
            return line.substr(line.find(':') + 2);
        }
    }
    return "unknown";
}

void printMachine() {
    utsname system{};
    uname(&system);
    std::cout << "Machine: " << std::thread::hardware_concurrency() << " cores, " << cpuModel()
              << ", " << system.sysname << " " << system.release << " " << system.machine << "\n\n";
}

std::vector<ForwardingProgram> forwardingPrograms(const std::string& socketPath) {
    std::vector<ForwardingProgram> programs{
        {"host", QUORVEL_HOST_EXECUTABLE, {}},
        {"reference", QUORVEL_REFERENCE_FORWARDER, {socketPath}},
    };
    if (installed("socat")) {
        programs.push_back({"socat", "socat", {"-u", "STDIN", "UNIX-CONNECT:" + socketPath}});
    } else {
        std::cout << "socat is not installed: the byte-pump reference is left out.\n\n";
    }
    return programs;
}

void printTableHead() {
    std::cout << "| size | forwarder | frames | frames/s | MB/s | latency p50 (ms) "
                 "| latency p99 (ms) | CPU (ms/frame) | peak RSS (MiB) |\n"
                 "|---|---|---|---|---|---|---|---|---|\n";
}

void printFigures(const std::string& size, const Row& row) {
    const ForwardingFigures& f = row.figures;
    std::cout << "| " << size << " | " << row.label << " | " << f.delivered << "/" << f.frames
              << " | " << fixed(f.framesPerSecond, 2) << " | " << fixed(f.megabytesPerSecond, 3)
              << " | " << fixed(f.latencyMedianMs, 3) << " | " << fixed(f.latency99Ms, 3) << " | "
              << fixed(f.cpuSecondsPerFrame * 1000, 3) << " | " << fixed(f.peakResidentMiB, 1)
              << " |\n";
}

std::string ratio(double host, double reference) {
    return reference > 0 ? fixed(host / reference, 3) : "-";
}

void printRatio(const Row& host, const Row& reference) {
    const ForwardingFigures& h = host.figures;
    const ForwardingFigures& r = reference.figures;
    std::cout << "| | host / " << reference.label << " | | "
              << ratio(h.framesPerSecond, r.framesPerSecond) << " | "
              << ratio(h.megabytesPerSecond, r.megabytesPerSecond) << " | "
              << ratio(h.latencyMedianMs, r.latencyMedianMs) << " | "
              << ratio(h.latency99Ms, r.latency99Ms) << " | "
              << ratio(h.cpuSecondsPerFrame, r.cpuSecondsPerFrame) << " | "
              << ratio(h.peakResidentMiB, r.peakResidentMiB) << " |\n";
}

// Every program forwards the same series in turn; the host starts each run with no log files.
std::vector<Row> runSeries(const FrameSeries& series,
                           const std::vector<ForwardingProgram>& programs,
                           const std::string& socketPath, const fs::path& workDir) {
    std::vector<Row> rows;
    for (const ForwardingProgram& program : programs) {
        fs::remove_all(logFolderOf(fakeUser::home()));
        rows.push_back({program.label,
                        runForwarding(program, socketPath, workDir, series.size, series.frames)});
        printFigures(sizeLabel(series.size), rows.back());
    }
    for (std::size_t i = 1; i < rows.size(); ++i) {
        printRatio(rows.front(), rows[i]);
    }
    return rows;
}

IdleFigures runIdle(std::chrono::seconds idle, const fs::path& workDir) {
    const Clock::time_point start = Clock::now();
    MeasuredProcess host({}, workDir);
    std::this_thread::sleep_for(idle);
    host.closeInput();
    if (host.waitForExit(std::chrono::seconds(60)) != 0) {
        throw std::runtime_error("the idle host did not exit with status 0");
    }
    IdleFigures figures;
    figures.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    figures.cpuSeconds = host.cpuSeconds();
    figures.peakResidentMiB = static_cast<double>(host.peakResidentKiB()) / 1024;
    return figures;
}

// From the start of the process to the end of its output, which it closes when it exits.
std::vector<double> runVersion(int runs, const fs::path& workDir) {
    std::vector<double> milliseconds;
    for (int i = 0; i < runs; ++i) {
        const Clock::time_point start = Clock::now();
        HostProcess host({"--version"}, workDir);
        const std::string output = host.output();
        milliseconds.push_back(
            std::chrono::duration<double, std::milli>(Clock::now() - start).count());
        if (host.waitForExit() != 0 || output != "1.2.0\n") {
            throw std::runtime_error("--version printed \"" + output + "\"");
        }
    }
    return milliseconds;
}

bool allDelivered(const std::vector<std::vector<Row>>& results) {
    for (const auto& rows : results) {
        for (const Row& row : rows) {
            if (row.figures.delivered != row.figures.frames) {
                return false;
            }
        }
    }
    return true;
}

void printRateGoal(const ForwardingFigures& smallest) {
    std::cout << "- Sustained rate of the smallest frames: " << fixed(smallest.framesPerSecond, 2)
              << " frames/s, at least " << fixed(kMinFramesPerSecond, 0) << ": "
              << verdict(smallest.framesPerSecond >= kMinFramesPerSecond)
              << ". Design bound: " << fixed(kPollsPerSecond, 0)
              << " frames/s (one per 100 ms poll); the host reaches "
              << fixed(100 * smallest.framesPerSecond / kPollsPerSecond, 1)
              << "% of it. Time between arrivals: median " << fixed(smallest.gapMedianMs, 2)
              << " ms, longest " << fixed(smallest.gapLongestMs, 2) << " ms.\n";
}

void printIdleGoal(const IdleFigures& idle) {
    const double percent = 100 * idle.cpuSeconds / idle.seconds;
    std::cout << "- Idle CPU: " << fixed(idle.cpuSeconds, 3) << " s in " << fixed(idle.seconds, 1)
              << " s, " << fixed(percent, 3) << "% of one core, at most "
              << fixed(kMaxIdleCpuPercent, 1) << "%: " << verdict(percent <= kMaxIdleCpuPercent)
              << ". Idle peak RSS " << fixed(idle.peakResidentMiB, 1) << " MiB.\n";
}

void printMemoryGoal(const FrameSeries& largest, const ForwardingFigures& host,
                     const IdleFigures& idle) {
    const double payloadMiB = static_cast<double>(largest.size) / (1 << 20);
    const double limit = idle.peakResidentMiB + kMaxPayloadCopies * payloadMiB;
    std::cout << "- Peak RSS forwarding one " << sizeLabel(largest.size)
              << " frame: " << fixed(host.peakResidentMiB, 1) << " MiB = idle + "
              << fixed((host.peakResidentMiB - idle.peakResidentMiB) / payloadMiB, 2)
              << " payloads; at most idle + " << fixed(kMaxPayloadCopies, 0) << " payloads ("
              << fixed(limit, 1) << " MiB): " << verdict(host.peakResidentMiB <= limit) << ".\n";
}

void printVersionGoal(const std::vector<double>& milliseconds) {
    const double median = percentile(milliseconds, 0.5);
    const double longest = percentile(milliseconds, 1.0);
    std::cout << "- --version wall time over " << milliseconds.size() << " runs: median "
              << fixed(median, 2) << " ms, longest " << fixed(longest, 2) << " ms, under "
              << fixed(kMaxVersionMs, 0) << " ms: " << verdict(median < kMaxVersionMs) << ".\n";
}

int runBenchmark(const Settings& settings) {
    TempDir workDir;  // the host's working directory, where an update marker would be
    const std::string socketPath = "/tmp/quorvel" + sha1Hash(fakeUser::home());
    printMachine();
    const std::vector<ForwardingProgram> programs = forwardingPrograms(socketPath);

    std::cout << "## Forwarding\n\n";
    printTableHead();
    std::vector<std::vector<Row>> results;
    for (const FrameSeries& series : settings.series) {
        results.push_back(runSeries(series, programs, socketPath, workDir.path()));
    }
    const IdleFigures idle = runIdle(settings.idle, workDir.path());
    const std::vector<double> version = runVersion(settings.versionRuns, workDir.path());

    std::cout << "\n## Goals\n\n";
    printRateGoal(results.front().front().figures);
    printIdleGoal(idle);
    printMemoryGoal(settings.series.back(), results.back().front().figures, idle);
    printVersionGoal(version);
    std::cout << "- The writer's cost per line: see quorvelMicroBench (BM_WriterLine).\n";
    return allDelivered(results) ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    const int status = fakeUser::rerunUnderFakeUser(argc, argv);
    if (status >= 0) {
        return status;
    }
    // A forwarder that dies must fail the write, not end the benchmark.
    signal(SIGPIPE, SIG_IGN);
    const bool quick = argc > 1 && std::strcmp(argv[1], "--quick") == 0;
    if (quick) {
        std::cout << "Quick run: tiny sizes and a short idle run; the figures only show that the "
                     "benchmark works.\n\n";
    }
    try {
        return runBenchmark(quick ? kQuickRun : kFullRun);
    } catch (const std::exception& error) {
        std::cerr << "Benchmark failed: " << error.what() << std::endl;
        return 1;
    }
}
