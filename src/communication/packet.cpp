#include "communication/packet.h"

#include <cstdlib>

Packet::Packet() : data(nullptr), size(0) {}

namespace {

// Frees the payload but deliberately leaves the small record allocated, so that a stale
// reference to it reads an empty packet instead of freed memory.
void releasePayload(Packet* packet) {
    packet->size = 0;
    if (packet->data != nullptr) {
        std::free(packet->data);
    }
}

}  // namespace

bool hasContent(const std::shared_ptr<Packet>& packet) {
    return packet && packet->size != 0 && packet->data != nullptr;
}

std::shared_ptr<Packet> makePacket() {
    return std::shared_ptr<Packet>(new Packet(), releasePayload);
}
