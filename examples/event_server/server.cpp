#include "server.h"

#include <vncommon/log.h>
#include <vncommon/process.h>

#include "service_manager.h"

namespace {

constexpr int tidyMilliseconds = 1000;
constexpr uint32_t patienceMilliseconds = 25000;  // longer than two send time-outs
constexpr uint32_t pauseMilliseconds = 20;

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
    vn_Vector_dtor(connections_);
}

void Server::run(const StopSignals& signals) {
    for (const auto& worker : workers_) {
        worker->start();
    }
    StopSignals::Wake wake = StopSignals::Wake::Timeout;
    while (wake != StopSignals::Wake::Signal) {
        wake = signals.wait(listener_.fd(), tidyMilliseconds);
        removeEnded();
        refused_.closeOld();
        if (wake == StopSignals::Wake::Readable) {
            accept();
        }
    }
    VN_LogInfo("%s: finishing", signals.take());
    tellServiceManager("STOPPING=1");
    listener_.close();
    stopConnections();
    stopWorkers();
}

void Server::accept() {
    std::string error;
    const int fd = listener_.accept(error);
    if (fd >= 0) {
        welcome(fd);
    } else if (!error.empty()) {  // out of descriptors, for example
        VN_LogWarn("%s", error.c_str());
        vn_sleep(pauseMilliseconds);
    }
}

void Server::welcome(int fd) {
    if (vn_Vector_size(connections_) >= settings_.clients) {
        VN_LogWarn("A connection was refused: there are %u already", vn_Vector_size(connections_));
        refused_.add(fd);
        return;
    }
    auto* accepted = new Connection(fd, ++lastId_, settings_.idleLimit, queue_, stop_);
    vn_Vector_add(connections_, accepted);
    accepted->start();
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

// Answers everything that was read. A client that reads its answers too slowly is dropped.
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
