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

StopEvent::Wake StopEvent::wait(int fd, int milliseconds) const {
    pollfd watched[] = {{fd_, POLLIN, 0}, {fd, POLLIN, 0}};
    int ready = -1;
    while ((ready = poll(watched, 2, milliseconds)) < 0) {
        vn_checkError(errno == EINTR ? 0 : errno, "poll");
    }
    if (ready == 0) {
        return Wake::Timeout;
    }
    return watched[0].revents == 0 ? Wake::Readable : Wake::Stop;
}
