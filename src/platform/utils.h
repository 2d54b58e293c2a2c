#pragma once

#include <sys/stat.h>
#include <sys/types.h>
#include <sys/un.h>
#include <array>

#include <cstdint>
#include <ctime>
#include <memory>
#include <string>

class ITracer;
struct Packet;

// The user's home folder from the user database (the real user id), or "" without an entry.
std::string getHomeDir();

// The socket on which this user's agent listens: "/tmp/quorvel" followed by the SHA-1 of the
// home folder.
std::string getAgentSocketPath();

// The effective user id of the process that listens at the other end of a connected local
// socket, as the kernel tells it; false with errno set when it cannot tell.
bool getPeerUserId(int descriptor, uid_t& peer);

// Whether a listener running as this user may receive this user's messages: only the host's own
// effective user, or root, which can read them anyway.
bool isTrustedListener(uid_t listener);

// The folder of the host's log files under the home folder; "/" when there is no home.
std::string getLogsDir();

// Creates the folder with mode 0700 and its missing parents with the umask's usual mode, entering
// each folder it makes without following a link; an existing folder is left as it is. Throws
// std::system_error when a folder can be neither found nor made.
void createPrivateFolder(const std::string& path);

// Opens the folder without following a link at it: -1 unless it is a folder that the effective
// user owns and no one else can write. Never throws.
int openPrivateFolder(const std::string& path);

// Opens the named file of that folder to append and read, creating it with mode 0600, without
// following a link and without waiting on a FIFO or a device: -1 unless it is a regular file
// that the effective user owns. Never throws.
int openPrivateFileToAppend(int folder, const std::string& name);

// When the file was last written, in nanoseconds since the epoch.
int64_t lastWriteNanoseconds(const struct stat& status);

// Sleeps for the given milliseconds; the microsecond count is formed in 32 bits and wraps.
void Sleep(int milliseconds);

// Raw ticks of the platform's monotonic counter (24 MHz on arm64 Macs), not milliseconds.
uint64_t GetTickCount();

// The current local time, safe to call from any thread.
std::tm getLocalTime();

// The platform's own local-socket address for the path, cut so that it stays zero-terminated.
sockaddr_un localSocketAddress(const std::string& path);

enum class TransferType : uint32_t { Incoming = 0, Outgoing = 1 };

// Logs "<arrow><size>B, <payload>" for a packet with content; nothing otherwise.
void LogPacket(TransferType type, ITracer& tracer, std::shared_ptr<Packet> packet);

// Standard SHA-1 (FIPS 180-1) of byte strings. One object hashes one message at a time and is
// not shared between threads.
class SHA1 {
  public:
    SHA1();

    // Feeds bytes as they are, with no character conversion; any number of calls per message.
    void update(const std::string& s);

    // The digest as 40 lower-case hex characters; resets the object for the next message.
    std::string final();

  private:
    void reset();

    std::array<uint32_t, 5> digest;
    std::string buffer;   // the bytes of the current, incomplete 64-byte block
    uint64_t transforms;  // 64-byte blocks already compressed
};

// The SHA-1 of s as 40 lower-case hex characters.
std::string sha1Hash(const std::string& s);

// Reads a 64-byte buffer as sixteen big-endian words.
void buffer_to_block(const std::string& buffer, std::array<uint32_t, 16>& block);

// Compresses one block into the digest state and counts it in transforms.
void transform(std::array<uint32_t, 5>& digest, const std::array<uint32_t, 16>& block,
               uint64_t& transforms);
