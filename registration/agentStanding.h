#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

// Where this user's agent stands, judged by the host's own rule: who listens on the socket that
// the host would connect to.
struct AgentStanding {
    enum class Listener { ThisUser, SomeoneElse, Nothing };

    std::string socketPath;
    Listener listener = Listener::Nothing;
    std::optional<uid_t> listenerId;  // who listens, or owns a socket this user may not use
    std::string detail;               // why the connect failed, or why the peer was not told

    // Connects to the socket at the path (and closes the connection at once, sending nothing). A
    // socket of another user that this user may not connect to is someone else's too.
    static AgentStanding probe(const std::string& socketPath);
};
