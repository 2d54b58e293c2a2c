#include "runLock.h"

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <string>

#include <gtest/gtest.h>

// Another process's run, forked while this one holds the lock, says over a pipe when it has it.
TEST(RunLockTest, ARunWaitsWhileAnotherHoldsTheLockAndGoesOnOnceItIsGivenBack) {
    auto first = std::make_unique<RunLock>();
    std::string error;
    ASSERT_TRUE(first->acquire(error)) << error;
    int taken[2];
    ASSERT_EQ(pipe(taken), 0);
    const pid_t second = fork();
    if (second == 0) {
        // The first run's descriptor, inherited, would keep its lock: only the pipe stays.
        for (int descriptor = 3; descriptor < 1024; ++descriptor) {
            if (descriptor != taken[1]) {
                close(descriptor);
            }
        }
        RunLock lock;
        std::string ignored;
        const char answer = lock.acquire(ignored) ? 'y' : 'n';
        _exit(write(taken[1], &answer, 1) == 1 ? 0 : 1);
    }
    close(taken[1]);
    pollfd answer{taken[0], POLLIN, 0};
    EXPECT_EQ(poll(&answer, 1, 500), 0) << "the second run went on while the first held the lock";
    first.reset();
    ASSERT_EQ(poll(&answer, 1, 20000), 1) << "the second run never got the lock";
    char got = 0;
    EXPECT_EQ(read(taken[0], &got, 1), 1);
    EXPECT_EQ(got, 'y');
    close(taken[0]);
    int status = 0;
    waitpid(second, &status, 0);
}
