#include "platform/utils.h"

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
