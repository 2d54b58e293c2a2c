#include "logger/dailyFileWriter.h"

#include <chrono>
#include <ctime>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "platform/utils.h"
#include "support/tempDir.h"

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kMaxFileSize = 16;
constexpr long kNeverDue = 1L << 50;  // ticks; no retention pass comes due during a test

std::string readFile(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

std::string today() {
    const std::tm local = getLocalTime();
    char text[16];
    std::strftime(text, sizeof(text), "%Y_%m_%d", &local);
    return text;
}

class DailyFileWriterTest : public testing::Test {
  protected:
    std::unique_ptr<DailyFileWriter> makeWriter(std::size_t maxLogFiles = 100,
                                                long deleteInterval = kNeverDue) {
        return std::make_unique<DailyFileWriter>(logDir.wstring(), maxLogFiles, kMaxFileSize,
                                                 deleteInterval, L"messagehost_");
    }

    fs::path todays(const std::string& suffix) const {
        return logDir / ("messagehost_" + today() + suffix + ".log");
    }

    // Write times are set explicitly, minutes after a point in the past, so that "newest"
    // never depends on the file system's timestamp resolution; real writes are newer still.
    void stamp(const fs::path& path, int minute) const {
        fs::last_write_time(path, past + std::chrono::minutes(minute));
    }

    void makeFile(const fs::path& path, std::size_t size, int minute) const {
        fs::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary | std::ios::trunc) << std::string(size, 'x');
        stamp(path, minute);
    }

    // Logs a line and waits until the worker has appended it to `file`.
    static bool landsIn(DailyFileWriter& writer, const std::string& line, const fs::path& file) {
        writer.Update(line);
        const std::string ending = line + "\n";
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (std::chrono::steady_clock::now() < deadline) {
            const std::string content = readFile(file);
            if (content.size() >= ending.size() &&
                content.compare(content.size() - ending.size(), ending.size(), ending) == 0) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return false;
    }

    TempDir folder;
    const fs::path logDir = folder.path() / "logs" / "messagehost";
    const fs::file_time_type past = fs::file_time_type::clock::now() - std::chrono::hours(24);
};

}  // namespace

TEST(DailyFileWriterFileNumTest, OnlyOneDigitNumbersAreRead) {
    const std::map<std::string, int> cases = {
        {"messagehost_2024_03_05.log", 0},
        {"messagehost_2024_03_05_1.log", 1},
        {"messagehost_2024_03_05_9.log", 9},
        {"messagehost_2024_03_05_10.log", 0},
        {"messagehost_2024_03_05_42.log", 0},
        {"messagehost_2024_3_5_1.log", 0},
        {"notes.txt", 0},
        {"", 0},
        {"a_2024_03_05_7.log.bak", 7},  // searched, not matched as a whole
    };
    for (const auto& [name, number] : cases) {
        EXPECT_EQ(DailyFileWriter::GetFileNum(name), number) << name;
    }
}

TEST_F(DailyFileWriterTest, LinesGoToTodaysUnnumberedFileInAFolderCreatedWhenMissing) {
    auto writer = makeWriter();
    EXPECT_TRUE(fs::is_directory(logDir));
    EXPECT_EQ(fs::path(DailyFileWriter::GetCurrentDate()).string(), today());
    makeFile(logDir / "messagehost_2001_01_01.log", kMaxFileSize, 100);
    makeFile(logDir / "messagehost_2001_01_01_3.log", kMaxFileSize, 200);

    ASSERT_TRUE(landsIn(*writer, "first", todays("")));
    EXPECT_EQ(readFile(todays("")), "first\n") << "earlier days do not count for today";

    fs::remove_all(logDir);
    ASSERT_TRUE(landsIn(*writer, "second", todays("")));
    EXPECT_EQ(readFile(todays("")), "second\n");
}

TEST_F(DailyFileWriterTest, NewestFileIsFullFromExactlyMaxFileSize) {
    auto writer = makeWriter();
    makeFile(todays(""), kMaxFileSize - 1, 0);
    EXPECT_EQ(writer->PrepareLogPath(), todays(""));
    ASSERT_TRUE(landsIn(*writer, "past the limit", todays("")));
    EXPECT_EQ(fs::file_size(todays("")), kMaxFileSize - 1 + 15);

    makeFile(todays(""), kMaxFileSize, 0);
    EXPECT_EQ(writer->PrepareLogPath(), todays("_1"));
}

TEST_F(DailyFileWriterTest, FullNewestFileIsFollowedByTheNextNumberUpToTen) {
    auto writer = makeWriter();
    const std::pair<std::string, std::string> cases[] = {
        {"", "_1"}, {"_1", "_2"}, {"_9", "_10"}, {"_10", "_1"}};
    for (const auto& [full, next] : cases) {
        fs::remove_all(logDir);
        makeFile(todays(full), kMaxFileSize, 0);
        EXPECT_EQ(writer->PrepareLogPath(), todays(next)) << "after a full '" << full << "'";
    }
}

