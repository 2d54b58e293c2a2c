#include "browserTable.h"

#include <algorithm>
#include <set>
#include <string>

#include <gtest/gtest.h>

namespace {

bool startsWith(const std::string& text, const std::string& prefix) {
    return text.rfind(prefix, 0) == 0;
}

}  // namespace

// A row that names a folder wrongly (absolute where the home is meant, or the other way round)
// makes the tool write outside the home or into the current folder.
TEST(BrowserTableTest, EveryRowNamesItsSourceAndFoldersOfTheRightKind) {
    for (const char* platform : {"Darwin", "Linux"}) {
        const auto& table = browserTable(platform);
        ASSERT_GE(table.size(), 9u) << platform;
        std::set<std::string> names;
        std::set<std::string> userFolders;
        for (const Browser& browser : table) {
            EXPECT_TRUE(names.insert(browser.name).second) << browser.name;
            EXPECT_TRUE(userFolders.insert(browser.userFolder).second) << browser.userFolder;
            EXPECT_FALSE(browser.source.empty()) << browser.name;
            ASSERT_FALSE(browser.profiles.empty()) << browser.name;
            for (const auto& relative : {browser.profiles, browser.sandboxed,
                                         std::vector<std::string>{browser.userFolder}}) {
                for (const std::string& folder : relative) {
                    EXPECT_FALSE(folder.empty() || folder.front() == '/' || folder.back() == '/')
                        << folder;
                }
            }
            for (const std::string& folder : browser.systemFolders) {
                EXPECT_TRUE(folder.front() == '/' && folder.back() != '/') << folder;
            }
            const std::string manifestFolder =
                browser.family == Family::Chrome    ? "NativeMessagingHosts"
                : std::string(platform) == "Darwin" ? "NativeMessagingHosts"
                                                    : "native-messaging-hosts";
            EXPECT_EQ(browser.userFolder.substr(browser.userFolder.rfind('/') + 1), manifestFolder);
            // A Chromium-family browser reads the folder inside its first profile.
            if (browser.family == Family::Chrome) {
                EXPECT_TRUE(startsWith(browser.userFolder, browser.profiles.front() + "/"))
                    << browser.name;
            }
        }
    }
    EXPECT_TRUE(browserTable("Windows").empty());
}

TEST(BrowserTableTest, SystemFoldersAndSandboxesAreWhereTheBrowsersLook) {
    const auto row = [](const char* platform, const std::string& name) {
        const auto& table = browserTable(platform);
        return *std::find_if(table.begin(), table.end(),
                             [&](const Browser& browser) { return browser.name == name; });
    };
    // Brave on macOS reads Chrome's folders: a Brave profile gets Chrome's manifest.
    const auto& macChromeProfiles = row("Darwin", "Google Chrome").profiles;
    EXPECT_NE(std::find(macChromeProfiles.begin(), macChromeProfiles.end(),
                        "Library/Application Support/BraveSoftware/Brave-Browser"),
              macChromeProfiles.end());
    EXPECT_TRUE(row("Linux", "Brave").systemFolders.empty());
    EXPECT_EQ(row("Linux", "Google Chrome").systemFolders,
              std::vector<std::string>({"/etc/opt/chrome/native-messaging-hosts"}));
    EXPECT_EQ(row("Linux", "Chromium").sandboxed,
              std::vector<std::string>({".var/app/org.chromium.Chromium", "snap/chromium"}));
    // Firefox's snap reads the usual folder, so its profile counts as Firefox's own.
    const Browser firefox = row("Linux", "Firefox (with Developer Edition, Nightly)");
    EXPECT_EQ(firefox.profiles,
              std::vector<std::string>({".mozilla", ".config/mozilla", "snap/firefox"}));
    EXPECT_EQ(firefox.systemFolders,
              std::vector<std::string>({"/usr/lib/mozilla/native-messaging-hosts",
                                        "/usr/lib64/mozilla/native-messaging-hosts"}));
}
