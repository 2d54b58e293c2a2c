#include "communication/agentPortMac.h"

#include <signal.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "communication/packet.h"
#include "platform/utils.h"
#include "support/fakeUser.h"
#include "support/packets.h"
#include "support/recordingWriter.h"
#include "support/testAgent.h"

namespace {

class AgentPortTest : public testing::Test {
  protected:
    // Sends through the port and waits for its callback: "sent", "failed" or "no callback".
    std::string send(std::shared_ptr<Packet> packet) {
        auto result = std::make_shared<std::promise<bool>>();
        port.AsyncSend(std::move(packet), [result](bool sent) { result->set_value(sent); });
        auto outcome = result->get_future();
        if (outcome.wait_for(std::chrono::seconds(20)) != std::future_status::ready) {
            return "no callback";
        }
        return outcome.get() ? "sent" : "failed";
    }

    // Where the port looks for the agent of the fake user; never the real user's socket.
    const std::string agentPath = "/tmp/quorvel" + sha1Hash(fakeUser::home());
    std::shared_ptr<RecordingWriter> writer = std::make_shared<RecordingWriter>();
    AgentPort port{writer};
};

}  // namespace

TEST_F(AgentPortTest, FramesShareAConnectionThatIsRenewedAfterItFailsUntilCancel) {
    SKIP_WITHOUT_FAKE_USER();
    // The default effect, whatever this process inherited: an unprotected write would end it.
    signal(SIGPIPE, SIG_DFL);
    EXPECT_EQ(send(packetWith("nobody listens")), "failed");
    TestAgent agent(agentPath);
    auto calledBack = std::make_shared<std::atomic<bool>>(false);
    port.AsyncReceive([calledBack](std::shared_ptr<Packet>) { *calledBack = true; });

    EXPECT_EQ(send(makePacket()), "failed");
    const std::string second("two\0\n", 5);
    EXPECT_EQ(send(packetWith("hello")), "sent");
    EXPECT_EQ(send(packetWith(second)), "sent");
    ASSERT_TRUE(agent.acceptConnection());
    EXPECT_EQ(agent.read(9), std::string("\x05\x00\x00\x00hello", 9));
    EXPECT_EQ(agent.readFrame(), second);

    agent.closeConnection();
    EXPECT_EQ(send(packetWith("lost")), "failed");
    EXPECT_EQ(send(packetWith("three")), "sent");
    ASSERT_TRUE(agent.acceptConnection());
    EXPECT_EQ(agent.readFrame(), "three");

    port.Cancel();
    EXPECT_TRUE(agent.waitForEnd());
    port.Cancel();
    EXPECT_EQ(send(packetWith("late")), "failed");
    EXPECT_FALSE(*calledBack) << "the agent port never delivers a packet";
    EXPECT_EQ(writer->messages("AGT-PORT"),
              (std::vector<std::string>{
                  "Socket name: " + agentPath,
                  "Error connecting to socket(" + agentPath + "): " + std::strerror(ENOENT),
                  "Can't send", kUpArrow + "5B, hello", kUpArrow + "5B, " + second, "Can't send",
                  kUpArrow + "5B, three", "Canceling AgentPort", "Canceling AgentPort"}));
}
