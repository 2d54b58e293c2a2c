#include "core/forwarder.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "communication/iPort.h"
#include "support/packets.h"
#include "support/recordingWriter.h"

namespace {

// Requests of one kind, each held until the test answers it on a thread of its own.
template <typename Result>
class Requests {
  public:
    void hold(std::function<void(Result)> callback) {
        std::lock_guard<std::mutex> lock(mutex);
        callbacks.push_back(std::move(callback));
        changed.notify_all();
    }

    // Waits for the oldest request and returns once its callback has; gives up after a failure.
    void answer(Result result) {
        if (testing::Test::HasFatalFailure()) {
            return;
        }
        std::unique_lock<std::mutex> lock(mutex);
        ASSERT_TRUE(changed.wait_for(lock, std::chrono::seconds(20), [this] {
            return !callbacks.empty();
        })) << "no request came";
        auto callback = std::move(callbacks.front());
        callbacks.pop_front();
        lock.unlock();
        std::thread([&] { callback(result); }).join();
    }

    std::size_t pending() {
        std::lock_guard<std::mutex> lock(mutex);
        return callbacks.size();
    }

    // Held requests hold the ports; dropping them breaks that cycle at the end of a test.
    void drop() {
        std::lock_guard<std::mutex> lock(mutex);
        callbacks.clear();
    }

  private:
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<std::function<void(Result)>> callbacks;  // guarded by mutex
};

class ManualPort : public IPort {
  public:
    void AsyncReceive(std::function<void(std::shared_ptr<Packet>)> callback) override {
        receives.hold(std::move(callback));
    }
    void AsyncSend(std::shared_ptr<Packet> packet, std::function<void(bool)> callback) override {
        sent.push_back(payloadOf(*packet));
        sends.hold(std::move(callback));
    }

    Requests<std::shared_ptr<Packet>> receives;
    Requests<bool> sends;
    // The payloads sent, in order; written only by the callbacks that receives.answer joins.
    std::vector<std::string> sent;
};

class ForwarderTest : public testing::Test {
  protected:
    ~ForwarderTest() override {
        forwarder.reset();
        source->receives.drop();
        destination->sends.drop();
    }

    std::shared_ptr<RecordingWriter> writer = std::make_shared<RecordingWriter>();
    std::shared_ptr<ManualPort> source = std::make_shared<ManualPort>();
    std::shared_ptr<ManualPort> destination = std::make_shared<ManualPort>();
    std::unique_ptr<Forwarder> forwarder =
        std::make_unique<Forwarder>(source, destination, writer, "EXT->AGT");
};

}  // namespace

TEST_F(ForwarderTest, NullFromTheSourceEndsTheChainWithoutSendOrEntry) {
    source->receives.answer(nullptr);
    forwarder.reset();  // makes any receive request still queued

    EXPECT_EQ(source->receives.pending(), 0u);
    EXPECT_TRUE(writer->lines().empty());
}

TEST_F(ForwarderTest, PacketsReachTheDestinationInOrderPastEmptyPacketsAndFailedSends) {
    source->receives.answer(packetWith("a"));
    destination->sends.answer(false);
    // Each next packet is requested before the previous send has finished.
    for (auto packet : {makePacket(), packetWith("b"), packetWith("c"), packetWith("d")}) {
        source->receives.answer(packet);
    }
    for (std::size_t sent = 1; sent <= 3; ++sent) {
        destination->sends.answer(true);
        EXPECT_EQ(writer->messages("EXT->AGT"),
                  std::vector<std::string>(sent, "Packet is forwarded successfully."));
    }
    EXPECT_EQ(destination->sent, (std::vector<std::string>{"a", "b", "c", "d"}));
}

TEST_F(ForwarderTest, CallbacksAfterDestructionForwardAndLogNothing) {
    source->receives.answer(packetWith("in flight"));
    forwarder.reset();  // still makes the receive request that was queued
    destination->sends.answer(true);
    source->receives.answer(packetWith("late"));

    EXPECT_EQ(destination->sent, std::vector<std::string>{"in flight"});
    EXPECT_TRUE(writer->lines().empty());
}

TEST(ForwarderRefusalTest, SendRefusedOnTheCallersThreadKeepsTheChainGoing) {
    // Like the agent port while it connects: the packet is turned away inside AsyncSend.
    class RefusingPort : public IPort {
      public:
        void AsyncReceive(std::function<void(std::shared_ptr<Packet>)>) override {}
        void AsyncSend(std::shared_ptr<Packet>, std::function<void(bool)> callback) override {
            callback(false);
        }
    };
    auto writer = std::make_shared<RecordingWriter>();
    auto source = std::make_shared<ManualPort>();
    {
        Forwarder forwarder(source, std::make_shared<RefusingPort>(), writer, "EXT->AGT");
        source->receives.answer(packetWith("refused"));
        source->receives.answer(nullptr);  // comes only if the chain went on
    }
    EXPECT_TRUE(writer->lines().empty());
}
