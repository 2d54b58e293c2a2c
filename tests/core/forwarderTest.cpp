#include "core/forwarder.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
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

constexpr auto kDeadline = std::chrono::seconds(20);

// A port whose requests wait until the test answers them, each on a thread of its own.
class ManualPort : public IPort {
  public:
    void AsyncReceive(std::function<void(std::shared_ptr<Packet>)> callback) override {
        std::lock_guard<std::mutex> lock(mutex);
        receives.push_back(std::move(callback));
        changed.notify_all();
    }

    void AsyncSend(std::shared_ptr<Packet> packet, std::function<void(bool)> callback) override {
        std::lock_guard<std::mutex> lock(mutex);
        sent.push_back(payloadOf(*packet));
        sends.push_back(std::move(callback));
    }

    // Each waits for the oldest request of its kind and returns once its callback has.
    void answerReceive(std::shared_ptr<Packet> packet) {
        auto callback = takeOldest(receives);
        ASSERT_TRUE(callback) << "no receive request came";
        std::thread([&] { callback(packet); }).join();
    }
    void answerSend(bool result) {
        auto callback = takeOldest(sends);
        ASSERT_TRUE(callback) << "no send request came";
        std::thread([&] { callback(result); }).join();
    }

    std::size_t pendingReceives() {
        std::lock_guard<std::mutex> lock(mutex);
        return receives.size();
    }
    std::vector<std::string> sentPayloads() {
        std::lock_guard<std::mutex> lock(mutex);
        return sent;
    }

    // Pending requests hold the ports; dropping them breaks that cycle at the end of a test.
    void dropRequests() {
        std::lock_guard<std::mutex> lock(mutex);
        receives.clear();
        sends.clear();
    }

  private:
    template <typename Callback>
    Callback takeOldest(std::deque<Callback>& requests) {
        std::unique_lock<std::mutex> lock(mutex);
        if (!changed.wait_for(lock, kDeadline, [&] { return !requests.empty(); })) {
            return Callback();
        }
        Callback oldest = std::move(requests.front());
        requests.pop_front();
        return oldest;
    }

    std::mutex mutex;
    std::condition_variable changed;
    // The requests and the payloads sent are guarded by mutex.
    std::deque<std::function<void(std::shared_ptr<Packet>)>> receives;
    std::deque<std::function<void(bool)>> sends;
    std::vector<std::string> sent;
};

// Records lines; while the gate is closed, a line waits in Update until it opens.
class GatedWriter : public RecordingWriter {
  public:
    void Update(const std::string& line) override {
        std::unique_lock<std::mutex> lock(mutex);
        held = true;
        changed.notify_all();
        changed.wait(lock, [this] { return open; });
        lock.unlock();
        RecordingWriter::Update(line);
    }

    void setGate(bool isOpen) {
        std::lock_guard<std::mutex> lock(mutex);
        open = isOpen;
        changed.notify_all();
    }

    bool waitForHeldLine() {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, kDeadline, [this] { return held; });
    }

  private:
    std::mutex mutex;
    std::condition_variable changed;
    bool open = true;  // guarded by mutex, as is held
    bool held = false;
};

class ForwarderTest : public testing::Test {
  protected:
    ~ForwarderTest() override {
        forwarder.reset();
        source->dropRequests();
        destination->dropRequests();
    }

    void expectSuccessEntries(std::size_t count) {
        const auto lines = writer->lines();
        EXPECT_EQ(lines.size(), count);
        for (const auto& line : lines) {
            EXPECT_NE(line.find(" | EXT->AGT | Packet is forwarded successfully."),
                      std::string::npos)
                << line;
        }
    }

    std::shared_ptr<GatedWriter> writer = std::make_shared<GatedWriter>();
    std::shared_ptr<ManualPort> source = std::make_shared<ManualPort>();
    std::shared_ptr<ManualPort> destination = std::make_shared<ManualPort>();
    std::unique_ptr<Forwarder> forwarder =
        std::make_unique<Forwarder>(source, destination, writer, "EXT->AGT");
};

}  // namespace

TEST_F(ForwarderTest, NullFromTheSourceEndsTheChainWithoutSendOrEntry) {
    source->answerReceive(nullptr);
    forwarder.reset();  // makes any receive request that was queued

    EXPECT_EQ(source->pendingReceives(), 0u);
    EXPECT_TRUE(destination->sentPayloads().empty());
    EXPECT_TRUE(writer->lines().empty());
}

TEST_F(ForwarderTest, PacketsReachTheDestinationInOrderEachWithOneEntryWhenSent) {
    // Each next packet is requested before the previous send has finished.
    for (const char* payload : {"a", "b", "c"}) {
        source->answerReceive(packetWith(payload));
    }
    EXPECT_EQ(destination->sentPayloads(), (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_TRUE(writer->lines().empty());

    for (std::size_t sent = 1; sent <= 3; ++sent) {
        destination->answerSend(true);
        expectSuccessEntries(sent);
    }
}

TEST_F(ForwarderTest, EmptyPacketsAndFailedSendsDoNotBreakTheChain) {
    source->answerReceive(makePacket());
    source->answerReceive(packetWith("refused"));
    source->answerReceive(packetWith("taken"));
    destination->answerSend(false);
    destination->answerSend(true);

    EXPECT_EQ(destination->sentPayloads(), (std::vector<std::string>{"refused", "taken"}));
    expectSuccessEntries(1);
}

TEST_F(ForwarderTest, CallbacksAfterDestructionForwardAndLogNothing) {
    source->answerReceive(packetWith("in flight"));
    forwarder.reset();
    ASSERT_EQ(source->pendingReceives(), 1u) << "the queued request is still made";

    destination->answerSend(true);
    source->answerReceive(packetWith("late"));

    EXPECT_EQ(destination->sentPayloads(), std::vector<std::string>{"in flight"});
    EXPECT_EQ(source->pendingReceives(), 0u);
    EXPECT_TRUE(writer->lines().empty());
}

TEST_F(ForwarderTest, DestructionWaitsForAnEntryUnderWay) {
    source->answerReceive(packetWith("a"));
    writer->setGate(false);
    std::thread sending([&] { destination->answerSend(true); });
    ASSERT_TRUE(writer->waitForHeldLine());

    std::promise<void> destroyed;
    auto destruction = destroyed.get_future();
    std::thread destroying([&] {
        forwarder.reset();
        destroyed.set_value();
    });
    EXPECT_EQ(destruction.wait_for(std::chrono::seconds(1)), std::future_status::timeout);
    writer->setGate(true);
    EXPECT_EQ(destruction.wait_for(kDeadline), std::future_status::ready);
    sending.join();
    destroying.join();
    expectSuccessEntries(1);
}
