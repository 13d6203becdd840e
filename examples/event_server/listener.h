// The server's listening socket. Not made by the library, whose backlog of 20 is too small for many
// clients at once. Connections have the same time-outs as the library's.
#ifndef VN_EXAMPLES_LISTENER_H
#define VN_EXAMPLES_LISTENER_H

#include <cstdint>
#include <string>

class Listener {
  public:
    Listener() = default;
    ~Listener() { close(); }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    // False with a message in error. Port 0 lets the system choose.
    bool open(uint32_t port, std::string& error);
    void close();

    // The port it listens on, also when the system chose it.
    int port() const;

    // To wait for a connection with.
    int fd() const { return fd_; }

    // The next connection; -1 when there is none, or with a message in error. Never waits.
    int accept(std::string& error) const;

  private:
    int fd_ = -1;
};

#endif
