#include "support/fakeUser.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "platform/utils.h"

extern char** environ;

namespace fakeUser {
namespace {

// Names the file whose content is the fake home; the fake user library reads it.
const char* const kFileVariable = "QUORVEL_FAKE_USER_FILE";

// Prepends to a list in the environment, separated by a colon.
void prependTo(const char* variable, const std::string& value) {
    const char* old = std::getenv(variable);
    setenv(variable, (value + (old ? std::string(":") + old : "")).c_str(), 1);
}

std::filesystem::path entryFile() {
    const char* file = std::getenv(kFileVariable);
    return file ? file : "";
}

// In the run under the fake user: whether the user database answers with the fake home.
int checkFakeEntry() {
    if (getHomeDir() == home()) {
        return -1;
    }
    std::cerr << "The fake user library (" << QUORVEL_FAKE_USER_LIBRARY << ") does not answer "
              << "for this user: no test runs, lest it touch the real user's home." << std::endl;
    return 1;
}

}  // namespace

int rerunUnderFakeUser(int, char** argv) {
    if (!entryFile().empty()) {
        return checkFakeEntry();
    }
    char folder[] = "/tmp/quorvel-test-XXXXXX";
    if (mkdtemp(folder) == nullptr) {
        return 1;
    }
    // Set before any thread runs; the run below inherits it all.
    setenv(kFileVariable, (std::string(folder) + "/user").c_str(), 1);
    prependTo(QUORVEL_PRELOAD_VARIABLE, QUORVEL_FAKE_USER_LIBRARY);
    // AddressSanitizer refuses to start when another library is preloaded ahead of it.
    prependTo("ASAN_OPTIONS", "verify_asan_link_order=0");
    std::filesystem::create_directory(home());
    setHome(home());

    pid_t child = 0;
    int raw = 0;
    const bool ran = posix_spawnp(&child, argv[0], nullptr, nullptr, argv, environ) == 0 &&
                     waitpid(child, &raw, 0) == child;
    std::filesystem::remove_all(folder);
    return !ran ? 1 : WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
}

std::string home() {
    return (entryFile().parent_path() / "home").string();
}

void setHome(const std::string& home) {
    // Renamed into place, so that a look-up at any moment reads one whole home or the other.
    const std::filesystem::path next = entryFile().string() + ".next";
    std::ofstream(next, std::ios::trunc) << home;
    std::filesystem::rename(next, entryFile());
}

}  // namespace fakeUser
