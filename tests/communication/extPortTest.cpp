#include "communication/extPort.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <future>
#include <vector>

#include <gtest/gtest.h>

#include "support/packets.h"
#include "support/recordingWriter.h"
#include "support/standardInput.h"

namespace {

// What a receive gave: "null", "empty" (a packet without data) or the payload.
std::string outcome(const std::shared_ptr<Packet>& packet) {
    return !packet                                        ? "null"
           : packet->size == 0 && packet->data == nullptr ? "empty"
                                                          : payloadOf(*packet);
}

}  // namespace

TEST(ExtPortTest, ReceiveGivesWholeFramesAndEmptyPacketsTracesPayloadsThenNullWhereTheInputEnds) {
    const std::string payload("line\nzero\0byte", 14);
    // A length with the top bit set reads no payload; its first four bytes are the next one.
    // The last frame is cut short by the end of the input.
    ASSERT_TRUE(replaceStandardInput(frameOf(payload) + frameOf("") + lengthBytes(0x80000007u) +
                                     frameOf("abc") + frameOf("hello").substr(0, 7)));
    auto writer = std::make_shared<RecordingWriter>();
    ExtPort port(writer);

    std::vector<std::string> received;
    for (int i = 0; i < 5; ++i) {
        received.push_back(outcome(port.Receive()));
    }
    EXPECT_EQ(received, (std::vector<std::string>{payload, "empty", "empty", "abc", "null"}));
    auto waiter = std::async(std::launch::async, [&] { port.WaitForCancel(); });
    EXPECT_EQ(waiter.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    port.Cancel();  // so that nothing hangs
    EXPECT_EQ(writer->messages("EXT-PORT"),
              (std::vector<std::string>{kDownArrow + "14B, " + payload, kDownArrow + "3B, abc"}));

    // Every later request is answered with null, on the port's worker.
    auto answer = std::make_shared<std::promise<std::shared_ptr<Packet>>>();
    port.AsyncReceive([answer](std::shared_ptr<Packet> packet) { answer->set_value(packet); });
    auto answered = answer->get_future();
    ASSERT_EQ(answered.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    EXPECT_EQ(answered.get(), nullptr);
}

TEST(ExtPortTest, SendWritesOneWholeFrameAndRefusesEmptyPacketsAndACancelledPort) {
    auto writer = std::make_shared<RecordingWriter>();
    ExtPort port(writer);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const int savedStdout = dup(STDOUT_FILENO);
    std::fflush(stdout);
    dup2(ends[1], STDOUT_FILENO);
    close(ends[1]);
    std::vector<bool> sent = {port.Send(packetWith("hi\n")), port.Send(makePacket())};
    close(STDOUT_FILENO);
    sent.push_back(port.Send(packetWith("lost")));
    port.Cancel();
    sent.push_back(port.Send(packetWith("late")));
    dup2(savedStdout, STDOUT_FILENO);
    close(savedStdout);

    std::string written(64, '\0');
    written.resize(static_cast<std::size_t>(read(ends[0], written.data(), written.size())));
    close(ends[0]);
    EXPECT_EQ(written, frameOf("hi\n"));
    EXPECT_EQ(sent, (std::vector<bool>{true, false, false, false}));
    EXPECT_EQ(writer->messages("EXT-PORT"),
              (std::vector<std::string>{kUpArrow + "3B, hi\n", "Can't send"}));
}
