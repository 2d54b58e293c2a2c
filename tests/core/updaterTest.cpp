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

const char* const kCheck = "Check for messagehost update";
const char* const kMarker = "QuorvelNativeMessageHost_update";

// One watch, whose callback adds the line "found" to the watcher's own entries.
struct Watch {
    Watch() {
        updater->Start([this] { writer->Update("found"); });
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

// The late watch begins its first check before there is a marker.
TEST_F(UpdaterTest,
       MarkerOfAnyKindIsReportedOnceAtTheFirstCheckThatSeesItUnlessTheWatchIsCancelled) {
    Watch late;
    ASSERT_TRUE(late.writer->waitUntil([](const auto& lines) { return !lines.empty(); }));
    std::ofstream(kMarker).put('x');
    Watch cancelled;
    cancelled.updater->Cancel();
    ASSERT_TRUE(late.writer->waitUntil(
        [](const auto& lines) { return !lines.empty() && lines.back() == "found"; }));
    cancelled.updater.reset();  // runs the check still queued
    late.updater.reset();

    EXPECT_EQ(cancelled.events(), std::vector<std::string>{kCheck});
    // A check writes its line before it looks, so the first may already see the marker.
    const std::vector<std::string> lateEvents = late.events();  // ends with "found", as waited for
    EXPECT_LE(lateEvents.size(), 3u);
    EXPECT_EQ(std::vector<std::string>(lateEvents.end() - 2, lateEvents.end()),
              (std::vector<std::string>{kCheck, "found"}));

    // A folder is a marker as well as a file.
    Updater probe(late.writer);
    fs::remove(kMarker);
    fs::create_directory(kMarker);
    EXPECT_TRUE(probe.UpdateExists()) << "a folder";
}
