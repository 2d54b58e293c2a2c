#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

// The real host executable (or another program, looked up in PATH) in a child process, with a
// pipe as its standard input and its standard output captured. It inherits the fake user entry
// of the tests.
class HostProcess {
  public:
    // An empty program stands for the host.
    HostProcess(const std::vector<std::string>& arguments, const std::filesystem::path& workDir,
                const std::string& program = "");
    virtual ~HostProcess();  // kills the host if it still runs

    HostProcess(const HostProcess&) = delete;
    HostProcess& operator=(const HostProcess&) = delete;

    // Writes one frame as a browser does: a 4-byte native-order length, then the payload.
    void writeFrame(const std::string& payload);
    void closeInput();

    // The exit status, or -1 when the host is still running after the deadline.
    int waitForExit(std::chrono::seconds deadline = std::chrono::seconds(30));

    // Everything the host wrote to its standard output; call after it exited.
    std::string output();

  protected:
    // Called while the program may still run: before its input is closed and at every look
    // while waitForExit waits. What measures the program looks at it here.
    virtual void whileRunning() {}

    pid_t pid = -1;
    int input = -1;
    rusage usage{};  // of the whole run, once waitForExit has returned a status

  private:
    int outputPipe = -1;
};

// Where the host logs for the given home folder.
std::filesystem::path logFolderOf(const std::filesystem::path& home);
