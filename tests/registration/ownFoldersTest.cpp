#include "ownFolders.h"

#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
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

mode_t modeOf(const fs::path& path) {
    struct stat status {};
    stat(path.c_str(), &status);
    return status.st_mode & 07777;
}

}  // namespace

// Two manifest folders share the folders above them, as Chrome's channels do on macOS; a browser
// then starts in one of them.
TEST(OwnFoldersTest, UninstallRemovesWhatTheToolMadeAndLeavesWhatABrowserAdded) {
    TempDir dir;
    const fs::path google = dir.path() / "Google";
    const std::string chrome = (google / "Chrome/NativeMessagingHosts").string();
    const std::string beta = (google / "Chrome Beta/NativeMessagingHosts").string();
    const std::string root = dir.path().string();
    std::string error;
    ASSERT_TRUE(OwnFolders::create(root, chrome, false, error).isOpen()) << error;
    ASSERT_TRUE(OwnFolders::create(root, beta, false, error).isOpen()) << error;
    std::ofstream(chrome + "/com.quorvel.nativemessagehost.json") << "{}";
    EXPECT_TRUE(OwnFolders::holdsOnlyOurs((google / "Chrome").string()));
    EXPECT_TRUE(OwnFolders::holdsOnlyOurs(google.string()));
    EXPECT_FALSE(OwnFolders::holdsOnlyOurs(dir.path().string()));  // not made by the tool

    // Chrome Beta's go; Google stays, recorded, for Chrome's manifest.
    OwnFolders::release(root, beta);
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
    OwnFolders::release(root, chrome);
    EXPECT_TRUE(fs::exists(fs::path(chrome) / OwnFolders::kRecordName));
    // Once it is gone, what Chrome made stays and is Chrome's: no record is left.
    fs::remove(chrome + "/com.quorvel.nativemessagehost.json");
    OwnFolders::release(root, chrome);
    EXPECT_EQ(listing(dir.path()), "Google\nGoogle/Chrome\nGoogle/Chrome/Default\n");
}

// The system folders' modes under any umask are checked where the tool is run for real.
TEST(OwnFoldersTest, FailureNamesTheFolderThatCouldNotBeMadeAndWhy) {
    TempDir dir;
    const std::string root = dir.path().string();
    std::string error;
    std::ofstream(dir.path() / "file") << "";
    EXPECT_FALSE(OwnFolders::create(root, (dir.path() / "file").string(), false, error).isOpen());
    EXPECT_EQ(error, "it is not a folder");
    EXPECT_FALSE(
        OwnFolders::create(root, (dir.path() / "file/sub/folder").string(), false, error).isOpen());
    EXPECT_EQ(error, (dir.path() / "file").string() + " is not a folder");
}

// A dotfile manager's links, relative (up past the folder the walk starts in) and absolute: the
// tool makes its folders where they lead, as a browser would, and uninstall removes only those.
TEST(OwnFoldersTest, TheUsersOwnLinksAreFollowed) {
    TempDir dir;
    const fs::path home = dir.path() / "home";
    fs::create_directories(home);
    fs::create_directories(dir.path() / "dotfiles/config");
    fs::create_directory_symlink("../dotfiles/config", home / ".config");
    fs::create_directory_symlink(dir.path() / "dotfiles", home / ".mozilla");
    const std::string before = listing(dir.path());
    const std::string chrome = (home / ".config/google-chrome/NativeMessagingHosts").string();
    const std::string firefox = (home / ".mozilla/native-messaging-hosts").string();

    std::string error;
    ASSERT_TRUE(OwnFolders::create(home.string(), chrome, false, error).isOpen()) << error;
    ASSERT_TRUE(OwnFolders::create(home.string(), firefox, false, error).isOpen()) << error;
    EXPECT_TRUE(
        fs::is_directory(dir.path() / "dotfiles/config/google-chrome/NativeMessagingHosts"));
    EXPECT_TRUE(fs::is_directory(dir.path() / "dotfiles/native-messaging-hosts"));
    fs::create_directory_symlink("loop", home / "loop");
    EXPECT_FALSE(
        OwnFolders::create(home.string(), (home / "loop/hosts").string(), false, error).isOpen());
    EXPECT_EQ(error, "Too many levels of symbolic links (making " + (home / "loop").string() + ")");
    fs::remove(home / "loop");
    OwnFolders::release(home.string(), chrome);
    OwnFolders::release(home.string(), firefox);
    EXPECT_EQ(listing(dir.path()), before);
}

