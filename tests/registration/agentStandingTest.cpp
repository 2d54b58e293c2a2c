#include "agentStanding.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "platform/utils.h"
#include "support/tempDir.h"
#include "support/testAgent.h"

TEST(AgentStandingTest, TellsThisUsersListenerFromNoListener) {
    TempDir dir;
    const std::string socket = (dir.path() / "agent").string();
    const AgentStanding nothing = AgentStanding::probe(socket);
    EXPECT_EQ(nothing.listener, AgentStanding::Listener::Nothing);
    EXPECT_EQ(nothing.detail, "No such file or directory");
    {
        TestAgent agent(socket);
        const AgentStanding listening = AgentStanding::probe(socket);
        EXPECT_EQ(listening.listener, AgentStanding::Listener::ThisUser);
        EXPECT_EQ(listening.listenerId, std::optional<uid_t>(geteuid()));
        EXPECT_EQ(listening.socketPath, socket);
    }
    // A socket file that nobody listens on, as an agent that has gone leaves it: refused.
    const sockaddr_un address = localSocketAddress(socket);
    const int leftover = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(bind(leftover, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    close(leftover);
    const AgentStanding refused = AgentStanding::probe(socket);
    EXPECT_EQ(refused.listener, AgentStanding::Listener::Nothing);
    EXPECT_EQ(refused.detail, "Connection refused");
}

// Another user listening where the host would connect: the host refuses it.
TEST(AgentStandingTest, ListenerOfAnotherUserIsSomeoneElseAsRoot) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can listen as another user; this test is skipped";
    }
    TempDir dir;
    chmod(dir.path().c_str(), 0777);
    const std::string socket = (dir.path() / "agent").string();
    TestAgent stranger(socket, kOtherUser);
    const AgentStanding standing = AgentStanding::probe(socket);
    EXPECT_EQ(standing.listener, AgentStanding::Listener::SomeoneElse);
    EXPECT_EQ(standing.listenerId, std::optional<uid_t>(kOtherUser));
}
