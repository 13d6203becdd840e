#include "faults/interposer.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <netdb.h>
#include <pthread.h>
#include <pwd.h>
#include <semaphore.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <initializer_list>

namespace {

using faults::Memory;
using faults::Plan;
using faults::Variant;

enum Trait : unsigned {
    plain = 0,
    interruptible = 1,    // may fail with EINTR
    takesDescriptor = 2,  // may fail with EMFILE
    transfers = 4,        // may transfer less than requested
    refusable = 8,        // may fail with EPERM
    once = 16,            // repeated until it succeeds, so it must succeed in the end
    heap = 32,
};

struct Call {
    const char* name;
    int error;  // for Variant::usual
    unsigned traits;
};

constexpr int transferLess = -1;  // result of decide() for Variant::partial

// ---- State: the calls of one thread only are counted, so nothing here is shared ----

Plan plan;
bool planRead = false;
uint64_t counted = 0;
thread_local bool armed = false;
std::atomic<int64_t> live{0};
std::atomic<bool> waited{false};

constexpr int mostNames = 64;
const char* failedNames[mostNames];  // in the last injection
int failedCount = 0;
bool failedEver = false;

void readPlan() {
    planRead = true;
    const char* text = getenv(faults::planVariable);
    if (text == nullptr) {
        return;
    }
    char* at = const_cast<char*>(text);
    plan.variant = static_cast<Variant>(strtol(at, &at, 10));
    plan.onwards = strtol(at, &at, 10) != 0;
    plan.n = strtoul(at, &at, 10);
    plan.memory = static_cast<Memory>(strtol(at, &at, 10));
    plan.fromLoad = strtol(at, &at, 10) != 0;
}

// ---- Who calls ----

struct Range {
    uintptr_t begin = 0;
    uintptr_t end = 0;
    bool holds(const void* address) const {
        const auto at = reinterpret_cast<uintptr_t>(address);
        return at >= begin && at < end;
    }
};
Range library;
Range program;

int findRanges(dl_phdr_info* info, size_t, void*) {
    const bool isProgram = info->dlpi_name[0] == '\0';
    const bool isLibrary = strstr(info->dlpi_name, "libvncommon.so") != nullptr;
    if ((isProgram && program.end == 0) || isLibrary) {
        Range& range = isLibrary ? library : program;
        range = {UINTPTR_MAX, 0};
        for (int i = 0; i < info->dlpi_phnum; ++i) {
            if (info->dlpi_phdr[i].p_type == PT_LOAD) {
                const uintptr_t begin = info->dlpi_addr + info->dlpi_phdr[i].p_vaddr;
                range.begin = begin < range.begin ? begin : range.begin;
                const uintptr_t end = begin + info->dlpi_phdr[i].p_memsz;
                range.end = end > range.end ? end : range.end;
            }
        }
    }
    return 0;
}

void needRanges() {
    if (library.end == 0) {
        dl_iterate_phdr(findRanges, nullptr);
    }
}

// The exported function that contains the address, or "-".
const char* functionAt(void* address) {
    Dl_info info;
    return dladdr(address, &info) != 0 && info.dli_sname != nullptr ? info.dli_sname : "-";
}

bool isChecked(const char* function) {
    for (const char* name :
         {"vn_malloc", "vn_realloc", "vn_strdup", "vn_strndup", "vn_UTF8ToCstr", "vn_CstrToUTF8"}) {
        if (strcmp(function, name) == 0) {
            return true;
        }
    }
    return false;
}

// Disables counting during its life: functions used here may be interposed too.
class Pause {
  public:
    Pause() : before(armed), errnoBefore(errno) { armed = false; }
    ~Pause() {
        armed = before;
        errno = errnoBefore;
    }

