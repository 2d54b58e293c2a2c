#include "browserPolicy.h"

#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "browserTable.h"
#include "support/tempDir.h"

namespace {

const std::string kHost = "com.quorvel.nativemessagehost";

void write(const std::filesystem::path& file, const std::string& text) {
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file) << text;
}

}  // namespace

// Chromium reads every file of the managed folder in name order, a later one winning, and skips
// what is not a JSON object or a value of the wrong type.
TEST(BrowserPolicyTest, ReadsTheManagedFolderAsChromiumDoes) {
    TempDir root;
    const Browser& chrome = browserTable("Linux").front();
    const std::filesystem::path folder = root.path().string() + chrome.policies;
    EXPECT_FALSE(BrowserPolicy::read(chrome, "Linux", root.path().string(), "").forbids(kHost));

    write(folder / "a.json",
          R"({"NativeMessagingBlocklist": ["*"], "NativeMessagingUserLevelHosts": false})");
    write(folder / "b.json", "not JSON");
    write(folder / "c.json",
          R"({"NativeMessagingUserLevelHosts": "no", "NativeMessagingAllowlist": 7})");
    BrowserPolicy policy = BrowserPolicy::read(chrome, "Linux", root.path().string(), "");
    EXPECT_TRUE(policy.forbids(kHost));
    EXPECT_FALSE(policy.userLevelHosts);
    EXPECT_FALSE(policy.allowlist.has_value());
    EXPECT_EQ(policy.files, std::vector<std::string>{(folder / "a.json").string()});

    write(folder / "d.json", R"({"NativeMessagingBlocklist": ["com.other"]})");
    policy = BrowserPolicy::read(chrome, "Linux", root.path().string(), "");
    EXPECT_FALSE(policy.forbids(kHost));
    EXPECT_EQ(*policy.blocklist, std::vector<std::string>{"com.other"});
}

#if defined(__APPLE__)
// On macOS the system's own parser reads what an administrator forces; the user's own managed
// preferences win over the computer's.
TEST(BrowserPolicyTest, ReadsManagedPreferencesWithTheSystemsParser) {
    TempDir root;
    const Browser& chrome = browserTable("Darwin").front();
    const std::string folder = root.path().string() + "/Library/Managed Preferences/";
    const auto plist = [](const std::string& body) {
        return R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict>)" + body +
               "<key>Since</key><date>2026-11-24T00:00:00Z</date></dict></plist>";
    };
    write(folder + chrome.policies + ".plist",
          plist("<key>NativeMessagingBlocklist</key><array><string>*</string></array>"));
    write(folder + "someone/" + chrome.policies + ".plist",
          plist("<key>NativeMessagingAllowlist</key><array><string>" + kHost +
                "</string></array><key>NativeMessagingUserLevelHosts</key><false/>"));
    BrowserPolicy policy = BrowserPolicy::read(chrome, "Darwin", root.path().string(), "someone");
    EXPECT_FALSE(policy.forbids(kHost));
    EXPECT_FALSE(policy.userLevelHosts);
    EXPECT_EQ(policy.files.size(), 2u);
    EXPECT_TRUE(
        BrowserPolicy::read(chrome, "Darwin", root.path().string(), "other").forbids(kHost));
}
#endif
