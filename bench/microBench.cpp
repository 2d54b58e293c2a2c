// Micro-benchmarks of the costs paid for every message and every log line: the SHA-1 digest,
// building a log line, tracing a packet, the log writer's work for one line and the agent port's
// work for one message. Runs under a fake user entry, as the tests do, so that the agent port
// connects to a socket of its own, never to the real user's agent.

#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "communication/agentPortMac.h"
#include "communication/packet.h"
#include "logger/dailyFileWriter.h"
#include "logger/iWriter.h"
#include "logger/tracer.h"
#include "platform/utils.h"
#include "support/fakeUser.h"
#include "support/packets.h"
#include "support/tempDir.h"
#include "support/testAgent.h"

namespace fs = std::filesystem;

namespace {

constexpr std::int64_t kSmallPayload = 100;
constexpr std::int64_t kLargePayload = 1 << 20;
constexpr std::size_t kLogFilesPresent = 10;
constexpr int kMessagesPerBatch = 10000;
const std::string kLastFrame = "last";

// A log sink that only counts, so that what is measured is the line's construction.
class CountingWriter : public IWriter {
  public:
    void Update(const std::string& line) override {
        ++lines;
        bytes += line.size();
        benchmark::DoNotOptimize(line.data());
    }

    std::size_t lines = 0;
    std::size_t bytes = 0;
};

std::shared_ptr<Packet> filledPacket(std::size_t size) {
    auto packet = makePacket();
    packet->data = static_cast<uint8_t*>(std::malloc(size));
    std::memset(packet->data, 'p', size);
    packet->size = size;
    return packet;
}

// A writer over a folder that holds ten log files: nine of earlier days and today's.
struct WriterWithTenFiles {
    WriterWithTenFiles() {
        const fs::path folder = logFolder.path();
        for (std::size_t day = 1; day < kLogFilesPresent; ++day) {
            const fs::path file = folder / ("messagehost_2020_01_0" + std::to_string(day) + ".log");
            std::ofstream(file) << "2020/01/01 00:00:00 | HOST-APP | an older line\n";
            fs::last_write_time(
                file, fs::file_time_type::clock::now() - std::chrono::hours(24 * (10 - day)));
        }
        writer = std::make_unique<DailyFileWriter>(folder.wstring(), kLogFilesPresent, 20000000,
                                                   3600000, L"messagehost_");
        writer->WriteLine("2020/01/01 00:00:00 | HOST-APP | today's first line");
    }

    TempDir logFolder;
    std::unique_ptr<DailyFileWriter> writer;
};

// The stand-in agent on a thread of its own: takes every connection and reads its frames until
// the frame kLastFrame.
class DrainingAgent {
  public:
    explicit DrainingAgent(const std::string& path) : agent(path), reader([this] { drain(); }) {}
    ~DrainingAgent() { reader.join(); }

  private:
    void drain() {
        while (agent.acceptConnection()) {
            while (const std::optional<std::string> frame = agent.readFrame()) {
                if (*frame == kLastFrame) {
                    return;
                }
            }
        }
    }

