// The native part of FloatingPointTest.java.
#include "seams/floating_point_print.h"

extern "C" VN_API void Java_FloatingPointTest_printResults(void*, void*) {
    floatingPoint::printResults();
}
