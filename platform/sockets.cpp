// Blocking TCP over IPv4. Failures are returned as texts.
#include <vncommon/sockets.h>

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <vncommon/failure.h>
#include <vncommon/log.h>

#include "platform/assertion.h"
#include "platform/owned_text.h"

namespace vncommon {
namespace {

constexpr int backlog = 20;
constexpr timeval timeOut = {10, 0};  // of accepted connections, in both directions

// The system's message for errno, in its own buffer.
class SystemMessage {
  public:
    SystemMessage() {
        const int error = errno;
        if (error == 0) {
            strcpy(text_, "Unknown error");
        } else {
            vn_strerror(text_, sizeof text_, error);
        }
    }
    const char* text() const { return text_; }

  private:
    char text_[1024];
};

char* systemFailure() {
    return vn_strdup(SystemMessage().text());
}

char* closeAndFail(int fd, const char* message) {
    close(fd);
    return vn_strdup(message);
}

sockaddr_in addressOf(in_addr_t host, int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = host;
    return address;
}

bool firstAddress(const hostent* found, in_addr_t& address) {
    if (found == nullptr || found->h_addrtype != AF_INET || found->h_addr_list[0] == nullptr) {
        return false;
    }
    VN_ASSERT(found->h_length == sizeof address);
    memcpy(&address, found->h_addr_list[0], sizeof address);
    return true;
}

// The re-entrant form, because concurrent look-ups must not share a result. The buffer must hold
// every line of the hosts file, also those of other hosts, so its size has no fixed limit.
bool resolveByName(const char* host, in_addr_t& address) {
    for (size_t size = 1024;; size *= 2) {
        const Text storage(static_cast<char*>(malloc(size)));
        if (storage == nullptr) {
            return false;
        }
        hostent entry;
        hostent* found = nullptr;
        int reason;
        if (gethostbyname_r(host, &entry, storage.get(), size, &found, &reason) != ERANGE) {
            return firstAddress(found, address);
        }
    }
}

bool resolve(const char* host, in_addr_t& address) {
    address = inet_addr(host);
    return address != INADDR_NONE || resolveByName(host, address);
}

void setTimeOut(int fd, int option, const char* warning) {
    if (setsockopt(fd, SOL_SOCKET, option, &timeOut, sizeof timeOut) != 0) {
        VN_LogWarn(warning, SystemMessage().text());
    }
}

// Receives up to size bytes, at least 1 on success. A count of 0 with EINTR is retried; a failed
// receive is not.
char* receive(int fd, void* buffer, size_t size, ssize_t& count) {
    for (;;) {
        errno = 0;
        count = recv(fd, buffer, size, 0);
        if (count > 0) {
            VN_ASSERT(static_cast<size_t>(count) <= size);
            return nullptr;
        }
        if (count < 0) {
            return systemFailure();
        }
        if (errno != EINTR) {
            return vn_strdup("Network connection lost.");
        }
    }
}

char* sendAll(int fd, const void* data, size_t length) {
    size_t sent = 0;
    do {
        const ssize_t count = send(fd, static_cast<const char*>(data) + sent, length - sent, 0);
        if (count < 0) {
            return systemFailure();
        }
        sent += static_cast<size_t>(count);
        VN_ASSERT(sent <= length);
    } while (sent < length);
    return nullptr;
}

}  // namespace
}  // namespace vncommon

using namespace vncommon;

int vn_socketInit(void) {
    return 0;
}

void vn_socketCleanup(void) {}

char* vn_socketConnect(const char* host, int port, int* fd) {
    VN_ASSERT(fd != nullptr);
    in_addr_t hostAddress;
    if (!resolve(host != nullptr ? host : "127.0.0.1", hostAddress)) {
        return vn_strdup("Failed to resolve hostname.");
    }
    const int connection = socket(AF_INET, SOCK_STREAM, 0);
    if (connection < 0) {
        return vn_strdup("Failed to create network socket.");
    }
    const sockaddr_in address = addressOf(hostAddress, port);
    if (connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        VN_LogDebug("connect: %s\n", SystemMessage().text());
        return closeAndFail(connection, "Failed to connect to host.");
    }
    *fd = connection;
    return nullptr;
}

char* vn_createListeningSocket(int port, int* fd) {
    VN_ASSERT(fd != nullptr);
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    if (listener < 0) {
        return vn_strdup("Failed to create listening socket.");
    }
    const int on = 1;
    if (setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0) {
        return closeAndFail(listener, "Failed to set SO_REUSEADDR option.");
    }
    const sockaddr_in address = addressOf(htonl(INADDR_ANY), port);
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return closeAndFail(listener, "Failed to bind listening socket.");
    }
    if (listen(listener, backlog) != 0) {
        return closeAndFail(listener, "Failed to listen on listening socket.");
    }
    *fd = listener;
    return nullptr;
}

char* vn_socketAccept(int listeningFd, int* fd) {
    VN_ASSERT(fd != nullptr);
    if (listen(listeningFd, backlog) != 0) {
        return closeAndFail(listeningFd, "Failed to listen on listening socket.");
    }
    const int connection = accept(listeningFd, nullptr, nullptr);
    if (connection < 0) {
        return vn_strdup("The accept() call failed");
    }
    setTimeOut(connection, SO_RCVTIMEO, "Failed to set SO_RCVTIMEO option: %s");
    setTimeOut(connection, SO_SNDTIMEO, "Failed to set SO_SNDTIMEO option: %s");
    *fd = connection;
    return nullptr;
}

char* vn_socketReadBuffer(int fd, unsigned* length, uint8_t* buffer) {
    VN_ASSERT(length != nullptr);
    ssize_t count;
    char* failure = receive(fd, buffer, *length, count);
    if (failure == nullptr) {
        *length = static_cast<unsigned>(count);
    }
    return failure;
}

char* vn_socketReadLine(int fd, CStringBuffer* line) {
    VN_ASSERT(line != nullptr);
    for (;;) {
        char byte;
        ssize_t count;
        if (char* failure = receive(fd, &byte, 1, count)) {
            return failure;
        }
        if (byte == '\n') {
            return nullptr;
        }
        if (byte != '\r') {
            vn_strbufAppendChar(line, byte);
        }
    }
}

char* vn_socketWrite(int fd, const char* text) {
    VN_ASSERT(text != nullptr);
    return sendAll(fd, text, strlen(text));
}

char* vn_socketWriteBuffer(int fd, unsigned length, const uint8_t* buffer) {
    return sendAll(fd, buffer, length);
}

int vn_socketClose(int fd) {
    return close(fd);
}
