#include "communication/extPort.h"

#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <future>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/packets.h"
#include "support/recordingWriter.h"

namespace {

constexpr auto kDeadline = std::chrono::seconds(20);
const std::string kDownArrow = "\xE2\x86\x93";
const std::string kUpArrow = "\xE2\x86\x91";

std::string lengthBytes(uint32_t length) {
    return std::string(reinterpret_cast<const char*>(&length), sizeof(length));
}

std::string frame(const std::string& payload) {
    return lengthBytes(static_cast<uint32_t>(payload.size())) + payload;
}

bool endsWith(const std::string& line, const std::string& tail) {
    return line.size() >= tail.size() &&
           line.compare(line.size() - tail.size(), tail.size(), tail) == 0;
}

// Puts `replacement` on descriptor `fd`, or closes it for -1, until the object goes.
class DescriptorSwap {
  public:
    DescriptorSwap(int fd, int replacement) : fd(fd), saved(dup(fd)) { put(replacement); }
    ~DescriptorSwap() {
        put(saved);
        close(saved);
    }

  private:
    void put(int replacement) {
        if (replacement >= 0) {
            dup2(replacement, fd);
        } else {
            close(fd);
        }
    }

    int fd;
    int saved;
};

// A port reading a pipe that stands in as standard input. Going away, it ends the input so that
// no read stays blocked, drains what the C stream still holds and restores descriptor 0.
class PortOnPipe {
  public:
    PortOnPipe() : ends(makePipe()), stdinSwap(STDIN_FILENO, ends[0]) {
        close(ends[0]);
        std::clearerr(stdin);
        port = std::make_shared<ExtPort>(writer);
    }
    ~PortOnPipe() {
        endInput();
        port.reset();
        while (std::fgetc(stdin) != EOF) {
        }
        std::clearerr(stdin);
    }

