#include <algorithm>
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
#include "support/tempDir.h"
#include "support/testAgent.h"

namespace fs = std::filesystem;

namespace {

const char* const kStartLine = "Quorvel native message host is started, version: 1.2.0";
const char* const kStopLine = "Quorvel native message host is stopped.";

// The message part of a log line, after "YYYY/MM/DD HH:MM:SS | SOURCE | ".
std::string messageOf(const std::string& line) {
    const std::size_t separator = line.find(" | ", 22);
    return separator == std::string::npos ? line : line.substr(separator + 3);
}

std::size_t countMessages(const std::vector<std::string>& lines, const std::string& message) {
    return std::count_if(lines.begin(), lines.end(),
                         [&](const std::string& line) { return messageOf(line) == message; });
}

std::size_t countMessagesStartingWith(const std::vector<std::string>& lines,
                                      const std::string& start) {
    return std::count_if(lines.begin(), lines.end(), [&](const std::string& line) {
        return messageOf(line).rfind(start, 0) == 0;
    });
}

// Each test runs the real executable as a user of its own, whose home is a fresh folder, in a
// working directory of its own.
class HostEndToEndTest : public testing::Test {
  protected:
    void SetUp() override {
        if (fakeUser::home().empty()) {
            GTEST_SKIP() << "nss_wrapper (Debian package libnss-wrapper) is not available; the "
                            "end-to-end tests need a fake user entry and are skipped";
        }
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
    std::vector<std::string> logLines() const { return readLogLines(logFolderOf(home.path())); }

    // Polls the log until the condition holds or a generous deadline passes.
    template <typename Condition>
    bool waitForLog(Condition condition) {
        for (int attempt = 0; attempt < 1000; ++attempt) {
            if (condition(logLines())) {
                return true;
            }
            Sleep(20);
        }
        return false;
    }

    TempDir home;
    TempDir workDir;
};

}  // namespace

TEST_F(HostEndToEndTest, VersionIsPrintedOnlyForAnExactFirstArgument) {
    for (const auto& arguments :
         std::vector<std::vector<std::string>>{{"--version"}, {"--version", "--other", "x"}}) {
        auto host = startHost(arguments);
        EXPECT_EQ(host->waitForExit(), 0);
        EXPECT_EQ(host->output(), "1.2.0\n");
    }
    EXPECT_FALSE(fs::exists(home.path() / "Library")) << "--version creates no log folder";

    // Anything else starts the host, which stops when its input closes.
    std::vector<std::unique_ptr<HostProcess>> hosts;
    for (const auto& arguments : std::vector<std::vector<std::string>>{
             {"--Version"}, {"--version=1"}, {"-v"}, {"run"}, {}}) {
        hosts.push_back(startHost(arguments));
        hosts.back()->closeInput();
    }
    for (auto& host : hosts) {
        EXPECT_EQ(host->waitForExit(), 0);
        EXPECT_EQ(host->output(), "");
    }
    EXPECT_EQ(countMessages(logLines(), kStartLine), hosts.size());
    EXPECT_EQ(countMessages(logLines(), kStopLine), hosts.size());
}

TEST_F(HostEndToEndTest, InputClosedAtOnceLogsStartAndStopInOrder) {
    auto host = startHost();
    host->closeInput();
    ASSERT_EQ(host->waitForExit(), 0);

    std::vector<std::string> messages;
    const std::regex format(R"(\d{4}/\d{2}/\d{2} \d{2}:\d{2}:\d{2} \| [^|]{1,8} \| .*)");
    for (const auto& line : logLines()) {
        EXPECT_TRUE(std::regex_match(line, format)) << line;
        messages.push_back(messageOf(line));
    }
    const std::vector<std::string> expected{"Socket name: " + socketPath(), kStartLine,
                                            "Canceling AgentPort", kStopLine};
    ASSERT_GE(messages.size(), expected.size());
    EXPECT_EQ(std::vector<std::string>(messages.begin(), messages.begin() + 4), expected);
    EXPECT_LE(messages.size(), 5u);
    if (messages.size() == 5) {
        EXPECT_EQ(messages[4], "Check for messagehost update");
    }
}

TEST_F(HostEndToEndTest, FramesReachTheAgentInOrderOverOneConnection) {
    TestAgent agent(socketPath());
    auto host = startHost();
    const std::vector<std::string> payloads{"{\"n\":1}", std::string("two\0three", 9), "3"};
    // The port turns away what comes while it connects, so the first frame goes on its own.
    host->writeFrame(payloads[0]);
    ASSERT_TRUE(agent.acceptConnection());
    EXPECT_EQ(agent.readFrame(), payloads[0]);
    host->writeFrame(payloads[1]);
    host->writeFrame(payloads[2]);
    EXPECT_EQ(agent.readFrame(), payloads[1]);
    EXPECT_EQ(agent.readFrame(), payloads[2]);
    ASSERT_TRUE(waitForLog([](const auto& lines) {
        return countMessages(lines, "Packet is forwarded successfully.") == 3;
    }));
    host->closeInput();
    EXPECT_EQ(host->waitForExit(), 0);
    EXPECT_FALSE(agent.hasPendingConnection()) << "one connection serves every frame";

    const auto lines = logLines();
    for (const auto& payload : payloads) {
        const std::string size = std::to_string(payload.size());
        EXPECT_EQ(countMessages(lines, "\xE2\x86\x93" + size + "B, " + payload), 1u);
        EXPECT_EQ(countMessages(lines, "\xE2\x86\x91" + size + "B, " + payload), 1u);
    }
}

TEST_F(HostEndToEndTest, WithoutAnAgentEveryFrameFailsAndTheHostStillExits) {
    auto host = startHost();
    const std::string connectError = "Error connecting to socket(" + socketPath() + "): ";
    for (std::size_t frame = 1; frame <= 2; ++frame) {
        host->writeFrame("lost");
        ASSERT_TRUE(waitForLog(
            [&](const auto& lines) { return countMessages(lines, "Can't send") == frame; }));
    }
    host->closeInput();
    EXPECT_EQ(host->waitForExit(), 0);
    const auto lines = logLines();
    EXPECT_EQ(countMessagesStartingWith(lines, connectError), 2u);
    EXPECT_EQ(countMessages(lines, "Packet is forwarded successfully."), 0u);
}

TEST_F(HostEndToEndTest, UpdateMarkerStopsTheHostWhileItsInputIsOpen) {
    for (const bool asFolder : {false, true}) {
        const fs::path marker = workDir.path() / "QuorvelNativeMessageHost_update";
        if (asFolder) {
            fs::create_directory(marker);
        } else {
            std::ofstream(marker) << "pending";
        }
        auto host = startHost();
        EXPECT_EQ(host->waitForExit(std::chrono::seconds(20)), 0);
        fs::remove_all(marker);
    }
    const auto lines = logLines();
    std::vector<std::string> tail;
    for (const auto& line : lines) {
        const std::string message = messageOf(line);
        if (message == "Updates are available, terminate messagehost." || message == kStopLine) {
            tail.push_back(message);
        }
    }
    EXPECT_EQ(tail, (std::vector<std::string>{
                        "Updates are available, terminate messagehost.", kStopLine,
                        "Updates are available, terminate messagehost.", kStopLine}));
}

TEST_F(HostEndToEndTest, AgentThatDropsItsConnectionOrStopsListeningCostsOnlyTheFramesThatFailed) {
    auto agent = std::make_unique<TestAgent>(socketPath());
    auto host = startHost();
    host->writeFrame("before");
    ASSERT_TRUE(agent->acceptConnection());
    EXPECT_EQ(agent->readFrame(), "before");

    agent->closeConnection();
    host->writeFrame("lost");
    ASSERT_TRUE(
        waitForLog([](const auto& lines) { return countMessages(lines, "Can't send") == 1; }));
    // One frame on its own: frames that come while it connects are turned away by design.
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

    // The agent goes away and its socket file with it.
    agent.reset();
    for (std::size_t frame = 1; frame <= 3; ++frame) {
        host->writeFrame("unheard");
        ASSERT_TRUE(waitForLog(
            [&](const auto& lines) { return countMessages(lines, "Can't send") == 1 + frame; }));
    }
    host->closeInput();
    EXPECT_EQ(host->waitForExit(std::chrono::seconds(10)), 0);
    const auto lines = logLines();
    // The first unheard frame fails on the dropped connection, the others on connecting.
    EXPECT_EQ(
        countMessagesStartingWith(lines, "Error connecting to socket(" + socketPath() + "): "), 2u);
    EXPECT_EQ(countMessages(lines, "Packet is forwarded successfully."), 2u + later.size());
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
        const std::string read = "\xE2\x86\x93" + std::to_string(payload.size()) + "B, ";
        const std::string sent = "\xE2\x86\x91" + std::to_string(payload.size()) + "B, ";
        ASSERT_TRUE(waitForLog([&](const auto& lines) {
            return countMessagesStartingWith(lines, read) == kFrames;
        })) << "the host keeps reading its input";
        EXPECT_LT(countMessagesStartingWith(logLines(), sent), kFrames);

        host->closeInput();
        EXPECT_EQ(host->waitForExit(std::chrono::seconds(10)), 0) << "accepts: " << accepts;
    }
}