  private:
    bool before;
    int errnoBefore;
};

// ---- Decisions ----

void report(const char* name, void* caller) {
    char line[256];
    const int length = snprintf(line, sizeof line, "fault %s %s\n", name, functionAt(caller));
    syscall(SYS_write, STDOUT_FILENO, line, static_cast<size_t>(length));
    failedEver = true;
    if (failedCount < mostNames) {
        failedNames[failedCount++] = name;
    }
}

// Whether many calls in a row came from the same place, or alternately from two.
bool isOneOfMany(void* caller) {
    constexpr int enough = 6;
    static void* last[2] = {};
    static int row = 0;
    row = caller == last[0] || caller == last[1] ? row + 1 : 1;
    last[0] = last[1];
    last[1] = caller;
    return row > enough;
}

// Counts a call; returns whether it must fail.
bool takesPart(const Call& call, void* caller) {
    const bool many = isOneOfMany(caller) && (call.traits & heap) == 0;
    counted += many ? 0 : 1;
    const bool fails =
        plan.n != 0 &&
        ((counted == plan.n && (!many || plan.onwards)) || (counted > plan.n && plan.onwards)) &&
        (counted == plan.n || (call.traits & once) == 0);
    if (fails) {
        report(call.name, caller);
    }
    return fails;
}

// The error of a call that fails in that way; 0 if it does not.
int errorOf(const Call& call) {
    const auto has = [&call](Trait trait) { return (call.traits & trait) != 0; };
    switch (plan.variant) {
        case Variant::interrupted:
            return has(interruptible) ? EINTR : 0;
        case Variant::noDescriptor:
            return has(takesDescriptor) ? EMFILE : 0;
        case Variant::partial:
            return has(transfers) ? transferLess : 0;
        case Variant::refused:
            return has(refusable) ? EPERM : 0;
        case Variant::noMemory:
            return 0;
        default:
            return call.error;
    }
}

// If calls are counted from load, the library's first call starts the counting.
bool armedByLoad(void* caller) {
    static bool over = false;
    if (!over && !planRead) {
        readPlan();
        over = !plan.fromLoad;
    }
    if (over || !plan.fromLoad) {
        return false;
    }
    needRanges();
    if (!library.holds(caller)) {
        return false;
    }
    over = true;
    armed = true;
    return true;
}

// The error of the call, 0 to pass it on. Only direct calls of the library count. A tail call is a
// jump and seems to come from the test.
int decide(const Call& call, void* caller) {
    if (!armed && !armedByLoad(caller)) {
        return 0;
    }
    const Pause pause;
    needRanges();
    const int error = library.holds(caller) || program.holds(caller) ? errorOf(call) : 0;
    return error != 0 && takesPart(call, caller) ? error : 0;
}

bool refusesMemory(const char* name, void* caller) {
    if (!armed || plan.memory == Memory::none ||
        (plan.variant != Variant::usual && plan.variant != Variant::noMemory)) {
        return false;
    }
    const Pause pause;
    needRanges();
    if (plan.memory == Memory::own && !library.holds(caller)) {
        return false;
    }
    if (plan.memory == Memory::checked && library.holds(caller) && !isChecked(functionAt(caller))) {
        return false;
    }
    return takesPart({name, ENOMEM, heap}, caller);
}

// ---- The replaced functions ----

void* next(const char* name) {
    const Pause pause;
    using Dlsym = void* (*)(void*, const char*);
    static Dlsym lookUp = nullptr;
    for (const char* version : {"GLIBC_2.34", "GLIBC_2.17", "GLIBC_2.2.5"}) {
        if (lookUp == nullptr) {
            lookUp = reinterpret_cast<Dlsym>(dlvsym(RTLD_NEXT, "dlsym", version));
        }
    }
    return lookUp(RTLD_NEXT, name);
}

// Static initialisers of the program run last, after those of the library.
struct EndOfLoad {
    EndOfLoad() { armed = false; }
};
[[gnu::init_priority(101)]] EndOfLoad endOfLoad;

}  // namespace

namespace faults {

Injection::Injection() {
    if (!planRead) {
        readPlan();
    }
    failedCount = 0;
    armed = true;
}

Injection::~Injection() {
    armed = false;
}

bool failed() {
    return failedCount > 0;
}

bool failed(const char* call) {
    for (int i = 0; i < failedCount; ++i) {
        if (strcmp(failedNames[i], call) == 0) {
            return true;
        }
    }
    return false;
}

bool hasWaited() {
    return waited;
}

bool everFailed() {
    return failedEver;
}

int64_t liveBlocks() {
    return live;
}

uint64_t countedCalls() {
    return counted;
}

}  // namespace faults

// ---- The heap ----

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
void __libc_free(void* block);
}

// Gives our functions the C library's names, independently of the declarations in its headers.
#define VN_STANDS_FOR(name) __asm__(#name) __attribute__((visibility("default")))

#define VN_HEAP_CALL(name, parameters, arguments)                            \
    extern "C" void* interposed_##name parameters VN_STANDS_FOR(name);       \
    extern "C" void* interposed_##name parameters {                          \
        if (refusesMemory(#name, __builtin_return_address(0))) {             \
            errno = ENOMEM;                                                  \
            return nullptr;                                                  \
        }                                                                    \
        void* block = arguments;                                             \
        live.fetch_add(block != nullptr ? 1 : 0, std::memory_order_relaxed); \
        return block;                                                        \
    }

