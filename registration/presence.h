#pragma once

#include <string>

struct Browser;
struct CommandLine;

// Whether a browser is in use in a home folder: one of its profile folders holds something the
// tool did not create. Failing that, whether only a sandboxed build of it is.
struct Presence {
    enum class Kind { InUse, Sandboxed, Missing };

    Kind kind = Kind::Missing;
    std::string note;  // the profile in use, or why a sandboxed build gets no manifest

    static Presence of(const Browser& browser, const CommandLine& line);
};
