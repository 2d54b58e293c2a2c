#include "ownFolders.h"

#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "support/tempDir.h"

namespace fs = std::filesystem;

namespace {

// The entries under the folder, relative to it, in order.
std::string listing(const fs::path& folder) {
    std::set<std::string> entries;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        entries.insert(fs::relative(entry.path(), folder).string());
    }
    std::string text;
    for (const std::string& entry : entries) {
        text += entry + "\n";
    }
    return text;
}

}  // namespace

// Two manifest folders share the folders above them, as Chrome's channels do on macOS; a browser
// then starts in one of them.
TEST(OwnFoldersTest, UninstallRemovesWhatTheToolMadeAndLeavesWhatABrowserAdded) {
    TempDir dir;
    const fs::path google = dir.path() / "Google";
    const std::string chrome = (google / "Chrome/NativeMessagingHosts").string();
    const std::string beta = (google / "Chrome Beta/NativeMessagingHosts").string();
    std::string error;
    ASSERT_TRUE(OwnFolders::create(chrome, false, error)) << error;
    ASSERT_TRUE(OwnFolders::create(beta, false, error)) << error;
    std::ofstream(chrome + "/com.quorvel.nativemessagehost.json") << "{}";
    EXPECT_TRUE(OwnFolders::holdsOnlyOurs((google / "Chrome").string()));
    EXPECT_TRUE(OwnFolders::holdsOnlyOurs(google.string()));
    EXPECT_FALSE(OwnFolders::holdsOnlyOurs(dir.path().string()));  // not made by the tool

    // Chrome Beta's go; Google stays, recorded, for Chrome's manifest.
    OwnFolders::release(beta);
    EXPECT_EQ(listing(dir.path()),
              "Google\nGoogle/.com.quorvel.nativemessagehost.created\nGoogle/Chrome\n"
              "Google/Chrome/.com.quorvel.nativemessagehost.created\n"
              "Google/Chrome/NativeMessagingHosts\n"
              "Google/Chrome/NativeMessagingHosts/.com.quorvel.nativemessagehost.created\n"
              "Google/Chrome/NativeMessagingHosts/com.quorvel.nativemessagehost.json\n");

    fs::create_directory(google / "Chrome/Default");  // Chrome starts
    EXPECT_FALSE(OwnFolders::holdsOnlyOurs((google / "Chrome").string()));
    EXPECT_FALSE(OwnFolders::holdsOnlyOurs(google.string()));
    // With its manifest in place, Chrome's folder is kept for it.
    OwnFolders::release(chrome);
    EXPECT_TRUE(fs::exists(fs::path(chrome) / OwnFolders::kRecordName));
    // Once it is gone, what Chrome made stays and is Chrome's: no record is left.
    fs::remove(chrome + "/com.quorvel.nativemessagehost.json");
    OwnFolders::release(chrome);
    EXPECT_EQ(listing(dir.path()), "Google\nGoogle/Chrome\nGoogle/Chrome/Default\n");
}

// The system folders' modes under any umask are checked where the tool is run for real.
TEST(OwnFoldersTest, FailureNamesTheFolderThatCouldNotBeMadeAndWhy) {
    TempDir dir;
    std::string error;
    std::ofstream(dir.path() / "file") << "";
    EXPECT_FALSE(OwnFolders::create((dir.path() / "file").string(), false, error));
    EXPECT_EQ(error, "it is not a folder");
    EXPECT_FALSE(OwnFolders::create((dir.path() / "file/sub/folder").string(), false, error));
    EXPECT_EQ(error, "Not a directory (making " + (dir.path() / "file/sub").string() + ")");
}
