// Linux only, part of the fake user library (fakeUserLibrary.cpp), so loaded wherever that is:
// with QUORVEL_MAC_SOCKET_BUFFERS set, every local stream socket made holds about as few bytes in
// flight as a Mac's, so that a test that passes only with Linux's ~208 KiB fails here too.
// macOS gives such a connection 8192 bytes in all (XNU bsd/kern/uipc_usrreq.c, PIPSIZ).
//
// Linux charges the bytes in flight on a local stream to the sender's send buffer alone, and
// doubles what SO_SNDBUF asks for: asking for 4096 lets a writer that the peer does not read
// put 8064 bytes in flight in one write (fewer in small writes, each costing a buffer's overhead).

#include <dlfcn.h>
#include <stdlib.h>
#include <sys/socket.h>

namespace {

constexpr int kHalfOfMacBytesInFlight = 4096;

using SocketCall = int (*)(int, int, int);

}  // namespace

extern "C" __attribute__((visibility("default"))) int socket(int domain, int type, int protocol) {
    const auto next = reinterpret_cast<SocketCall>(dlsym(RTLD_NEXT, "socket"));
    const int descriptor = next(domain, type, protocol);
    const int kind = type & ~(SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (descriptor >= 0 && domain == AF_UNIX && kind == SOCK_STREAM &&
        getenv("QUORVEL_MAC_SOCKET_BUFFERS") != nullptr) {
        setsockopt(descriptor, SOL_SOCKET, SO_SNDBUF, &kHalfOfMacBytesInFlight,
                   sizeof(kHalfOfMacBytesInFlight));
    }
    return descriptor;
}
