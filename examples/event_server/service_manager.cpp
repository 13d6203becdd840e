#include "service_manager.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include <vncommon/failure.h>
#include <vncommon/log.h>

namespace {

// sd_notify(3): "/path" is a file, "@name" an abstract address, which begins with a NUL byte.
// Returns 0 for anything else.
socklen_t parseAddress(const char* name, sockaddr_un& address) {
    const size_t length = strlen(name);
    if ((name[0] != '/' && name[0] != '@') || length < 2 || length >= sizeof address.sun_path) {
        return 0;
    }
    address = {};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, name, length);
    if (name[0] == '@') {
        address.sun_path[0] = '\0';
    }
    return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
}

// Returns an errno value; 0 if the datagram was sent.
int send(const char* state, const sockaddr_un& address, socklen_t length) {
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const ssize_t sent = fd < 0 ? -1
                                : sendto(fd, state, strlen(state), MSG_NOSIGNAL,
                                         reinterpret_cast<const sockaddr*>(&address), length);
    const int error = sent < 0 ? errno : 0;
    if (fd >= 0) {
        close(fd);
    }
    return error;
}

}  // namespace

void tellServiceManager(const char* state) {
    const char* name = getenv("NOTIFY_SOCKET");
    if (name == nullptr) {
        return;
    }
    sockaddr_un address;
    const socklen_t length = parseAddress(name, address);
    if (length == 0) {
        VN_LogWarn("NOTIFY_SOCKET is not an address: %s", name);
        return;
    }
    if (const int error = send(state, address, length)) {
        char text[1024];
        vn_strerror(text, sizeof text, error);
        VN_LogWarn("The service manager cannot be told %s: %s", state, text);
    }
}