VN_HEAP_CALL(malloc, (size_t size), __libc_malloc(size))
VN_HEAP_CALL(calloc, (size_t count, size_t size), __libc_calloc(count, size))
VN_HEAP_CALL(memalign, (size_t alignment, size_t size), __libc_memalign(alignment, size))
VN_HEAP_CALL(aligned_alloc, (size_t alignment, size_t size), __libc_memalign(alignment, size))
VN_HEAP_CALL(strdup, (const char* text),
             memcpy(__libc_malloc(strlen(text) + 1), text, strlen(text) + 1))

extern "C" void* interposed_realloc(void* block, size_t size) VN_STANDS_FOR(realloc);
extern "C" void* interposed_realloc(void* block, size_t size) {
    if (size > 0 && refusesMemory("realloc", __builtin_return_address(0))) {
        errno = ENOMEM;
        return nullptr;
    }
    void* larger = __libc_realloc(block, size);
    live.fetch_add((larger != nullptr) - (block != nullptr), std::memory_order_relaxed);
    return larger;
}

extern "C" int interposed_posix_memalign(void** block, size_t alignment, size_t size)
    VN_STANDS_FOR(posix_memalign);
extern "C" int interposed_posix_memalign(void** block, size_t alignment, size_t size) {
    if (refusesMemory("posix_memalign", __builtin_return_address(0))) {
        return ENOMEM;
    }
    *block = __libc_memalign(alignment, size);
    live.fetch_add(*block != nullptr ? 1 : 0, std::memory_order_relaxed);
    return *block != nullptr ? 0 : ENOMEM;
}

extern "C" void interposed_free(void* block) VN_STANDS_FOR(free);
extern "C" void interposed_free(void* block) {
    live.fetch_sub(block != nullptr ? 1 : 0, std::memory_order_relaxed);
    __libc_free(block);
}

// ---- Everything else ----

