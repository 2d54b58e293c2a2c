#pragma once

#include <string>

// A fake entry in the user database whose home is a temporary folder, so that no test or
// benchmark touches the real user's home, logs or agent socket. The fake user library
// (fakeUserLibrary.cpp), loaded into this executable and inherited by every program it starts
// directly, answers for this user from a file that setHome rewrites.
namespace fakeUser {

// Runs this executable again with the fake user library loaded, a fresh fake user and home, and
// returns its exit status. In that run it returns -1 once the fake entry answers, or 1 after
// saying why not, so that no test ever runs as the real user.
int rerunUnderFakeUser(int argc, char** argv);

// The fake user's temporary home, given to the entry at the start of the run.
std::string home();

// Gives the fake entry of this process's user the home folder, or no entry at all for "".
// Programs started later, and running ones at their next look-up, see the change.
void setHome(const std::string& home);

}  // namespace fakeUser
