#include "communication/extPort.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "communication/packet.h"
#include "platform/utils.h"

namespace {

// The payload buffer is deliberately eight times the payload, as the host has always allocated.
constexpr std::size_t kBufferBytesPerPayloadByte = 8;
constexpr std::size_t kLengthBytes = 4;

// A length cut short by the end of input counts as 0.
uint32_t readLength() {
    uint32_t length = 0;
    if (std::fread(&length, 1, kLengthBytes, stdin) < kLengthBytes) {
        length = 0;
    }
    return length;
}

// Sized in size_t so that lengths of 2^29 and more cannot wrap into a buffer smaller than the
// payload. When the buffer cannot be had, the packet stays empty and the payload stays unread.
void readPayload(Packet& packet, uint32_t length) {
    auto* buffer = static_cast<uint8_t*>(
        std::malloc(kBufferBytesPerPayloadByte * static_cast<std::size_t>(length)));
    if (buffer == nullptr) {
        return;
    }
    // The count is not examined: a short read leaves the stream at its end or in error, which
    // discards the packet.
    [[maybe_unused]] const std::size_t count = std::fread(buffer, 1, length, stdin);
    packet.data = buffer;
    packet.size = length;
}

// The length is the first four bytes of size as it lies in memory: its low 32 bits on the
// little-endian targets. Writes bypass the C stream, so nothing needs flushing.
bool writeFrame(const Packet& packet) {
    if (write(STDOUT_FILENO, &packet.size, kLengthBytes) != static_cast<ssize_t>(kLengthBytes)) {
        return false;
    }
    return write(STDOUT_FILENO, packet.data, packet.size) == static_cast<ssize_t>(packet.size);
}

}  // namespace

ExtPort::ExtPort(std::shared_ptr<IWriter> writer) : tracer("EXT-PORT", std::move(writer)) {}

void ExtPort::AsyncReceive(std::function<void(std::shared_ptr<Packet>)> callback) {
    active.send([this, callback = std::move(callback)] { callback(Receive()); });
}

void ExtPort::AsyncSend(std::shared_ptr<Packet>, std::function<void(bool)>) {}

std::shared_ptr<Packet> ExtPort::Receive() {
    if (cancelled) {
        return nullptr;
    }
    auto packet = makePacket();
    const uint32_t length = readLength();
    // A length with the top bit set reads no payload: by design, the first four bytes of the
    // payload it announces are then read as the next length.
    if (static_cast<int32_t>(length) > 0) {
        readPayload(*packet, length);
    }
    // Tested after the payload, so that a frame cut short by the end of input is dropped.
    if (std::feof(stdin) || std::ferror(stdin)) {
        Cancel();
        return nullptr;
    }
    LogPacket(TransferType::Incoming, tracer, packet);
    return packet;
}

bool ExtPort::Send(std::shared_ptr<Packet> packet) {
    if (cancelled || !hasContent(packet)) {
        return false;
    }
    // A half-written frame is left as it is; a short write is not retried.
    if (!writeFrame(*packet)) {
        tracer.WriteEntry("Can't send");
        return false;
    }
    LogPacket(TransferType::Outgoing, tracer, packet);
    return true;
}

void ExtPort::Cancel() {
    std::lock_guard<std::mutex> lock(cancelLock);
    cancelled = true;
    cancelledSignal.notify_one();
}

void ExtPort::WaitForCancel() {
    std::unique_lock<std::mutex> lock(cancelLock);
    cancelledSignal.wait(lock, [this] { return cancelled.load(); });
}
