#include "logger/active.h"

#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

TEST(ActiveTest, RunsJobsInOrderUntilStopAndSurvivesAFailingJob) {
    std::string order;  // touched only by the worker until stop has joined it
    bool ranAfterStop = false;
    Active active;
    active.send([] { throw std::runtime_error("job failed"); });
    for (char job = 'a'; job <= 'j'; ++job) {
        active.send([&, job] { order += job; });
    }
    active.stop();  // runs the jobs queued before it
    active.send([&] { ranAfterStop = true; });
    active.stop();  // returns at once

    EXPECT_EQ(order, "abcdefghij");
    EXPECT_FALSE(ranAfterStop);
}
