#include "refused_clients.h"

#include <sys/socket.h>

#include <vncommon/failure.h>
#include <vncommon/process.h>
#include <vncommon/sockets.h>

namespace {

constexpr size_t most = 500;
constexpr uint64_t timeMilliseconds = 2000;

}  // namespace

RefusedClients::~RefusedClients() {
    while (!clients_.empty()) {
        closeFirst();
    }
}

void RefusedClients::add(int fd) {
    vn_free(vn_socketWrite(fd, "error: server: too many connections\n"));
    shutdown(fd, SHUT_WR);
    clients_.push_back({fd, vn_systime()});
    if (clients_.size() > most) {
        closeFirst();
    }
}

void RefusedClients::closeOld() {
    const uint64_t now = vn_systime();
    while (!clients_.empty() && now - clients_.front().since >= timeMilliseconds) {
        closeFirst();
    }
}

void RefusedClients::closeFirst() {
    vn_socketClose(clients_.front().fd);
    clients_.pop_front();
}
