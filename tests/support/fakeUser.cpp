#include "support/fakeUser.h"

#include <spawn.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

extern char** environ;

namespace fakeUser {
namespace {

const char* const kHomeVariable = "QUORVEL_TEST_FAKE_HOME";

// Prepends to a list in the environment, separated by a colon.
void prependTo(const char* variable, const std::string& value) {
    const char* old = std::getenv(variable);
    setenv(variable, (value + (old ? std::string(":") + old : "")).c_str(), 1);
}

void writeEntry(const std::string& home) {
    std::ofstream(std::getenv("NSS_WRAPPER_PASSWD"), std::ios::trunc)
        << "quorveltest:x:" << getuid() << ":" << getgid() << ":Quorvel test user:" << home
        << ":/bin/sh\n";
}

}  // namespace

int rerunUnderFakeUser(int, char** argv) {
    const std::string nssWrapper = QUORVEL_NSS_WRAPPER;
    if (nssWrapper.empty() || std::getenv(kHomeVariable) != nullptr) {
        return -1;
    }
    char folder[] = "/tmp/quorvel-test-XXXXXX";
    if (mkdtemp(folder) == nullptr) {
        return 1;
    }
    const std::string fakeHome = std::string(folder) + "/home";
    std::filesystem::create_directory(fakeHome);
    std::ofstream(std::string(folder) + "/group") << "quorveltest:x:" << getgid() << ":\n";
    setenv(kHomeVariable, fakeHome.c_str(), 1);
    setenv("NSS_WRAPPER_PASSWD", (std::string(folder) + "/passwd").c_str(), 1);
    setenv("NSS_WRAPPER_GROUP", (std::string(folder) + "/group").c_str(), 1);
    prependTo("LD_PRELOAD", nssWrapper);
    // AddressSanitizer refuses to start when another library is preloaded ahead of it.
    prependTo("ASAN_OPTIONS", "verify_asan_link_order=0");
    writeEntry(fakeHome);  // at the current time, before any version that setHome writes

    pid_t child = 0;
    int raw = 0;
    const bool ran = posix_spawnp(&child, argv[0], nullptr, nullptr, argv, environ) == 0 &&
                     waitpid(child, &raw, 0) == child;
    std::filesystem::remove_all(folder);
    return !ran ? 1 : WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
}

std::string home() {
    const char* value = std::getenv(kHomeVariable);
    return value ? value : "";
}

void setHome(const std::string& home) {
    writeEntry(home);
    // nss_wrapper reloads its file only when the modification time changes.
    static long generation = 1;
    const timeval times[2] = {{generation, 0}, {generation, 0}};
    ++generation;
    utimes(std::getenv("NSS_WRAPPER_PASSWD"), times);
}

}  // namespace fakeUser
