#include "ownFolders.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <sstream>
#include <vector>

#include "folderWalk.h"
#include "manifest.h"

const char* const OwnFolders::kRecordName = ".com.quorvel.nativemessagehost.created";

namespace {

constexpr mode_t kFolderMode = 0755;
constexpr mode_t kRecordMode = 0644;

bool isRecorded(const NoFollowFolder& folder) {
    struct stat status {};
    return folder.statusOf(OwnFolders::kRecordName, status) && S_ISREG(status.st_mode);
}

bool holdsOnly(const NoFollowFolder& folder, bool subfoldersOfOurs);

bool isOurs(const NoFollowFolder& folder, const std::string& name) {
    if (name == OwnFolders::kRecordName || name == Manifest::kFileName) {
        return true;
    }
    const NoFollowFolder child = folder.child(name);
    return child.isOpen() && holdsOnly(child, true);
}

// Whether the folder is recorded and holds its record alone, or with subfoldersOfOurs, also a
// manifest and folders that hold only ours.
bool holdsOnly(const NoFollowFolder& folder, bool subfoldersOfOurs) {
    if (!isRecorded(folder)) {
        return false;
    }
    bool complete = true;
    for (const std::string& name : folder.entries(complete)) {
        if (subfoldersOfOurs ? !isOurs(folder, name) : name != OwnFolders::kRecordName) {
            return false;
        }
    }
    return complete;
}

// Makes the folder in the parent and records it. One that another run made meanwhile is left
// unrecorded: it is not this run's.
bool makeRecordedFolder(const NoFollowFolder& parent, const std::string& name, bool forAllUsers) {
    if (!parent.makeFolder(name, kFolderMode)) {
        return errno == EEXIST;
    }
    const NoFollowFolder made = parent.child(name);
    return made.isOpen() && (!forAllUsers || made.setMode(kFolderMode)) &&
           made.createFile(OwnFolders::kRecordName, "", kRecordMode);
}

std::string shown(const std::string& path) {
    return path.empty() ? "/" : path;
}

// Why the walk could not take its next step.
std::string failure(const FolderWalk& walk) {
    const int cause = errno;
    const NoFollowFolder& parent = walk.deepest().folder;
    const std::string path = walk.deepest().path + "/" + walk.next();
    if (!parent.isOpen()) {
        return std::strerror(cause) + (" (opening " + shown(walk.deepest().path) + ")");
    }
    struct stat status {};
    const std::string what = walk.nextIsLast() ? "it is" : path + " is";
    if (walk.nextIsRefusedLink(status)) {
        return what + " a symbolic link, which the tool does not follow";
    }
    if (parent.statusOf(walk.next(), status) && !S_ISLNK(status.st_mode) &&
        !S_ISDIR(status.st_mode)) {
        return what + " not a folder";
    }
    return std::strerror(cause) + (walk.nextIsLast() ? "" : " (making " + path + ")");
}

std::string whyOthersCanChange(const struct stat& status) {
    if (status.st_uid != 0) {
        return "owned by user id " + std::to_string(status.st_uid);
    }
    const bool writable = (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    if (writable && (status.st_mode & S_ISVTX) == 0) {
        std::ostringstream mode;
        mode << "mode 0" << std::oct << (status.st_mode & 07777);
        return mode.str();
    }
    return "";
}

// The first folder of the walk, from where it stands down as far as it goes, that a user other
// than root can change: its path and why, or "".
std::string firstChangeable(FolderWalk& walk) {
    for (bool more = walk.deepest().folder.isOpen(); more; more = walk.step()) {
        struct stat status {};
        const NoFollowFolder& here = walk.deepest().folder;
        const std::string why = here.status(status) ? whyOthersCanChange(status) : "";
        if (!why.empty()) {
            return shown(walk.deepest().path) + " (" + why + ")";
        }
    }
    return "";
}

}  // namespace

NoFollowFolder OwnFolders::create(const std::string& root, const std::string& folder,
                                  bool forAllUsers, std::string& error) {
    FolderWalk walk(root, folder);
    if (!walk.deepest().folder.isOpen()) {
        error = std::strerror(errno) + (" (opening " + shown(root) + ")");
        return NoFollowFolder();
    }
    while (!walk.arrived()) {
        if (!walk.step() &&
            !(errno == ENOENT && walk.deepest().folder.isOpen() &&
              makeRecordedFolder(walk.deepest().folder, walk.next(), forAllUsers) && walk.step())) {
            error = failure(walk);
            return NoFollowFolder();
        }
    }
    return walk.takeDeepest();
}

bool OwnFolders::holdsOnlyOurs(const std::string& folder) {
    return holdsOnly(NoFollowFolder::open(folder), true);
}

void OwnFolders::release(const std::string& root, const std::string& folder) {
    FolderWalk walk(root, folder);
    walk.walkOn();
    const std::vector<FolderWalk::Reached>& chain = walk.reached();
    for (std::size_t depth = chain.size() - 1;
         depth > 0 && !chain[depth].name.empty() && isRecorded(chain[depth].folder); --depth) {
        const NoFollowFolder& here = chain[depth].folder;
        if (holdsOnly(here, false)) {
            here.removeFile(kRecordName);
            chain[depth - 1].folder.removeFolder(chain[depth].name);
        } else if (holdsOnly(here, true)) {
            return;
        } else {
            here.removeFile(kRecordName);
        }
    }
}

std::string OwnFolders::changeableByOthers(const std::string& root, const std::string& folder) {
    // The root's own path, where another user's link would redirect every write below it; then
    // below the root, where a write names such a link and goes on with the other folders.
    FolderWalk toRoot("", root);
    std::string why = firstChangeable(toRoot);
    struct stat link {};
    if (why.empty() && !toRoot.arrived() && toRoot.nextIsRefusedLink(link)) {
        why = toRoot.deepest().path + "/" + toRoot.next() + " (a symbolic link owned by user id " +
              std::to_string(link.st_uid) + ")";
    }
    if (!why.empty() || !toRoot.arrived()) {
        return why;
    }
    const std::string& real = toRoot.deepest().path;
    FolderWalk belowRoot(real, real + folder.substr(root.size()));
    return firstChangeable(belowRoot);
}
