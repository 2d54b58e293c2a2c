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
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [&](const std::string& line) {
                                return messageOf(line).rfind(connectError, 0) == 0;
                            }),
              2);
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
