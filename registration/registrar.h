#pragma once

#include <ostream>
#include <string>

#include "browserTable.h"
#include "commandLine.h"

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
    // Writes the manifest of the family into the folder, whole or not at all.
    void write(const std::string& name, const std::string& folder, Family family);
    void installForUser(const Browser& browser);
    void installForSystem(const Browser& browser);
    void remove(const std::string& name, const std::string& folder);

    const CommandLine& line;
    std::ostream& out;
    std::ostream& err;
    int written = 0;
    int removed = 0;
    int sandboxed = 0;  // browsers skipped as sandboxed builds only
    int unasked = 0;    // browsers in use skipped for want of an id of their family
    bool failed = false;
};
