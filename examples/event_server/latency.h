// Latency statistics: how long events took, as median and high percentiles.
#ifndef VN_EXAMPLES_LATENCY_H
#define VN_EXAMPLES_LATENCY_H

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include <vncommon/timestamp_set.h>

#include "stages.h"

// Counts durations in whole microseconds: exactly below 64, above in buckets of at most 1/32 of
// their value. The size is fixed.
class Histogram {
  public:
    void add(double seconds);
    void add(const Histogram& other);

    uint64_t count() const { return count_; }
    uint64_t maximum() const { return maximum_; }

    // The smallest duration that the given fraction of all do not exceed; the upper end of its
    // bucket, so never too small. 0 when there are none.
    uint64_t percentile(double fraction) const;

    // A bar of text for each power of two that occurs.
    std::vector<std::string> bars() const;

  private:
    static constexpr size_t exact = 64;
    static constexpr size_t perPower = 32;
    static constexpr size_t powers = 30;

    static size_t bucketOf(uint64_t microseconds);
    static uint64_t upperEnd(size_t bucket);

    std::array<uint64_t, exact + powers * perPower> buckets_{};
    uint64_t count_ = 0;
    uint64_t maximum_ = 0;
};

// The time between each stage and the one before it, and from the first to the last.
class StageLatencies {
  public:
    // Records the stamps of one event. The set must have them in the order of the stages.
    void add(VN_TimestampSet* stamps);
    void add(const StageLatencies& other);

    const Histogram& of(size_t stage) const { return histograms_[stage]; }

    // A table with a line for each stage, then the bars of the total.
    std::vector<std::string> table() const;

  private:
    std::array<Histogram, stageCount> histograms_;
};

// One line "name median p99 p99.9 max", and its header line.
std::string latencyLine(const char* name, const Histogram& histogram);
std::string latencyHeading();

#endif