TEST_F(HostEndToEndTest, LogFolderThatCannotBeWrittenLosesOnlyTheLines) {
    const fs::path standIn = logFolderOf(home.path());
    fs::create_directories(standIn.parent_path());
    std::ofstream(standIn) << "a file where the log folder belongs";
    TestAgent agent(socketPath());
    auto host = startHost();
    // One frame on its own: frames that come while it connects are turned away by design.
    host->writeFrame("one");
    ASSERT_TRUE(agent.acceptConnection());
    EXPECT_EQ(agent.readFrame(), "one");
    host->writeFrame("two");
    host->writeFrame("three");
    EXPECT_EQ(agent.readFrame(), "two");
    EXPECT_EQ(agent.readFrame(), "three");
    host->closeInput();
    EXPECT_EQ(host->waitForExit(std::chrono::seconds(10)), 0);
    EXPECT_TRUE(fs::is_regular_file(standIn));
    EXPECT_EQ(fs::file_size(standIn), std::string("a file where the log folder belongs").size());
}

TEST_F(HostEndToEndTest, LogFolderAndFilesAreCreatedOwnerOnlyAndExistingOnesKeepTheirMode) {
    const auto runOnce = [this] {
        auto host = startHost();
        host->closeInput();
        EXPECT_EQ(host->waitForExit(), 0);
    };
    runOnce();
    const fs::path folder = logFolderOf(home.path());
    EXPECT_EQ(fs::status(folder).permissions(), fs::perms::owner_all);
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(folder)) {
        files.push_back(entry.path());
        EXPECT_EQ(entry.status().permissions(), fs::perms::owner_read | fs::perms::owner_write);
    }
    ASSERT_FALSE(files.empty());

    const fs::perms shared = fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec;
    const fs::perms readable = fs::perms::owner_read | fs::perms::owner_write |
                               fs::perms::group_read | fs::perms::others_read;
    fs::permissions(folder, shared);
    fs::permissions(files.front(), readable);
    runOnce();
    EXPECT_EQ(fs::status(folder).permissions(), shared);
    EXPECT_EQ(fs::status(files.front()).permissions(), readable);
}
