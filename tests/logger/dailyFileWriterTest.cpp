#include "logger/dailyFileWriter.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/logLine.h"
#include "support/tempDir.h"

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kMaxFileSize = 16;
constexpr long kNeverDue = 1L << 50;  // ticks; no retention pass comes due during a test

std::string readFile(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

class DailyFileWriterTest : public testing::Test {
  protected:
    std::unique_ptr<DailyFileWriter> makeWriter(std::size_t maxLogFiles = 100,
                                                long deleteInterval = kNeverDue,
                                                std::size_t maxFileSize = kMaxFileSize) {
        return std::make_unique<DailyFileWriter>(logDir.wstring(), maxLogFiles, maxFileSize,
                                                 deleteInterval, L"messagehost_");
    }

    fs::path todays(const std::string& suffix) const { return logDir / todaysLogName(suffix); }

    // Write times are set explicitly, minutes after a point in the past, so that "newest"
    // never depends on the file system's timestamp resolution; real writes are newer still.
    void makeFile(const fs::path& path, std::size_t size, int minute) const {
        fs::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary | std::ios::trunc) << std::string(size, 'x');
        fs::last_write_time(path, past + std::chrono::minutes(minute));
    }

    // Logs a line, waits until the writer has written it and tells whether it ends `file`.
    static bool landsIn(DailyFileWriter& writer, const std::string& line, const fs::path& file) {
        writer.Update(line);
        writer.Flush();
        const std::string content = readFile(file);
        return content.size() > line.size() &&
               content.substr(content.size() - line.size() - 1) == line + "\n";
    }

    TempDir folder;
    const fs::path logDir = folder.path() / "logs" / "messagehost";
    const fs::file_time_type past = fs::file_time_type::clock::now() - std::chrono::hours(24);
};

}  // namespace

TEST_F(DailyFileWriterTest, LinesGoToTodaysNewestFileUntilItHoldsMaxFileSizeBytes) {
    auto writer = makeWriter();
    makeFile(logDir / "messagehost_2001_01_01_3.log", kMaxFileSize, 100);  // an earlier day
    ASSERT_TRUE(landsIn(*writer, "first", todays("")));

    makeFile(todays(""), kMaxFileSize - 1, 0);  // ends inside a line, as a killed host leaves it
    ASSERT_TRUE(landsIn(*writer, "one byte short", todays("")));
    EXPECT_EQ(readFile(todays("")), std::string(kMaxFileSize - 1, 'x') + "\none byte short\n");
    makeFile(todays(""), kMaxFileSize, 0);
    ASSERT_TRUE(landsIn(*writer, "full", todays("_1")));

    fs::remove_all(logDir);
    ASSERT_TRUE(landsIn(*writer, "folder deleted", todays("")));
}

// After a full _9 comes _10, after a full _10 comes _1 (only one digit of the number is read),
// and then the full files take a line each in turn.
TEST_F(DailyFileWriterTest, FullNumberedFilesAreFollowedByTheNextNumberAndAfterTenByOne) {
    for (int n = 1; n <= 10; ++n) {
        makeFile(todays("_" + std::to_string(n)), kMaxFileSize, n);
    }
    auto writer = makeWriter();
    for (int line = 0; line <= 10; ++line) {
        const fs::path file = todays("_" + std::to_string(line % 10 + 1));
        ASSERT_TRUE(landsIn(*writer, "line " + std::to_string(line), file)) << file;
        fs::last_write_time(file, past + std::chrono::minutes(100 + line));
    }
}

TEST_F(DailyFileWriterTest, RetentionBeforeEachDueLineKeepsTheTenNewestLogFilesOfAnyPrefix) {
    std::vector<fs::path> kept;
    for (int day = 10; day < 20; ++day) {
        kept.push_back(logDir / ("messagehost_2024_03_" + std::to_string(day) + ".log"));
        makeFile(kept.back(), 1, day);
    }
    const std::vector<fs::path> ignored = {logDir / "notes.txt", logDir / "old.log" / "inner.log"};
    for (const fs::path& path : ignored) {
        makeFile(path, 1, 0);
    }
    auto writer = makeWriter(10, 0);  // a pass at construction, then one before every line
    const fs::path otherPrefix = logDir / "other_2024_03_01.log";
    makeFile(otherPrefix, 1, 1);
    writer->Update("line");
    writer->Flush();

    EXPECT_FALSE(fs::exists(otherPrefix)) << "a write job runs a pass before its line";
    EXPECT_EQ(readFile(todays("")), "line\n");
    kept.push_back(todays(""));
    EXPECT_EQ(writer->GetLogFilesOrderedByDate(L".*\\.log"), kept);
    for (const fs::path& path : ignored) {
        EXPECT_TRUE(fs::exists(path)) << path;
    }

    // No pass comes before its interval since the last: a minute of 24 MHz ticks here.
    auto patient = makeWriter(10, 1440000000);
    makeFile(otherPrefix, 1, 1);
    EXPECT_TRUE(landsIn(*patient, "more", todays("")));
    EXPECT_TRUE(fs::exists(otherPrefix)) << "a pass before its interval";
}

