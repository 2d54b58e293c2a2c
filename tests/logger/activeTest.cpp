#include "logger/active.h"

#include <atomic>
#include <future>
#include <memory>
#include <stdexcept>
#include <vector>

#include <gtest/gtest.h>

TEST(ActiveTest, JobsRunOneAtATimeInPostingOrder) {
    std::vector<int> order;  // touched only by the worker until stop has joined it
    std::atomic<int> running{0};
    std::atomic<bool> overlapped{false};
    {
        Active active;
        for (int i = 0; i < 20; ++i) {
            active.send([&, i] {
                overlapped = overlapped || running.fetch_add(1) != 0;
                order.push_back(i);
                running.fetch_sub(1);
            });
        }
        active.stop();
        active.stop();  // returns at once
    }
    ASSERT_EQ(order.size(), 20u);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(order[i], i);
    }
    EXPECT_FALSE(overlapped);
}

TEST(ActiveTest, FailingAndEmptyJobsDoNotStopTheWorkerAndAJobCanPostToItsOwnActive) {
    Active active;
    std::promise<std::vector<int>> done;
    auto order = std::make_shared<std::vector<int>>();
    active.send([] { throw std::runtime_error("job failed"); });
    active.send(std::function<void()>());
    active.send([&, order] {
        order->push_back(1);
        active.send([&, order] {
            order->push_back(3);
            done.set_value(*order);
        });
        order->push_back(2);
    });
    auto result = done.get_future();
    ASSERT_EQ(result.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    EXPECT_EQ(result.get(), (std::vector<int>{1, 2, 3}));
}

TEST(ActiveTest, JobsSentAfterStopNeverRunAndAreDestroyedWithTheObject) {
    auto witness = std::make_shared<int>(0);
    std::weak_ptr<int> watched = witness;
    bool ran = false;
    {
        Active active;
        active.stop();
        active.send([&ran, witness] { ran = true; });
        witness.reset();
        EXPECT_FALSE(watched.expired()) << "the job is kept until the object goes";
    }
    EXPECT_FALSE(ran);
    EXPECT_TRUE(watched.expired());
}