    void feed(const std::string& bytes) {
        EXPECT_EQ(write(ends[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }

    void endInput() {
        if (ends[1] >= 0) {
            close(ends[1]);
            ends[1] = -1;
        }
    }

    // One request through the port's worker, as the host makes it.
    std::shared_ptr<Packet> receive() {
        auto answer = std::make_shared<std::promise<std::shared_ptr<Packet>>>();
        auto result = answer->get_future();
        port->AsyncReceive([answer](std::shared_ptr<Packet> packet) { answer->set_value(packet); });
        if (result.wait_for(kDeadline) != std::future_status::ready) {
            ADD_FAILURE() << "the receive request was not answered";
            return nullptr;
        }
        return result.get();
    }

    std::shared_ptr<RecordingWriter> writer = std::make_shared<RecordingWriter>();
    std::shared_ptr<ExtPort> port;

  private:
    static std::array<int, 2> makePipe() {
        std::array<int, 2> fds{-1, -1};
        EXPECT_EQ(pipe(fds.data()), 0);
        return fds;
    }

    std::array<int, 2> ends;
    DescriptorSwap stdinSwap;
};

}  // namespace

TEST(ExtPortTest, ReceiveReadsFramesAndTracesOnlyPayloadsThenEndOfInputGivesNullAndCancels) {
    PortOnPipe input;
    const std::string payload("line\nzero\0byte", 14);
    // The length with the top bit set reads no payload; its first four bytes are the next length.
    input.feed(frame(payload) + frame("") + lengthBytes(0x80000007u) + frame("abc"));
    input.endInput();

    auto first = input.receive();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(payloadOf(*first), payload);
    for (int emptyFrame = 0; emptyFrame < 2; ++emptyFrame) {
        auto empty = input.receive();
        ASSERT_NE(empty, nullptr);
        EXPECT_EQ(empty->size, 0u);
        EXPECT_EQ(empty->data, nullptr);
    }
    auto last = input.receive();
    ASSERT_NE(last, nullptr);
    EXPECT_EQ(payloadOf(*last), "abc");

    EXPECT_EQ(input.receive(), nullptr);
    input.port->WaitForCancel();
    const auto lines = input.writer->lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(endsWith(lines[0], " | EXT-PORT | " + kDownArrow + "14B, " + payload)) << lines[0];
    EXPECT_TRUE(endsWith(lines[1], " | EXT-PORT | " + kDownArrow + "3B, abc")) << lines[1];
}

TEST(ExtPortTest, EndOfInputInsideAFrameDropsItGivesNullAndCancels) {
    for (const std::size_t cut : {2, 7}) {
        SCOPED_TRACE(cut);
        PortOnPipe input;
        input.feed(frame("hello").substr(0, cut));
        input.endInput();

        EXPECT_EQ(input.receive(), nullptr);
        input.port->WaitForCancel();
        EXPECT_TRUE(input.writer->lines().empty());
    }
}

// Formed in 32 bits, the buffer size for 2^29 bytes would wrap to 0 and the payload would be read
// past the buffer, which the sanitizer builds catch.
TEST(ExtPortTest, BufferForTwoToTheTwentyNinthBytesDoesNotWrap) {
    PortOnPipe input;
    input.feed(lengthBytes(1u << 29) + "abcd");
    input.endInput();

    // Without 4 GiB to spare the payload stays unread: empty packets come until the end of input.
    for (auto packet = input.receive(); packet != nullptr; packet = input.receive()) {
        EXPECT_EQ(packet->size, 0u);
    }
    EXPECT_TRUE(input.writer->lines().empty());
}

TEST(ExtPortTest, CancelFromAnotherThreadReleasesTheWaiterAndLaterRequestsReadNothing) {
    PortOnPipe input;
    const std::string unread = frame("unread");
    input.feed(unread);
    std::promise<void> released;
    std::thread waiter([&] {
        input.port->WaitForCancel();
        released.set_value();
    });
    auto waited = released.get_future();
    EXPECT_EQ(waited.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);

    input.port->Cancel();
    input.port->Cancel();
    EXPECT_EQ(waited.wait_for(kDeadline), std::future_status::ready);
    waiter.join();
    input.port->WaitForCancel();
    EXPECT_EQ(input.receive(), nullptr);
    EXPECT_EQ(input.receive(), nullptr);

    std::string left(unread.size(), '\0');
    EXPECT_EQ(std::fread(left.data(), 1, left.size(), stdin), left.size());
    EXPECT_EQ(left, unread);
    EXPECT_TRUE(input.writer->lines().empty());
}

TEST(ExtPortTest, SendWritesTheExactFrameToDescriptorOneAndTracesIt) {
    auto writer = std::make_shared<RecordingWriter>();
    ExtPort port(writer);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    std::fflush(stdout);
    bool sent = false;
    {
        DescriptorSwap stdoutSwap(STDOUT_FILENO, ends[1]);
        close(ends[1]);
        sent = port.Send(packetWith("hi\n"));
    }
    std::string written(64, '\0');
    written.resize(static_cast<std::size_t>(read(ends[0], written.data(), written.size())));
    close(ends[0]);

    EXPECT_TRUE(sent);
    EXPECT_EQ(written, frame("hi\n"));
    ASSERT_EQ(writer->lines().size(), 1u);
    EXPECT_TRUE(endsWith(writer->lines()[0], " | EXT-PORT | " + kUpArrow + "3B, hi\n"));
}

TEST(ExtPortTest, SendRefusesEmptyPacketsAndACancelledPortSilentlyAndLogsAFailedWrite) {
    auto writer = std::make_shared<RecordingWriter>();
    ExtPort port(writer);
    std::fflush(stdout);
    std::vector<bool> results;
    std::vector<std::size_t> lineCounts;
    {
        DescriptorSwap closedStdout(STDOUT_FILENO, -1);
        for (auto packet : {std::shared_ptr<Packet>(), makePacket(), packetWith("lost")}) {
            results.push_back(port.Send(packet));
            lineCounts.push_back(writer->lines().size());
        }
        port.Cancel();
        results.push_back(port.Send(packetWith("late")));
        lineCounts.push_back(writer->lines().size());
    }
    EXPECT_EQ(results, (std::vector<bool>{false, false, false, false}));
    EXPECT_EQ(lineCounts, (std::vector<std::size_t>{0, 0, 1, 1}));
    EXPECT_TRUE(endsWith(writer->lines()[0], " | EXT-PORT | Can't send"));
}
