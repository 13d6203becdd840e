// An exported function that only compares two numbers.
#ifndef VN_BENCHMARKS_PEER_COMPARISON_H
#define VN_BENCHMARKS_PEER_COMPARISON_H

bool peer_isAtMost(unsigned number, unsigned limit);

#endif
