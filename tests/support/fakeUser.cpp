#include "support/fakeUser.h"

#include <spawn.h>
#include <sys/stat.h>
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

void writeUserDatabase(const std::string& passwdLine) {
    const char* passwdPath = std::getenv("NSS_WRAPPER_PASSWD");
    std::ofstream(passwdPath, std::ios::trunc) << passwdLine;
    // nss_wrapper reloads its file only when the modification time changes; the first
    // version, written when the fake user is made, keeps the current time.
    static long generation = 1;
    const timeval times[2] = {{generation, 0}, {generation, 0}};
    ++generation;
    utimes(passwdPath, times);
}

std::string entryFor(const std::string& home) {
    return "quorveltest:x:" + std::to_string(getuid()) + ":" + std::to_string(getgid()) +
           ":Quorvel test user:" + home + ":/bin/sh\n";
}

}  // namespace

int rerunUnderFakeUser(int, char** argv) {
    const std::string nssWrapper = QUORVEL_NSS_WRAPPER;
    if (nssWrapper.empty() || std::getenv(kHomeVariable) != nullptr) {
        return -1;
    }
    char pattern[] = "/tmp/quorvel-test-XXXXXX";
    if (mkdtemp(pattern) == nullptr) {
        return 1;
    }
    const std::filesystem::path folder = pattern;
    const std::filesystem::path fakeHome = folder / "home";
    std::filesystem::create_directory(fakeHome);
    std::ofstream(folder / "group") << "quorveltest:x:" << getgid() << ":\n";
    setenv(kHomeVariable, fakeHome.c_str(), 1);
    setenv("NSS_WRAPPER_PASSWD", (folder / "passwd").c_str(), 1);
    setenv("NSS_WRAPPER_GROUP", (folder / "group").c_str(), 1);
    const char* preloaded = std::getenv("LD_PRELOAD");
    setenv("LD_PRELOAD", (nssWrapper + (preloaded ? std::string(":") + preloaded : "")).c_str(), 1);
    // AddressSanitizer refuses to start when another library is preloaded ahead of it.
    const char* asanOptions = std::getenv("ASAN_OPTIONS");
    setenv(
        "ASAN_OPTIONS",
        ((asanOptions ? std::string(asanOptions) + ":" : "") + "verify_asan_link_order=0").c_str(),
        1);
    std::ofstream(folder / "passwd") << entryFor(fakeHome);

    pid_t child = 0;
    int raw = 0;
    const bool ran = posix_spawnp(&child, argv[0], nullptr, nullptr, argv, environ) == 0 &&
                     waitpid(child, &raw, 0) == child;
    const int status = !ran ? 1 : WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
    std::filesystem::remove_all(folder);
    return status;
}

std::string home() {
    const char* value = std::getenv(kHomeVariable);
    return value ? value : "";
}

void setHome(const std::string& home) {
    writeUserDatabase(entryFor(home));
}

void removeEntry() {
    writeUserDatabase("nobody:x:65534:65534:nobody:/nonexistent:/bin/sh\n");
}

}  // namespace fakeUser
