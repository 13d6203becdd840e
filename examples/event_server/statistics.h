// What the workers have done so far. Each worker counts on its own; a report adds them up.
#ifndef VN_EXAMPLES_STATISTICS_H
#define VN_EXAMPLES_STATISTICS_H

#include <memory>
#include <string>
#include <vector>

#include <vncommon/event_writer.h>
#include <vncommon/threads.h>

#include "latency.h"

struct Counts {
    uint64_t events = 0;
    uint64_t errors = 0;  // lines answered with an error
    StageLatencies latencies;
};

class WorkerStatistics {
  public:
    WorkerStatistics() { vn_Mutex_init(&mutex_); }
    ~WorkerStatistics() { vn_Mutex_destroy(&mutex_); }
    WorkerStatistics(const WorkerStatistics&) = delete;
    WorkerStatistics& operator=(const WorkerStatistics&) = delete;

    void addEvent(VN_TimestampSet* stamps);
    void addError();
    void addTo(Counts& sum) const;

  private:
    mutable vn_Mutex mutex_;
    Counts counts_;
};

class Statistics {
  public:
    explicit Statistics(size_t workers);

    WorkerStatistics& ofWorker(size_t worker) { return *workers_[worker]; }
    std::unique_ptr<Counts> sum() const;

    // stats(events,errors,{stage:[median,99 %,99.9 %]}) in microseconds; the caller ends it with
    // VN_EventWriter_dtor.
    VN_EventWriter* event() const;

    // Counts, rate, and the latency table, as readable lines.
    std::vector<std::string> report() const;

  private:
    std::vector<std::unique_ptr<WorkerStatistics>> workers_;
};

#endif
