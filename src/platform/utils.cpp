#include "platform/utils.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <iomanip>
#include <sstream>
#include <system_error>
#include <vector>

#if defined(__APPLE__)
#include <mach/mach_time.h>
#else
#include <chrono>
#endif

#include "communication/packet.h"
#include "logger/iTracer.h"

namespace {

// The agent listens on this prefix followed by the SHA-1 of the user's home folder.
const char* const kAgentSocketPrefix = "/tmp/quorvel";
const char* const kLogsRelativeDir = "Library/Application Support/velmarch-agent/logs/messagehost";
const char* const kDownArrow = "\xE2\x86\x93";
const char* const kUpArrow = "\xE2\x86\x91";

// The log holds every message in full, so only its owner may read it. Folder and files are
// created with these modes rather than changed afterwards, which would leave a moment in which
// others could open them.
constexpr mode_t kPrivateFolderMode = S_IRWXU;
constexpr mode_t kPrivateFileMode = S_IRUSR | S_IWUSR;
// Missing parents of the private folder get the usual mode, narrowed by the umask.
constexpr mode_t kParentFolderMode = S_IRWXU | S_IRWXG | S_IRWXO;

constexpr std::size_t kSha1BlockBytes = 64;
// The last block holds the message length in bits from this offset on.
constexpr std::size_t kSha1LengthOffset = 56;
constexpr std::array<uint32_t, 5> kSha1InitialDigest = {0x67452301, 0xefcdab89, 0x98badcfe,
                                                        0x10325476, 0xc3d2e1f0};

uint32_t rotateLeft(uint32_t value, int bits) {
    return (value << bits) | (value >> (32 - bits));
}

// The round function of the given step plus that step's round constant.
uint32_t roundMix(int step, uint32_t b, uint32_t c, uint32_t d) {
    if (step < 20) {
        return ((b & c) | (~b & d)) + 0x5a827999;
    }
    if (step < 40) {
        return (b ^ c ^ d) + 0x6ed9eba1;
    }
    if (step < 60) {
        return ((b & c) | (b & d) | (c & d)) + 0x8f1bbcdc;
    }
    return (b ^ c ^ d) + 0xca62c1d6;
}

[[noreturn]] void throwSystemError(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// Opens the deepest folder of the path that exists, following links as any other path does;
// the names below it that are missing go to `missing`, the folder's own name first.
int openDeepestExisting(const std::filesystem::path& folder, std::vector<std::string>& missing) {
    for (std::filesystem::path existing = folder;;) {
        const int descriptor = open(existing.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (descriptor != -1) {
            return descriptor;
        }
        const std::filesystem::path up = existing.has_parent_path() ? existing.parent_path() : ".";
        if (errno != ENOENT || up == existing) {
            throwSystemError("cannot open folder " + existing.string());
        }
        if (!existing.filename().empty()) {
            missing.push_back(existing.filename().string());
        }
        existing = up;
    }
}

// Closes the descriptor and gives -1 unless its status passes the check.
template <typename Check>
int keptIf(int descriptor, Check check) {
    struct stat status {};
    if (descriptor != -1 && (fstat(descriptor, &status) != 0 || !check(status))) {
        close(descriptor);
        return -1;
    }
    return descriptor;
}

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

std::string getAgentSocketPath() {
    return kAgentSocketPrefix + sha1Hash(getHomeDir());
}

bool getPeerUserId(int descriptor, uid_t& peer) {
#if defined(__APPLE__)
    gid_t group = 0;
    return getpeereid(descriptor, &peer, &group) == 0;
#else
    ucred credentials{};
    socklen_t size = sizeof(credentials);
    if (getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) {
        return false;
    }
    peer = credentials.uid;
    return true;
#endif
}

bool isTrustedListener(uid_t listener) {
    return listener == geteuid() || listener == 0;
}

std::string getLogsDir() {
    const std::string home = getHomeDir();
    if (home.empty()) {
        // Deliberately the bare root directory, without the relative part.
        return std::filesystem::current_path().root_directory().string();
    }
    return (std::filesystem::path(home) / kLogsRelativeDir).string();
}

void createPrivateFolder(const std::string& path) {
    std::vector<std::string> missing;
    int parent = openDeepestExisting(path, missing);
    for (auto name = missing.rbegin(); name != missing.rend(); ++name) {
        const mode_t mode = name + 1 == missing.rend() ? kPrivateFolderMode : kParentFolderMode;
        // A name that appeared meanwhile is entered as a folder of its own, never as a link.
        const bool made = mkdirat(parent, name->c_str(), mode) == 0 || errno == EEXIST;
        const int child =
            made ? openat(parent, name->c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)
                 : -1;
        const int error = errno;
        close(parent);
        if (child == -1) {
            errno = error;
            throwSystemError("cannot make folder " + *name + " of " + path);
        }
        parent = child;
    }
    close(parent);
}

int openPrivateFolder(const std::string& path) {
    const int folder = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    return keptIf(folder, [](const struct stat& status) {
        return S_ISDIR(status.st_mode) && status.st_uid == geteuid() &&
               (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
    });
}

int openPrivateFileToAppend(int folder, const std::string& name) {
    // Nonblocking, so that a FIFO or a device in the file's place never holds the open.
    const int file =
        openat(folder, name.c_str(),
               O_RDWR | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC,
               kPrivateFileMode);
    return keptIf(file, [](const struct stat& status) {
        return S_ISREG(status.st_mode) && status.st_uid == geteuid();
    });
}

int64_t lastWriteNanoseconds(const struct stat& status) {
#if defined(__APPLE__)
    const timespec& written = status.st_mtimespec;
#else
    const timespec& written = status.st_mtim;
#endif
    return static_cast<int64_t>(written.tv_sec) * 1000000000 + written.tv_nsec;
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

sockaddr_un localSocketAddress(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    return address;
}

std::tm getLocalTime() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    return local;
}

void LogPacket(TransferType type, ITracer& tracer, std::shared_ptr<Packet> packet) {
    if (!hasContent(packet)) {
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

SHA1::SHA1() {
    reset();
}

void SHA1::reset() {
    digest = kSha1InitialDigest;
    buffer.clear();
    transforms = 0;
}

void SHA1::update(const std::string& s) {
    std::istringstream input(s);
    char chunk[kSha1BlockBytes];
    for (;;) {
        input.read(chunk, static_cast<std::streamsize>(kSha1BlockBytes - buffer.size()));
        buffer.append(chunk, static_cast<std::size_t>(input.gcount()));
        if (buffer.size() != kSha1BlockBytes) {
            return;
        }
        std::array<uint32_t, 16> block;
        buffer_to_block(buffer, block);
        transform(digest, block, transforms);
        buffer.clear();
    }
}

std::string SHA1::final() {
    const uint64_t totalBits = (transforms * kSha1BlockBytes + buffer.size()) * 8;
    buffer += static_cast<char>(0x80);
    const std::size_t paddedLength = buffer.size();
    buffer.resize(kSha1BlockBytes, '\0');
    std::array<uint32_t, 16> block;
    buffer_to_block(buffer, block);
    if (paddedLength > kSha1LengthOffset) {
        // No room left for the length in this block: it gets a block of its own.
        transform(digest, block, transforms);
        std::fill(block.begin(), block.begin() + 14, 0);
    }
    block[14] = static_cast<uint32_t>(totalBits >> 32);
    block[15] = static_cast<uint32_t>(totalBits);
    transform(digest, block, transforms);

    std::ostringstream hex;
    hex << std::hex << std::setfill('0');
    for (uint32_t word : digest) {
        hex << std::setw(8) << word;
    }
    reset();
    return hex.str();
}

std::string sha1Hash(const std::string& s) {
    SHA1 sha1;
    sha1.update(s);
    return sha1.final();
}

void buffer_to_block(const std::string& buffer, std::array<uint32_t, 16>& block) {
    for (std::size_t word = 0; word < block.size(); ++word) {
        uint32_t value = 0;
        for (std::size_t byte = 0; byte < 4; ++byte) {
            value = (value << 8) | static_cast<uint8_t>(buffer[word * 4 + byte]);
        }
        block[word] = value;
    }
}

void transform(std::array<uint32_t, 5>& digest, const std::array<uint32_t, 16>& block,
               uint64_t& transforms) {
    std::array<uint32_t, 80> schedule;
    std::copy(block.begin(), block.end(), schedule.begin());
    for (std::size_t t = 16; t < schedule.size(); ++t) {
        schedule[t] =
            rotateLeft(schedule[t - 3] ^ schedule[t - 8] ^ schedule[t - 14] ^ schedule[t - 16], 1);
    }
    uint32_t a = digest[0];
    uint32_t b = digest[1];
    uint32_t c = digest[2];
    uint32_t d = digest[3];
    uint32_t e = digest[4];
    for (int step = 0; step < 80; ++step) {
        const uint32_t next = rotateLeft(a, 5) + roundMix(step, b, c, d) + e + schedule[step];
        e = d;
        d = c;
        c = rotateLeft(b, 30);
        b = a;
        a = next;
    }
    digest[0] += a;
    digest[1] += b;
    digest[2] += c;
    digest[3] += d;
    digest[4] += e;
    ++transforms;
}
