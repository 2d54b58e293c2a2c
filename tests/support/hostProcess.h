#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

// The real host executable in a child process, with a pipe as its standard input and its
// standard output captured. It inherits the fake user entry of the tests.
class HostProcess {
  public:
    HostProcess(const std::vector<std::string>& arguments, const std::filesystem::path& workDir);
    ~HostProcess();  // kills the host if it still runs

    HostProcess(const HostProcess&) = delete;
    HostProcess& operator=(const HostProcess&) = delete;

    // Writes one frame as a browser does: a 4-byte native-order length, then the payload.
    void writeFrame(const std::string& payload);
    void closeInput();

    // The exit status, or -1 when the host is still running after the deadline.
    int waitForExit(std::chrono::seconds deadline = std::chrono::seconds(30));

    // Everything the host wrote to its standard output; call after it exited.
    std::string output();

  private:
    pid_t pid = -1;
    int input = -1;
    int outputPipe = -1;
};

// Where the host logs for the given home folder.
std::filesystem::path logFolderOf(const std::filesystem::path& home);

// Every line of every log file in the folder, files in name order.
std::vector<std::string> readLogLines(const std::filesystem::path& logFolder);
