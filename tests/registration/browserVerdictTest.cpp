#include "browserVerdict.h"

#include <filesystem>
#include <fstream>
#include <map>

#include <gtest/gtest.h>

#include "manifest.h"
#include "support/tempDir.h"

namespace {

using Fault = HostExecutable::Fault;

const std::string kChromeId = "abcdefghijklmnopabcdefghijklmnop";
const std::string kOtherChromeId = "ponmlkjihgfedcbaponmlkjihgfedcba";
const std::string kFirefoxId = "quorvel@example.com";
const std::string kNotFound = "Specified native messaging host not found.";
const std::string kForbidden = "Access to the specified native messaging host is forbidden.";
const std::string kNoSuchApplication = "No such native application com.quorvel.nativemessagehost";

// A browser's user and system folders in a temporary folder, with executables that the test
// declares to be the host or to have a fault, so that no program runs.
class BrowserVerdictTest : public ::testing::Test {
  protected:
    BrowserVerdict::Lookup lookup(Family family, const std::string& platform = "Linux") {
        BrowserVerdict::Lookup lookup;
        lookup.family = family;
        lookup.platform = platform;
        lookup.userFile = Manifest::fileIn(folder("user"));
        lookup.systemFiles = {Manifest::fileIn(folder("system"))};
        lookup.executable = [this](const std::string& path, bool) {
            HostExecutable result;
            const auto fault = faults.find(path);
            result.fault = fault == faults.end() ? Fault::None : fault->second;
            result.problem = result.fault == Fault::None ? "" : "the fault of " + path;
            result.fix = result.fault == Fault::None ? "" : "mend " + path;
            return result;
        };
        return lookup;
    }

    std::string folder(const std::string& name) {
        std::filesystem::create_directories(dir.path() / name);
        return (dir.path() / name).string();
    }

    void write(const std::string& scope, Family family, const std::string& executable,
               const std::vector<std::string>& ids) {
        std::ofstream(Manifest::fileIn(folder(scope)))
            << Manifest::compose(family, executable, ids);
    }

    TempDir dir;
    std::map<std::string, Fault> faults;
};

void expectRefused(const BrowserVerdict& verdict, const std::string& error,
                   const std::string& reason, const std::string& fix) {
    EXPECT_FALSE(verdict.starts);
    EXPECT_EQ(verdict.browserError, error);
    EXPECT_EQ(verdict.reason, reason);
    EXPECT_EQ(verdict.fix, fix);
}

}  // namespace

TEST_F(BrowserVerdictTest, ChromiumReadsTheUserManifestFirstAndAllowsOnlyItsOrigins) {
    auto chrome = lookup(Family::Chrome);
    expectRefused(BrowserVerdict::decide(chrome, {kChromeId}), kNotFound,
                  "it finds no manifest of the host (" + chrome.userFile + " or " +
                      chrome.systemFiles[0] + ")",
                  "Run install with the extension's id (--chrome-extension-id or "
                  "--firefox-extension-id).");
    write("system", Family::Chrome, "/opt/host", {kChromeId, kOtherChromeId});
    write("user", Family::Chrome, "/home/host", {kChromeId});
    const BrowserVerdict both = BrowserVerdict::decide(chrome, {kChromeId});
    EXPECT_TRUE(both.starts);
    EXPECT_EQ(both.reads, chrome.userFile);
    EXPECT_TRUE(both.browserError.empty() && both.reason.empty() && both.fix.empty());
    // The user manifest hides the system one, which would allow the other id.
    const BrowserVerdict other = BrowserVerdict::decide(chrome, {kChromeId, kOtherChromeId});
    expectRefused(other, kForbidden,
                  "the manifest it reads does not allow chrome-extension://" + kOtherChromeId + "/",
                  "Run install again with --chrome-extension-id " + kOtherChromeId +
                      ", beside the ids it allows now.");
    EXPECT_EQ(other.reads, chrome.userFile);
    // Even when broken.
    std::ofstream(chrome.userFile) << "{";
    const BrowserVerdict broken = BrowserVerdict::decide(chrome, {});
    EXPECT_EQ(broken.browserError, kNotFound);
    EXPECT_EQ(broken.reason.rfind("the manifest it reads is broken: it is not valid JSON", 0), 0u);
    EXPECT_EQ(broken.fix, "Run install again: it writes the manifest anew.");
}

