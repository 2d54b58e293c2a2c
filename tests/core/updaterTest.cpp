#include "core/updater.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <memory>

#include <gtest/gtest.h>

#include "support/recordingWriter.h"
#include "support/tempDir.h"

namespace fs = std::filesystem;

namespace {

const char* const kMarker = "QuorvelNativeMessageHost_update";
const char* const kCheckEntry = " | HOST-UPD | Check for messagehost update";

std::size_t checkEntries(const std::vector<std::string>& lines) {
    return std::count_if(lines.begin(), lines.end(), [](const std::string& line) {
        return line.size() > 19 && line.substr(19) == kCheckEntry;
    });
}

// Runs each test in a fresh working directory, where the watcher looks for the marker.
class UpdaterTest : public testing::Test {
  protected:
    void SetUp() override {
        previous = fs::current_path();
        fs::current_path(folder.path());
    }
    void TearDown() override { fs::current_path(previous); }

    TempDir folder;
    fs::path previous;
    std::shared_ptr<RecordingWriter> writer = std::make_shared<RecordingWriter>();
};

}  // namespace

TEST_F(UpdaterTest, MarkerOfAnyKindIsFoundAndDanglingLinkIsNot) {
    Updater updater(writer);
    EXPECT_FALSE(updater.UpdateExists());
    fs::create_symlink("missing-target", kMarker);
    EXPECT_FALSE(updater.UpdateExists());
    fs::remove(kMarker);
    fs::create_directory(kMarker);
    EXPECT_TRUE(updater.UpdateExists());
    fs::remove(kMarker);
    std::ofstream(kMarker).put('x');
    EXPECT_TRUE(updater.UpdateExists());
    EXPECT_TRUE(writer->lines().empty()) << "looking never logs unless it fails";
}

TEST_F(UpdaterTest, MarkerPresentAtStartIsReportedOnceAfterOneCheck) {
    std::ofstream(kMarker).put('x');
    std::atomic<int> calls{0};
    {
        Updater updater(writer);
        updater.Start([&] { ++calls; });
        ASSERT_TRUE(writer->waitUntil([&](const auto&) { return calls.load() > 0; }));
    }
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(checkEntries(writer->lines()), 1u);
    EXPECT_EQ(writer->lines().size(), 1u);
    EXPECT_TRUE(fs::exists(kMarker)) << "the watcher never removes the marker";
}

TEST_F(UpdaterTest, MarkerCreatedWhileWatchingIsFoundAtTheNextCheck) {
    std::atomic<int> calls{0};
    Updater updater(writer);
    updater.Start([&] { ++calls; });
    ASSERT_TRUE(writer->waitForLines(1));
    EXPECT_EQ(calls, 0);
    fs::create_directory(kMarker);
    ASSERT_TRUE(writer->waitUntil([&](const auto&) { return calls.load() > 0; }));
    // The first check may still have been looking when the marker appeared.
    EXPECT_LE(checkEntries(writer->lines()), 2u);
}

TEST_F(UpdaterTest, CancelledWatchLogsOneMoreCheckWithoutLooking) {
    std::ofstream(kMarker).put('x');
    std::atomic<int> calls{0};
    {
        Updater updater(writer);
        updater.Start([&] { ++calls; });
        updater.Cancel();
    }
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(checkEntries(writer->lines()), 1u);
}
