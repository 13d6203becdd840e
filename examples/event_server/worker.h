// A worker: takes requests from the queue and answers them, until it takes an end task.
#ifndef VN_EXAMPLES_WORKER_H
#define VN_EXAMPLES_WORKER_H

#include <string>

#include <vncommon/threads.h>

#include "record_parser.h"
#include "statistics.h"
#include "task_queue.h"

class Worker {
  public:
    Worker(TaskQueue& queue, Statistics& all, size_t number)
        : queue_(queue), all_(all), own_(all.ofWorker(number)) {}

    void start() { thread_ = vn_createThread(run, this, false); }
    void join() { vn_joinThread(thread_); }

  private:
    static void* run(void* self);

    void handle(const Task& task);
    bool handleEvent(const Task& task);
    void handleStats(const Task& task);
    void reject(const Task& task, const std::string& problem);

    TaskQueue& queue_;
    Statistics& all_;
    WorkerStatistics& own_;
    vn_ThreadId thread_{};
    RecordParser parser_;
    Record record_;
    std::string problem_;
};

#endif
