#pragma once

#include <string>

// Serialises the runs of the tool that write, on the whole machine, so that concurrent installs
// and uninstalls never meet half-way in a folder: an exclusive lock on "/", held until this is
// destroyed. Anyone may take it, so a waiting run gives up after a while rather than hang. Where
// "/" cannot be locked at all, runs go on unlocked: the folders they make converge anyway.
class RunLock {
  public:
    RunLock() = default;
    ~RunLock();
    RunLock(const RunLock&) = delete;
    RunLock& operator=(const RunLock&) = delete;

    // False with error set when another process holds the lock for 30 seconds.
    bool acquire(std::string& error);

  private:
    int descriptor = -1;
};
