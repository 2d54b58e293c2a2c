#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "browserTable.h"

// The host's native messaging manifest: the text that registers an executable, and the verdict
// on a manifest as a browser of its family would read it.
class Manifest {
  public:
    static const char* const kHostName;  // "com.quorvel.nativemessagehost"
    static const char* const kFileName;  // the host name + ".json"
    // Far above a manifest's few hundred bytes: a larger file is judged by its size, not read.
    static const std::size_t kMaxSize;
    // Chromium's JSON reader refuses deeper nesting (base/json/json_reader.cc, kStackMaxDepth).
    static const int kMaxDepth;

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

    // Judges manifest text as a browser of the family would; never throws. Text nested deeper
    // than kMaxDepth is judged by that alone.
    static Verdict judge(const std::string& text, Family family);

    // Judges the file as this user's browser would read it: unreadable is broken too.
    static Verdict judgeFile(const std::string& file, Family family);

    // The file's text; "" with problem set, a phrase, when it is not read: this user cannot read
    // it, it is no regular file, or it is larger than kMaxSize. Never waits.
    static std::string read(const std::string& file, std::string& problem);
    // The same for the file of that name in a folder held open.
    static std::string readIn(int folder, const std::string& name, std::string& problem);

    // The executable that manifest text registers: its parsed path, or "" when it names none.
    static std::string registeredPath(const std::string& text);

    // Whether a manifest can hold the text: JSON holds only valid UTF-8.
    static bool canHold(const std::string& text);

    static bool isChromeId(const std::string& id);
    static bool isFirefoxId(const std::string& id);
};
