#include "communication/agentPortMac.h"

#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/utils.h"
#include "support/fakeUser.h"
#include "support/packets.h"
#include "support/recordingWriter.h"
#include "support/testAgent.h"

namespace {

// Sends through the port and waits for its callback: "sent", "failed" or "no callback".
std::string send(AgentPort& port, const std::string& payload) {
    auto result = std::make_shared<std::promise<bool>>();
    port.AsyncSend(packetWith(payload), [result](bool sent) { result->set_value(sent); });
    auto outcome = result->get_future();
    if (outcome.wait_for(std::chrono::seconds(20)) != std::future_status::ready) {
        return "no callback";
    }
    return outcome.get() ? "sent" : "failed";
}

}  // namespace

// Frames, reconnection and failures are seen end to end; what comes after Cancel is not.
TEST(AgentPortTest, CancelEndsTheConnectionAndEveryLaterPacketFailsWithoutALine) {
    // Where the port looks for the agent of the fake user; never the real user's socket.
    const std::string agentPath = "/tmp/quorvel" + sha1Hash(fakeUser::home());
    TestAgent agent(agentPath);
    auto writer = std::make_shared<RecordingWriter>();
    AgentPort port(writer);
    EXPECT_EQ(send(port, "hello"), "sent");
    ASSERT_TRUE(agent.acceptConnection());
    EXPECT_EQ(agent.read(9), std::string("\x05\x00\x00\x00hello", 9));

    port.Cancel();
    EXPECT_TRUE(agent.waitForEnd());
    EXPECT_EQ(send(port, "late"), "failed");
    EXPECT_EQ(writer->messages("AGT-PORT"),
              (std::vector<std::string>{"Socket name: " + agentPath, kUpArrow + "5B, hello",
                                        "Canceling AgentPort"}));
}
