#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/utils.h"
#include "support/fakeUser.h"
#include "support/hostProcess.h"
#include "support/logLine.h"
#include "support/packets.h"
#include "support/tempDir.h"
#include "support/testAgent.h"

namespace fs = std::filesystem;

namespace {

// A log line's source column and message, as checkedEntry gives them.
std::string entry(const std::string& source, const std::string& message) {
    return source + " | " + message;
}

const std::string kStartLine =
    entry("HOST-APP", "Quorvel native message host is started, version: 1.2.0");
const std::string kStopLine = entry("HOST-APP", "Quorvel native message host is stopped.");
const std::string kForwarded = entry("EXT->AGT", "Packet is forwarded successfully.");
const std::string kCantSend = entry("AGT-PORT", "Can't send");

// The entries of a frame read from the input and of one sent to the agent.
std::string incoming(const std::string& payload) {
    return entry("EXT-PORT", kDownArrow + std::to_string(payload.size()) + "B, " + payload);
}
std::string outgoing(const std::string& payload) {
    return entry("AGT-PORT", kUpArrow + std::to_string(payload.size()) + "B, " + payload);
}

// A log file that holds this many bytes is full: the next line begins the next file.
constexpr std::uintmax_t kLogFileLimit = 20000000;

// Each test runs the real executable as a user of its own, whose home is a fresh folder, in a
// working directory of its own. This process and its hosts keep to a zone of UTC+05:30, where a
// stamp or a file name in UTC instead of local time shows.
class HostEndToEndTest : public testing::Test {
  protected:
    void SetUp() override {
        fakeUser::setHome(home.path());
        setenv("TZ", "<+0530>-05:30", 1);
        tzset();
    }
    void TearDown() override { fakeUser::setHome(fakeUser::home()); }

    std::unique_ptr<HostProcess> startHost(const std::vector<std::string>& arguments = {}) {
        return std::make_unique<HostProcess>(arguments, workDir.path());
    }
    std::string socketPath() const { return "/tmp/quorvel" + sha1Hash(home.path()); }
    fs::path logFolder() const { return logFolderOf(home.path()); }

    // Today's log file of this number: 0 for the first, then _1, _2, ...
    fs::path todaysLog(int number) const {
        return logFolder() / todaysLogName(number == 0 ? "" : "_" + std::to_string(number));
    }

    // The entries of every line logged today, file after file, past what the test planted in
    // the first; each stamped between the test's start and now (see checkedEntry).
    std::vector<std::string> entries() const {
        std::vector<std::string> lines;
        for (int number = 0;; ++number) {
            std::ifstream file(todaysLog(number));
            if (!file) {
                break;
            }
            file.seekg(static_cast<std::streamoff>(number == 0 ? planted : 0));
            for (std::string line; std::getline(file, line);) {
                lines.push_back(line);
            }
        }
        const std::time_t now = std::time(nullptr);
        for (std::string& line : lines) {
            line = checkedEntry(line, started, now);
        }
        return lines;
    }

    std::size_t count(const std::string& wanted) const {
        const auto all = entries();
        return std::count(all.begin(), all.end(), wanted);
    }

    // Polls the log until the entry is there the given number of times, or the deadline passes.
    bool waitForCount(const std::string& wanted, std::size_t times,
                      std::chrono::steady_clock::time_point deadline =
                          std::chrono::steady_clock::now() + std::chrono::seconds(20)) const {
        while (count(wanted) != times && std::chrono::steady_clock::now() < deadline) {
            Sleep(20);
        }
        return count(wanted) == times;
    }

    const std::time_t started = std::time(nullptr);
    std::uintmax_t planted = 0;  // bytes at the start of today's first log file, not the host's
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
    std::vector<std::string> logged = entries();
    if (logged.size() == 5 && logged.back() == entry("HOST-UPD", "Check for messagehost update")) {
        logged.pop_back();
    }
    EXPECT_EQ(logged, (std::vector<std::string>{
                          entry("AGT-PORT", "Socket name: " + socketPath()), kStartLine,
                          entry("AGT-PORT", "Canceling AgentPort"), kStopLine}));
    // A new log folder and file are the owner's only.
    const fs::path file = todaysLog(0);
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
    const std::string connectError = entry(
        "AGT-PORT", "Error connecting to socket(" + socketPath() + "): " + std::strerror(ENOENT));
    auto host = startHost();
    host->writeFrame("before the agent");
    ASSERT_TRUE(waitForCount(kCantSend, 1));
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
    EXPECT_EQ(count(incoming(payloads[0])), 1u);
    EXPECT_EQ(count(outgoing(payloads[0])), 1u);

