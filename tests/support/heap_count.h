// Counts the heap calls of the whole process: the test program's malloc family replaces the C
// library's. Link tests that need it with heap_count.cpp.
#ifndef VN_TESTS_SUPPORT_HEAP_COUNT_H
#define VN_TESTS_SUPPORT_HEAP_COUNT_H

#include <cstdint>

uint64_t heapAllocations();  // malloc, calloc, realloc and aligned forms that returned a block
uint64_t heapFrees();        // free of a block, not of null

// Sets a function that every free of a block calls first; null removes it.
void callAtFree(void (*hook)());

// Counts the calls since its construction.
class HeapCount {
  public:
    HeapCount() : allocations_(heapAllocations()), frees_(heapFrees()) {}
    uint64_t allocations() const { return heapAllocations() - allocations_; }
    uint64_t frees() const { return heapFrees() - frees_; }

  private:
    uint64_t allocations_;
    uint64_t frees_;
};

#endif
