#include "support/hostProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>
#include <thread>

#include "support/packets.h"

extern char** environ;

HostProcess::HostProcess(const std::vector<std::string>& arguments,
                         const std::filesystem::path& workDir, const std::string& program) {
    int inputPipe[2];
    int outPipe[2];
    if (pipe(inputPipe) != 0 || pipe(outPipe) != 0) {
        throw std::runtime_error("pipe failed");
    }
    // So that no host started later keeps this one's pipes open.
    for (const int end : {inputPipe[0], inputPipe[1], outPipe[0], outPipe[1]}) {
        fcntl(end, F_SETFD, FD_CLOEXEC);
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, inputPipe[0], 0);
    posix_spawn_file_actions_adddup2(&actions, outPipe[1], 1);
    posix_spawn_file_actions_addchdir_np(&actions, workDir.c_str());
    const std::string executable = program.empty() ? QUORVEL_HOST_EXECUTABLE : program;
    std::vector<char*> argv{const_cast<char*>(executable.c_str())};
    for (const auto& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    const int failed = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(inputPipe[0]);
    close(outPipe[1]);
    input = inputPipe[1];
    outputPipe = outPipe[0];
    if (failed != 0) {
        throw std::runtime_error("cannot start the host");
    }
}

HostProcess::~HostProcess() {
    closeInput();
    if (pid > 0) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    close(outputPipe);
}

void HostProcess::writeFrame(const std::string& payload) {
    const std::string frame = frameOf(payload);
    for (std::size_t done = 0; done < frame.size();) {
        const ssize_t written = write(input, frame.data() + done, frame.size() - done);
        if (written <= 0) {
            throw std::runtime_error("cannot write to the host's input");
        }
        done += static_cast<std::size_t>(written);
    }
}

void HostProcess::closeInput() {
    whileRunning();  // a program may exit as soon as its input ends
    if (input >= 0) {
        close(input);
        input = -1;
    }
}

int HostProcess::waitForExit(std::chrono::seconds deadline) {
    const auto end = std::chrono::steady_clock::now() + deadline;
    for (int status = 0; pid > 0 && std::chrono::steady_clock::now() < end;) {
        whileRunning();
        if (wait4(pid, &status, WNOHANG, &usage) == pid) {
            pid = -1;
            return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return -1;
}

std::string HostProcess::output() {
    std::string text;
    char buffer[4096];
    for (ssize_t got; (got = read(outputPipe, buffer, sizeof(buffer))) > 0;) {
        text.append(buffer, static_cast<std::size_t>(got));
    }
    return text;
}

std::filesystem::path logFolderOf(const std::filesystem::path& home) {
    return home / "Library/Application Support/velmarch-agent/logs/messagehost";
}
