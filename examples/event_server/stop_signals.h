// SIGINT and SIGTERM as something to wait for. They are blocked in the thread that makes the
// object, and so in every thread made after it: none of them is interrupted. SIGHUP is left to
// the library, whose handler rotates the log.
#ifndef VN_EXAMPLES_STOP_SIGNALS_H
#define VN_EXAMPLES_STOP_SIGNALS_H

class StopSignals {
  public:
    enum class Wake { Readable, Signal, Timeout };

    StopSignals();
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    // Waits until fd can be read or one of the signals is there.
    Wake wait(int fd, int milliseconds) const;

    // The name of the signal that is there; takes it.
    const char* take() const;

  private:
    int fd_;
};

#endif
