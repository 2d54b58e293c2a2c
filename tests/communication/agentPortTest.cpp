#include "communication/agentPortMac.h"

#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "communication/packet.h"
#include "platform/utils.h"
#include "support/fakeUser.h"
#include "support/packets.h"
#include "support/recordingWriter.h"
#include "support/testAgent.h"

namespace {

const std::string kUpArrow = "\xE2\x86\x91";

// Sends through the port; the future holds what the callback was given.
std::future<bool> sendThrough(AgentPort& port, std::shared_ptr<Packet> packet) {
    auto result = std::make_shared<std::promise<bool>>();
    port.AsyncSend(std::move(packet), [result](bool sent) { result->set_value(sent); });
    return result->get_future();
}

std::string outcomeOf(std::future<bool>& result) {
    if (result.wait_for(std::chrono::seconds(20)) != std::future_status::ready) {
        return "no callback";
    }
    return result.get() ? "sent" : "failed";
}

class AgentPortTest : public testing::Test {
  protected:
    void TearDown() override {
        if (!fakeUser::home().empty()) {
            fakeUser::setHome(fakeUser::home());
        }
    }

    // Where the port looks for the agent of the fake user; never the real user's socket.
    static std::string agentPath() { return "/tmp/quorvel" + sha1Hash(fakeUser::home()); }

    // The logged messages without their time stamps.
    std::vector<std::string> messages() const {
        const std::string tag = " | AGT-PORT | ";
        const std::size_t stampLength = std::strlen("2024/03/05 09:07:02");
        std::vector<std::string> result;
        for (const std::string& line : writer->lines()) {
            result.push_back(line.compare(stampLength, tag.size(), tag) == 0
                                 ? line.substr(stampLength + tag.size())
                                 : "untagged: " + line);
        }
        return result;
    }

    std::string socketNameLine() const { return "Socket name: " + agentPath(); }

    std::shared_ptr<RecordingWriter> writer = std::make_shared<RecordingWriter>();
};

}  // namespace

TEST_F(AgentPortTest, SocketIsNamedAfterTheDigestOfTheHomeFolder) {
    SKIP_WITHOUT_FAKE_USER();
    fakeUser::setHome("/home/quorveltest");
    AgentPort named(writer);
    fakeUser::removeEntry();
    AgentPort homeless(writer);

    EXPECT_EQ(messages(), (std::vector<std::string>{
                              "Socket name: /tmp/quorvel7694e3dcf5708997d35ecdb3c424f73904630ff8",
                              "Socket name: /tmp/quorvelda39a3ee5e6b4b0d3255bfef95601890afd80709",
                          }));
}

TEST_F(AgentPortTest, WritesEachPacketAsOneFrameOverOneConnection) {
    SKIP_WITHOUT_FAKE_USER();
    TestAgent agent(agentPath());
    AgentPort port(writer);

    auto first = sendThrough(port, packetWith("hello"));
    auto second = sendThrough(port, packetWith(std::string("two\0\n", 5) + "lines"));
    ASSERT_TRUE(agent.acceptConnection());
    EXPECT_EQ(agent.read(9), std::string("\x05\x00\x00\x00hello", 9));
    EXPECT_EQ(agent.readFrame(), std::string("two\0\nlines", 10));
    EXPECT_EQ(outcomeOf(first), "sent");
    EXPECT_EQ(outcomeOf(second), "sent");
    EXPECT_FALSE(agent.hasPendingConnection());
    EXPECT_EQ(messages(), (std::vector<std::string>{
                              socketNameLine(),
                              kUpArrow + "5B, hello",
                              kUpArrow + "10B, " + std::string("two\0\nlines", 10),
                          }));
}

TEST_F(AgentPortTest, PacketAfterTheAgentClosedItsEndFailsAndTheNextOneReconnects) {
    SKIP_WITHOUT_FAKE_USER();
    // The default effect, whatever this process inherited: an unprotected write would end it.
    signal(SIGPIPE, SIG_DFL);
    TestAgent agent(agentPath());
    AgentPort port(writer);

    auto delivered = sendThrough(port, packetWith("one"));
    ASSERT_TRUE(agent.acceptConnection());
    EXPECT_EQ(agent.readFrame(), "one");
    EXPECT_EQ(outcomeOf(delivered), "sent");

    agent.closeConnection();
    auto broken = sendThrough(port, packetWith("two"));
    EXPECT_EQ(outcomeOf(broken), "failed");

    auto reconnected = sendThrough(port, packetWith("three"));
    ASSERT_TRUE(agent.acceptConnection());
    EXPECT_EQ(agent.readFrame(), "three");
    EXPECT_EQ(outcomeOf(reconnected), "sent");
    EXPECT_EQ(messages(), (std::vector<std::string>{
                              socketNameLine(),
                              kUpArrow + "3B, one",
                              "Can't send",
                              kUpArrow + "5B, three",
                          }));
}

