// The server: accepts connections, and owns them, the queue and the workers.
#ifndef VN_EXAMPLES_SERVER_H
#define VN_EXAMPLES_SERVER_H

#include <memory>
#include <string>
#include <vector>

#include <vncommon/vector.h>

#include "connection.h"
#include "listener.h"
#include "refused_clients.h"
#include "settings.h"
#include "statistics.h"
#include "stop_event.h"
#include "stop_signals.h"
#include "task_queue.h"
#include "worker.h"

class Server {
  public:
    Server(const Settings& settings, uint32_t workers);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // False with a message in error.
    bool listen(std::string& error) { return listener_.open(settings_.port, error); }

    // The port it listens on, also when the system chose it.
    int port() const { return listener_.port(); }

    // Serves until SIGINT or SIGTERM, then answers what has been read, and returns.
    void run(const StopSignals& signals);

    const Statistics& statistics() const { return statistics_; }

  private:
    void accept();
    void welcome(int fd);
    Connection* connection(uint32_t index) const;
    void removeEnded();
    void stopConnections();
    void stopWorkers();

    const Settings settings_;
    Listener listener_;
    RefusedClients refused_;
    uint64_t lastId_ = 0;
    StopEvent stop_;
    TaskQueue queue_;
    Statistics statistics_;
    std::vector<std::unique_ptr<Worker>> workers_;
    Vector* connections_;  // of Connection*; removing one joins its threads and frees it
};

#endif
