// Clients that the server has no room for. Each is told so at once and closed a little later:
// closing while bytes of the client are unread would reset the connection, and take the answer
// away before the client has read it.
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

    // Closes those that have had their time.
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
