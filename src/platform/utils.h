#pragma once

#include <cstdint>
#include <ctime>
#include <memory>
#include <string>

class ITracer;
struct Packet;

// The user's home folder from the user database (the real user id), or "" without an entry.
std::string getHomeDir();

// The folder of the host's log files under the home folder; "/" when there is no home.
std::string getLogsDir();

// Sleeps for the given milliseconds; the microsecond count is formed in 32 bits and wraps.
void Sleep(int milliseconds);

// Raw ticks of the platform's monotonic counter (24 MHz on arm64 Macs), not milliseconds.
uint64_t GetTickCount();

// The current local time, safe to call from any thread.
std::tm getLocalTime();

enum class TransferType : uint32_t { Incoming = 0, Outgoing = 1 };

// Logs "<arrow><size>B, <payload>" for a packet with content; nothing otherwise.
void LogPacket(TransferType type, ITracer& tracer, std::shared_ptr<Packet> packet);
