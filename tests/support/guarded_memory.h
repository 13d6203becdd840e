// A page of memory between two pages that may not be touched.
#ifndef VN_TESTS_SUPPORT_GUARDED_MEMORY_H
#define VN_TESTS_SUPPORT_GUARDED_MEMORY_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>

class GuardedMemory {
  public:
    GuardedMemory() {
        _block = static_cast<char*>(
            mmap(nullptr, 3 * _page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        mprotect(_block, _page, PROT_NONE);
        mprotect(_block + 2 * _page, _page, PROT_NONE);
    }
    ~GuardedMemory() { munmap(_block, 3 * _page); }
    GuardedMemory(const GuardedMemory&) = delete;
    GuardedMemory& operator=(const GuardedMemory&) = delete;

    char* begin() { return _block + _page; }
    char* end() { return _block + 2 * _page; }

  private:
    size_t _page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    char* _block;
};

#endif
