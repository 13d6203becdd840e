#include "listener.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>

#include <vncommon/failure.h>

namespace {

constexpr timeval timeOut = {10, 0};

// Keep-alive finds a client that vanished after a minute and a half. With unacknowledged data it
// takes half a minute.
constexpr int keepAliveIdleSeconds = 60;
constexpr int keepAliveIntervalSeconds = 10;
constexpr int keepAliveProbes = 3;
constexpr int unacknowledgedMilliseconds = 30000;

std::string systemMessage(const char* call) {
    char text[1024];
    vn_strerror(text, sizeof text, errno);
    return std::string(call) + ": " + text;
}

// After a failure the connection works without the option.
template <typename Value>
void setOption(int fd, int level, int option, Value value) {
    setsockopt(fd, level, option, &value, sizeof value);
}

void setOptions(int fd) {
    setOption(fd, SOL_SOCKET, SO_RCVTIMEO, timeOut);
    setOption(fd, SOL_SOCKET, SO_SNDTIMEO, timeOut);
    setOption(fd, SOL_SOCKET, SO_KEEPALIVE, 1);
    setOption(fd, IPPROTO_TCP, TCP_KEEPIDLE, keepAliveIdleSeconds);
    setOption(fd, IPPROTO_TCP, TCP_KEEPINTVL, keepAliveIntervalSeconds);
    setOption(fd, IPPROTO_TCP, TCP_KEEPCNT, keepAliveProbes);
    setOption(fd, IPPROTO_TCP, TCP_USER_TIMEOUT, unacknowledgedMilliseconds);
    setOption(fd, IPPROTO_TCP, TCP_NODELAY, 1);  // send answers without delay
}

// The call that failed; null on success.
const char* bindAndListen(int fd, uint32_t port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    setOption(fd, SOL_SOCKET, SO_REUSEADDR, 1);
    if (bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return "bind";
    }
    return listen(fd, SOMAXCONN) != 0 ? "listen" : nullptr;
}

}  // namespace

bool Listener::open(uint32_t port, std::string& error) {
    fd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const char* failed = fd_ < 0 ? "socket" : bindAndListen(fd_, port);
    if (failed != nullptr) {
        error = "port " + std::to_string(port) + ": " + systemMessage(failed);
        close();
    }
    return failed == nullptr;
}

void Listener::close() {
    if (fd_ >= 0) {
        ::close(fd_);
    }
    fd_ = -1;
}

int Listener::port() const {
    sockaddr_in address = {};
    socklen_t length = sizeof address;
    getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

int Listener::accept(std::string& error) const {
    const int fd = accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd >= 0) {
        setOptions(fd);
    } else if (errno != EAGAIN && errno != EINTR && errno != ECONNABORTED) {
        error = systemMessage("accept");
    }
    return fd;
}
