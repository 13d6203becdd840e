// Clients beyond the server's limit. Each gets an error at once and is closed a little later. TCP:
// closing with unread input resets the connection, and the client would lose the answer.
#ifndef VN_EXAMPLES_REFUSED_CLIENTS_H
#define VN_EXAMPLES_REFUSED_CLIENTS_H

#include <cstdint>
#include <deque>

class RefusedClients {
  public:
    RefusedClients() = default;
    ~RefusedClients();
    RefusedClients(const RefusedClients&) = delete;
    RefusedClients& operator=(const RefusedClients&) = delete;

    // The descriptor passes to this object.
    void add(int fd);

    // Closes those whose delay is over.
    void closeOld();

  private:
    struct Client {
        int fd;
        uint64_t since;  // of vn_systime
    };

    void closeFirst();

    std::deque<Client> clients_;
};

#endif
