#include "platform/utils.h"

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>

#include <gtest/gtest.h>

#include "support/fakeUser.h"

TEST(UserFoldersTest, LogsFolderLiesUnderTheHomeWithOrWithoutSlashAndIsRootWithoutOne) {
    const std::string home = fakeUser::home();
    const std::string logs = home + "/Library/Application Support/velmarch-agent/logs/messagehost";
    EXPECT_EQ(getLogsDir(), logs);
    fakeUser::setHome(home + "/");
    EXPECT_EQ(getLogsDir(), logs);
    fakeUser::setHome("");
    EXPECT_EQ(getHomeDir(), "");
    EXPECT_EQ(getLogsDir(), "/");
    fakeUser::setHome(home);
}

TEST(PlatformTest, SleepWrapsItsMicrosecondCountAt32BitsAndTicksRunAt24MHz) {
    const auto start = std::chrono::steady_clock::now();
    const uint64_t startTick = GetTickCount();
    Sleep(4294968);  // wraps to 704 microseconds instead of lasting 71 minutes
    Sleep(100);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100));
    EXPECT_GE(GetTickCount() - startTick, 2400000u);
}

// The agent port's tests run as root, which every check trusts; a user's own agent is seen here.
TEST(PlatformTest, ListenerIsTrustedOnlyAsTheEffectiveUserOrRoot) {
    const pid_t child = fork();
    if (child == 0) {
        // A child of a threaded process: async-signal-safe calls only. Root becomes a plain user.
        if (geteuid() == 0 && setuid(65534) != 0) {
            _exit(2);
        }
        const uid_t self = geteuid();
        _exit(isTrustedListener(self) && isTrustedListener(0) && !isTrustedListener(self + 1) ? 0
                                                                                              : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "1: wrong verdict, 2: could not become another user";
}
