#include "browserTable.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

// Where the tool writes, row by row, the registration test checks by value; what tells a browser
// in use it does not reach for most rows. A profile named absolute, or a Chromium-family manifest
// folder outside its first profile, makes install skip a browser in use or write for one that is
// not.
TEST(BrowserTableTest, ProfilesAreUnderTheHomeAndHoldTheChromiumFamilysManifestFolder) {
    for (const char* platform : {"Darwin", "Linux"}) {
        for (const Browser& browser : browserTable(platform)) {
            ASSERT_FALSE(browser.profiles.empty()) << browser.name;
            for (const std::string& profile : browser.profiles) {
                EXPECT_FALSE(profile.empty() || profile.front() == '/' || profile.back() == '/')
                    << profile;
            }
            if (browser.family == Family::Chrome) {
                EXPECT_EQ(browser.userFolder.rfind(browser.profiles.front() + "/", 0), 0u)
                    << browser.name;
            }
        }
    }
}
