// Samples memory and descriptors of a process and checks that they do not grow.
#ifndef VN_TESTS_SOAK_MEASURE_H
#define VN_TESTS_SOAK_MEASURE_H

#include <cstddef>
#include <string>
#include <vector>

struct Sample {
    double residentBytes;
    double heapBytes;  // in use, as malloc reports
    double descriptors;
};

constexpr size_t fewestSamples = 4;  // that can be judged

// Samples this process.
Sample measure();

// Prints a summary of the samples and returns whether they are flat: the median of the last quarter
// may exceed that of the second one only a little (the first is for warming up). With fewer than 40
// samples only the descriptors are checked, and only for a leak in every round.
bool reportFlatness(const char* process, const std::vector<Sample>& samples);

#endif
