#include "communication/agentPortMac.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/utils.h"
#include "support/fakeUser.h"
#include "support/packets.h"
#include "support/recordingWriter.h"
#include "support/tempDir.h"
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

// Accepts and reads frames on a thread of its own, as a real agent does while the port writes:
// a Mac's local socket holds only about 8 KiB in flight.
std::future<std::vector<std::optional<std::string>>> readMeanwhile(TestAgent& agent,
                                                                   std::size_t frames) {
    return std::async(std::launch::async, [&agent, frames] {
        std::vector<std::optional<std::string>> received;
        if (agent.acceptConnection()) {
            while (received.size() < frames) {
                received.push_back(agent.readFrame());
            }
        }
        return received;
    });
}

// Writes to a fresh connection of an agent that does not read until the socket takes no more.
std::size_t bytesInFlightToAnAgentThatDoesNotRead() {
    TempDir dir;
    const std::string path = (dir.path() / "agent").string();
    TestAgent agent(path);
    const sockaddr_un address = localSocketAddress(path);
    const int client = socket(AF_UNIX, SOCK_STREAM, 0);
    std::size_t inFlight = 0;
    if (connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 &&
        agent.acceptConnection()) {
        const std::string bytes(100000, 'x');
        for (ssize_t sent = 0;
             (sent = ::send(client, bytes.data(), bytes.size(), MSG_DONTWAIT)) > 0;) {
            inFlight += static_cast<std::size_t>(sent);
        }
    }
    close(client);
    return inFlight;
}

}  // namespace

// The tests that talk to an agent run on Linux also with its local sockets cut to a Mac's size,
// so that one that passes only with Linux's large ones fails here too. The cut looks for its
// variable at every socket made.
TEST(AgentPortTest, LocalSocketHoldsAbout8KiBInFlightOnAMacAndOnLinuxWhenCutToIt) {
#if !defined(__APPLE__)
    const char* const cutVariable = "QUORVEL_MAC_SOCKET_BUFFERS";
    const bool cutAlready = std::getenv(cutVariable) != nullptr;
    unsetenv(cutVariable);
    EXPECT_GT(bytesInFlightToAnAgentThatDoesNotRead(), 65536u) << "Linux's own hold ~208 KiB";
    setenv(cutVariable, "1", 1);
#endif
    const std::size_t inFlight = bytesInFlightToAnAgentThatDoesNotRead();
    RecordProperty("bytesInFlight", std::to_string(inFlight));
    EXPECT_GE(inFlight, 4096u);
    EXPECT_LE(inFlight, 16384u);
#if !defined(__APPLE__)
    if (!cutAlready) {
        unsetenv(cutVariable);
    }
#endif
}

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
    auto received = readMeanwhile(agent, payloads.size());
    for (const std::string& payload : payloads) {
        EXPECT_EQ(send(port, payload), "sent");
        expectedLines.push_back(kUpArrow + std::to_string(payload.size()) + "B, " + payload);
    }
    EXPECT_EQ(received.get(),
              std::vector<std::optional<std::string>>(payloads.begin(), payloads.end()));
    EXPECT_EQ(writer->messages("AGT-PORT"), expectedLines);
}
