#include "programRun.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;

// Enough for a version line or a property list converted to JSON; the rest is not read.
constexpr std::size_t kOutputLimit = 1 << 20;
constexpr auto kExitPoll = std::chrono::milliseconds(10);

int millisecondsUntil(Clock::time_point deadline) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

// Reads the pipe until its end, the limit of output or the deadline.
std::string readUntil(int descriptor, Clock::time_point deadline) {
    std::string output;
    char buffer[4096];
    pollfd readable{descriptor, POLLIN, 0};
    while (output.size() < kOutputLimit && poll(&readable, 1, millisecondsUntil(deadline)) > 0) {
        const ssize_t count = read(descriptor, buffer, sizeof(buffer));
        if (count <= 0) {
            break;
        }
        output.append(buffer, static_cast<std::size_t>(count));
    }
    return output;
}

// Its exit status, or -1 after killing it at the deadline.
int waitUntil(pid_t child, Clock::time_point deadline, bool& timedOut) {
    int status = 0;
    pid_t done = 0;
    while ((done = waitpid(child, &status, WNOHANG)) == 0 && Clock::now() < deadline) {
        std::this_thread::sleep_for(kExitPoll);
    }
    if (done == 0) {
        timedOut = true;
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
        return -1;
    }
    return done > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

ProgramRun ProgramRun::run(const std::vector<std::string>& arguments, std::chrono::seconds limit) {
    ProgramRun result;
    int pipeEnds[2];
    if (pipe(pipeEnds) != 0) {
        result.spawnError = errno;
        return result;
    }
    fcntl(pipeEnds[0], F_SETFD, FD_CLOEXEC);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addclose(&actions, pipeEnds[1]);
    std::vector<char*> argv;
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    pid_t child = -1;
    result.spawnError = posix_spawn(&child, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(pipeEnds[1]);
    if (result.spawnError == 0) {
        const auto deadline = Clock::now() + limit;
        result.output = readUntil(pipeEnds[0], deadline);
        result.exitStatus = waitUntil(child, deadline, result.timedOut);
    }
    close(pipeEnds[0]);
    return result;
}
