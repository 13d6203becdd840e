#include "server.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <vncommon/failure.h>
#include <vncommon/log.h>
#include <vncommon/sockets.h>

namespace {

constexpr int tidyMilliseconds = 1000;
constexpr uint32_t patienceMilliseconds = 25000;  // longer than two send time-outs of the library
constexpr uint32_t pauseMilliseconds = 20;

void refuse(int fd) {
    vn_free(vn_socketWrite(fd, "error: server: too many connections\n"));
    vn_socketClose(fd);
}

void* joinAndFree(void* element) {
    auto* connection = static_cast<Connection*>(element);
    connection->join();
    delete connection;
    return nullptr;
}

}  // namespace

Server::Server(const Settings& settings, uint32_t workers)
    : settings_(settings),
      queue_(settings.queue),
      statistics_(workers),
      connections_(vn_Vector_ctor(nullptr, nullptr, joinAndFree, 16, 1)) {
    for (uint32_t i = 0; i < workers; ++i) {
        workers_.push_back(std::make_unique<Worker>(queue_, statistics_, i));
    }
}

Server::~Server() {
    if (listener_ >= 0) {
        vn_socketClose(listener_);
    }
    vn_Vector_dtor(connections_);
}

bool Server::listen(std::string& error) {
    char* failure = vn_createListeningSocket(static_cast<int>(settings_.port), &listener_);
    if (failure != nullptr) {
        listener_ = -1;
        error = "port " + std::to_string(settings_.port) + ": " + failure;
        vn_free(failure);
        return false;
    }
    return true;
}

int Server::port() const {
    sockaddr_in address = {};
    socklen_t length = sizeof address;
    getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

void Server::run(const StopSignals& signals) {
    for (const auto& worker : workers_) {
        worker->start();
    }
    StopSignals::Wake wake = StopSignals::Wake::Timeout;
    while (wake != StopSignals::Wake::Signal) {
        wake = signals.wait(listener_, tidyMilliseconds);
        removeEnded();
        if (wake == StopSignals::Wake::Readable) {
            accept();
        }
    }
    VN_LogInfo("%s: finishing", signals.take());
    vn_socketClose(listener_);
    listener_ = -1;
    stopConnections();
    stopWorkers();
}

void Server::accept() {
    int fd = -1;
    char* failure = vn_socketAccept(listener_, &fd);
    if (failure != nullptr) {  // interrupted, the client is gone already, or no descriptor is left
        VN_LogWarn("%s", failure);
        vn_free(failure);
        vn_sleep(pauseMilliseconds);
    } else if (vn_Vector_size(connections_) >= settings_.clients) {
        VN_LogWarn("A connection was refused: there are %u already", vn_Vector_size(connections_));
        refuse(fd);
    } else {
        auto* accepted = new Connection(fd, ++lastId_, queue_, stop_);
        vn_Vector_add(connections_, accepted);
        accepted->start();
    }
}

Connection* Server::connection(uint32_t index) const {
    return static_cast<Connection*>(vn_Vector_get(connections_, index));
}

void Server::removeEnded() {
    uint32_t index = 0;
    while (index < vn_Vector_size(connections_)) {
        if (connection(index)->ended()) {
            vn_Vector_remove(connections_, index);  // the last one moves here
        } else {
            ++index;
        }
    }
}

// What they have read is answered first; a client that takes too long over reading its answers is
// given up.
void Server::stopConnections() {
    stop_.raise();
    uint32_t waited = 0;
    for (removeEnded(); !vn_Vector_empty(connections_); removeEnded()) {
        for (uint32_t i = 0; waited >= patienceMilliseconds && i < connections_->size; ++i) {
            connection(i)->abandon();
        }
        vn_sleep(pauseMilliseconds);
        waited += pauseMilliseconds;
    }
}

void Server::stopWorkers() {
    for (size_t i = 0; i < workers_.size(); ++i) {
        queue_.put(Task());
    }
    for (const auto& worker : workers_) {
        worker->join();
    }
}
