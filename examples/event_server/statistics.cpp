#include "statistics.h"

#include "lock.h"

namespace {

VN_EventWriter* percentiles(const Histogram& histogram) {
    VN_EventWriter* sequence = VN_EventWriter_ctor(VN_EventKind_Sequence, nullptr);
    for (const double fraction : {0.5, 0.99, 0.999}) {
        VN_EventWriter_addInt(sequence, static_cast<int64_t>(histogram.percentile(fraction)));
    }
    return sequence;
}

}  // namespace

void WorkerStatistics::addEvent(VN_TimestampSet* stamps) {
    const Lock lock(mutex_);
    ++counts_.events;
    counts_.latencies.add(stamps);
}

void WorkerStatistics::addError() {
    const Lock lock(mutex_);
    ++counts_.errors;
}

void WorkerStatistics::addTo(Counts& sum) const {
    const Lock lock(mutex_);
    sum.events += counts_.events;
    sum.errors += counts_.errors;
    sum.latencies.add(counts_.latencies);
}

Statistics::Statistics(size_t workers) {
    for (size_t i = 0; i < workers; ++i) {
        workers_.push_back(std::make_unique<WorkerStatistics>());
    }
}

std::unique_ptr<Counts> Statistics::sum() const {
    auto counts = std::make_unique<Counts>();
    for (const auto& worker : workers_) {
        worker->addTo(*counts);
    }
    return counts;
}

VN_EventWriter* Statistics::event() const {
    const std::unique_ptr<Counts> counts = sum();
    VN_EventWriter* latencies = VN_EventWriter_ctor(VN_EventKind_Dictionary, nullptr);
    for (size_t stage = 0; stage < stageCount; ++stage) {
        VN_EventWriter_addDictValue(latencies, VN_EventKind_String,
                                    const_cast<char*>(stageNames[stage]), VN_EventKind_Sequence,
                                    percentiles(counts->latencies.of(stage)));
    }
    VN_EventWriter* stats = VN_EventWriter_ctor(VN_EventKind_Event, "stats");
    VN_EventWriter_addInt(stats, static_cast<int64_t>(counts->events));
    VN_EventWriter_addInt(stats, static_cast<int64_t>(counts->errors));
    VN_EventWriter_addRefValue(stats, latencies);
    return stats;
}

std::vector<std::string> Statistics::report() const {
    const std::unique_ptr<Counts> counts = sum();
    std::vector<std::string> lines = {std::to_string(counts->events) + " events, " +
                                      std::to_string(counts->errors) + " errors"};
    if (counts->events > 0) {
        const std::vector<std::string> table = counts->latencies.table();
        lines.insert(lines.end(), table.begin(), table.end());
    }
    return lines;
}
