#include "soak/measure.h"

#include <dirent.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace {

struct Quantity {
    const char* name;
    double Sample::*value;
    double unit;
    double relativeTolerance;
    double tolerance;
};

constexpr double mebibyte = 1048576;
constexpr Quantity quantities[] = {
    {"resident MiB", &Sample::residentBytes, mebibyte, 0.02, 1 * mebibyte},
    {"heap in use MiB", &Sample::heapBytes, mebibyte, 0.02, 0.25 * mebibyte},
    {"descriptors", &Sample::descriptors, 1, 0, 3},  // a few are open only for a moment
};
constexpr size_t longRun = 40;               // samples
constexpr double momentaryDescriptors = 30;  // of all threads, in a quarter of a few samples

double median(const std::vector<Sample>& samples, size_t from, size_t to, double Sample::*value) {
    std::vector<double> values;
    for (size_t i = from; i < to; ++i) {
        values.push_back(samples[i].*value);
    }
    std::nth_element(values.begin(), values.begin() + static_cast<ptrdiff_t>(values.size() / 2),
                     values.end());
    return values[values.size() / 2];
}

double residentBytes() {
    long pages = 0;
    if (FILE* file = fopen("/proc/self/statm", "re")) {
        if (fscanf(file, "%*d %ld", &pages) != 1) {
            pages = 0;
        }
        fclose(file);
    }
    return static_cast<double>(pages) * static_cast<double>(sysconf(_SC_PAGESIZE));
}

double openDescriptors() {
    int count = -3;  // the folder itself, "." and ".."
    if (DIR* folder = opendir("/proc/self/fd")) {
        while (readdir(folder) != nullptr) {
            ++count;
        }
        closedir(folder);
    }
    return count;
}

}  // namespace

Sample measure() {
    const struct mallinfo2 heap = mallinfo2();
    return {residentBytes(), static_cast<double>(heap.uordblks + heap.hblkhd), openDescriptors()};
}

bool reportFlatness(const char* process, const std::vector<Sample>& samples) {
    if (samples.size() < fewestSamples) {
        printf("%s: %zu samples are too few\n", process, samples.size());
        return false;
    }
    bool flat = true;
    const size_t quarter = samples.size() / 4;
    for (const Quantity& quantity : quantities) {
        const double before = median(samples, quarter, 2 * quarter, quantity.value);
        const double after =
            median(samples, samples.size() - quarter, samples.size(), quantity.value);
        const bool isLong = samples.size() >= longRun;
        const bool isDescriptors = quantity.value == &Sample::descriptors;
        const double tolerance =
            isLong || !isDescriptors ? quantity.tolerance : momentaryDescriptors;
        const double allowed = before * quantity.relativeTolerance + tolerance;
        const bool judged = isLong || isDescriptors;
        const bool rose = after - before > allowed;
        printf("%-8s %-16s second quarter %9.2f, last quarter %9.2f, allowed +%.2f: %s\n", process,
               quantity.name, before / quantity.unit, after / quantity.unit,
               allowed / quantity.unit,
               !judged ? "too short to judge"
               : rose  ? "ROSE"
                       : "flat");
        flat = flat && !(judged && rose);
    }
    return flat;
}
