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

// Of this process.
Sample measure();

// Prints what the samples say, and returns whether they are flat: the median of the last quarter
// is no more than a little above the median of the second one (the first is for warming up). With
// less than 40 samples only the descriptors are judged.
bool reportFlatness(const char* process, const std::vector<Sample>& samples);

#endif
