#pragma once

#include <string>

// Whether the file that a manifest names is the host, as far as a browser can tell: that it is
// there, a regular file that this user (or, for all users, everyone) may run, and that it
// answers --version as the host does.
struct HostExecutable {
    enum class Fault {
        None,
        Missing,
        Folder,
        Special,
        NotExecutable,
        ClosedToOthers,
        Translocated,
        Quarantined,
        NotTheHost,
    };

    Fault fault = Fault::None;
    std::string problem;        // what is wrong, a phrase about "it"; "" when nothing is
    std::string fix;            // one sentence; "" when nothing is wrong
    bool versionAsked = false;  // false as root, which runs no program it is only told of

    // path is absolute. forAllUsers: the path comes from a system manifest, which every user's
    // browser reads. root stands in for "/" when looking at the folders above the path.
    static HostExecutable check(const std::string& path, bool forAllUsers,
                                const std::string& root = "");

    // The line that says the version was not asked, as root.
    static std::string notAskedNote(const std::string& path);
};

// Whether every user may pass through each folder above the path, up to root (which stands in
// for "/").
bool foldersAboveOpenToAll(const std::string& path, const std::string& root);
