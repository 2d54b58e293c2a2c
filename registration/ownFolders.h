#pragma once

#include <string>

// The folders the tool creates for its manifests, each recorded by a file inside it, so that
// uninstall removes exactly those and a browser's profile made by the tool alone does not count
// as in use.
class OwnFolders {
  public:
    static const char* const kRecordName;  // ".com.quorvel.nativemessagehost.created"

    // Creates the folder and its missing parents, recording each; for all users they are 0755
    // whatever the umask. On failure error names what could not be made and why.
    static bool create(const std::string& folder, bool forAllUsers, std::string& error);

    // Whether the folder was made by the tool and holds nothing but what the tool made: records,
    // a manifest of the host, and folders that are the tool's in the same way.
    static bool holdsOnlyOurs(const std::string& folder);

    // Goes up from the folder through those the tool made: removes each one that is left empty,
    // and the record of each that a browser has put something in since. Stops below a folder
    // still needed by another of the tool's manifests.
    static void release(const std::string& folder);
};
