#pragma once

#include <sys/types.h>

#include <string>

// Where this user's agent stands, judged by the host's own rule: who listens on the socket that
// the host would connect to.
struct AgentStanding {
    enum class Listener { ThisUser, SomeoneElse, Nothing };

    std::string socketPath;
    Listener listener = Listener::Nothing;
    uid_t listenerId = 0;  // with ThisUser or SomeoneElse, when the kernel could tell
    std::string detail;    // why nothing listens, or why the listener could not be told

    // Connects to the socket at the path (and closes the connection at once, sending nothing).
    static AgentStanding probe(const std::string& socketPath);
};
