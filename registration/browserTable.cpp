#include "browserTable.h"

namespace {

const char* const kChromiumPaths =
    "Chromium chrome/common/chrome_paths.cc: NativeMessagingHosts in the user data folder, one "
    "system folder per brand";

// Under ~/Library/Application Support, where macOS browsers keep their profiles.
std::string support(const std::string& folder) {
    return "Library/Application Support/" + folder;
}

std::vector<Browser> macBrowsers() {
    const std::string chromeSource =
        std::string(kChromiumPaths) + "; docs/user_data_dir.md, docs/mac/flavors_of_chrome.md";
    const std::string edgeSource = "Edge developer guide, \"Native messaging\"";
    return {
        // Brave reads Chrome's folders instead of its own (brave-core app/brave_main_delegate.cc):
        // a Brave profile gets Chrome's manifest too.
        {Family::Chrome,
         "Google Chrome",
         {support("Google/Chrome"), support("BraveSoftware/Brave-Browser")},
         support("Google/Chrome/NativeMessagingHosts"),
         {"/Library/Google/Chrome/NativeMessagingHosts"},
         {},
         chromeSource + "; Brave: brave-core app/brave_main_delegate.cc"},
        {Family::Chrome,
         "Google Chrome Beta",
         {support("Google/Chrome Beta")},
         support("Google/Chrome Beta/NativeMessagingHosts"),
         {},
         {},
         chromeSource},
        {Family::Chrome,
         "Google Chrome Dev",
         {support("Google/Chrome Dev")},
         support("Google/Chrome Dev/NativeMessagingHosts"),
         {},
         {},
         chromeSource},
        {Family::Chrome,
         "Google Chrome Canary",
         {support("Google/Chrome Canary")},
         support("Google/Chrome Canary/NativeMessagingHosts"),
         {},
         {},
         chromeSource},
        {Family::Chrome,
         "Chromium",
         {support("Chromium")},
         support("Chromium/NativeMessagingHosts"),
         {"/Library/Application Support/Chromium/NativeMessagingHosts"},
         {},
         kChromiumPaths},
        {Family::Chrome,
         "Microsoft Edge",
         {support("Microsoft Edge")},
         support("Microsoft Edge/NativeMessagingHosts"),
         {"/Library/Microsoft/Edge/NativeMessagingHosts"},
         {},
         edgeSource},
        {Family::Chrome,
         "Microsoft Edge Beta",
         {support("Microsoft Edge Beta")},
         support("Microsoft Edge Beta/NativeMessagingHosts"),
         {},
         {},
         edgeSource},
        {Family::Chrome,
         "Microsoft Edge Dev",
         {support("Microsoft Edge Dev")},
         support("Microsoft Edge Dev/NativeMessagingHosts"),
         {},
         {},
         edgeSource},
        {Family::Chrome,
         "Microsoft Edge Canary",
         {support("Microsoft Edge Canary")},
         support("Microsoft Edge Canary/NativeMessagingHosts"),
         {},
         {},
         edgeSource},
        {Family::Chrome,
         "Brave",
         {support("BraveSoftware/Brave-Browser")},
         support("BraveSoftware/Brave-Browser/NativeMessagingHosts"),
         {},
         {},
         "brave-core app/brave_main_delegate.cc (reads Chrome's folders; its own written too)"},
        {Family::Chrome,
         "Vivaldi",
         {support("Vivaldi")},
         support("Vivaldi/NativeMessagingHosts"),
         {},
         {},
         "Vivaldi's published source, chrome_paths_mac.mm"},
        {Family::Firefox,
         "Firefox (with Developer Edition, Nightly)",
         {support("Firefox")},
         support("Mozilla/NativeMessagingHosts"),
         {"/Library/Application Support/Mozilla/NativeMessagingHosts"},
         {},
         "Firefox NativeManifests.sys.mjs; MDN \"Native manifests\""},
        {Family::Firefox,
         "LibreWolf",
         {support("LibreWolf")},
         support("LibreWolf/NativeMessagingHosts"),
         {"/Library/Application Support/LibreWolf/NativeMessagingHosts"},
         {},
         "LibreWolf's source, patches/mozilla_dirs.patch (Firefox's folders renamed)"},
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
    return {
        {Family::Chrome,
         "Google Chrome",
         {".config/google-chrome"},
         ".config/google-chrome/NativeMessagingHosts",
         {"/etc/opt/chrome/native-messaging-hosts"},
         {".var/app/com.google.Chrome"},
         chromeSource + "; Chrome's native messaging docs"},
        {Family::Chrome,
         "Google Chrome Beta",
         {".config/google-chrome-beta"},
         ".config/google-chrome-beta/NativeMessagingHosts",
         {},
         {},
         chromeSource},
        {Family::Chrome,
         "Google Chrome Dev",
         {".config/google-chrome-unstable"},
         ".config/google-chrome-unstable/NativeMessagingHosts",
         {},
         {},
         chromeSource},
        {Family::Chrome,
         "Chromium",
         {".config/chromium"},
         ".config/chromium/NativeMessagingHosts",
         {"/etc/chromium/native-messaging-hosts"},
         {".var/app/org.chromium.Chromium", "snap/chromium"},
         chromeSource},
        {Family::Chrome,
         "Microsoft Edge",
         {".config/microsoft-edge"},
         ".config/microsoft-edge/NativeMessagingHosts",
         {"/etc/opt/edge/native-messaging-hosts"},
         {".var/app/com.microsoft.Edge"},
         "Edge developer guide, \"Native messaging\" (stable channel only on Linux)"},
        // Brave reads Chrome's system folder (brave-core app/brave_main_delegate.cc).
        {Family::Chrome,
         "Brave",
         {".config/BraveSoftware/Brave-Browser"},
         ".config/BraveSoftware/Brave-Browser/NativeMessagingHosts",
         {},
         {".var/app/com.brave.Browser"},
         "brave-core app/brave_main_delegate.cc"},
        // Its system folder is Chromium's in current releases, Chrome's in older ones.
        {Family::Chrome,
         "Vivaldi",
         {".config/vivaldi"},
         ".config/vivaldi/NativeMessagingHosts",
         {},
         {".var/app/com.vivaldi.Vivaldi"},
         "Vivaldi's published source, chrome_paths_linux.cc"},
        {Family::Firefox,
         "Firefox (with Developer Edition, Nightly)",
         {".mozilla", ".config/mozilla", "snap/firefox"},
         ".mozilla/native-messaging-hosts",
         {"/usr/lib/mozilla/native-messaging-hosts", "/usr/lib64/mozilla/native-messaging-hosts"},
         {".var/app/org.mozilla.firefox"},
         firefoxSource},
        {Family::Firefox,
         "LibreWolf",
         {".librewolf"},
         ".librewolf/native-messaging-hosts",
         {"/usr/lib/librewolf/native-messaging-hosts",
          "/usr/lib64/librewolf/native-messaging-hosts"},
         {".var/app/io.gitlab.librewolf-community"},
         "LibreWolf's source, patches/mozilla_dirs.patch (Firefox's folders renamed)"},
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
