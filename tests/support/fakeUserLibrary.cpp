// A test-only library loaded into the test executable and into every host it starts
// (LD_PRELOAD on Linux, DYLD_INSERT_LIBRARIES on macOS). It answers the user database's
// look-up of this process's user with a fake entry whose home folder is the content of the file
// named by QUORVEL_FAKE_USER_FILE, read at every call; an empty or missing file means no entry.
// Other users, and every process without the variable, get the real answer.
//
// It is built without sanitizers (it is loaded before their runtime) and allocates nothing: it
// only reads the file into the caller's buffer.

#include <errno.h>
#include <fcntl.h>
#include <pwd.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#if !defined(__APPLE__)
#include <dlfcn.h>
#endif

namespace {

const char* const kName = "quorveltest";
const char* const kShell = "/bin/sh";

using Lookup = int (*)(uid_t, passwd*, char*, size_t, passwd**);

int realGetpwuid(uid_t uid, passwd* entry, char* buffer, size_t size, passwd** result) {
#if defined(__APPLE__)
    // dyld does not interpose calls made from the interposing library itself.
    return getpwuid_r(uid, entry, buffer, size, result);
#else
    // Looked up at every call, so that the library keeps no state between threads.
    const auto next = reinterpret_cast<Lookup>(dlsym(RTLD_NEXT, "getpwuid_r"));
    return next(uid, entry, buffer, size, result);
#endif
}

// Copies text into the buffer at used; nullptr when it does not fit.
char* place(const char* text, size_t length, char* buffer, size_t size, size_t& used) {
    if (size - used < length + 1) {
        return nullptr;
    }
    char* start = buffer + used;
    memcpy(start, text, length);
    start[length] = '\0';
    used += length + 1;
    return start;
}

// Reads the fake home into the start of the buffer; returns its length, or -1 with errno set.
ssize_t readHome(const char* file, char* buffer, size_t size) {
    const int descriptor = open(file, O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        return errno == ENOENT ? 0 : -1;
    }
    size_t length = 0;
    for (ssize_t got = 1; got > 0; length += static_cast<size_t>(got)) {
        if (length == size) {
            close(descriptor);
            errno = ERANGE;
            return -1;
        }
        got = read(descriptor, buffer + length, size - length);
        if (got < 0) {
            close(descriptor);
            return -1;
        }
    }
    close(descriptor);
    return static_cast<ssize_t>(length);
}

int fakeGetpwuid(uid_t uid, passwd* entry, char* buffer, size_t size, passwd** result) {
    const char* file = getenv("QUORVEL_FAKE_USER_FILE");
    if (file == nullptr || uid != getuid()) {
        return realGetpwuid(uid, entry, buffer, size, result);
    }
    *result = nullptr;
    const ssize_t homeLength = readHome(file, buffer, size);
    if (homeLength <= 0) {
        return homeLength == 0 ? 0 : errno;
    }
    size_t used = static_cast<size_t>(homeLength) + 1;
    if (used > size) {
        return ERANGE;
    }
    buffer[homeLength] = '\0';
    memset(entry, 0, sizeof(*entry));
    entry->pw_dir = buffer;
    entry->pw_name = place(kName, strlen(kName), buffer, size, used);
    entry->pw_shell = place(kShell, strlen(kShell), buffer, size, used);
    entry->pw_passwd = entry->pw_gecos = place("", 0, buffer, size, used);
    if (entry->pw_name == nullptr || entry->pw_shell == nullptr || entry->pw_passwd == nullptr) {
        return ERANGE;
    }
#if defined(__APPLE__)
    entry->pw_class = entry->pw_passwd;
#endif
    entry->pw_uid = uid;
    entry->pw_gid = getgid();
    *result = entry;
    return 0;
}

}  // namespace

#if defined(__APPLE__)
// dyld binds every other image's getpwuid_r to the replacement named in this section.
struct Interposition {
    Lookup replacement;
    Lookup replaced;
};
__attribute__((used, section("__DATA,__interpose"))) static Interposition interposeGetpwuid = {
    &fakeGetpwuid, &getpwuid_r};
#else
// Preloaded ahead of the C library, this definition is the one every other object binds to.
extern "C" __attribute__((visibility("default"))) int getpwuid_r(uid_t uid, passwd* entry,
                                                                 char* buffer, size_t size,
                                                                 passwd** result) {
    return fakeGetpwuid(uid, entry, buffer, size, result);
}
#endif
