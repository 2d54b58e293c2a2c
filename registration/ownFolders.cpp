#include "ownFolders.h"

#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <vector>

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

// Makes the folder in the parent, records it and opens it. One that another run made meanwhile
// is opened but not recorded: it is not this run's.
NoFollowFolder makeRecordedFolder(const NoFollowFolder& parent, const std::string& name,
                                  bool forAllUsers) {
    if (!parent.makeFolder(name, kFolderMode)) {
        return errno == EEXIST ? parent.child(name) : NoFollowFolder();
    }
    NoFollowFolder made = parent.child(name);
    if (!made.isOpen() || (forAllUsers && !made.setMode(kFolderMode)) ||
        !made.createFile(OwnFolders::kRecordName, "", kRecordMode)) {
        return NoFollowFolder();
    }
    return made;
}

// Why the folder of that name in the parent could not be opened or made.
std::string failure(const NoFollowFolder& parent, const std::string& name, const std::string& path,
                    bool isTarget) {
    const int cause = errno;
    struct stat status {};
    const bool exists = parent.statusOf(name, status);
    const std::string what = isTarget ? "it is" : path + " is";
    if (exists && S_ISLNK(status.st_mode)) {
        return what + " a symbolic link, which the tool does not follow";
    }
    if (exists && !S_ISDIR(status.st_mode)) {
        return what + " not a folder";
    }
    return std::strerror(cause) + (isTarget ? "" : " (making " + path + ")");
}

std::string joined(const std::string& root, const std::vector<std::string>& names,
                   std::size_t count) {
    std::string path = root;
    for (std::size_t index = 0; index < count; ++index) {
        path += "/" + names[index];
    }
    return path.empty() ? "/" : path;
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

}  // namespace

NoFollowFolder OwnFolders::create(const std::string& root, const std::string& folder,
                                  bool forAllUsers, std::string& error) {
    const std::vector<std::string> names = NoFollowFolder::namesBelow(root, folder);
    NoFollowFolder current = NoFollowFolder::open(root);
    if (!current.isOpen()) {
        error = std::strerror(errno) + std::string(" (opening ") + joined(root, names, 0) + ")";
        return current;
    }
    for (std::size_t depth = 0; depth < names.size(); ++depth) {
        NoFollowFolder next = current.child(names[depth]);
        if (!next.isOpen() && errno == ENOENT) {
            next = makeRecordedFolder(current, names[depth], forAllUsers);
        }
        if (!next.isOpen()) {
            error = failure(current, names[depth], joined(root, names, depth + 1),
                            depth + 1 == names.size());
            return next;
        }
        current = std::move(next);
    }
    return current;
}

bool OwnFolders::holdsOnlyOurs(const std::string& folder) {
    return holdsOnly(NoFollowFolder::open(folder), true);
}

void OwnFolders::release(const std::string& root, const std::string& folder) {
    const std::vector<std::string> names = NoFollowFolder::namesBelow(root, folder);
    const std::vector<NoFollowFolder> chain = NoFollowFolder::openChain(root, names);
    for (std::size_t depth = chain.size() - 1; depth > 0 && isRecorded(chain[depth]); --depth) {
        const NoFollowFolder& here = chain[depth];
        if (holdsOnly(here, false)) {
            here.removeFile(kRecordName);
            chain[depth - 1].removeFolder(names[depth - 1]);
        } else if (holdsOnly(here, true)) {
            return;
        } else {
            here.removeFile(kRecordName);
        }
    }
}

std::string OwnFolders::changeableByOthers(const std::string& root, const std::string& folder) {
    char real[PATH_MAX];
    if (realpath(root.empty() ? "/" : root.c_str(), real) == nullptr) {
        return "";  // nothing to write into: the write itself will say so
    }
    // The root's own folders as they really are, then those below it as far as they exist.
    std::vector<std::string> names = NoFollowFolder::namesBelow("", real);
    for (const std::string& name : NoFollowFolder::namesBelow(root, folder)) {
        names.push_back(name);
    }
    const std::vector<NoFollowFolder> chain = NoFollowFolder::openChain("", names);
    for (std::size_t depth = 0; depth < chain.size(); ++depth) {
        struct stat status {};
        const std::string why = chain[depth].status(status) ? whyOthersCanChange(status) : "";
        if (!why.empty()) {
            return joined("", names, depth) + " (" + why + ")";
        }
    }
    return "";
}
