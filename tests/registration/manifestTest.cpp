#include "manifest.h"

#include <sys/stat.h>

#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/tempDir.h"

namespace {

const std::string kChromeId = "abcdefghijklmnopabcdefghijklmnop";

// A manifest as a person might write it, with the given members in place of the sound ones.
std::string chromeManifest(const std::string& executable, const std::string& members = "") {
    return R"({"name": "com.quorvel.nativemessagehost", "description": "d", "type": "stdio",
               "path": ")" +
           executable + R"(", "allowed_origins": ["chrome-extension://)" + kChromeId + R"(/"])" +
           members + "}";
}

}  // namespace

TEST(ManifestTest, ComposedManifestIsSoundAndNamesItsExecutableForBothFamilies) {
    TempDir dir;
    // A space, quotes and a backslash, which the manifest must escape.
    const std::string host = (dir.path() / "pre fix \"q\" \\ host").string();
    std::ofstream(host) << "#!/bin/sh\n";
    chmod(host.c_str(), 0755);

    const Manifest::Verdict chrome = Manifest::judge(
        Manifest::compose(Family::Chrome, host, {kChromeId, kChromeId}), Family::Chrome);
    EXPECT_EQ(chrome.problems, std::vector<std::string>());
    EXPECT_EQ(chrome.path, host);
    EXPECT_TRUE(chrome.pathIsExecutable);
    const std::string origin = "chrome-extension://" + kChromeId + "/";
    EXPECT_EQ(chrome.ids, std::vector<std::string>({origin, origin}));

    const std::string firefox = Manifest::compose(Family::Firefox, host, {"quorvel@example.com"});
    EXPECT_EQ(Manifest::judge(firefox, Family::Firefox).problems, std::vector<std::string>());
    EXPECT_EQ(Manifest::judge(firefox, Family::Firefox).ids,
              std::vector<std::string>({"quorvel@example.com"}));
    EXPECT_EQ(Manifest::registeredPath(firefox), host);
    // A Chromium-family browser finds no allowed_origins in Firefox's manifest.
    EXPECT_EQ(Manifest::judge(firefox, Family::Chrome).problems,
              std::vector<std::string>({"it has no \"allowed_origins\""}));
}

TEST(ManifestTest, EveryWayAManifestBreaksIsNamedInItsVerdict) {
    TempDir dir;
    const std::string host = (dir.path() / "host").string();
    std::ofstream(host) << "#!/bin/sh\n";
    chmod(host.c_str(), 0755);
    const std::string sound = chromeManifest(host);
    ASSERT_TRUE(Manifest::judge(sound, Family::Chrome).problems.empty());

    struct Case {
        std::string text;
        std::vector<std::string> problems;
    };
    const std::vector<Case> cases = {
        {sound.substr(0, sound.size() - 1), {}},                               // the closing brace
        {chromeManifest(host, ",\n"), {}},                                     // a trailing comma
        {R"({"name": "com.quorvel.nativemessagehost" "type": "stdio"})", {}},  // a comma
        {"[" + sound + "]", {"it is not a JSON object"}},
        {R"({"name": "com.quorvel.nativemessagehost"})",
         {"it has no \"type\"", "it has no \"description\"", "it has no \"path\"",
          "it has no \"allowed_origins\""}},
        {chromeManifest(host, R"(, "name": "com.other", "type": 1, "description": null)"),
         {"its name is \"com.other\", not \"com.quorvel.nativemessagehost\"",
          "its \"type\" is not a string", "its \"description\" is not a string"}},
        // What an absolute path names is the executable's check, not the manifest's.
        {chromeManifest("relative/host"), {"its path is not absolute: 'relative/host'"}},
        {chromeManifest(host, R"(, "allowed_origins": [])"),
         {"it allows no extension in \"allowed_origins\""}},
        {chromeManifest(host, R"(, "allowed_origins": "chrome-extension://)" + kChromeId + "/\""),
         {"its \"allowed_origins\" is not a list"}},
        {chromeManifest(host, R"(, "allowed_origins": ["chrome-extension://)" + kChromeId +
                                  R"(", "chrome-extension://*/", "chrome-extension://q)" +
                                  kChromeId.substr(1) + R"(/", 7])"),
         {"malformed id: 'chrome-extension://" + kChromeId + "'",
          "malformed id: 'chrome-extension://*/'",
          "malformed id: 'chrome-extension://q" + kChromeId.substr(1) + "/'",
          "its \"allowed_origins\" holds 7, which is not a string"}},
    };
    for (const Case& broken : cases) {
        const Manifest::Verdict verdict = Manifest::judge(broken.text, Family::Chrome);
        if (broken.problems.empty()) {
            ASSERT_EQ(verdict.problems.size(), 1u) << broken.text;
            EXPECT_EQ(verdict.problems[0].rfind("it is not valid JSON: parse error at line ", 0),
                      0u)
                << verdict.problems[0];
        } else {
            EXPECT_EQ(verdict.problems, broken.problems) << broken.text;
        }
    }
    const Manifest::Verdict firefox = Manifest::judge(
        R"({"name": "com.quorvel.nativemessagehost", "description": "", "type": "stdio", "path": ")" +
            host + R"(", "allowed_extensions": ["a@b", "{12345678-1234-1234-1234-123456789abc}",
            "quorvel", "{1234-5678}", "a b@c"]})",
        Family::Firefox);
    EXPECT_EQ(firefox.malformedIds, std::vector<std::string>({"quorvel", "{1234-5678}", "a b@c"}));
    EXPECT_EQ(firefox.problems.size(), 3u);
}

TEST(ManifestTest, FileThatCannotBeReadIsBrokenAndAnyLayoutNamesItsPath) {
    TempDir dir;
    const std::vector<std::string> missing =
        Manifest::judgeFile((dir.path() / "none.json").string(), Family::Chrome).problems;
    EXPECT_EQ(missing,
              std::vector<std::string>({"this user cannot read it: No such file or directory"}));
    EXPECT_EQ(Manifest::judgeFile(dir.path().string(), Family::Chrome).problems,
              std::vector<std::string>({"this user cannot read it: Is a directory"}));

    // Indented by a tool, keys in another order, an escaped slash: the same path.
    EXPECT_EQ(Manifest::registeredPath("{\n  \"allowed_origins\": [],\n  \"path\":\n"
                                       "    \"\\/opt\\/q\\u0020host\",\n  \"name\": \"x\"\n}"),
              "/opt/q host");
    for (const char* unreadable :
         {"{\"path\": \"/opt/host\"", "[\"/opt/host\"]", "{\"path\": 1}"}) {
        EXPECT_EQ(Manifest::registeredPath(unreadable), "") << unreadable;
    }
}
