#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/utils.h"
#include "support/fakeUser.h"
#include "support/hostProcess.h"
#include "support/packets.h"
#include "support/tempDir.h"
#include "support/testAgent.h"

namespace fs = std::filesystem;

namespace {

const std::string kStartLine = "Quorvel native message host is started, version: 1.2.0";
const std::string kStopLine = "Quorvel native message host is stopped.";
const std::string kForwarded = "Packet is forwarded successfully.";

// The message part of a log line, after "YYYY/MM/DD HH:MM:SS | SOURCE | ".
std::string messageOf(const std::string& line) {
    const std::size_t separator = line.find(" | ", 22);
    return separator == std::string::npos ? line : line.substr(separator + 3);
}

// The log entry of a frame read from the input (kDownArrow) or sent to the agent (kUpArrow).
std::string entry(const std::string& arrow, const std::string& payload) {
    return arrow + std::to_string(payload.size()) + "B, " + payload;
}

// Each test runs the real executable as a user of its own, whose home is a fresh folder, in a
// working directory of its own.
class HostEndToEndTest : public testing::Test {
  protected:
    void SetUp() override {
        SKIP_WITHOUT_FAKE_USER();
        fakeUser::setHome(home.path());
    }
    void TearDown() override {
        if (!fakeUser::home().empty()) {
            fakeUser::setHome(fakeUser::home());
        }
    }

    std::unique_ptr<HostProcess> startHost(const std::vector<std::string>& arguments = {}) {
        return std::make_unique<HostProcess>(arguments, workDir.path());
    }
    std::string socketPath() const { return "/tmp/quorvel" + sha1Hash(home.path()); }
    fs::path logFolder() const { return logFolderOf(home.path()); }

    // How many log lines carry exactly this message.
    std::size_t count(const std::string& message) const {
        const auto lines = readLogLines(logFolder());
        return std::count_if(lines.begin(), lines.end(),
                             [&](const std::string& line) { return messageOf(line) == message; });
    }

    // Polls the log until the message is there the given number of times, or a generous
    // deadline passes.
    bool waitForCount(const std::string& message, std::size_t times) const {
        for (int attempt = 0; attempt < 1000 && count(message) != times; ++attempt) {
            Sleep(20);
        }
        return count(message) == times;
    }

    TempDir home;
    TempDir workDir;
};

}  // namespace

