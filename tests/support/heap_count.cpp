#include "support/heap_count.h"

#include <atomic>
#include <cerrno>
#include <cstddef>

namespace {

std::atomic<uint64_t> allocations{0};
std::atomic<uint64_t> frees{0};
std::atomic<void (*)()> hookAtFree{nullptr};

void* counted(void* block) {
    if (block != nullptr) {
        allocations.fetch_add(1, std::memory_order_relaxed);
    }
    return block;
}

void countFree(const volatile void* block) {
    if (block != nullptr) {
        frees.fetch_add(1, std::memory_order_relaxed);
        if (void (*hook)() = hookAtFree) {
            hook();
        }
    }
}

}  // namespace

uint64_t heapAllocations() {
    return allocations;
}
uint64_t heapFrees() {
    return frees;
}
void callAtFree(void (*hook)()) {
    hookAtFree = hook;
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)

// The sanitizers replace malloc, but offer hooks. Declared here because g++ has no header for them.
extern "C" int __sanitizer_install_malloc_and_free_hooks(
    void (*onMalloc)(const volatile void* block, size_t size),
    void (*onFree)(const volatile void* block));

namespace {

void onMalloc(const volatile void* block, size_t) {
    counted(const_cast<void*>(block));
}

[[maybe_unused]] const int installed =
    __sanitizer_install_malloc_and_free_hooks(onMalloc, countFree);

}  // namespace

#else

// Exported, so that the calls of shared libraries come here, too.
#pragma GCC visibility push(default)
extern "C" {

void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
void __libc_free(void* block);

void* malloc(size_t size) {
    return counted(__libc_malloc(size));
}

void* calloc(size_t count, size_t size) {
    return counted(__libc_calloc(count, size));
}

void* realloc(void* block, size_t size) {
    return counted(__libc_realloc(block, size));
}

void* memalign(size_t alignment, size_t size) {
    return counted(__libc_memalign(alignment, size));
}

void* aligned_alloc(size_t alignment, size_t size) {
    return counted(__libc_memalign(alignment, size));
}

int posix_memalign(void** block, size_t alignment, size_t size) {
    *block = counted(__libc_memalign(alignment, size));
    return *block == nullptr && size > 0 ? ENOMEM : 0;
}

void free(void* block) {
    countFree(block);
    __libc_free(block);
}

}  // extern "C"
#pragma GCC visibility pop

#endif
