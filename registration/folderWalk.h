#pragma once

#include <sys/stat.h>

#include <deque>
#include <string>
#include <vector>

#include "noFollowFolder.h"

// A walk from a folder down a path below it, one name at a time, each looked up in the folder
// reached before it. A symbolic link on the way is followed only when this user or root owns it,
// the owners the kernel's protected_symlinks trusts in /tmp (Linux Documentation/sysctl/fs.txt):
// a link that another user planted never leads the walk elsewhere. A failed step leaves errno
// set, ELOOP for a link it does not follow or for too many links.
class FolderWalk {
  public:
    struct Reached {
        NoFollowFolder folder;
        std::string name;  // its name in the folder before it, "" for one it cannot be removed by
        std::string path;  // links resolved on the way, "" for "/"
    };

    // Opens start (a path, "" for "/"; links in it are followed: the caller trusts it), whose
    // open errno tells when it fails, to walk down to path, a path below it.
    FolderWalk(const std::string& start, const std::string& path);

    // Takes the next step: opens the next folder, goes up for "..", or to "/" for a link that
    // starts there. False when it cannot, staying where it is, or when it has arrived.
    bool step();
    // Steps as far as it can; whether it arrived.
    bool walkOn();
    bool arrived() const { return pending.empty(); }
    // The folders from the start down to the deepest reached, each in the one before it.
    const std::vector<Reached>& reached() const { return folders; }
    const Reached& deepest() const { return folders.back(); }
    NoFollowFolder takeDeepest() { return std::move(folders.back().folder); }
    // The name the next step looks up in the deepest folder, and whether the path ends with it;
    // only before arrival.
    const std::string& next() const { return pending.front(); }
    bool nextIsLast() const { return pending.size() == 1; }
    // Whether the next name is a symbolic link that the walk does not follow, whose status link
    // then holds; only before arrival.
    bool nextIsRefusedLink(struct stat& link) const;

  private:
    // Whether a link of that status may be followed.
    static bool mayFollow(const struct stat& link);
    // Opens the next name, a folder and no link.
    bool enter();
    // The text of the next name, a link of that status, when it may be followed.
    bool followable(const struct stat& link, std::string& text);
    // Goes up for the next name, "..": above the start too, where a link may lead.
    void goUp();

    std::vector<Reached> folders;
    std::deque<std::string> pending;
    int linksFollowed = 0;
};