// Writers of their own, each on its own worker, stand for hosts that log at once.
TEST_F(DailyFileWriterTest, LinesOfWritersLoggingAtOnceStayWhole) {
    constexpr int kWriters = 3;
    constexpr int kLines = 1000;  // lines written apart mix in about one in twenty
    std::vector<std::unique_ptr<DailyFileWriter>> writers;
    std::vector<std::string> lines;
    for (int w = 0; w < kWriters; ++w) {
        writers.push_back(makeWriter(100, kNeverDue, 1u << 30));
        lines.push_back(std::string(2000, static_cast<char>('a' + w)));
    }
    for (int n = 0; n < kLines; ++n) {
        for (int w = 0; w < kWriters; ++w) {
            writers[w]->Update(lines[w]);
        }
    }
    for (auto& writer : writers) {
        writer->Flush();
    }
    std::ifstream file(todays(""));
    std::vector<int> whole(kWriters);
    int malformed = 0;
    for (std::string line; std::getline(file, line);) {
        const auto writer = std::find(lines.begin(), lines.end(), line);
        writer == lines.end() ? ++malformed : ++whole[writer - lines.begin()];
    }
    EXPECT_EQ(malformed, 0);
    EXPECT_EQ(whole, std::vector<int>(kWriters, kLines));
}

// A link in the folder's or the file's place, or a folder that others may write, gets no line,
// and retention removes nothing through a link.
TEST_F(DailyFileWriterTest, LinkedOrSharedFolderAndLinkedFileGetNothing) {
    const fs::path elsewhere = folder.path() / "elsewhere";
    for (int day = 10; day < 22; ++day) {
        makeFile(elsewhere / ("messagehost_2024_03_" + std::to_string(day) + ".log"), 1, day);
    }
    fs::create_directories(logDir.parent_path());
    fs::create_directory_symlink(elsewhere, logDir);
    makeWriter(10, 0)->Update("through a linked folder");  // destroyed once the line is handled
    EXPECT_EQ(std::distance(fs::directory_iterator(elsewhere), fs::directory_iterator()), 12);

    fs::remove(logDir);
    fs::create_directory(logDir);
    fs::permissions(logDir, fs::perms::all);
    makeWriter()->Update("into a folder that others may write");
    EXPECT_FALSE(fs::exists(todays("")));

    fs::permissions(logDir, fs::perms::owner_all);
    const fs::path target = elsewhere / "messagehost_2024_03_10.log";
    fs::create_symlink(target, todays(""));
    makeWriter()->Update("through a linked file");
    EXPECT_EQ(readFile(target), "x");
    EXPECT_TRUE(fs::is_symlink(todays("")));
}

// Only root can give a folder or a file to another user.
TEST_F(DailyFileWriterTest, FolderOrFileOfAnotherUserGetsNothingAsRoot) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can plant a file of another user; this test is skipped";
    }
    constexpr uid_t kOtherUser = 65534;
    fs::create_directories(logDir);
    fs::permissions(logDir, fs::perms::owner_all);
    ASSERT_EQ(chown(logDir.c_str(), kOtherUser, kOtherUser), 0);
    makeWriter()->Update("into another user's folder");
    EXPECT_FALSE(fs::exists(todays("")));

    ASSERT_EQ(chown(logDir.c_str(), 0, 0), 0);
    makeFile(todays(""), 1, 0);
    fs::permissions(todays(""), fs::perms::all);
    ASSERT_EQ(chown(todays("").c_str(), kOtherUser, kOtherUser), 0);
    makeWriter()->Update("into another user's file");
    EXPECT_EQ(readFile(todays("")), "x");
}
