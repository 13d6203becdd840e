// A thread that uses every family in turn.
#ifndef VN_TESTS_SOAK_WORKER_H
#define VN_TESTS_SOAK_WORKER_H

#include <vncommon/queue.h>

#include <atomic>
#include <string>

#include "soak/checks.h"

// Summary of the elements that were put into the queue, or taken out of it. Both must be equal at
// the end.
struct Tally {
    std::atomic<uint64_t> count{0};
    std::atomic<uint64_t> sum{0};  // of the elements' hashes, to identify the elements

    void add(uint64_t token) {
        count.fetch_add(1, std::memory_order_relaxed);
        sum.fetch_add(Random::mix(token), std::memory_order_relaxed);
    }
};

// The data that all threads share.
struct Shared {
    explicit Shared(const std::string& workFolder);
    ~Shared();
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;

    std::string folder;
    std::atomic<bool> stop{false};
    vn_qtsQueue queue;  // passes timestamp sets from thread to thread
    Tally put, taken;
    vn_Mutex configLock;  // the process-wide configuration has no lock
};

struct Worker {
    Shared* shared;
    size_t number;
    std::atomic<uint64_t> rounds{0};
    std::atomic<uint64_t> lines{0};  // written to the log
};

// The body of the thread; the argument is its Worker.
void* work(void* worker);

#endif
