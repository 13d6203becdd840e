#include "stop_signals.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>

#include <vncommon/failure.h>

StopSignals::StopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    vn_checkError(pthread_sigmask(SIG_BLOCK, &signals, nullptr), "pthread_sigmask");
    fd_ = signalfd(-1, &signals, SFD_CLOEXEC);
    vn_checkError(fd_ < 0 ? errno : 0, "signalfd");
}

StopSignals::~StopSignals() {
    close(fd_);
}

StopSignals::Wake StopSignals::wait(int fd, int milliseconds) const {
    pollfd watched[] = {{fd_, POLLIN, 0}, {fd, POLLIN, 0}};
    const int ready = poll(watched, 2, milliseconds);
    if (ready <= 0) {  // interrupted by SIGHUP, or timed out
        vn_checkError(ready == 0 || errno == EINTR ? 0 : errno, "poll");
        return Wake::Timeout;
    }
    return watched[0].revents != 0 ? Wake::Signal : Wake::Readable;
}

const char* StopSignals::take() const {
    signalfd_siginfo information = {};
    const ssize_t length = read(fd_, &information, sizeof information);
    vn_checkError(length == sizeof information ? 0 : errno, "read of a signal");
    return information.ssi_signo == SIGINT ? "SIGINT" : "SIGTERM";
}
