#include "logger/active.h"

#include <atomic>
#include <chrono>
#include <future>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

TEST(ActiveTest, RunsJobsOneAtATimeInOrderUntilStopAndSurvivesAFailingJob) {
    std::string order;  // touched only by the worker until stop has joined it
    std::atomic<int> running{0};
    std::atomic<bool> overlapped{false};
    std::promise<void> postedFromAJob;
    bool ranAfterStop = false;
    Active active;
    active.send([] { throw std::runtime_error("job failed"); });
    for (char job = 'a'; job <= 'j'; ++job) {
        active.send([&, job] {
            overlapped = overlapped || running.fetch_add(1) != 0;
            order += job;
            running.fetch_sub(1);
        });
    }
    active.send([&] { active.send([&] { postedFromAJob.set_value(); }); });
    ASSERT_EQ(postedFromAJob.get_future().wait_for(std::chrono::seconds(20)),
              std::future_status::ready);
    active.send([&] { order += 'k'; });
    active.stop();  // runs the jobs queued before it
    active.send([&] { ranAfterStop = true; });
    active.stop();  // returns at once

    EXPECT_EQ(order, "abcdefghijk");
    EXPECT_FALSE(overlapped);
    EXPECT_FALSE(ranAfterStop);
}
