#pragma once

#include <optional>
#include <string>
#include <vector>

struct Browser;

// The native messaging policies that an administrator forces on a Chromium-family browser, as
// the browser reads them: on Linux from its managed policy folder, on macOS from its managed
// preferences.
struct BrowserPolicy {
    bool userLevelHosts = true;                         // NativeMessagingUserLevelHosts
    std::optional<std::vector<std::string>> blocklist;  // NativeMessagingBlocklist
    std::optional<std::vector<std::string>> allowlist;  // NativeMessagingAllowlist
    std::vector<std::string> files;                     // where the values in force came from

    // Whether the policies forbid the host of that name.
    bool forbids(const std::string& host) const;

    // platform is "Darwin" or "Linux"; root stands in for "/"; user names the managed
    // preferences of this user on macOS.
    static BrowserPolicy read(const Browser& browser, const std::string& platform,
                              const std::string& root, const std::string& user);
};
