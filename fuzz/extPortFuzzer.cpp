// Feeds each input, as the whole of standard input, to the extension port's reader, which reads
// frames until it reports the end of input. Built by the fuzz preset with the address and
// undefined-behaviour sanitizers, so any read or write past a buffer, or any leak, is a crash.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "communication/extPort.h"
#include "communication/packet.h"
#include "logger/iWriter.h"
#include "support/standardInput.h"

namespace {

class DiscardingWriter : public IWriter {
  public:
    void Update(const std::string&) override {}
};

// A port stays cancelled once it has met the end of input, so every input needs a new one. An
// idle port's worker looks at its queue only every 100 ms, so ports are stopped a batch at a
// time, together, rather than one per input.
class Retirement {
  public:
    ~Retirement() { stopAll(); }

    void add(std::unique_ptr<ExtPort> port) {
        ports.push_back(std::move(port));
        if (ports.size() == kBatch) {
            stopAll();
        }
    }

  private:
    static constexpr std::size_t kBatch = 128;

    void stopAll() {
        std::vector<std::thread> stoppers;
        for (auto& port : ports) {
            stoppers.emplace_back([stopped = std::move(port)]() mutable { stopped.reset(); });
        }
        for (auto& stopper : stoppers) {
            stopper.join();
        }
        ports.clear();
    }

    std::vector<std::unique_ptr<ExtPort>> ports;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    static const auto writer = std::make_shared<DiscardingWriter>();
    static Retirement retirement;
    if (!replaceStandardInput(std::string(reinterpret_cast<const char*>(data), size))) {
        std::perror("cannot put the input on standard input");
        std::abort();
    }
    auto port = std::make_unique<ExtPort>(writer);
    // Every frame but the last consumes at least its 4-byte length.
    for (std::size_t frames = 0; port->Receive() != nullptr; ++frames) {
        if (frames > size / 4) {
            std::abort();
        }
    }
    retirement.add(std::move(port));
    return 0;
}
