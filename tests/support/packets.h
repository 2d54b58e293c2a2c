#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "communication/packet.h"

// A packet filled the way the readers fill one.
inline std::shared_ptr<Packet> packetWith(const std::string& payload) {
    auto packet = makePacket();
    packet->data = static_cast<uint8_t*>(std::malloc(payload.size()));
    std::memcpy(packet->data, payload.data(), payload.size());
    packet->size = payload.size();
    return packet;
}

// The arrows that lead the log entry of an incoming and of an outgoing packet.
inline const std::string kDownArrow = "\xE2\x86\x93";
inline const std::string kUpArrow = "\xE2\x86\x91";

// A frame as the browser writes one: the payload's length in 4 bytes of native order, then it.
inline std::string lengthBytes(uint32_t length) {
    return std::string(reinterpret_cast<const char*>(&length), sizeof(length));
}
inline std::string frameOf(const std::string& payload) {
    return lengthBytes(static_cast<uint32_t>(payload.size())) + payload;
}

inline std::string payloadOf(const Packet& packet) {
    return std::string(reinterpret_cast<const char*>(packet.data), packet.size);
}
