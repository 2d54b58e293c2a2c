// Micro-benchmarks of the costs paid for every message and every log line: the SHA-1 digest,
// building a log line, tracing a packet and the log writer's work for one line.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "communication/packet.h"
#include "logger/dailyFileWriter.h"
#include "logger/iWriter.h"
#include "logger/tracer.h"
#include "platform/utils.h"
#include "support/tempDir.h"

namespace fs = std::filesystem;

namespace {

constexpr std::int64_t kSmallPayload = 100;
constexpr std::int64_t kLargePayload = 1 << 20;
constexpr std::size_t kLogFilesPresent = 10;

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

}  // namespace

BENCHMARK_MAIN();
