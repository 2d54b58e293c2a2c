#include "folderWalk.h"

#include <unistd.h>

#include <cerrno>
#include <sstream>
#include <utility>

namespace {

// As many links as Linux follows in one path (MAXSYMLINKS), so a loop ends.
constexpr int kMostLinks = 40;

std::deque<std::string> namesOf(const std::string& path) {
    std::deque<std::string> names;
    std::istringstream rest(path);
    for (std::string name; std::getline(rest, name, '/');) {
        if (!name.empty() && name != ".") {
            names.push_back(name);
        }
    }
    return names;
}

std::string parentOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "" : path.substr(0, slash);
}

}  // namespace

FolderWalk::FolderWalk(const std::string& start, const std::string& path)
    : pending(namesOf(path.substr(start.size()))) {
    NoFollowFolder opened = NoFollowFolder::open(start);
    const int openErrno = errno;
    folders.push_back({std::move(opened), "", start});
    errno = openErrno;
}

bool FolderWalk::mayFollow(const struct stat& link) {
    return link.st_uid == geteuid() || link.st_uid == 0;
}

bool FolderWalk::nextIsRefusedLink(struct stat& link) const {
    return deepest().folder.isOpen() && deepest().folder.statusOf(next(), link) &&
           S_ISLNK(link.st_mode) && !mayFollow(link);
}

bool FolderWalk::step() {
    while (!arrived() && deepest().folder.isOpen()) {
        if (next() == "..") {
            goUp();
            return deepest().folder.isOpen();
        }
        struct stat status {};
        if (!deepest().folder.statusOf(next(), status) || !S_ISLNK(status.st_mode)) {
            return enter();
        }
        std::string text;
        if (!followable(status, text)) {
            return false;
        }
        pending.pop_front();
        const std::deque<std::string> names = namesOf(text);
        pending.insert(pending.begin(), names.begin(), names.end());
        if (text.front() == '/') {
            folders.clear();
            folders.push_back({NoFollowFolder::open(""), "", ""});
            return deepest().folder.isOpen();
        }
    }
    return false;
}

bool FolderWalk::walkOn() {
    while (step()) {
    }
    return arrived();
}

bool FolderWalk::enter() {
    NoFollowFolder child = deepest().folder.child(next());
    if (!child.isOpen()) {
        return false;
    }
    folders.push_back({std::move(child), next(), deepest().path + "/" + next()});
    pending.pop_front();
    return true;
}

bool FolderWalk::followable(const struct stat& link, std::string& text) {
    if (!mayFollow(link) || ++linksFollowed > kMostLinks) {
        errno = ELOOP;
        return false;
    }
    if (!deepest().folder.linkText(next(), text)) {
        return false;
    }
    if (text.empty()) {
        errno = EINVAL;
        return false;
    }
    return true;
}

void FolderWalk::goUp() {
    pending.pop_front();
    if (folders.size() > 1) {
        folders.pop_back();
        return;
    }
    Reached& start = folders.back();
    start = {start.folder.parent(), "", parentOf(start.path)};
}
