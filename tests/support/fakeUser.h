#pragma once

#include <string>

// A fake entry in the user database (through nss_wrapper) whose home is a temporary folder,
// so that no test or benchmark touches the real user's home, logs or agent socket.
namespace fakeUser {

// Runs this executable again under nss_wrapper with a fresh fake user and home, and
// returns its exit status; -1 when already under it or when nss_wrapper is missing.
int rerunUnderFakeUser(int argc, char** argv);

// The fake user's temporary home, or "" when the tests do not run under nss_wrapper.
std::string home();

// Rewrites the fake entry of this process's user with the given home folder ("" for none).
void setHome(const std::string& home);

}  // namespace fakeUser

// In a test (which includes GoogleTest): skips it when there is no fake user entry.
#define SKIP_WITHOUT_FAKE_USER()                                                     \
    if (fakeUser::home().empty())                                                    \
    GTEST_SKIP() << "nss_wrapper is not available (Debian package libnss-wrapper); " \
                    "this test needs a fake user entry and is skipped"
