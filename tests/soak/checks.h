// Error reports of all parts of the soak test.
#ifndef VN_TESTS_SOAK_CHECKS_H
#define VN_TESTS_SOAK_CHECKS_H

#include <cstdint>

// Counts the failure, and prints it if it is one of the first.
void reportFailure(const char* file, int line, const char* what);
uint64_t failureCount();

#define SOAK_CHECK(condition) \
    ((condition) ? static_cast<void>(0) : reportFailure(__FILE__, __LINE__, #condition))

// A small seeded generator. Each thread has its own, so runs differ only in timing.
class Random {
  public:
    explicit Random(uint64_t seed) : state(seed) {}

    uint64_t next() {
        state += 0x9E3779B97F4A7C15;
        return mix(state);
    }
    uint32_t below(uint32_t limit) { return static_cast<uint32_t>(next() % limit); }

    static uint64_t mix(uint64_t x) {
        x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9;
        x = (x ^ (x >> 27)) * 0x94D049BB133111EB;
        return x ^ (x >> 31);
    }

  private:
    uint64_t state;
};

#endif
