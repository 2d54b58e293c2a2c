#pragma once

#include <functional>
#include <string>
#include <vector>

#include "browserPolicy.h"
#include "browserTable.h"
#include "hostExecutable.h"

// What a browser does when an extension calls connectNative("com.quorvel.nativemessagehost"),
// decided by the browser's own rules: which manifest it reads, whether the extension may use it,
// whether an administrator forbids it, and whether what the manifest names can be started.
struct BrowserVerdict {
    // Where and how one browser looks for the host's manifest.
    struct Lookup {
        Family family = Family::Chrome;
        std::string platform;  // "Darwin" or "Linux"
        std::string userFile;  // "" when it reads no user folder
        std::vector<std::string> systemFiles;
        BrowserPolicy policy;
        std::function<HostExecutable(const std::string& path, bool forAllUsers)> executable;
    };

    bool starts = false;
    std::string browserError;  // the text the extension gets; "" when it starts
    std::string reason;        // why it does not start the host; "" when it does
    std::string fix;           // one sentence; "" when it starts
    std::string reads;         // the manifest it reads, "" when none

    // For each id (none given: any id that the manifest allows); the first one refused speaks.
    static BrowserVerdict decide(const Lookup& lookup, const std::vector<std::string>& ids);

    // A browser whose only build in use is sandboxed, as the note says.
    static BrowserVerdict sandboxed(Family family, const std::string& note);
};
