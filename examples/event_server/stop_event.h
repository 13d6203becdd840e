// Wakes every thread that waits for a descriptor when the server stops.
#ifndef VN_EXAMPLES_STOP_EVENT_H
#define VN_EXAMPLES_STOP_EVENT_H

class StopEvent {
  public:
    StopEvent();
    ~StopEvent();
    StopEvent(const StopEvent&) = delete;
    StopEvent& operator=(const StopEvent&) = delete;

    void raise();

    enum class Wake { Readable, Stop, Timeout };

    // Waits until fd can be read, the event is raised, or the time is over (-1: never).
    Wake wait(int fd, int milliseconds) const;

  private:
    int fd_;
};

#endif
