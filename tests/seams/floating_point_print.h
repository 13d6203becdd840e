// Prints the results of floating_point_calls.h, one line per function.
#ifndef VN_TESTS_SEAMS_FLOATING_POINT_PRINT_H
#define VN_TESTS_SEAMS_FLOATING_POINT_PRINT_H

#include "seams/floating_point_calls.h"

namespace floatingPoint {

inline void printResults() {
    for (const Function& function : functions) {
        Random random(3);
        uint64_t hash = 0;
        for (int i = 0; i < 20'000; ++i) {
            hash = fold(hash, function.result(anyArguments(random)));
        }
        printf("%s %016lx\n", function.name, hash);
    }
    fflush(stdout);
}

}  // namespace floatingPoint

#endif