    TestAgent agent;
    std::thread reader;
};

// User and system time of every thread of this process so far.
double processCpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// Sends through the port and waits for the callback; whether it was sent.
bool sendAndWait(AgentPort& port, std::shared_ptr<Packet> packet) {
    std::promise<bool> result;
    std::future<bool> outcome = result.get_future();
    port.AsyncSend(std::move(packet), [&result](bool sent) { result.set_value(sent); });
    return outcome.get();
}

void BM_Sha1(benchmark::State& state) {
    const std::string message(static_cast<std::size_t>(state.range(0)), 'h');
    for (auto _ : state) {
        benchmark::DoNotOptimize(sha1Hash(message));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
// A home folder's path (what the host hashes, once per start), then bulk data.
BENCHMARK(BM_Sha1)->Arg(40)->Arg(4096)->Arg(kLargePayload);

void BM_TracerWriteEntry(benchmark::State& state) {
    auto writer = std::make_shared<CountingWriter>();
    Tracer tracer("EXT-PORT", writer);
    const std::string message(static_cast<std::size_t>(state.range(0)), 'm');
    for (auto _ : state) {
        tracer.WriteEntry(message);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_TracerWriteEntry)->Arg(kSmallPayload)->Arg(kLargePayload);

void BM_LogPacket(benchmark::State& state) {
    auto writer = std::make_shared<CountingWriter>();
    Tracer tracer("EXT-PORT", writer);
    const std::shared_ptr<Packet> packet = filledPacket(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        LogPacket(TransferType::Incoming, tracer, packet);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_LogPacket)->Arg(kSmallPayload)->Arg(kLargePayload);

// What the writer's worker does for each line: the retention check, re-deriving today's file
// from the folder, then open, append, flush and close.
void BM_WriterLine(benchmark::State& state) {
    WriterWithTenFiles fixture;
    const std::string line = "2020/01/01 00:00:00 | EXT-PORT | " + std::string(kSmallPayload, 'l');
    for (auto _ : state) {
        fixture.writer->WriteLine(line);
    }
}
BENCHMARK(BM_WriterLine)->Unit(benchmark::kMicrosecond);

// The retention pass that a line pays for first when the last pass is older than the interval,
// which in the host is most lines that follow a pause.
void BM_WriterRetentionPass(benchmark::State& state) {
    WriterWithTenFiles fixture;
    for (auto _ : state) {
        fixture.writer->DeleteExtraLogs();
    }
}
BENCHMARK(BM_WriterRetentionPass)->Unit(benchmark::kMicrosecond);

// The agent port's work for one 100-byte message, from its turn on the worker to the end of its
// callback: over one connection (0), or over a new one each time (1: connect, check who listens,
// write, trace, then Release in the callback). The first send of each batch holds the worker in
// its callback until the whole batch is queued, so that an idle worker's 100 ms poll is not timed;
// the batch is large, so that the poll before each batch does not make a run last minutes.
void BM_AgentPortSend(benchmark::State& state) {
    const bool reconnect = state.range(0) != 0;
    std::optional<DrainingAgent> agent;
    agent.emplace("/tmp/quorvel" + sha1Hash(fakeUser::home()));
    AgentPort port(std::make_shared<CountingWriter>());
    const std::shared_ptr<Packet> packet = filledPacket(kSmallPayload);
    std::atomic<int> failures{0};
    double cpuSeconds = 0;
    for (auto _ : state) {
        std::promise<void> held;
        std::promise<void> queued;
        std::promise<void> done;
        std::shared_future<void> batchQueued = queued.get_future().share();
        port.AsyncSend(packet, [&](bool) {
            held.set_value();
            batchQueued.wait();
            if (reconnect) {
                port.Release();
            }
        });
        held.get_future().wait();
        for (int i = 1; i <= kMessagesPerBatch; ++i) {
            port.AsyncSend(packet, [&, last = i == kMessagesPerBatch](bool sent) {
                failures += sent ? 0 : 1;
                if (reconnect) {
                    port.Release();
                }
                if (last) {
                    done.set_value();
                }
            });
        }
        const double cpuBefore = processCpuSeconds();
        const auto start = std::chrono::steady_clock::now();
        queued.set_value();
        done.get_future().wait();
        state.SetIterationTime(
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        cpuSeconds += processCpuSeconds() - cpuBefore;
    }
    state.SetItemsProcessed(state.iterations() * kMessagesPerBatch);
    // Every thread's processor time, the agent's included: less swayed by a busy machine than
    // the wall time.
    state.counters["cpu_us_per_message"] =
        cpuSeconds * 1e6 / static_cast<double>(state.iterations() * kMessagesPerBatch);
    const bool lastSent = sendAndWait(port, packetWith(kLastFrame));
    agent.reset();
    if (failures != 0 || !lastSent) {
        state.SkipWithError("a message was not sent");
    }
}
BENCHMARK(BM_AgentPortSend)->Arg(0)->Arg(1)->UseManualTime()->Unit(benchmark::kMicrosecond);

// What the listener check adds to each connection: one query of the peer's user, then the verdict.
void BM_ListenerCheck(benchmark::State& state) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) {
        state.SkipWithError("no socket pair");
        return;
    }
    for (auto _ : state) {
        uid_t listener = 0;
        benchmark::DoNotOptimize(getPeerUserId(ends[0], listener) && isTrustedListener(listener));
    }
    close(ends[0]);
    close(ends[1]);
}
BENCHMARK(BM_ListenerCheck);

}  // namespace

int main(int argc, char** argv) {
    const int status = fakeUser::rerunUnderFakeUser(argc, argv);
    if (status >= 0) {
        return status;
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