TEST_F(DailyFileWriterTest, AfterAFullTenthFileTheFullFilesAreWrittenInTurnOneLineEach) {
    for (int n = 1; n <= 10; ++n) {
        makeFile(todays("_" + std::to_string(n)), kMaxFileSize, n);
    }
    auto writer = makeWriter();
    for (int line = 0; line <= 10; ++line) {
        const fs::path file = todays("_" + std::to_string(line % 10 + 1));
        ASSERT_TRUE(landsIn(*writer, "line " + std::to_string(line), file)) << file;
        stamp(file, 100 + line);
    }
    EXPECT_EQ(readFile(todays("_1")), std::string(kMaxFileSize, 'x') + "line 0\nline 10\n");
    EXPECT_EQ(readFile(todays("_10")), std::string(kMaxFileSize, 'x') + "line 9\n");
}

TEST_F(DailyFileWriterTest, LinesFromTwoThreadsArriveWholeAndInOrderBeforeTheWriterIsGone) {
    const auto lineOf = [](char thread, int i) {
        return std::string(300, thread) + std::to_string(i);
    };
    constexpr int kLines = 200;
    {
        DailyFileWriter writer(logDir.wstring(), 100, 1 << 24, kNeverDue, L"messagehost_");
        const auto logAll = [&](char thread) {
            for (int i = 0; i < kLines; ++i) {
                writer.Update(lineOf(thread, i));
            }
        };
        std::thread a(logAll, 'a');
        std::thread b(logAll, 'b');
        a.join();
        b.join();
    }
    std::istringstream content(readFile(todays("")));
    std::map<char, int> next = {{'a', 0}, {'b', 0}};
    for (std::string line; std::getline(content, line);) {
        ASSERT_FALSE(line.empty());
        ASSERT_EQ(line, lineOf(line[0], next[line[0]]++));
    }
    EXPECT_EQ(next, (std::map<char, int>{{'a', kLines}, {'b', kLines}}));
}

TEST_F(DailyFileWriterTest, RetentionKeepsTheTenNewestLogFilesOfAnyPrefixAndNothingElse) {
    std::vector<fs::path> kept;
    for (int day = 10; day < 20; ++day) {
        kept.push_back(logDir / ("messagehost_2024_03_" + std::to_string(day) + ".log"));
        makeFile(kept.back(), 1, day);
    }
    const std::vector<fs::path> oldest = {logDir / "other_2024_03_01.log",
                                          logDir / "messagehost_2024_03_25.log",
                                          logDir / "messagehost_2024_03_02_1.log"};
    for (int i = 0; i < 3; ++i) {
        makeFile(oldest[i], 1, i + 1);
    }
    const std::vector<fs::path> ignored = {logDir / "notes.txt", logDir / "messagehost.log.bak",
                                           logDir / "old.log" / "inner.log",
                                           logDir / "sub" / "messagehost_2024_03_03.log"};
    for (const fs::path& path : ignored) {
        makeFile(path, 1, 0);
    }
    stamp(logDir / "old.log", 0);

    auto writer = makeWriter(10);
    EXPECT_EQ(writer->GetLogFilesOrderedByDate(L".*\\.log"), kept);
    writer->DeleteExtraLogs();
    EXPECT_EQ(writer->GetLogFilesOrderedByDate(L".*\\.log"), kept) << "ten files lose none";
    for (const fs::path& path : oldest) {
        EXPECT_FALSE(fs::exists(path)) << path;
    }
    for (const fs::path& path : ignored) {
        EXPECT_TRUE(fs::exists(path)) << path;
    }
}

TEST_F(DailyFileWriterTest, MissingFolderListsNothingAndDeletesNothing) {
    auto writer = makeWriter(0);
    fs::remove_all(logDir);
    EXPECT_TRUE(writer->GetLogFilesOrderedByDate(L".*").empty());
    writer->DeleteExtraLogs();
    EXPECT_FALSE(fs::exists(logDir));
}

TEST_F(DailyFileWriterTest, WriteJobRunsARetentionPassOnlyOnceTheIntervalHasPassed) {
    for (const long interval : {kNeverDue, 0L}) {
        fs::remove_all(logDir);
        {
            auto writer = makeWriter(2, interval);
            for (int i = 1; i <= 3; ++i) {
                makeFile(logDir / ("old_" + std::to_string(i) + ".log"), 1, i);
            }
            writer->Update("line");
        }
        EXPECT_EQ(fs::exists(logDir / "old_1.log"), interval == kNeverDue) << interval;
        EXPECT_TRUE(fs::exists(logDir / "old_2.log"));
        EXPECT_EQ(readFile(todays("")), "line\n");
    }
}