TEST_F(BrowserVerdictTest, ChromiumPoliciesForbidTheHostOrTheUserFolder) {
    write("user", Family::Chrome, "/home/host", {kChromeId});
    auto chrome = lookup(Family::Chrome);
    chrome.policy.files = {"/etc/policy.json"};
    chrome.policy.userLevelHosts = false;
    expectRefused(BrowserVerdict::decide(chrome, {kChromeId}), kNotFound,
                  "the policy NativeMessagingUserLevelHosts is false (/etc/policy.json), so it "
                  "does not read " +
                      chrome.userFile + ", and no system folder holds a manifest",
                  "Have an administrator register the host for all users: sudo "
                  "QuorvelHostRegistration install --system with the same arguments.");
    write("system", Family::Chrome, "/opt/host", {kChromeId});
    EXPECT_EQ(BrowserVerdict::decide(chrome, {kChromeId}).reads, chrome.systemFiles[0]);

    // The blocklist is judged first; the allowlist lets the host through by its name only.
    for (const char* blocked : {"*", "com.quorvel.nativemessagehost"}) {
        chrome.policy.blocklist = std::vector<std::string>{"com.other", blocked};
        chrome.policy.allowlist = std::vector<std::string>{"*"};
        expectRefused(BrowserVerdict::decide(chrome, {kChromeId}),
                      "Access to the native messaging host was disabled by the system "
                      "administrator.",
                      "an administrator's policy forbids the host: NativeMessagingBlocklist "
                      "holds its name or \"*\" (/etc/policy.json)",
                      "Ask the administrator to add com.quorvel.nativemessagehost to the "
                      "NativeMessagingAllowlist policy.");
        chrome.policy.allowlist = std::vector<std::string>{"com.quorvel.nativemessagehost"};
        EXPECT_TRUE(BrowserVerdict::decide(chrome, {kChromeId}).starts) << blocked;
    }
}

TEST_F(BrowserVerdictTest, FirefoxSkipsManifestsThatDoNotFitTheExtension) {
    auto firefox = lookup(Family::Firefox);
    write("user", Family::Firefox, "/home/host", {"other@example.com"});
    expectRefused(BrowserVerdict::decide(firefox, {kFirefoxId}), kNoSuchApplication,
                  "the manifest " + firefox.userFile + " does not allow " + kFirefoxId +
                      ", and no other one fits",
                  "Run install again with --firefox-extension-id " + kFirefoxId +
                      ", beside the ids it allows now.");
    write("system", Family::Firefox, "/opt/host", {kFirefoxId});
    EXPECT_EQ(BrowserVerdict::decide(firefox, {kFirefoxId}).reads, firefox.systemFiles[0]);
    std::ofstream(firefox.userFile) << "[]";
    EXPECT_TRUE(BrowserVerdict::decide(firefox, {}).starts);
}

// What the extension gets when the manifest names something that is not the host depends on
// the browser and, for Chromium, on the system that starts it.
TEST_F(BrowserVerdictTest, AFaultOfTheExecutableGivesTheBrowsersOwnError) {
    write("user", Family::Chrome, "/home/host", {kChromeId});
    const struct {
        Fault fault;
        std::string onLinux, onMac, inFirefox;
    } cases[] = {
        {Fault::Missing, kNotFound, kNotFound, "An unexpected error occurred"},
        {Fault::Folder, "Native host has exited.", "Failed to start native messaging host.",
         "An unexpected error occurred"},
        {Fault::NotTheHost, "Native host has exited.", "Native host has exited.",
         "An unexpected error occurred"},
    };
    for (const auto& example : cases) {
        faults["/home/host"] = example.fault;
        expectRefused(BrowserVerdict::decide(lookup(Family::Chrome), {kChromeId}), example.onLinux,
                      "the fault of /home/host", "mend /home/host");
        EXPECT_EQ(BrowserVerdict::decide(lookup(Family::Chrome, "Darwin"), {}).browserError,
                  example.onMac);
        write("user", Family::Firefox, "/home/host", {kFirefoxId});
        EXPECT_EQ(BrowserVerdict::decide(lookup(Family::Firefox), {}).browserError,
                  example.inFirefox);
        write("user", Family::Chrome, "/home/host", {kChromeId});
    }
}
