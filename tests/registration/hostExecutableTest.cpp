#include "hostExecutable.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "support/tempDir.h"

namespace {

using Fault = HostExecutable::Fault;

// The user id of nobody, whom a root test runs the checks as: as root the tool runs nothing.
constexpr uid_t kNobody = 65534;

void writeProgram(const std::filesystem::path& file, const std::string& text, mode_t mode) {
    std::ofstream(file) << text;
    chmod(file.c_str(), mode);
}

// Runs the checks in a child that is not root, so that the --version question is asked; the
// child's exit status counts the failed expectations.
int failuresAsNonRoot(const std::filesystem::path& folder) {
    const pid_t child = fork();
    if (child == 0) {
        if (geteuid() == 0 && (setgid(kNobody) != 0 || setuid(kNobody) != 0)) {
            _exit(100);
        }
        const auto fault = [&](const std::string& name, bool forAllUsers = false) {
            return HostExecutable::check((folder / name).string(), forAllUsers).fault;
        };
        const HostExecutable host = HostExecutable::check((folder / "host").string(), true);
        int failed = host.fault == Fault::None && host.versionAsked ? 0 : 1;
        failed += fault("other") == Fault::NotTheHost ? 0 : 1;
        failed += fault("silent") == Fault::NotTheHost ? 0 : 1;
        failed += fault("plain") == Fault::NotExecutable ? 0 : 1;
        failed += fault("private", true) == Fault::NotExecutable ? 0 : 1;
        failed += fault("gone") == Fault::Missing ? 0 : 1;
        failed += fault("folder") == Fault::Folder ? 0 : 1;
        failed += HostExecutable::check("/dev/null", false).fault == Fault::Special ? 0 : 1;
        _exit(failed);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

// Every way the file a manifest names is not the host, and the host itself, which answers
// --version with its version.
TEST(HostExecutableTest, TellsTheHostFromEveryOtherFile) {
    TempDir dir;
    chmod(dir.path().c_str(), 0755);
    std::filesystem::copy_file(QUORVEL_HOST_EXECUTABLE, dir.path() / "host");
    chmod((dir.path() / "host").c_str(), 0755);
    writeProgram(dir.path() / "other", "#!/bin/sh\necho 1.2.1\n", 0755);
    writeProgram(dir.path() / "silent", "#!/bin/sh\nexit 0\n", 0755);
    writeProgram(dir.path() / "plain", "1.2.0\n", 0644);
    writeProgram(dir.path() / "private", "#!/bin/sh\necho 1.2.0\n", 0744);
    std::filesystem::create_directory(dir.path() / "folder");
    EXPECT_EQ(failuresAsNonRoot(dir.path()), 0);

    const HostExecutable other = HostExecutable::check((dir.path() / "other").string(), false);
    if (geteuid() == 0) {
        EXPECT_EQ(other.fault, Fault::None);
        EXPECT_FALSE(other.versionAsked);
    } else {
        EXPECT_EQ(other.problem, (dir.path() / "other").string() +
                                     " is not the host: it answers --version with '1.2.1' and "
                                     "exit status 0, not the host's 1.2.0");
    }
    // For all users, every folder above must be open to others.
    chmod(dir.path().c_str(), 0700);
    const HostExecutable closed = HostExecutable::check((dir.path() / "host").string(), true);
    EXPECT_EQ(closed.fault, Fault::ClosedToOthers);
    EXPECT_EQ(closed.fix,
              "Open the folders above it to all users (chmod o+x), or install the host where "
              "every user can reach it and run install again.");
}