#define VN_CALL(type, name, usualError, traits, parameters, arguments, onFailure)   \
    extern "C" type interposed_##name parameters VN_STANDS_FOR(name);               \
    extern "C" type interposed_##name parameters {                                  \
        static const auto real = reinterpret_cast<type(*) parameters>(next(#name)); \
        [[maybe_unused]] const int error =                                          \
            decide({#name, usualError, traits}, __builtin_return_address(0));       \
        if (error != 0) {                                                           \
            onFailure;                                                              \
        }                                                                           \
        return real arguments;                                                      \
    }

// Reports through errno.
#define VN_ERRNO(result) \
    errno = error;       \
    return result
#define VN_SYSTEM_CALL(name, usualError, traits, parameters, arguments) \
    VN_CALL(int, name, usualError, traits, parameters, arguments, VN_ERRNO(-1))
// Returns the error.
#define VN_THREAD_CALL(name, usualError, traits, parameters, arguments) \
    VN_CALL(int, name, usualError, traits, parameters, arguments, return error)
// Fails but still makes the real call: the test would hang on a lock or descriptor that stays held.
#define VN_RELEASE(name, usualError, parameters, arguments) \
    VN_CALL(int, name, usualError, plain, parameters, arguments, real arguments; return error)
#define VN_TRANSFER(name, usualError, parameters, less, arguments)                       \
    VN_CALL(ssize_t, name, usualError, interruptible | transfers, parameters, arguments, \
            if (error == transferLess) return real less;                                 \
            VN_ERRNO(-1))
// POSIX: a write to a stream that is open for reading only sets its error indicator.
#define VN_STREAM(type, name, stream, result, parameters, arguments) \
    VN_CALL(type, name, EIO, plain, parameters, arguments, (void)putc(0, stream); VN_ERRNO(result))

namespace {

size_t half(size_t count) {
    return count < 2 ? count : count / 2;
}

sem_t* waitedFor(sem_t* semaphore) {
    waited = true;
    return semaphore;
}

}  // namespace

// Files.
VN_SYSTEM_CALL(open, EACCES, interruptible | takesDescriptor,
               (const char* path, int flags, mode_t mode), (path, flags, mode))
VN_SYSTEM_CALL(stat, EACCES, plain, (const char* path, struct stat* status), (path, status))
VN_SYSTEM_CALL(fstat, EIO, plain, (int fd, struct stat* status), (fd, status))
VN_SYSTEM_CALL(dup2, EBADF, interruptible, (int from, int to), (from, to))
VN_CALL(int, isatty, ENOTTY, plain, (int fd), (fd), VN_ERRNO(0))
VN_SYSTEM_CALL(tcgetattr, EIO, plain, (int fd, termios* attributes), (fd, attributes))
VN_CALL(int, close, EIO, interruptible, (int fd), (fd), real(fd); VN_ERRNO(-1))
VN_TRANSFER(read, EIO, (int fd, void* buffer, size_t count), (fd, buffer, half(count)),
            (fd, buffer, count))
VN_TRANSFER(write, ENOSPC, (int fd, const void* buffer, size_t count), (fd, buffer, half(count)),
            (fd, buffer, count))
VN_CALL(FILE*, fopen, EACCES, interruptible | takesDescriptor, (const char* path, const char* mode),
        (path, mode), VN_ERRNO(nullptr))
VN_CALL(int, fclose, EIO, plain, (FILE * stream), (stream), real(stream); VN_ERRNO(EOF))
VN_STREAM(size_t, fread, stream, 0, (void* buffer, size_t size, size_t count, FILE* stream),
          (buffer, size, count, stream))
VN_STREAM(char*, fgets, stream, nullptr, (char* line, int size, FILE* stream), (line, size, stream))
VN_STREAM(ssize_t, __getdelim, stream, -1, (char** line, size_t* size, int delimiter, FILE* stream),
          (line, size, delimiter, stream))
// glibc: getline() is inline and calls __getdelim(), but a function in builds without optimisation.
extern "C" ssize_t interposed_getline(char** line, size_t* size, FILE* stream)
    VN_STANDS_FOR(getline);
extern "C" ssize_t interposed_getline(char** line, size_t* size, FILE* stream) {
    return interposed___getdelim(line, size, '\n', stream);
}
VN_CALL(int, vsnprintf, EILSEQ, plain,
        (char* text, size_t size, const char* format, va_list arguments),
        (text, size, format, arguments), VN_ERRNO(-1))
// What vsnprintf becomes with _FORTIFY_SOURCE.
extern "C" int interposed___vsnprintf_chk(char* text, size_t size, int flag, size_t room,
                                          const char* format, va_list arguments)
    VN_STANDS_FOR(__vsnprintf_chk);
extern "C" int interposed___vsnprintf_chk(char* text, size_t size, int, size_t, const char* format,
                                          va_list arguments) {
    return interposed_vsnprintf(text, size, format, arguments);
}

// Sockets.
VN_SYSTEM_CALL(socket, EACCES, takesDescriptor, (int domain, int type, int protocol),
               (domain, type, protocol))
VN_SYSTEM_CALL(connect, ECONNREFUSED, interruptible,
               (int fd, const sockaddr* address, socklen_t length), (fd, address, length))
VN_SYSTEM_CALL(bind, EADDRINUSE, plain, (int fd, const sockaddr* address, socklen_t length),
               (fd, address, length))
VN_SYSTEM_CALL(listen, EADDRINUSE, plain, (int fd, int backlog), (fd, backlog))
VN_SYSTEM_CALL(accept, ECONNABORTED, interruptible | takesDescriptor,
               (int fd, sockaddr* address, socklen_t* length), (fd, address, length))
VN_SYSTEM_CALL(setsockopt, ENOBUFS, plain,
               (int fd, int level, int option, const void* value, socklen_t length),
               (fd, level, option, value, length))
VN_TRANSFER(recv, ECONNRESET, (int fd, void* buffer, size_t count, int flags),
            (fd, buffer, half(count), flags), (fd, buffer, count, flags))
VN_TRANSFER(send, ECONNRESET, (int fd, const void* buffer, size_t count, int flags),
            (fd, buffer, half(count), flags), (fd, buffer, count, flags))
VN_CALL(int, gethostbyname_r, EAGAIN, plain,
        (const char* name, hostent* entry, char* storage, size_t size, hostent** result,
         int* reason),
        (name, entry, storage, size, result, reason), *result = nullptr;
        *reason = TRY_AGAIN; return error)

// Threads.
VN_THREAD_CALL(pthread_create, EAGAIN, refusable,
               (pthread_t * thread, const pthread_attr_t* attributes, void* (*function)(void*),
                void* argument),
               (thread, attributes, function, argument))
VN_RELEASE(pthread_join, EDEADLK, (pthread_t thread, void** value), (thread, value))
VN_THREAD_CALL(pthread_attr_init, ENOMEM, plain, (pthread_attr_t * attributes), (attributes))
VN_THREAD_CALL(pthread_attr_setdetachstate, EINVAL, plain, (pthread_attr_t * attributes, int state),
               (attributes, state))
VN_THREAD_CALL(pthread_mutex_init, EAGAIN, plain,
               (pthread_mutex_t * mutex, const pthread_mutexattr_t* attributes),
               (mutex, attributes))
VN_THREAD_CALL(pthread_mutex_destroy, EBUSY, plain, (pthread_mutex_t * mutex), (mutex))
VN_THREAD_CALL(pthread_mutex_trylock, EBUSY, plain, (pthread_mutex_t * mutex), (mutex))
VN_THREAD_CALL(pthread_mutex_lock, EINVAL, plain, (pthread_mutex_t * mutex), (mutex))
VN_RELEASE(pthread_mutex_unlock, EPERM, (pthread_mutex_t * mutex), (mutex))
VN_THREAD_CALL(pthread_cond_init, EAGAIN, plain,
               (pthread_cond_t * condition, const pthread_condattr_t* attributes),
               (condition, attributes))
VN_THREAD_CALL(pthread_cond_destroy, EBUSY, plain, (pthread_cond_t * condition), (condition))
VN_THREAD_CALL(pthread_cond_signal, EINVAL, plain, (pthread_cond_t * condition), (condition))
VN_THREAD_CALL(pthread_cond_broadcast, EINVAL, plain, (pthread_cond_t * condition), (condition))
VN_THREAD_CALL(pthread_cond_wait, EPERM, plain,
               (pthread_cond_t * condition, pthread_mutex_t* mutex), (condition, mutex))
VN_THREAD_CALL(pthread_cond_timedwait, EINVAL, plain,
               (pthread_cond_t * condition, pthread_mutex_t* mutex, const timespec* deadline),
               (condition, mutex, deadline))
VN_THREAD_CALL(pthread_key_create, EAGAIN, plain, (pthread_key_t * key, void (*destructor)(void*)),
               (key, destructor))
VN_THREAD_CALL(pthread_key_delete, EINVAL, plain, (pthread_key_t key), (key))
VN_THREAD_CALL(pthread_setspecific, ENOMEM, once, (pthread_key_t key, const void* value),
               (key, value))
VN_THREAD_CALL(pthread_sigmask, EINVAL, plain, (int how, const sigset_t* set, sigset_t* before),
               (how, set, before))
VN_THREAD_CALL(__register_atfork, ENOMEM, plain,
               (void (*prepare)(), void (*parent)(), void (*child)(), void* object),
               (prepare, parent, child, object))
VN_SYSTEM_CALL(sem_init, EINVAL, plain, (sem_t * semaphore, int shared, unsigned count),
               (semaphore, shared, count))
VN_SYSTEM_CALL(sem_destroy, EINVAL, plain, (sem_t * semaphore), (semaphore))
VN_SYSTEM_CALL(sem_post, EOVERFLOW, plain, (sem_t * semaphore), (semaphore))
VN_SYSTEM_CALL(sem_wait, EINVAL, interruptible | once, (sem_t * semaphore), (waitedFor(semaphore)))
VN_SYSTEM_CALL(sem_trywait, EAGAIN, interruptible, (sem_t * semaphore), (semaphore))

// Libraries.
VN_CALL(void*, dlopen, ENOMEM, takesDescriptor, (const char* path, int flags), (path, flags),
        VN_ERRNO(nullptr))
VN_CALL(void*, dlsym, ENOENT, plain, (void* handle, const char* name), (handle, name),
        return nullptr)
VN_CALL(int, dlclose, EINVAL, plain, (void* handle), (handle), real(handle); return -1)
VN_CALL(int, dladdr, ENOENT, plain, (const void* address, Dl_info* info), (address, info), return 0)

// The process and the clock.
VN_CALL(char*, getcwd, EACCES, plain, (char* buffer, size_t size), (buffer, size),
        VN_ERRNO(nullptr))
VN_CALL(int, getpwuid_r, EIO, interruptible | takesDescriptor,
        (uid_t user, passwd* entry, char* storage, size_t size, passwd** result),
        (user, entry, storage, size, result), *result = nullptr;
        return error)
VN_CALL(long, sysconf, EINVAL, plain, (int name), (name), VN_ERRNO(-1))
VN_SYSTEM_CALL(sigaction, EINVAL, plain,
               (int signal, const struct sigaction* action, struct sigaction* before),
               (signal, action, before))
VN_SYSTEM_CALL(gettimeofday, EFAULT, plain, (timeval * time, void* zone), (time, zone))
VN_SYSTEM_CALL(clock_gettime, EINVAL, plain, (clockid_t clock, timespec* time), (clock, time))
VN_SYSTEM_CALL(nanosleep, EINTR, interruptible | once, (const timespec* time, timespec* left),
               (time, left))
VN_CALL(tm*, localtime_r, EOVERFLOW, plain, (const time_t* time, tm* local), (time, local),
        VN_ERRNO(nullptr))
