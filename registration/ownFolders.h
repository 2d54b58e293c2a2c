#pragma once

#include <string>

#include "noFollowFolder.h"

// The folders the tool creates for its manifests, each recorded by a file inside it, so that
// uninstall removes exactly those and a browser's profile made by the tool alone does not count
// as in use. Below the root a folder is named from ("" for "/"), a symbolic link is followed only
// when this user or root owns it (FolderWalk).
class OwnFolders {
  public:
    static const char* const kRecordName;  // ".com.quorvel.nativemessagehost.created"

    // Opens the folder, creating and recording each missing one on the way; for all users they
    // are 0755 whatever the umask. Not open on failure, with error naming what and why.
    static NoFollowFolder create(const std::string& root, const std::string& folder,
                                 bool forAllUsers, std::string& error);

    // Whether the folder was made by the tool and holds nothing but what the tool made: records,
    // a manifest of the host, and folders that are the tool's in the same way.
    static bool holdsOnlyOurs(const std::string& folder);

    // Goes up from the deepest existing folder on the way to the folder through those the tool
    // made: removes each one that is left empty, and the record of each that a browser has put
    // something in since. Stops below a folder still needed by another of the tool's manifests.
    static void release(const std::string& root, const std::string& folder);

    // The first folder from "/" down to the folder, as far as it exists and where root's links
    // lead, that a user other than root can change: owned by another user, or writable by group
    // or others without the sticky bit; or a link of another user on the way to the root. Its
    // path and why, or "" when there is none.
    static std::string changeableByOthers(const std::string& root, const std::string& folder);
};
