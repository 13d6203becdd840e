// SIGINT and SIGTERM as a descriptor to wait for. The constructor blocks them in its thread;
// threads created later inherit the mask, so none is interrupted. SIGHUP stays with the library,
// whose handler rotates the log.
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
