#pragma once

#include <ostream>
#include <string>

#include "browserTable.h"
#include "commandLine.h"

class RunLock;

// Writes and removes the host's manifests where the browsers of the command line's scope read
// them (this user's folders, the system folders, or one folder), saying what it did per browser.
class Registrar {
  public:
    Registrar(const CommandLine& line, std::ostream& out, std::ostream& err);

    // The exit status: 0 when every manifest asked for was written, 1 when one could not be or
    // when none was.
    int install();

    // The exit status: 0 unless a manifest of the executable could not be removed.
    int uninstall();

  private:
    // Both say why not when they return false.
    bool lock(RunLock& runLock);
    // As root for all users: no folder on the way that another user could change, by which they
    // could redirect the writes.
    bool foldersAreSafe();
    // Where a walk to a folder of this user's starts: the home folder, whose links the user
    // chose, when the folder is in it (it may be under $XDG_CONFIG_HOME elsewhere); else "/".
    std::string startFor(const std::string& folder) const;
    // Writes the manifest of the family into the folder below root ("" for "/"), whole or not at
    // all, following below root only the links of this user or root.
    void write(const std::string& name, const std::string& root, const std::string& folder,
               Family family);
    void installForUser(const Browser& browser);
    void installForSystem(const Browser& browser);
    void remove(const std::string& name, const std::string& root, const std::string& folder);

    const CommandLine& line;
    std::ostream& out;
    std::ostream& err;
    int written = 0;
    int removed = 0;
    int sandboxed = 0;  // browsers skipped as sandboxed builds only
    int unasked = 0;    // browsers in use skipped for want of an id of their family
    bool failed = false;
};
