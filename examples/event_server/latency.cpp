#include "latency.h"

#include <algorithm>
#include <cmath>

#include <vncommon/buffers.h>
#include <vncommon/maths.h>

namespace {

constexpr double barWidth = 40.0;

// The number of significant bits; 0 for 0.
size_t bitWidth(uint64_t number) {
    return number == 0 ? 0 : static_cast<size_t>(vn_ilogb(static_cast<double>(number))) + 1;
}

std::string takeText(CStringBuffer& buffer) {
    const std::string text = vn_strbufGetString(&buffer);
    vn_strbufDestroy(&buffer, 1);
    return text;
}

std::string bar(uint64_t low, uint64_t count, uint64_t largest) {
    const double share = static_cast<double>(count) / static_cast<double>(largest);
    const auto length = static_cast<size_t>(vn_bankerRound(share * barWidth));
    CStringBuffer text;
    vn_strbufInit(&text, 80);
    vn_strbufAppendFormat(&text, "%8lu us |%-40s| %lu", low, std::string(length, '#').c_str(),
                          count);
    return takeText(text);
}

}  // namespace

void Histogram::add(double seconds) {
    // Durations are negative if the clock was set back.
    const double microseconds = std::max(0.0, seconds * 1e6);
    const auto whole = static_cast<uint64_t>(vn_bankerRound(microseconds));
    ++buckets_[bucketOf(whole)];
    ++count_;
    maximum_ = std::max(maximum_, whole);
}

void Histogram::add(const Histogram& other) {
    for (size_t i = 0; i < buckets_.size(); ++i) {
        buckets_[i] += other.buckets_[i];
    }
    count_ += other.count_;
    maximum_ = std::max(maximum_, other.maximum_);
}

uint64_t Histogram::percentile(double fraction) const {
    const auto rank = static_cast<uint64_t>(std::ceil(fraction * static_cast<double>(count_)));
    uint64_t below = 0;
    for (size_t i = 0; i < buckets_.size(); ++i) {
        below += buckets_[i];
        if (below > 0 && below >= rank) {
            return std::min(upperEnd(i), maximum_);
        }
    }
    return 0;
}

// Above the exact buckets, the five bits after the leading one select the bucket within a power of
// two.
size_t Histogram::bucketOf(uint64_t microseconds) {
    if (microseconds < exact) {
        return static_cast<size_t>(microseconds);
    }
    const auto power = bitWidth(microseconds) - 7;
    const size_t bucket = exact + power * perPower + ((microseconds >> (power + 1)) & 31);
    return std::min(bucket, exact + powers * perPower - 1);
}

uint64_t Histogram::upperEnd(size_t bucket) {
    if (bucket < exact) {
        return bucket;
    }
    const size_t power = (bucket - exact) / perPower;
    const size_t step = (bucket - exact) % perPower;
    return ((perPower + step + 1) << (power + 1)) - 1;
}

std::vector<std::string> Histogram::bars() const {
    std::vector<uint64_t> counts(65);
    for (size_t i = 0; i < buckets_.size(); ++i) {
        counts[bitWidth(upperEnd(i))] += buckets_[i];
    }
    const auto occurs = [](uint64_t count) { return count > 0; };
    const auto first = std::find_if(counts.begin(), counts.end(), occurs);
    const auto last = std::find_if(counts.rbegin(), counts.rend(), occurs).base();
    const uint64_t largest = *std::max_element(counts.begin(), counts.end());
    std::vector<std::string> lines;
    for (auto at = first; at < last; ++at) {
        const auto bits = static_cast<size_t>(at - counts.begin());
        lines.push_back(bar(bits == 0 ? 0 : uint64_t{1} << (bits - 1), *at, largest));
    }
    return lines;
}

void StageLatencies::add(VN_TimestampSet* stamps) {
    uint64_t stage = 0;
    double first = 0.0;
    double time = 0.0;
    stamps->functions->getNextStampAndRemove(stamps, &stage, &first);
    double previous = first;
    while (stamps->functions->getNextStampAndRemove(stamps, &stage, &time)) {
        histograms_[stage].add(time - previous);
        previous = time;
    }
    histograms_[Received].add(previous - first);
}

void StageLatencies::add(const StageLatencies& other) {
    for (size_t i = 0; i < stageCount; ++i) {
        histograms_[i].add(other.histograms_[i]);
    }
}

std::vector<std::string> StageLatencies::table() const {
    std::vector<std::string> lines = {latencyHeading()};
    for (size_t stage = Admitted; stage < stageCount; ++stage) {
        lines.push_back(latencyLine(stageNames[stage], histograms_[stage]));
    }
    const Histogram& total = histograms_[Received];
    lines.push_back(latencyLine(stageNames[Received], total));
    for (const std::string& line : total.bars()) {
        lines.push_back(line);
    }
    return lines;
}

std::string latencyHeading() {
    CStringBuffer text;
    vn_strbufInit(&text, 80);
    vn_strbufAppendFormat(&text, "%-12s %10s %10s %10s %10s", "microseconds", "median", "99 %",
                          "99.9 %", "max");
    return takeText(text);
}

std::string latencyLine(const char* name, const Histogram& histogram) {
    CStringBuffer text;
    vn_strbufInit(&text, 80);
    vn_strbufAppendFormat(&text, "%-12s %10lu %10lu %10lu %10lu", name, histogram.percentile(0.5),
                          histogram.percentile(0.99), histogram.percentile(0.999),
                          histogram.maximum());
    return takeText(text);
}
