#pragma once

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>

// The unprivileged user that stands for another account of the machine.
constexpr uid_t kOtherUser = 65534;

// A stand-in for the agent: a Unix-domain stream socket listening at a path, which accepts one
// connection at a time and reads frames from it. Every wait gives up after a generous deadline.
// Used from one thread; removes its socket file when destroyed.
class TestAgent {
  public:
    // Throws std::runtime_error when it cannot listen. On Linux a backlog of 0 holds a second
    // connect in progress until the first connection is accepted.
    explicit TestAgent(const std::string& path, int backlog = 16);
    // Listens as another user (only root may): a child process that runs as that user binds and
    // listens, so that the kernel names that user as the listener and owns the socket file.
    TestAgent(const std::string& path, uid_t user);
    ~TestAgent();
    TestAgent(const TestAgent&) = delete;
    TestAgent& operator=(const TestAgent&) = delete;

    // Accepts the next connection and makes it the current one; false after the deadline.
    bool acceptConnection();

    // Reads count bytes from the current connection; fewer when it ends or a wait times out.
    std::string read(std::size_t count);

    // The payload of the next frame, or nothing when the connection ends or the deadline passes.
    std::optional<std::string> readFrame();

    // Whether the other side closes the current connection, without sending more, in time.
    bool waitForEnd();

    // Closes the current connection, as an agent that goes away does.
    void closeConnection();

    // Connects a client of its own that is never accepted: with a backlog of 0 every further
    // connect then waits, on Linux, as long as nothing is accepted.
    void occupyBacklog();

  private:
    std::string path_;
    int listener_ = -1;
    int connection_ = -1;
    int occupant_ = -1;
};
