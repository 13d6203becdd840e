// Tells every thread that waits for a descriptor that the server is stopping.
#ifndef VN_EXAMPLES_STOP_EVENT_H
#define VN_EXAMPLES_STOP_EVENT_H

class StopEvent {
  public:
    StopEvent();
    ~StopEvent();
    StopEvent(const StopEvent&) = delete;
    StopEvent& operator=(const StopEvent&) = delete;

    void raise();

    // Waits until fd can be read, and returns true; false as soon as the event is raised.
    bool waitReadable(int fd) const;

  private:
    int fd_;
};

#endif
