#pragma once

#include <string>
#include <vector>

#include "browserTable.h"

// The host's native messaging manifest: the text that registers an executable, and the verdict
// on a manifest as a browser of its family would read it.
class Manifest {
  public:
    static const char* const kHostName;  // "com.quorvel.nativemessagehost"
    static const char* const kFileName;  // the host name + ".json"

    // Where the manifest lies in a browser's manifest folder.
    static std::string fileIn(const std::string& folder);

    // The verdict on one manifest. Sound when problems is empty.
    struct Verdict {
        std::vector<std::string> problems;  // each a phrase such as "its type is not \"stdio\""
        std::string path;                   // the executable it names, "" when none
        bool pathIsExecutable = false;
        std::vector<std::string> ids;  // allowed extension ids (origins for the Chromium family)
        std::vector<std::string> malformedIds;
    };

    // The manifest that lets the given extensions start the executable. Ids are not checked.
    static std::string compose(Family family, const std::string& executable,
                               const std::vector<std::string>& ids);

    // Judges manifest text as a browser of the family would; never throws.
    static Verdict judge(const std::string& text, Family family);

    // Judges the file as this user's browser would read it: unreadable is broken too.
    static Verdict judgeFile(const std::string& file, Family family);

    // The file's text; "" with error set to the reason when this user cannot read it.
    static std::string read(const std::string& file, std::string& error);

    // The executable that manifest text registers: its parsed path, or "" when it names none.
    static std::string registeredPath(const std::string& text);

    static bool isChromeId(const std::string& id);
    static bool isFirefoxId(const std::string& id);
};
