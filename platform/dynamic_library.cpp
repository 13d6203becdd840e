// Dynamic libraries under UTF-8 names.
#include <dlfcn.h>

#include <cstring>

#include <vncommon/process.h>

#include "platform/system_text.h"

using vncommon::SystemText;

namespace {

char* lastLibraryError() {
    const char* message = dlerror();
    return strdup(message != nullptr ? message : "Unknown error");
}

// A name that there was no memory to convert must not pass for none, which means the program.
void* openLibrary(const char* path, const SystemText& name, int flags) {
    const bool unnamed = path != nullptr && name.get() == nullptr;
    return unnamed ? nullptr : dlopen(name.get(), flags);
}

}  // namespace

char* vn_loadLibraryUTF8(void** handle, const char* path) {
    const SystemText name(path);
    *handle = openLibrary(path, name, RTLD_NOW);
    return *handle != nullptr ? nullptr : lastLibraryError();
}

char* vn_unloadLibrary(void* handle) {
    if (handle == nullptr) {  // the system's dlclose would read through it
        return strdup("Unknown error");
    }
    return dlclose(handle) == 0 ? nullptr : lastLibraryError();
}

char* vn_findLibrarySymbol(void** symbol, void* handle, const char* name) {
    *symbol = dlsym(handle, name);
    return *symbol != nullptr ? nullptr : lastLibraryError();
}

int vn_assertUnloadedLibrary(const char* path) {
    const SystemText name(path);
    // The handle is kept, and with it one reference: see the header.
    return openLibrary(path, name, RTLD_NOW | RTLD_NOLOAD) == nullptr ? 1 : 0;
}
