// The queue between the readers and the workers. It holds a fixed number of tasks. A reader waits
// when it is full, so that a burst slows the senders down and nothing is lost.
#ifndef VN_EXAMPLES_TASK_QUEUE_H
#define VN_EXAMPLES_TASK_QUEUE_H

#include <vncommon/queue.h>
#include <vncommon/timestamp_set.h>

class Connection;
struct Request;

// As large as an element of the library's queue.
struct Task {
    Connection* connection = nullptr;
    Request* request = nullptr;  // null ends a worker
    VN_TimestampSet* stamps = nullptr;
};

class TaskQueue {
  public:
    explicit TaskQueue(uint32_t capacity);
    ~TaskQueue();
    TaskQueue(const TaskQueue&) = delete;
    TaskQueue& operator=(const TaskQueue&) = delete;

    // Waits for room; stamps the task when there is some.
    void put(const Task& task);

    // Waits for a task.
    Task take();

  private:
    vn_qtsQueue queue_;
    vn_Semaphore room_;  // one unit for each task that still fits
};

#endif
