#pragma once

#include <cstdint>
#include <memory>

// The payload of one framed message, without its length prefix. On the wire a frame is a
// 4-byte unsigned length in native byte order followed by that many payload bytes.
// A packet has content when its pointer is non-null, size is not 0 and data is not null.
struct Packet {
    Packet();

    uint8_t* data;  // malloc'd by whoever fills the packet; may be larger than size
    uint64_t size;
};

// Whether the packet has bytes to pass on; every consumer tests this before touching them.
bool hasContent(const std::shared_ptr<Packet>& packet);

// The only way to make a packet: the returned pointer frees the payload when the last
// owner lets go. Throws std::bad_alloc.
std::shared_ptr<Packet> makePacket();
