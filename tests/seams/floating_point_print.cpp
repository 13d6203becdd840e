// A host that prints the library's results. With VN_FLUSHING it is built with -ffast-math, and
// fails unless the processor then flushes subnormal numbers to zero.
#include "seams/floating_point_print.h"

int main() {
#if defined(VN_FLUSHING) && defined(__x86_64__)
    const volatile double least = floatingPoint::fromBits(1);
    const volatile double sum = least + least;
    if (floatingPoint::bitsOf(sum) != 0) {
        fputs("subnormal numbers are not flushed to zero\n", stderr);
        return 1;
    }
#endif
    floatingPoint::printResults();
    return 0;
}