TEST_F(AgentPortTest, EveryPacketTriesToConnectUntilTheAgentListens) {
    SKIP_WITHOUT_FAKE_USER();
    AgentPort port(writer);

    auto first = sendThrough(port, packetWith("one"));
    auto second = sendThrough(port, packetWith("two"));
    EXPECT_EQ(outcomeOf(first), "failed");
    EXPECT_EQ(outcomeOf(second), "failed");

    TestAgent agent(agentPath());
    auto third = sendThrough(port, packetWith("three"));
    ASSERT_TRUE(agent.acceptConnection());
    EXPECT_EQ(agent.readFrame(), "three");
    EXPECT_EQ(outcomeOf(third), "sent");

    const std::string connectError =
        "Error connecting to socket(" + agentPath() + "): " + std::strerror(ENOENT);
    EXPECT_EQ(messages(), (std::vector<std::string>{
                              socketNameLine(),
                              connectError,
                              "Can't send",
                              connectError,
                              "Can't send",
                              kUpArrow + "5B, three",
                          }));
}

TEST_F(AgentPortTest, CancelClosesTheConnectionAndFailsEveryLaterSendSilently) {
    SKIP_WITHOUT_FAKE_USER();
    TestAgent agent(agentPath());
    AgentPort port(writer);
    auto delivered = sendThrough(port, packetWith("hello"));
    ASSERT_TRUE(agent.acceptConnection());
    EXPECT_EQ(agent.readFrame(), "hello");
    EXPECT_EQ(outcomeOf(delivered), "sent");

    port.Cancel();
    EXPECT_TRUE(agent.waitForEnd());
    port.Cancel();
    auto first = sendThrough(port, packetWith("late"));
    auto second = sendThrough(port, packetWith("later"));
    EXPECT_EQ(outcomeOf(first), "failed");
    EXPECT_EQ(outcomeOf(second), "failed");

    EXPECT_FALSE(agent.hasPendingConnection());
    EXPECT_EQ(messages(), (std::vector<std::string>{
                              socketNameLine(),
                              kUpArrow + "5B, hello",
                              "Canceling AgentPort",
                              "Canceling AgentPort",
                          }));
}

TEST_F(AgentPortTest, PacketWithoutContentFailsWithoutLogOrConnection) {
    SKIP_WITHOUT_FAKE_USER();
    TestAgent agent(agentPath());
    AgentPort port(writer);
    auto sizeWithoutData = makePacket();
    sizeWithoutData->size = 3;
    auto dataWithoutSize = packetWith("abc");
    dataWithoutSize->size = 0;

    std::vector<std::future<bool>> results;
    for (auto& packet :
         {std::shared_ptr<Packet>(), makePacket(), sizeWithoutData, dataWithoutSize}) {
        results.push_back(sendThrough(port, packet));
    }
    for (auto& result : results) {
        EXPECT_EQ(outcomeOf(result), "failed");
    }
    EXPECT_FALSE(agent.hasPendingConnection());
    EXPECT_EQ(messages(), std::vector<std::string>{socketNameLine()});
}

TEST_F(AgentPortTest, ReceiveNeverCallsBackNorKeepsTheCallback) {
    SKIP_WITHOUT_FAKE_USER();
    auto witness = std::make_shared<int>(0);
    std::weak_ptr<int> watched = witness;
    auto calledBack = std::make_shared<std::atomic<bool>>(false);
    {
        AgentPort port(writer);
        port.AsyncReceive([witness, calledBack](std::shared_ptr<Packet>) { *calledBack = true; });
        witness.reset();
        EXPECT_TRUE(watched.expired());
    }
    EXPECT_FALSE(*calledBack);
}

// A Linux listener with a backlog of 0 and one unaccepted connection holds the port's connect.
TEST_F(AgentPortTest, PacketIsTurnedAwayAtOnceWhileTheConnectIsInProgress) {
    SKIP_WITHOUT_FAKE_USER();
    TestAgent agent(agentPath(), 0);
    const int occupant = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, agentPath().c_str(), sizeof(address.sun_path) - 1);
    ASSERT_EQ(connect(occupant, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    AgentPort port(writer);
    auto held = sendThrough(port, packetWith("hello"));

    // Probe with empty packets, which the worker would drop silently, until one is turned away
    // on this thread; the worker cannot call back before its connect returns.
    const auto caller = std::this_thread::get_id();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    bool turnedAway = false;
    while (!turnedAway && std::chrono::steady_clock::now() < deadline) {
        auto onCaller = std::make_shared<std::atomic<bool>>(false);
        port.AsyncSend(makePacket(), [onCaller, caller](bool sent) {
            *onCaller = !sent && std::this_thread::get_id() == caller;
        });
        turnedAway = *onCaller;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_TRUE(turnedAway);

    ASSERT_TRUE(agent.acceptConnection());  // the occupant, which frees the backlog
    ASSERT_TRUE(agent.acceptConnection());  // the port
    EXPECT_EQ(agent.readFrame(), "hello");
    EXPECT_EQ(outcomeOf(held), "sent");
    close(occupant);
    EXPECT_EQ(messages(), (std::vector<std::string>{
                              socketNameLine(),
                              "Can't send, openning socket is in progress.",
                              kUpArrow + "5B, hello",
                          }));
}
