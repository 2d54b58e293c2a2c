#include "communication/agentPortMac.h"

#include <unistd.h>

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

// The socket's name is public: whoever listens there first must get nothing, and the next message
// checks again, so that this user's agent gets every message once it has the name back.
TEST(AgentPortTest, ListenerOfAnotherUserReceivesNoByteAndThisUsersAgentEveryMessageAsRoot) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can listen as another user; this test is skipped";
    }
    const std::string agentPath = "/tmp/quorvel" + sha1Hash(fakeUser::home());
    const std::vector<std::string> payloads{"{\"tab\":1}", std::string("\0\xff\n", 3),
                                            std::string(70000, 'x')};
    auto writer = std::make_shared<RecordingWriter>();
    AgentPort port(writer);
    std::vector<std::string> expectedLines{"Socket name: " + agentPath};
    {
        TestAgent stranger(agentPath, kOtherUser);
        for (const std::string& payload : payloads) {
            EXPECT_EQ(send(port, payload), "failed");
            // Connected, then closed before any byte was written.
            ASSERT_TRUE(stranger.acceptConnection());
            EXPECT_TRUE(stranger.waitForEnd());
            expectedLines.push_back("Refusing socket(" + agentPath +
                                    "): its listener runs as user 65534, not as the host's "
                                    "user 0 or root");
            expectedLines.push_back("Can't send");
        }
    }
    TestAgent agent(agentPath);
    for (const std::string& payload : payloads) {
        EXPECT_EQ(send(port, payload), "sent");
        expectedLines.push_back(kUpArrow + std::to_string(payload.size()) + "B, " + payload);
    }
    ASSERT_TRUE(agent.acceptConnection());
    for (const std::string& payload : payloads) {
        EXPECT_EQ(agent.readFrame(), payload);
    }
    EXPECT_EQ(writer->messages("AGT-PORT"), expectedLines);
}
