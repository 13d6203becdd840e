// The soak's second process: loads, uses and unloads the library (argument 1) until its standard
// input is closed. Prints a line each second: loads, resident and heap bytes, descriptors. It is
// not linked with the library, because then the library could not be unloaded.
#include <dlfcn.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "soak/measure.h"

namespace {

[[noreturn]] void fail(const char* what) {
    fprintf(stderr, "soak_loading: %s\n", what);
    exit(1);
}

template <typename Function>
Function symbol(void* library, const char* name) {
    void* found = dlsym(library, name);
    if (found == nullptr) {
        fail(name);
    }
    return reinterpret_cast<Function>(found);
}

// Uses the families that keep something for the process: pools, locks, caches.
void use(void* library) {
    symbol<void (*)()>(library, "vn_threadInit")();
    void* set = symbol<void* (*)()>(library, "VN_TimestampSet_ctor")();
    symbol<void (*)(void*, uint64_t)>(library, "VN_TimestampSet_addNow")(set, 7);
    symbol<void (*)(void*)>(library, "VN_TimestampSet_dtor")(set);
    char text[25];
    symbol<char* (*)(char*, double)>(library, "vn_g_fmt")(text, 5e-324);
    if (strcmp(text, "5e-324") != 0) {
        fail(text);
    }
    void* writer = symbol<void* (*)(uint32_t, const char*)>(library, "VN_EventWriter_ctor")(8, "E");
    symbol<void (*)(void*, double)>(library, "VN_EventWriter_addFloat")(writer, 1.0 / 3);
    char* event = symbol<char* (*)(const void*)>(library, "VN_EventWriter_toString")(writer);
    if (strcmp(event, "E(.3333333333333333)") != 0) {
        fail(event);
    }
    free(event);
    symbol<void (*)(void*)>(library, "VN_EventWriter_dtor")(writer);
    if (symbol<int (*)()>(library, "vn_numberOfCPUs")() < 1) {
        fail("vn_numberOfCPUs");
    }
    free(symbol<char* (*)(const char*)>(library, "vn_CstrToUTF8")("abc"));
}

void loadUseUnload(const char* path) {
    void* library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        fail(dlerror());
    }
    use(library);
    dlclose(library);
    if (dlopen(path, RTLD_NOW | RTLD_NOLOAD) != nullptr) {
        fail("the library stays loaded");
    }
}

bool inputEnded() {
    pollfd input = {STDIN_FILENO, POLLIN, 0};
    return poll(&input, 1, 0) != 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        fail("usage: soak_loading LIBRARY");
    }
    auto nextLine = std::chrono::steady_clock::now();
    for (unsigned long loads = 0; !inputEnded(); ++loads) {
        if (std::chrono::steady_clock::now() >= nextLine) {
            const Sample now = measure();
            printf("%lu %.0f %.0f %.0f\n", loads, now.residentBytes, now.heapBytes,
                   now.descriptors);
            fflush(stdout);
            nextLine += std::chrono::seconds(1);
        }
        loadUseUnload(argv[1]);
    }
    return 0;
}
