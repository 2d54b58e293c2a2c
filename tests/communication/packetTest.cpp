#include "communication/packet.h"

#include <cstdlib>

#include <gtest/gtest.h>

TEST(PacketTest, MadePacketIsEmpty) {
    auto packet = makePacket();
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(packet->data, nullptr);
    EXPECT_EQ(packet->size, 0u);
}

TEST(PacketTest, LastOwnerFreesThePayloadAndEmptiesTheRecord) {
    auto packet = makePacket();
    packet->data = static_cast<uint8_t*>(std::malloc(16));
    packet->size = 16;
    const Packet* record = packet.get();
    auto copy = packet;

    packet.reset();
    EXPECT_EQ(record->size, 16u) << "a remaining owner still holds the payload";

    // The record outlives its owners on purpose; a second free would abort under ASan.
    copy.reset();
    EXPECT_EQ(record->size, 0u);
}
