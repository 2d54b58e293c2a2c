#pragma once

#include <chrono>
#include <string>
#include <vector>

// One run of another program, started directly (no shell) with this process's environment, its
// standard input empty and its standard error discarded, ended by force at a time limit.
struct ProgramRun {
    int spawnError = 0;     // errno when it could not be started, 0 when it was
    bool timedOut = false;  // killed at the time limit
    int exitStatus = -1;    // its exit status, -1 when it did not exit by itself
    std::string output;     // the start of its standard output

    bool exitedWith(int status) const { return spawnError == 0 && exitStatus == status; }

    static ProgramRun run(const std::vector<std::string>& arguments, std::chrono::seconds limit);
};
