#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
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

std::string today(const char* format) {
    const std::tm local = getLocalTime();
    char text[16];
    return std::string(text, std::strftime(text, sizeof(text), format, &local));
}

// Each test runs the real executable as a user of its own, whose home is a fresh folder, in a
// working directory of its own.
class HostEndToEndTest : public testing::Test {
  protected:
    void SetUp() override { fakeUser::setHome(home.path()); }
    void TearDown() override { fakeUser::setHome(fakeUser::home()); }

    std::unique_ptr<HostProcess> startHost(const std::vector<std::string>& arguments = {}) {
        return std::make_unique<HostProcess>(arguments, workDir.path());
    }
    std::string socketPath() const { return "/tmp/quorvel" + sha1Hash(home.path()); }
    fs::path logFolder() const { return logFolderOf(home.path()); }

    // Every line of today's log file, the only one a host fills in a test.
    std::vector<std::string> logLines() const {
        std::ifstream file(logFolder() / ("messagehost_" + today("%Y_%m_%d") + ".log"));
        std::vector<std::string> lines;
        for (std::string line; std::getline(file, line);) {
            lines.push_back(line);
        }
        return lines;
    }

    // How many log lines carry exactly this message.
    std::size_t count(const std::string& message) const {
        const auto lines = logLines();
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
    const std::regex format(today("%Y/%m/%d") + R"( \d{2}:\d{2}:\d{2} \| [^|]{1,8} \| .*)");
    for (const auto& line : logLines()) {
        EXPECT_TRUE(std::regex_match(line, format)) << line;
        messages.push_back(messageOf(line));
    }
    if (messages.size() == 5 && messages.back() == "Check for messagehost update") {
        messages.pop_back();
    }
    EXPECT_EQ(messages, (std::vector<std::string>{"Socket name: " + socketPath(), kStartLine,
                                                  "Canceling AgentPort", kStopLine}));
    // A new log folder and file are the owner's only.
    const fs::path file = logFolder() / ("messagehost_" + today("%Y_%m_%d") + ".log");
    EXPECT_EQ(fs::status(logFolder()).permissions(), fs::perms::owner_all);
    EXPECT_EQ(fs::status(file).permissions(), fs::perms::owner_read | fs::perms::owner_write);

    runWithInputClosed({{"--Version"}, {"--version=1"}, {"-v"}, {"run"}});
    EXPECT_EQ(count(kStartLine), 5u);
    EXPECT_EQ(count(kStopLine), 5u);

    // Older log files beyond the ten newest go as a host starts. One host only: hosts pruning
    // the same folder at once may each see a file vanish mid-listing and prune out of order.
    for (int day = 10; day < 21; ++day) {
        const fs::path old = logFolder() / ("messagehost_2001_01_" + std::to_string(day) + ".log");
        std::ofstream{old};
        fs::last_write_time(old, fs::last_write_time(file) - std::chrono::hours(day));
    }
    runWithInputClosed({{}});
    EXPECT_EQ(std::distance(fs::directory_iterator(logFolder()), fs::directory_iterator()), 10);
}

TEST_F(HostEndToEndTest, FramesReachTheAgentInOrderAndOnlyThoseSentWhileItIsAwayAreLost) {
    const std::string connectError =
        "Error connecting to socket(" + socketPath() + "): " + std::strerror(ENOENT);
    auto host = startHost();
    host->writeFrame("before the agent");
    ASSERT_TRUE(waitForCount("Can't send", 1));
    EXPECT_EQ(count(connectError), 1u);

    auto agent = std::make_unique<TestAgent>(socketPath());
    // The port turns away what comes while it connects, so the first frame goes on its own.
    host->writeFrame("{\"n\":1}");
    ASSERT_TRUE(agent->acceptConnection());
    EXPECT_EQ(agent->readFrame(), "{\"n\":1}");
    const std::vector<std::string> payloads{std::string("two\0three", 9), "", "3"};
    for (const auto& payload : payloads) {
        host->writeFrame(payload);
    }
    EXPECT_EQ(agent->readFrame(), payloads[0]);
    EXPECT_EQ(agent->readFrame(), payloads[2]) << "an empty frame is read, not sent";
    ASSERT_TRUE(waitForCount(kForwarded, 3));
    EXPECT_EQ(count(entry(kDownArrow, payloads[0])), 1u);
    EXPECT_EQ(count(entry(kUpArrow, payloads[0])), 1u);

    // The agent drops its connection and listens again: one frame is lost.
    agent->closeConnection();
    host->writeFrame("lost");
    ASSERT_TRUE(waitForCount("Can't send", 2));
    host->writeFrame("after");
    ASSERT_TRUE(agent->acceptConnection());
    EXPECT_EQ(agent->readFrame(), "after");
    host->closeInput();
    EXPECT_EQ(host->waitForExit(std::chrono::seconds(10)), 0);
    EXPECT_EQ(count(kForwarded), 4u);
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
    host->writeFrame("one");
    ASSERT_TRUE(agent.acceptConnection());
    EXPECT_EQ(agent.readFrame(), "one");
    host->closeInput();
    EXPECT_EQ(host->waitForExit(std::chrono::seconds(10)), 0);
    EXPECT_TRUE(fs::is_regular_file(logFolder()));
}
