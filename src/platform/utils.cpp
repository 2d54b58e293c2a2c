#include "platform/utils.h"

#include <pwd.h>
#include <unistd.h>

#include <filesystem>
#include <vector>

#if defined(__APPLE__)
#include <mach/mach_time.h>
#else
#include <chrono>
#endif

#include "communication/packet.h"
#include "logger/iTracer.h"

namespace {

const char* const kLogsRelativeDir = "Library/Application Support/velmarch-agent/logs/messagehost";
const char* const kDownArrow = "\xE2\x86\x93";
const char* const kUpArrow = "\xE2\x86\x91";

}  // namespace

std::string getHomeDir() {
    long bufferSize = sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(bufferSize > 0 ? static_cast<std::size_t>(bufferSize) : 16384);
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) != 0 ||
        found == nullptr || found->pw_dir == nullptr) {
        return std::string();
    }
    return found->pw_dir;
}

std::string getLogsDir() {
    const std::string home = getHomeDir();
    if (home.empty()) {
        // Deliberately the bare root directory, without the relative part.
        return std::filesystem::current_path().root_directory().string();
    }
    return (std::filesystem::path(home) / kLogsRelativeDir).string();
}

void Sleep(int milliseconds) {
    // Deliberately 32-bit: values above about 71 minutes wrap.
    const uint32_t microseconds = static_cast<uint32_t>(milliseconds) * 1000u;
    usleep(static_cast<useconds_t>(microseconds));
}

uint64_t GetTickCount() {
#if defined(__APPLE__)
    return mach_absolute_time();
#else
    // The same unit as the 24 MHz counter of arm64 Macs, so that intervals last as long.
    const auto nanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(
        std::chrono::steady_clock::now().time_since_epoch());
    return static_cast<uint64_t>(nanoseconds.count()) * 3 / 125;
#endif
}

std::tm getLocalTime() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    return local;
}

void LogPacket(TransferType type, ITracer& tracer, std::shared_ptr<Packet> packet) {
    if (!packet || packet->size == 0 || packet->data == nullptr) {
        return;
    }
    const std::string size = std::to_string(packet->size);
    std::string entry;
    entry.reserve(3 + size.size() + 3 + packet->size);
    entry += static_cast<uint32_t>(type) == 0 ? kDownArrow : kUpArrow;
    entry += size;
    entry += "B, ";
    entry.append(reinterpret_cast<const char*>(packet->data), packet->size);
    tracer.WriteEntry(entry);
}
