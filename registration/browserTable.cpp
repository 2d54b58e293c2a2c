#include "browserTable.h"

namespace {

const char* const kChromiumPaths =
    "Chromium chrome/common/chrome_paths.cc: NativeMessagingHosts in the user data folder, one "
    "system folder per brand";

// Chromium chrome/browser/policy/chrome_browser_policy_connector.cc: every Chrome channel reads
// the managed preferences of com.google.Chrome.
const char* const kChromePolicies = "com.google.Chrome";

const char* const kWaterfoxSource =
    "Waterfox's source, toolkit/xre/nsXREDirProvider.cpp (Firefox's folders renamed)";

// Under ~/Library/Application Support, where macOS browsers keep their profiles.
std::string support(const std::string& folder) {
    return "Library/Application Support/" + folder;
}

std::vector<Browser> macBrowsers() {
    const std::string chromeSource =
        std::string(kChromiumPaths) + "; docs/user_data_dir.md, docs/mac/flavors_of_chrome.md";
    const std::string edgeSource = "Edge developer guide, \"Native messaging\"";
    const std::string chrome = "Google Chrome";
    const std::string edge = "Microsoft Edge";
    return {
        // Brave reads Chrome's folders instead of its own (brave-core app/brave_main_delegate.cc):
        // a Brave profile gets Chrome's manifest too.
        {Family::Chrome,
         chrome,
         {support("Google/Chrome"), support("BraveSoftware/Brave-Browser")},
         support("Google/Chrome/NativeMessagingHosts"),
         {"/Library/Google/Chrome/NativeMessagingHosts"},
         {},
         "",
         "",
         kChromePolicies,
         chromeSource + "; Brave: brave-core app/brave_main_delegate.cc"},
        {Family::Chrome,
         "Google Chrome Beta",
         {support("Google/Chrome Beta")},
         support("Google/Chrome Beta/NativeMessagingHosts"),
         {},
         {},
         chrome,
         "",
         kChromePolicies,
         chromeSource},
        {Family::Chrome,
         "Google Chrome Dev",
         {support("Google/Chrome Dev")},
         support("Google/Chrome Dev/NativeMessagingHosts"),
         {},
         {},
         chrome,
         "",
         kChromePolicies,
         chromeSource},
        {Family::Chrome,
         "Google Chrome Canary",
         {support("Google/Chrome Canary")},
         support("Google/Chrome Canary/NativeMessagingHosts"),
         {},
         {},
         chrome,
         "",
         kChromePolicies,
         chromeSource},
        {Family::Chrome,
         "Chromium",
         {support("Chromium")},
         support("Chromium/NativeMessagingHosts"),
         {"/Library/Application Support/Chromium/NativeMessagingHosts"},
         {},
         "",
         "",
         "org.chromium.Chromium",
         kChromiumPaths},
        {Family::Chrome,
         edge,
         {support("Microsoft Edge")},
         support("Microsoft Edge/NativeMessagingHosts"),
         {"/Library/Microsoft/Edge/NativeMessagingHosts"},
         {},
         "",
         "",
         "com.microsoft.Edge",
         edgeSource},
        {Family::Chrome,
         "Microsoft Edge Beta",
         {support("Microsoft Edge Beta")},
         support("Microsoft Edge Beta/NativeMessagingHosts"),
         {},
         {},
         edge,
         "",
         "com.microsoft.Edge.Beta",
         edgeSource},
        {Family::Chrome,
         "Microsoft Edge Dev",
         {support("Microsoft Edge Dev")},
         support("Microsoft Edge Dev/NativeMessagingHosts"),
         {},
         {},
         edge,
         "",
         "com.microsoft.Edge.Dev",
         edgeSource},
        {Family::Chrome,
         "Microsoft Edge Canary",
         {support("Microsoft Edge Canary")},
         support("Microsoft Edge Canary/NativeMessagingHosts"),
         {},
         {},
         edge,
         "",
         "com.microsoft.Edge.Canary",
         edgeSource},
        {Family::Chrome,
         "Brave",
         {support("BraveSoftware/Brave-Browser")},
         support("BraveSoftware/Brave-Browser/NativeMessagingHosts"),
         {},
         {},
         "",
         chrome,
         "com.brave.Browser",
         "brave-core app/brave_main_delegate.cc (reads Chrome's folders; its own written too)"},
        {Family::Chrome,
         "Vivaldi",
         {support("Vivaldi")},
         support("Vivaldi/NativeMessagingHosts"),
         {},
         {},
         "",
         "",
         "com.vivaldi.Vivaldi",
         "Vivaldi's published source, chrome_paths_mac.mm"},
        // Chromium's user data folder under Arc's own name; no system folder is known.
        {Family::Chrome,
         "Arc",
         {support("Arc/User Data")},
         support("Arc/User Data/NativeMessagingHosts"),
         {},
         {},
         "",
         "",
         "company.thebrowser.Browser",
         "Arc's profile folder (Arc/User Data, chrome_paths_mac.mm's DIR_USER_DATA under Arc's "
         "name), as browserpass-native's Makefile installs there"},
        {Family::Firefox,
         "Firefox (with Developer Edition, Nightly)",
         {support("Firefox")},
         support("Mozilla/NativeMessagingHosts"),
         {"/Library/Application Support/Mozilla/NativeMessagingHosts"},
         {},
         "",
         "",
         "",
         "Firefox NativeManifests.sys.mjs; MDN \"Native manifests\""},
        {Family::Firefox,
         "LibreWolf",
         {support("LibreWolf")},
         support("LibreWolf/NativeMessagingHosts"),
         {"/Library/Application Support/LibreWolf/NativeMessagingHosts"},
         {},
         "",
         "",
         "",
         "LibreWolf's source, patches/mozilla_dirs.patch (Firefox's folders renamed)"},
        {Family::Firefox,
         "Waterfox",
         {support("Waterfox")},
         support("Waterfox/NativeMessagingHosts"),
         {"/Library/Application Support/Waterfox/NativeMessagingHosts"},
         {},
         "",
         "",
         "",
         kWaterfoxSource},
    };
}

// Sandboxes: a Flatpak browser (.var/app) cannot start a host outside it; Chromium's snap runs
// the host in its confinement; Firefox's snap reads the usual folders through a portal, so its
// profile counts as Firefox's.
std::vector<Browser> linuxBrowsers() {
    const std::string chromeSource = std::string(kChromiumPaths) + "; docs/user_data_dir.md";
    const std::string firefoxSource =
        "Firefox NativeManifests.sys.mjs; MDN \"Native manifests\"; ~/.mozilla is kept where "
        "profiles moved to ~/.config, /usr/lib64 read where built so";
    const std::string chrome = "Google Chrome";
    // Chromium components/policy/core/common/policy_paths.cc: one folder per branding.
    const std::string chromePolicies = "/etc/opt/chrome/policies/managed";
    return {
        {Family::Chrome,
         chrome,
         {".config/google-chrome"},
         ".config/google-chrome/NativeMessagingHosts",
         {"/etc/opt/chrome/native-messaging-hosts"},
         {".var/app/com.google.Chrome"},
         "",
         "",
         chromePolicies,
         chromeSource + "; Chrome's native messaging docs"},
        {Family::Chrome,
         "Google Chrome Beta",
         {".config/google-chrome-beta"},
         ".config/google-chrome-beta/NativeMessagingHosts",
         {},
         {},
         chrome,
         "",
         chromePolicies,
         chromeSource},
        {Family::Chrome,
         "Google Chrome Dev",
         {".config/google-chrome-unstable"},
         ".config/google-chrome-unstable/NativeMessagingHosts",
         {},
         {},
         chrome,
         "",
         chromePolicies,
         chromeSource},
        // Its system folder is not confirmed by a source: only its user folder is judged.
        {Family::Chrome,
         "Chrome for Testing",
         {".config/google-chrome-for-testing"},
         ".config/google-chrome-for-testing/NativeMessagingHosts",
         {},
         {},
         "",
         "",
         "/etc/opt/chrome_for_testing/policies/managed",
         chromeSource + "; policy_paths.cc (its own policy folder)"},
        {Family::Chrome,
         "Chromium",
         {".config/chromium"},
         ".config/chromium/NativeMessagingHosts",
         {"/etc/chromium/native-messaging-hosts"},
         {".var/app/org.chromium.Chromium", "snap/chromium"},
         "",
         "",
         "/etc/chromium/policies/managed",
         chromeSource},
        {Family::Chrome,
         "Microsoft Edge",
         {".config/microsoft-edge"},
         ".config/microsoft-edge/NativeMessagingHosts",
         {"/etc/opt/edge/native-messaging-hosts"},
         {".var/app/com.microsoft.Edge"},
         "",
         "",
         "/etc/opt/edge/policies/managed",
         "Edge developer guide, \"Native messaging\" (stable channel only on Linux); Edge's "
         "policy documentation for Linux"},
        // Brave reads Chrome's system folder (brave-core app/brave_main_delegate.cc).
        {Family::Chrome,
         "Brave",
         {".config/BraveSoftware/Brave-Browser"},
         ".config/BraveSoftware/Brave-Browser/NativeMessagingHosts",
         {},
         {".var/app/com.brave.Browser"},
         chrome,
         "",
         "/etc/brave/policies/managed",
         "brave-core app/brave_main_delegate.cc; Brave's help on policies for Linux"},
        // Its system folder is Chromium's in current releases, Chrome's in older ones.
        {Family::Chrome,
         "Vivaldi",
         {".config/vivaldi"},
         ".config/vivaldi/NativeMessagingHosts",
         {},
         {".var/app/com.vivaldi.Vivaldi"},
         "Chromium",
         "",
         "",
         "Vivaldi's published source, chrome_paths_linux.cc"},
        {Family::Firefox,
         "Firefox (with Developer Edition, Nightly)",
         {".mozilla", ".config/mozilla", "snap/firefox"},
         ".mozilla/native-messaging-hosts",
         {"/usr/lib/mozilla/native-messaging-hosts", "/usr/lib64/mozilla/native-messaging-hosts"},
         {".var/app/org.mozilla.firefox"},
         "",
         "",
         "",
         firefoxSource},
        {Family::Firefox,
         "LibreWolf",
         {".librewolf"},
         ".librewolf/native-messaging-hosts",
         {"/usr/lib/librewolf/native-messaging-hosts",
          "/usr/lib64/librewolf/native-messaging-hosts"},
         {".var/app/io.gitlab.librewolf-community"},
         "",
         "",
         "",
         "LibreWolf's source, patches/mozilla_dirs.patch (Firefox's folders renamed)"},
        {Family::Firefox,
         "Waterfox",
         {".waterfox"},
         ".waterfox/native-messaging-hosts",
         {"/usr/lib/waterfox/native-messaging-hosts", "/usr/lib64/waterfox/native-messaging-hosts"},
         {},
         "",
         "",
         "",
         kWaterfoxSource},
    };
}

}  // namespace

const char* familyName(Family family) {
    return family == Family::Chrome ? "chrome" : "firefox";
}

const std::vector<Browser>& browserTable(const std::string& platform) {
    static const std::vector<Browser> onMac = macBrowsers();
    static const std::vector<Browser> onLinux = linuxBrowsers();
    static const std::vector<Browser> none;
    return platform == "Darwin" ? onMac : platform == "Linux" ? onLinux : none;
}

const Browser* browserNamed(const std::string& platform, const std::string& name) {
    for (const Browser& browser : browserTable(platform)) {
        if (browser.name == name) {
            return &browser;
        }
    }
    return nullptr;
}
