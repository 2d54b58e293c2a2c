#include "communication/packet.h"

#include <gtest/gtest.h>

#include "support/packets.h"

// The sanitizer builds catch a payload that is freed twice or never.
TEST(PacketTest, LastOwnerFreesThePayloadOnceAndLeavesTheRecordEmpty) {
    auto packet = packetWith("abc");
    const Packet* record = packet.get();
    auto copy = packet;
    packet.reset();
    EXPECT_EQ(record->size, 3u) << "a remaining owner still holds the payload";
    copy.reset();
    EXPECT_EQ(record->size, 0u) << "the record outlives its owners on purpose";
}