    // The agent drops its connection and listens again: one frame is lost.
    agent->closeConnection();
    host->writeFrame("lost");
    ASSERT_TRUE(waitForCount(kCantSend, 2));
    host->writeFrame("after");
    ASSERT_TRUE(agent->acceptConnection());
    EXPECT_EQ(agent->readFrame(), "after");
    host->closeInput();
    EXPECT_EQ(host->waitForExit(std::chrono::seconds(10)), 0);
    EXPECT_EQ(count(kForwarded), 4u);
    EXPECT_EQ(count(outgoing("lost")), 0u) << "a frame is logged as sent only once written";
}

// Today's first log file is planted just short of full (sparse: nothing is written), so that
// these large frames fill it and begin the next.
TEST_F(HostEndToEndTest,
       AgentThatNeverReadsOrNeverAcceptsHoldsNeitherReadingNorExitAndFullLogsMoveOn) {
    constexpr std::size_t kFrames = 20;  // far more bytes than a socket buffer holds
    fs::create_directories(logFolder());
    planted = kLogFileLimit - 1000000;
    std::ofstream{todaysLog(0)};
    fs::resize_file(todaysLog(0), planted);
    for (const bool accepts : {true, false}) {
        // Without accepting, a full backlog holds the host's connect on Linux.
        TestAgent agent(socketPath(), accepts ? 16 : 0);
        if (!accepts) {
            agent.occupyBacklog();
        }
        const auto begun = std::chrono::steady_clock::now();
        auto host = startHost();
        const std::string payload(accepts ? 100000 : 100001, 'x');
        for (std::size_t frame = 0; frame < kFrames; ++frame) {
            host->writeFrame(payload);
        }
        if (accepts) {
            ASSERT_TRUE(agent.acceptConnection());
        }
        // The host reads about 10 frames a second, whatever the agent does: a bound far above
        // that, which a ten times slower host fails.
        ASSERT_TRUE(waitForCount(incoming(payload), kFrames, begun + std::chrono::seconds(10)))
            << "20 frames not read within 10 seconds; accepts: " << accepts;
        EXPECT_LT(count(outgoing(payload)), kFrames);
        host->closeInput();
        EXPECT_EQ(host->waitForExit(std::chrono::seconds(10)), 0) << "accepts: " << accepts;
    }
    const std::uintmax_t first = fs::file_size(todaysLog(0));
    EXPECT_GE(first, kLogFileLimit) << "a log file takes lines until it holds 20000000 bytes";
    EXPECT_LT(first, kLogFileLimit + 100100) << "a log file holding 20000000 bytes takes no more";
}

// A regular file where the folder belongs, or a FIFO where today's file belongs (which would hold
// an open for writing until someone reads it).
TEST_F(HostEndToEndTest, LogThatCannotBeWrittenLosesOnlyTheLinesAndHoldsNoExit) {
    fs::create_directories(logFolder().parent_path());
    std::ofstream(logFolder()) << "a file where the log folder belongs";
    TestAgent agent(socketPath());
    for (const bool fifo : {false, true}) {
        if (fifo) {
            fs::remove(logFolder());
            fs::create_directory(logFolder());
            ASSERT_EQ(mkfifo(todaysLog(0).c_str(), 0600), 0);
        }
        auto host = startHost();
        host->writeFrame("one");
        ASSERT_TRUE(agent.acceptConnection());
        EXPECT_EQ(agent.readFrame(), "one");
        host->closeInput();
        EXPECT_EQ(host->waitForExit(std::chrono::seconds(10)), 0) << "fifo: " << fifo;
    }
    EXPECT_TRUE(fs::is_fifo(todaysLog(0)));
}

// The watcher first looks about five seconds after the start: a marker already there stops the
// host then, with the check's line first, not at once.
TEST_F(HostEndToEndTest, MarkerPresentAtStartStopsTheHostAtTheFirstCheckNotSooner) {
    const std::string update = entry("HOST-APP", "Updates are available, terminate messagehost.");
    std::ofstream{workDir.path() / "QuorvelNativeMessageHost_update"};
    const auto begun = std::chrono::steady_clock::now();
    auto host = startHost();
    ASSERT_TRUE(waitForCount(update, 1));
    EXPECT_GE(std::chrono::steady_clock::now() - begun, std::chrono::seconds(2));
    EXPECT_EQ(host->waitForExit(), 0);
    EXPECT_EQ(entries(), (std::vector<std::string>{
                             entry("AGT-PORT", "Socket name: " + socketPath()), kStartLine,
                             entry("HOST-UPD", "Check for messagehost update"), update,
                             entry("AGT-PORT", "Canceling AgentPort"), kStopLine}));
}
