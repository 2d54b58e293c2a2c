#include "core/forwarder.h"

#include <chrono>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "communication/iPort.h"
#include "logger/active.h"
#include "support/packets.h"
#include "support/recordingWriter.h"

namespace {

// Answers each receive request on a worker of its own, as the extension port does, with the next
// packet of its script and then null; answers each send at once, on the caller's thread, with
// the next result of its script, after running duringSend.
class ScriptedPort : public IPort {
  public:
    void AsyncReceive(std::function<void(std::shared_ptr<Packet>)> callback) override {
        worker.send([this, callback] {
            ++receives;
            const std::shared_ptr<Packet> packet = packets.empty() ? nullptr : packets.front();
            if (packet) {
                packets.pop_front();
            }
            callback(packet);
            if (!packet) {
                ended.set_value();  // a second null throws, which the worker absorbs
            }
        });
    }
    void AsyncSend(std::shared_ptr<Packet> packet, std::function<void(bool)> callback) override {
        sent.push_back(payloadOf(*packet));
        duringSend();
        callback(results.at(sent.size() - 1));
        if (sent.size() == results.size()) {
            sentAll.set_value();
        }
    }

    std::deque<std::shared_ptr<Packet>> packets;
    std::vector<bool> results;
    std::function<void()> duringSend = [] {};
    // Touched on the worker only until the promises are kept.
    int receives = 0;
    std::vector<std::string> sent;
    std::promise<void> ended;
    std::promise<void> sentAll;
    Active worker;
};

bool keptInTime(std::promise<void>& promise) {
    return promise.get_future().wait_for(std::chrono::seconds(20)) == std::future_status::ready;
}

}  // namespace

TEST(ForwarderTest, PacketsGoOutInOrderPastEmptyPacketsAndFailedSendsUntilNullEndsTheChain) {
    auto writer = std::make_shared<RecordingWriter>();
    auto source = std::make_shared<ScriptedPort>();
    auto destination = std::make_shared<ScriptedPort>();
    source->packets = {packetWith("a"), makePacket(), packetWith("b"), packetWith("c")};
    // A send answered on the caller's thread, as the agent port refuses one while it connects.
    destination->results = {false, true, true};
    auto forwarder = std::make_unique<Forwarder>(source, destination, writer, "EXT->AGT");
    ASSERT_TRUE(keptInTime(source->ended));
    forwarder.reset();      // makes any receive request still queued
    source->worker.stop();  // and answers it

    EXPECT_EQ(source->receives, 5);
    EXPECT_EQ(destination->sent, (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(writer->messages("EXT->AGT"),
              std::vector<std::string>(2, "Packet is forwarded successfully."));
}

TEST(ForwarderTest, SendThatEndsAfterTheForwarderIsDestroyedLogsNothing) {
    auto writer = std::make_shared<RecordingWriter>();
    auto source = std::make_shared<ScriptedPort>();
    auto destination = std::make_shared<ScriptedPort>();
    source->packets = {packetWith("a")};
    destination->results = {true};
    std::unique_ptr<Forwarder> forwarder;
    destination->duringSend = [&] { forwarder.reset(); };
    std::promise<void> built;  // holds the source until the pointer is set
    source->worker.send([&] { built.get_future().wait(); });
    forwarder = std::make_unique<Forwarder>(source, destination, writer, "EXT->AGT");
    built.set_value();
    ASSERT_TRUE(keptInTime(destination->sentAll));
    // The receive job may still hold the port: let it end here, not on the port's own worker.
    source->worker.stop();
    EXPECT_TRUE(writer->lines().empty());
}
