#include "browserPolicy.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <nlohmann/json.hpp>

#include "browserTable.h"
#include "programRun.h"

using nlohmann::json;

namespace {

// Chromium 156 no longer reads the older names NativeMessagingBlacklist and
// NativeMessagingWhitelist (measured: a blacklist of "*" let the host start).
const char* const kUserLevelHosts = "NativeMessagingUserLevelHosts";
const char* const kBlocklist = "NativeMessagingBlocklist";
const char* const kAllowlist = "NativeMessagingAllowlist";

constexpr std::chrono::seconds kConverterLimit(5);

bool contains(const std::vector<std::string>& list, const std::string& item) {
    return std::find(list.begin(), list.end(), item) != list.end();
}

// The list of strings under the name, or nothing when it holds no list.
std::optional<std::vector<std::string>> listOf(const json& values, const char* name) {
    const auto value = values.find(name);
    if (value == values.end() || !value->is_array()) {
        return std::nullopt;
    }
    std::vector<std::string> list;
    for (const json& entry : *value) {
        if (entry.is_string()) {
            list.push_back(entry.get<std::string>());
        }
    }
    return list;
}

// Takes the values of one source, which wins over the sources taken before it.
void take(BrowserPolicy& policy, const json& values, const std::string& file) {
    if (!values.is_object()) {
        return;
    }
    bool used = false;
    const auto userLevel = values.find(kUserLevelHosts);
    if (userLevel != values.end() && userLevel->is_boolean()) {
        policy.userLevelHosts = userLevel->get<bool>();
        used = true;
    }
    for (auto* list : {&policy.blocklist, &policy.allowlist}) {
        auto value = listOf(values, list == &policy.blocklist ? kBlocklist : kAllowlist);
        if (value) {
            *list = std::move(value);
            used = true;
        }
    }
    if (used) {
        policy.files.push_back(file);
    }
}

// Chromium reads every file of the folder in name order, a later file winning over an earlier
// one, and skips a file that is not JSON (components/policy/core/common/
// config_dir_policy_loader.cc).
void readFolder(BrowserPolicy& policy, const std::string& folder) {
    namespace fs = std::filesystem;
    std::vector<fs::path> files;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error)) {
        if (entry.is_regular_file(error)) {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    for (const fs::path& file : files) {
        std::ifstream stream(file);
        std::stringstream text;
        text << stream.rdbuf();
        take(policy, json::parse(text.str(), nullptr, false), file.string());
    }
}

// One value of a property list as the system's own parser converts it to the format ("json" or
// "xml1"); "" when the file holds no such value. One value at a time, as a whole file may hold
// values that JSON cannot (dates, data).
std::string extracted(const std::string& file, const char* name, const char* format) {
    const ProgramRun run = ProgramRun::run(
        {"/usr/bin/plutil", "-extract", name, format, "-o", "-", file}, kConverterLimit);
    return run.exitedWith(0) ? run.output : "";
}

// The managed preferences of the bundle as JSON values. The lists convert to JSON; a lone
// boolean does not (JSON text is an object or a list), so plutil writes it as a property list
// whose one value is <true/> or <false/>.
json managedValues(const std::string& file) {
    json values = json::object();
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error)) {
        return values;
    }
    for (const char* name : {kBlocklist, kAllowlist}) {
        const json list = json::parse(extracted(file, name, "json"), nullptr, false);
        if (!list.is_discarded()) {
            values[name] = list;
        }
    }
    const std::string userLevel = extracted(file, kUserLevelHosts, "xml1");
    for (const bool value : {true, false}) {
        if (userLevel.find(value ? "<true/>" : "<false/>") != std::string::npos) {
            values[kUserLevelHosts] = value;
        }
    }
    return values;
}

// The values an administrator forces through managed preferences: the computer's, then this
// user's, which win (Chromium components/policy/core/common/policy_loader_mac.mm reads forced
// values only, from /Library/Managed Preferences).
void readManagedPreferences(BrowserPolicy& policy, const std::string& bundle,
                            const std::string& root, const std::string& user) {
    const std::string folder = root + "/Library/Managed Preferences/";
    for (const std::string& file :
         {folder + bundle + ".plist", folder + user + "/" + bundle + ".plist"}) {
        take(policy, managedValues(file), file);
    }
}

}  // namespace

bool BrowserPolicy::forbids(const std::string& host) const {
    // Chromium chrome/browser/extensions/api/messaging/chrome_messaging_delegate.cc,
    // IsNativeMessagingHostAllowed: the name or "*" in the blocklist, and not in the allowlist.
    const bool blocked = blocklist && (contains(*blocklist, host) || contains(*blocklist, "*"));
    return blocked && !(allowlist && contains(*allowlist, host));
}

BrowserPolicy BrowserPolicy::read(const Browser& browser, const std::string& platform,
                                  const std::string& root, const std::string& user) {
    BrowserPolicy policy;
    if (browser.policies.empty()) {
        return policy;
    }
    if (platform == "Darwin") {
        readManagedPreferences(policy, browser.policies, root, user);
    } else {
        readFolder(policy, root + browser.policies);
    }
    return policy;
}
