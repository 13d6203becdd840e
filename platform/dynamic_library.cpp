// Dynamic libraries with UTF-8 names.
#include <dlfcn.h>

#include <cstring>

#include <vncommon/process.h>

#include "platform/assertion.h"
#include "platform/system_text.h"

namespace vncommon {
namespace {

char* lastLibraryError() {
    const char* message = dlerror();
    return strdup(message != nullptr ? message : "Unknown error");
}

// POSIX: for dlopen() a null name means the program itself. So a name that could not be converted
// for lack of memory must not be passed as null.
void* openLibrary(const char* path, const SystemText& name, int flags) {
    const bool unnamed = path != nullptr && name.get() == nullptr;
    return unnamed ? nullptr : dlopen(name.get(), flags);
}

}  // namespace
}  // namespace vncommon

using namespace vncommon;

char* vn_loadLibraryUTF8(void** handle, const char* path) {
    VN_ASSERT(handle != nullptr);
    const SystemText name(path);
    *handle = openLibrary(path, name, RTLD_NOW);
    return *handle != nullptr ? nullptr : lastLibraryError();
}

char* vn_unloadLibrary(void* handle) {
    if (handle == nullptr) {  // glibc: dlclose() would dereference it
        return strdup("Unknown error");
    }
    return dlclose(handle) == 0 ? nullptr : lastLibraryError();
}

char* vn_findLibrarySymbol(void** symbol, void* handle, const char* name) {
    VN_ASSERT(symbol != nullptr && name != nullptr);
    *symbol = dlsym(handle, name);
    return *symbol != nullptr ? nullptr : lastLibraryError();
}

int vn_assertUnloadedLibrary(const char* path) {
    const SystemText name(path);
    // Compat: the handle is not closed; the library stays loaded, as the header says.
    return openLibrary(path, name, RTLD_NOW | RTLD_NOLOAD) == nullptr ? 1 : 0;
}
