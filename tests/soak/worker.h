// One of the threads that go through every family.
#ifndef VN_TESTS_SOAK_WORKER_H
#define VN_TESTS_SOAK_WORKER_H

#include <vncommon/queue.h>

#include <atomic>
#include <string>

#include "soak/checks.h"

// What went through the queue: equal at the end for what was put in and what was taken out.
struct Tally {
    std::atomic<uint64_t> count{0};
    std::atomic<uint64_t> sum{0};  // of a hash of each element: which elements they were

    void add(uint64_t token) {
        count.fetch_add(1, std::memory_order_relaxed);
        sum.fetch_add(Random::mix(token), std::memory_order_relaxed);
    }
};

// What the threads have in common.
struct Shared {
    explicit Shared(const std::string& workFolder);
    ~Shared();
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;

    std::string folder;
    std::atomic<bool> stop{false};
    vn_qtsQueue queue;  // of timestamp sets on their way from one thread to another
    Tally put, taken;
    vn_Mutex configLock;  // the configuration is the process's, and not locked
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
