#include "stop_event.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>

#include <vncommon/failure.h>

StopEvent::StopEvent() : fd_(eventfd(0, EFD_CLOEXEC)) {
    vn_checkError(fd_ < 0 ? errno : 0, "eventfd");
}

StopEvent::~StopEvent() {
    close(fd_);
}

void StopEvent::raise() {
    vn_checkError(eventfd_write(fd_, 1), "eventfd_write");
}

bool StopEvent::waitReadable(int fd) const {
    pollfd watched[] = {{fd_, POLLIN, 0}, {fd, POLLIN, 0}};
    while (poll(watched, 2, -1) < 0) {
        vn_checkError(errno == EINTR ? 0 : errno, "poll");
    }
    return watched[0].revents == 0;
}
