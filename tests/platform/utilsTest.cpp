#include "platform/utils.h"

#include <chrono>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "communication/packet.h"
#include "logger/iTracer.h"
#include "support/fakeUser.h"
#include "support/packets.h"

namespace {

class RecordingTracer : public ITracer {
  public:
    void WriteEntry(const std::string& message) override { entries.push_back(message); }
    std::vector<std::string> entries;
};

class UserFoldersTest : public testing::Test {
  protected:
    void TearDown() override {
        if (!fakeUser::home().empty()) {
            fakeUser::setHome(fakeUser::home());
        }
    }
};

}  // namespace

TEST(LogPacketTest, EntryIsArrowSizeAndWholePayload) {
    RecordingTracer tracer;
    const std::string payload("a\0b\nc", 5);
    LogPacket(TransferType::Incoming, tracer, packetWith(payload));
    LogPacket(TransferType::Outgoing, tracer, packetWith("1234567"));
    LogPacket(static_cast<TransferType>(7), tracer, packetWith("x"));

    ASSERT_EQ(tracer.entries.size(), 3u);
    EXPECT_EQ(tracer.entries[0],
              "\xE2\x86\x93"
              "5B, " +
                  payload);
    EXPECT_EQ(tracer.entries[1],
              "\xE2\x86\x91"
              "7B, 1234567");
    EXPECT_EQ(tracer.entries[2],
              "\xE2\x86\x91"
              "1B, x");
}

TEST(LogPacketTest, PacketWithoutContentWritesNothing) {
    RecordingTracer tracer;
    LogPacket(TransferType::Incoming, tracer, nullptr);
    LogPacket(TransferType::Incoming, tracer, makePacket());
    auto sizeOnly = makePacket();
    sizeOnly->size = 4;
    LogPacket(TransferType::Incoming, tracer, sizeOnly);
    auto dataOnly = packetWith("abc");
    dataOnly->size = 0;
    LogPacket(TransferType::Outgoing, tracer, dataOnly);
    EXPECT_TRUE(tracer.entries.empty());
}

TEST_F(UserFoldersTest, LogsFolderLiesUnderTheHomeFromTheUserDatabase) {
    SKIP_WITHOUT_FAKE_USER();
    const std::string home = fakeUser::home();
    const std::string relative = "/Library/Application Support/velmarch-agent/logs/messagehost";
    EXPECT_EQ(getHomeDir(), home);
    EXPECT_EQ(getLogsDir(), home + relative);

    fakeUser::setHome(home + "/");
    EXPECT_EQ(getHomeDir(), home + "/");
    EXPECT_EQ(getLogsDir(), home + relative) << "no doubled separator";
}

TEST_F(UserFoldersTest, UserWithoutEntryHasNoHomeAndLogsIntoTheRootFolder) {
    SKIP_WITHOUT_FAKE_USER();
    fakeUser::removeEntry();
    EXPECT_EQ(getHomeDir(), "");
    EXPECT_EQ(getLogsDir(), "/");
}

TEST(PlatformTest, SleepWaitsAndItsMicrosecondCountWrapsAt32Bits) {
    using Clock = std::chrono::steady_clock;
    auto start = Clock::now();
    const uint64_t startTick = GetTickCount();
    Sleep(100);
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(100));
    // The counter is in 24 MHz ticks, not milliseconds.
    EXPECT_GE(GetTickCount() - startTick, 2400000u);

    // 4294968 ms wraps to 704 microseconds instead of lasting 71 minutes.
    start = Clock::now();
    Sleep(4294968);
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(60));
}
