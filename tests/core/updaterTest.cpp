#include "core/updater.h"

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/recordingWriter.h"
#include "support/tempDir.h"

namespace fs = std::filesystem;

namespace {

const char* const kMarker = "QuorvelNativeMessageHost_update";
const char* const kCheck = "Check for messagehost update";

// One watch, whose callback adds the line "found" to the watcher's own entries.
struct Watch {
    void start() {
        updater->Start([this] { writer->Update("found"); });
    }
    bool waitUntilFound() const {
        return writer->waitUntil(
            [](const auto& lines) { return !lines.empty() && lines.back() == "found"; });
    }
    std::vector<std::string> events() const { return writer->messages("HOST-UPD"); }

    std::shared_ptr<RecordingWriter> writer = std::make_shared<RecordingWriter>();
    std::unique_ptr<Updater> updater = std::make_unique<Updater>(writer);
};

// Runs each test in a fresh working directory, where the watcher looks for the marker.
class UpdaterTest : public testing::Test {
  protected:
    UpdaterTest() { fs::current_path(folder.path()); }
    ~UpdaterTest() override { fs::current_path(previous); }

    const fs::path previous = fs::current_path();
    TempDir folder;
};

}  // namespace

TEST_F(UpdaterTest, MarkerIsFoundAsFileOrFolderButNotAsADanglingLink) {
    Watch watch;
    fs::create_symlink("missing-target", kMarker);
    EXPECT_FALSE(watch.updater->UpdateExists());
    fs::remove(kMarker);
    fs::create_directory(kMarker);
    EXPECT_TRUE(watch.updater->UpdateExists());
    fs::remove(kMarker);
    std::ofstream(kMarker).put('x');
    EXPECT_TRUE(watch.updater->UpdateExists());
}

// The watches overlap, so that the test lasts three five-second check intervals, not four.
TEST_F(UpdaterTest, MarkerIsReportedOnceAtTheFirstCheckThatSeesItUnlessTheWatchIsCancelled) {
    Watch late;
    late.start();
    ASSERT_TRUE(late.writer->waitUntil([](const auto& lines) { return !lines.empty(); }));

    // Created after the first check of the late watch, the marker is found at a later one.
    std::ofstream(kMarker).put('x');
    Watch present;
    present.start();
    ASSERT_TRUE(late.waitUntilFound());
    ASSERT_TRUE(present.waitUntilFound());
    // Started after the finds, this watch lasts until a check queued after them would have run.
    Watch cancelled;
    cancelled.start();
    cancelled.updater->Cancel();
    cancelled.updater.reset();
    present.updater.reset();  // runs any check still queued
    EXPECT_EQ(cancelled.events(), std::vector<std::string>{kCheck});
    EXPECT_EQ(present.events(), (std::vector<std::string>{kCheck, "found"}));
}
