#include "agentStanding.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/utils.h"

namespace {

// As long as the host waits to connect: a listener with a full backlog counts as nothing.
constexpr timeval kConnectTimeout = {5, 0};

}  // namespace

AgentStanding AgentStanding::probe(const std::string& socketPath) {
    AgentStanding standing;
    standing.socketPath = socketPath;
    const int descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
    const sockaddr_un address = localSocketAddress(socketPath);
    if (descriptor < 0 ||
        setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &kConnectTimeout,
                   sizeof(kConnectTimeout)) != 0 ||
        connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        standing.detail = std::strerror(errno);
    } else if (!getPeerUserId(descriptor, standing.listenerId)) {
        // The host refuses a listener it cannot tell, as one of someone else.
        standing.listener = Listener::SomeoneElse;
        standing.detail = std::strerror(errno);
    } else {
        standing.listener =
            isTrustedListener(standing.listenerId) ? Listener::ThisUser : Listener::SomeoneElse;
    }
    if (descriptor >= 0) {
        close(descriptor);
    }
    return standing;
}