// A link that another user planted before a run as root, in place of a folder on the way or of
// the folder itself: nothing is made, changed or removed where it leads.
TEST(OwnFoldersTest, LinksOfOtherUsersAreNeverFollowedAsRoot) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root: the links must be another user's";
    }
    TempDir dir;
    const fs::path root = dir.path() / "root";
    const fs::path outside = dir.path() / "outside";
    fs::create_directories(root / "etc/opt/chrome");
    fs::create_directories(outside / "native-messaging-hosts");
    std::ofstream(outside / "native-messaging-hosts" / OwnFolders::kRecordName) << "";
    chmod(outside.c_str(), 0700);
    fs::create_directory_symlink(outside, root / "usr");
    fs::create_directory_symlink(outside, root / "etc/opt/chrome/native-messaging-hosts");
    ASSERT_EQ(lchown((root / "usr").c_str(), 65534, 0), 0);
    ASSERT_EQ(lchown((root / "etc/opt/chrome/native-messaging-hosts").c_str(), 65534, 0), 0);
    const std::string before = listing(dir.path());

    std::string error;
    EXPECT_FALSE(OwnFolders::create(root.string(), (root / "usr/lib/mozilla").string(), true, error)
                     .isOpen());
    EXPECT_EQ(error,
              (root / "usr").string() + " is a symbolic link, which the tool does not follow");
    const std::string chrome = (root / "etc/opt/chrome/native-messaging-hosts").string();
    EXPECT_FALSE(OwnFolders::create(root.string(), chrome, true, error).isOpen());
    EXPECT_EQ(error, "it is a symbolic link, which the tool does not follow");
    OwnFolders::release(root.string(), chrome);
    OwnFolders::release(root.string(), (root / "usr/native-messaging-hosts").string());
    EXPECT_EQ(listing(dir.path()), before);
    EXPECT_EQ(modeOf(outside), 0700u);
}

// Run as root for all users: every folder on the way is checked, from "/" down.
TEST(OwnFoldersTest, FoldersOtherUsersCanChangeAreNamedAsRoot) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root: the folders must be root's";
    }
    TempDir dir;
    const fs::path root = dir.path() / "root";
    fs::create_directories(root / "etc/opt");
    const std::string chrome = (root / "etc/opt/chrome/native-messaging-hosts").string();
    EXPECT_EQ(OwnFolders::changeableByOthers(root.string(), chrome), "");
    chmod((root / "etc").c_str(), 01777);  // sticky, as /tmp: others cannot rename what is in it
    EXPECT_EQ(OwnFolders::changeableByOthers(root.string(), chrome), "");
    chmod((root / "etc").c_str(), 0775);
    char real[PATH_MAX];
    ASSERT_NE(realpath(root.c_str(), real), nullptr);
    EXPECT_EQ(OwnFolders::changeableByOthers(root.string(), chrome),
              std::string(real) + "/etc (mode 0775)");
    chmod((root / "etc").c_str(), 0755);
    ASSERT_EQ(chown((root / "etc/opt").c_str(), 65534, 0), 0);
    EXPECT_EQ(OwnFolders::changeableByOthers(root.string(), chrome),
              std::string(real) + "/etc/opt (owned by user id 65534)");
    // Root's own link is followed, also into a folder that another user owns, which is named.
    ASSERT_EQ(chown((root / "etc/opt").c_str(), 0, 0), 0);
    const fs::path theirs = fs::path(real).parent_path() / "theirs";
    fs::create_directories(theirs / "chrome");
    ASSERT_EQ(chown(theirs.c_str(), 65534, 0), 0);
    fs::create_directory_symlink(theirs, root / "etc/opt/linked");
    EXPECT_EQ(
        OwnFolders::changeableByOthers(root.string(), (root / "etc/opt/linked/chrome").string()),
        theirs.string() + " (owned by user id 65534)");
    ASSERT_EQ(chown(root.c_str(), 65534, 0), 0);
    EXPECT_EQ(OwnFolders::changeableByOthers(root.string(), chrome),
              std::string(real) + " (owned by user id 65534)");
    // Another user's link on the way to the root would lead every write: it is named.
    fs::create_directory_symlink(root, dir.path() / "planted");
    ASSERT_EQ(lchown((dir.path() / "planted").c_str(), 65534, 0), 0);
    EXPECT_EQ(OwnFolders::changeableByOthers((dir.path() / "planted").string(),
                                             (dir.path() / "planted/etc").string()),
              (fs::path(real).parent_path() / "planted").string() +
                  " (a symbolic link owned by user id 65534)");
}
