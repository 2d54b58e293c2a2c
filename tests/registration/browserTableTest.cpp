#include "browserTable.h"

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
