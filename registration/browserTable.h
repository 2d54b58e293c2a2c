#pragma once

#include <string>
#include <vector>

// Which manifest a browser reads: the Chromium family's (allowed_origins) or Firefox's
// (allowed_extensions).
enum class Family { Chrome, Firefox };

// "chrome" or "firefox", as the command line and the JSON status name a family.
const char* familyName(Family family);

// One browser of the table: where it keeps its profiles and where it reads manifests. Profile,
// user and sandbox folders are relative to the home folder; system folders are absolute.
struct Browser {
    Family family;
    std::string name;
    std::vector<std::string> profiles;  // any one of them in use means the browser is
    std::string userFolder;
    std::vector<std::string> systemFolders;  // none: it reads a system folder of a row above
    std::vector<std::string> sandboxed;      // profiles of Flatpak or Snap builds
    std::string readsSystemOf;  // the row whose system folders it reads, "" for its own
    std::string readsAllOf;     // the row whose user and system folders it reads instead
    std::string policies;  // managed policies: a folder on Linux, a bundle id on macOS; "" none
    std::string source;    // what confirms these folders
};

// The browsers of the platform ("Darwin" or "Linux"); empty for any other.
const std::vector<Browser>& browserTable(const std::string& platform);

// The row of the platform's table with that name; nullptr when none.
const Browser* browserNamed(const std::string& platform, const std::string& name);