TEST_F(HostEndToEndTest, VersionIsPrintedOnlyForAnExactFirstArgumentAndEachRunLogsToAPrivateLog) {
    for (const auto& arguments :
         std::vector<std::vector<std::string>>{{"--version"}, {"--version", "--other", "x"}}) {
        auto host = startHost(arguments);
        EXPECT_EQ(host->waitForExit(), 0);
        EXPECT_EQ(host->output(), "1.2.0\n");
    }
    EXPECT_FALSE(fs::exists(home.path() / "Library")) << "--version creates no log folder";

    // Anything else starts the host, which stops when its input closes.
    const auto runWithInputClosed = [this](const std::vector<std::vector<std::string>>& runs) {
        std::vector<std::unique_ptr<HostProcess>> hosts;
        for (const auto& arguments : runs) {
            hosts.push_back(startHost(arguments));
            hosts.back()->closeInput();
        }
        for (auto& host : hosts) {
            EXPECT_EQ(host->waitForExit(), 0);
            EXPECT_EQ(host->output(), "");
        }
    };
    runWithInputClosed({{}});
    std::vector<std::string> messages;
    const std::regex format(R"(\d{4}/\d{2}/\d{2} \d{2}:\d{2}:\d{2} \| [^|]{1,8} \| .*)");
    for (const auto& line : readLogLines(logFolder())) {
        EXPECT_TRUE(std::regex_match(line, format)) << line;
        messages.push_back(messageOf(line));
    }
    if (messages.size() == 5 && messages.back() == "Check for messagehost update") {
        messages.pop_back();
    }
    EXPECT_EQ(messages, (std::vector<std::string>{"Socket name: " + socketPath(), kStartLine,
                                                  "Canceling AgentPort", kStopLine}));
    // A new log folder and file are the owner's only; existing ones keep their modes.
    EXPECT_EQ(fs::status(logFolder()).permissions(), fs::perms::owner_all);
    ASSERT_FALSE(fs::is_empty(logFolder()));
    const fs::path file = fs::directory_iterator(logFolder())->path();
    EXPECT_EQ(fs::status(file).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    const fs::perms shared = fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec;
    const fs::perms readable = fs::perms::owner_read | fs::perms::owner_write |
                               fs::perms::group_read | fs::perms::others_read;
    fs::permissions(logFolder(), shared);
    fs::permissions(file, readable);

    runWithInputClosed({{"--Version"}, {"--version=1"}, {"-v"}, {"run"}});
    EXPECT_EQ(count(kStartLine), 5u);
    EXPECT_EQ(count(kStopLine), 5u);
    EXPECT_EQ(fs::status(logFolder()).permissions(), shared);
    EXPECT_EQ(fs::status(file).permissions(), readable);
}

TEST_F(HostEndToEndTest, FramesReachTheAgentInOrderAndOnlyThoseSentWhileItIsAwayAreLost) {
    const std::string connectError =
        "Error connecting to socket(" + socketPath() + "): " + std::strerror(ENOENT);
    auto host = startHost();
    host->writeFrame("before the agent");
    ASSERT_TRUE(waitForCount("Can't send", 1));
    EXPECT_EQ(count(connectError), 1u);

    auto agent = std::make_unique<TestAgent>(socketPath());
    const std::vector<std::string> payloads{"{\"n\":1}", std::string("two\0three", 9), "3"};
    // The port turns away what comes while it connects, so the first frame goes on its own.
    host->writeFrame(payloads[0]);
    ASSERT_TRUE(agent->acceptConnection());
    EXPECT_EQ(agent->readFrame(), payloads[0]);
    host->writeFrame(payloads[1]);
    host->writeFrame(payloads[2]);
    EXPECT_EQ(agent->readFrame(), payloads[1]);
    EXPECT_EQ(agent->readFrame(), payloads[2]);
    ASSERT_TRUE(waitForCount(kForwarded, 3));
    EXPECT_FALSE(agent->hasPendingConnection()) << "one connection serves every frame";
    for (const auto& payload : payloads) {
        EXPECT_EQ(count(entry(kDownArrow, payload)), 1u);
        EXPECT_EQ(count(entry(kUpArrow, payload)), 1u);
    }

    // The agent drops its connection and listens again.
    agent->closeConnection();
    host->writeFrame("lost");
    ASSERT_TRUE(waitForCount("Can't send", 2));
    host->writeFrame("after 0");
    ASSERT_TRUE(agent->acceptConnection());
    EXPECT_EQ(agent->readFrame(), "after 0");
    std::vector<std::string> later;
    for (std::size_t frame = 1; frame <= 20; ++frame) {
        later.push_back("after " + std::to_string(frame) + std::string(frame * 2000, '.'));
        host->writeFrame(later.back());
    }
    for (const auto& payload : later) {
        EXPECT_TRUE(agent->readFrame() == payload)
            << "whole and in order: " << payload.substr(0, 9);
    }

    // The agent goes away and its socket file with it: the first frame fails on the dropped
    // connection, the others on connecting.
    agent.reset();
    for (std::size_t frame = 1; frame <= 3; ++frame) {
        host->writeFrame("unheard");
        ASSERT_TRUE(waitForCount("Can't send", 2 + frame));
    }
    host->closeInput();
    EXPECT_EQ(host->waitForExit(std::chrono::seconds(10)), 0);
    EXPECT_EQ(count(connectError), 3u);
    EXPECT_EQ(count(kForwarded), 4u + later.size());
}

TEST_F(HostEndToEndTest, UpdateMarkerAsAFileOrAFolderStopsTheHostWhileItsInputIsOpen) {
    const std::string marker = "QuorvelNativeMessageHost_update";
    TempDir otherWorkDir;
    std::ofstream(workDir.path() / marker) << "pending";
    fs::create_directory(otherWorkDir.path() / marker);
    auto asFile = startHost();
    HostProcess asFolder({}, otherWorkDir.path());
    EXPECT_EQ(asFile->waitForExit(std::chrono::seconds(20)), 0);
    EXPECT_EQ(asFolder.waitForExit(std::chrono::seconds(20)), 0);
    // Both hosts share the log, so their lines may interleave, but each stops after its find.
    const std::string found = "Updates are available, terminate messagehost.";
    std::vector<std::string> sequence;
    for (const auto& line : readLogLines(logFolder())) {
        if (messageOf(line) == found || messageOf(line) == kStopLine) {
            sequence.push_back(messageOf(line));
        }
    }
    ASSERT_EQ(sequence.size(), 4u);
    EXPECT_EQ(sequence.front(), found);
    EXPECT_EQ(sequence.back(), kStopLine);
    EXPECT_EQ(count(found), 2u);
}

TEST_F(HostEndToEndTest, AgentThatNeverReadsOrNeverAcceptsCannotHoldTheHostPastItsInput) {
    constexpr std::size_t kFrames = 20;  // far more bytes than a socket buffer holds
    for (const bool accepts : {true, false}) {
        // Without accepting, a full backlog holds the host's connect on Linux.
        TestAgent agent(socketPath(), accepts ? 16 : 0);
        if (!accepts) {
            agent.occupyBacklog();
        }
        auto host = startHost();
        const std::string payload(accepts ? 100000 : 100001, 'x');
        for (std::size_t frame = 0; frame < kFrames; ++frame) {
            host->writeFrame(payload);
        }
        if (accepts) {
            ASSERT_TRUE(agent.acceptConnection());
        }
        ASSERT_TRUE(waitForCount(entry(kDownArrow, payload), kFrames)) << "the host keeps reading";
        EXPECT_LT(count(entry(kUpArrow, payload)), kFrames);
        host->closeInput();
        EXPECT_EQ(host->waitForExit(std::chrono::seconds(10)), 0) << "accepts: " << accepts;
    }
}

TEST_F(HostEndToEndTest, LogFolderThatCannotBeWrittenLosesOnlyTheLines) {
    fs::create_directories(logFolder().parent_path());
    std::ofstream(logFolder()) << "a file where the log folder belongs";
    TestAgent agent(socketPath());
    auto host = startHost();
    host->writeFrame("one");  // on its own, as the port turns away frames while it connects
    ASSERT_TRUE(agent.acceptConnection());
    EXPECT_EQ(agent.readFrame(), "one");
    host->writeFrame("two");
    host->writeFrame("three");
    EXPECT_EQ(agent.readFrame(), "two");
    EXPECT_EQ(agent.readFrame(), "three");
    host->closeInput();
    EXPECT_EQ(host->waitForExit(std::chrono::seconds(10)), 0);
    EXPECT_TRUE(fs::is_regular_file(logFolder()));
}
