// Loads, uses and unloads the library (argument 1) in a loop. Memory, descriptors and
// thread-specific keys must not accumulate, and the library must really be unloaded each time. This
// program is not linked with the library, because then the library could not be unloaded.
#include <dirent.h>
#include <dlfcn.h>
#include <malloc.h>
#include <pthread.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

using Ctor = void* (*)();
using AddNow = void (*)(void*, uint64_t);
using Dtor = void (*)(void*);

int fail(const char* what) {
    fprintf(stderr, "library_unload_test: %s\n", what);
    return 1;
}

template <typename Function>
Function symbol(void* library, const char* name) {
    return reinterpret_cast<Function>(dlsym(library, name));
}

bool loadUseUnload(const char* path) {
    void* library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        fprintf(stderr, "%s\n", dlerror());
        return false;
    }
    const auto ctor = symbol<Ctor>(library, "VN_TimestampSet_ctor");
    const auto addNow = symbol<AddNow>(library, "VN_TimestampSet_addNow");
    const auto dtor = symbol<Dtor>(library, "VN_TimestampSet_dtor");
    void* sets[40];
    for (void*& set : sets) {
        set = ctor();
        for (uint64_t stage = 0; stage < 10; ++stage) {
            addNow(set, stage);
        }
    }
    for (void* set : sets) {
        dtor(set);
    }
    dlclose(library);
    return dlopen(path, RTLD_NOW | RTLD_NOLOAD) == nullptr;
}

int openDescriptors() {
    int count = 0;
    DIR* folder = opendir("/proc/self/fd");
    while (readdir(folder) != nullptr) {
        ++count;
    }
    closedir(folder);
    return count;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        return fail("usage: library_unload_test LIBRARY");
    }
    setenv("VN_ASSUME_CPUS", "3", 1);
    // The C library keeps allocations of the first few hundred loads.
    for (int i = 0; i < 400; ++i) {
        if (!loadUseUnload(argv[1])) {
            return fail("the library stays loaded");
        }
    }
    const size_t memory = mallinfo2().uordblks;
    const int descriptors = openDescriptors();
    for (int i = 0; i < 200; ++i) {
        if (!loadUseUnload(argv[1])) {
            return fail("the library stays loaded");
        }
    }
    // The array of a pool is larger than 1 KiB, so a leak in every load exceeds this margin.
    const size_t grown = mallinfo2().uordblks - memory;
    if (static_cast<ptrdiff_t>(grown) > 4096) {
        fprintf(stderr, "library_unload_test: %zu bytes were not given back by 200 loads\n", grown);
        return 1;
    }
    if (openDescriptors() != descriptors) {
        return fail("descriptors were left open");
    }
    pthread_key_t key;
    if (pthread_key_create(&key, nullptr) != 0 || key > 100) {
        return fail("thread-specific keys were left behind");
    }
    return 0;
}
