/** @file
 * Failure reports, checked allocation, out-of-memory exit, memory counter.
 *
 * The library does not return failed allocations or broken preconditions to its caller: it writes
 * a short report to standard error and, in most cases, ends the process. It flushes standard
 * error first, because the program may have given it a buffer. This header
 * holds the reporting routines, the allocators that never return null, the out-of-memory exit
 * with its callback, and an optional process-wide counter of allocated bytes.
 *
 * Thread safety: every function may be called from any thread, and from several at once. The
 * out-of-memory callback may be set and replaced at any time.
 *
 * Environment: VN_ABORT_ON_OOM (any value) turns the out-of-memory exit into a processor trap,
 * for a core dump. VN_TRACKMEMORY (any value) keeps memory counting on.
 */
#ifndef VNCOMMON_FAILURE_H
#define VNCOMMON_FAILURE_H

#include <vncommon/api.h>

VN_BEGIN_DECLS

/** Does nothing when code is 0. Otherwise writes three lines to standard error, flushes it and
 * calls abort():
 *
 *     "Fatal error: Call failed with code %d: %s\n"   code, description
 *     "(strerror(errno)=%s)\n"                        errno as it was on entry
 *     "(strerror(errcode)=%s)\n"                      code
 */
VN_API void vn_checkError(int code, const char* description);

/** Writes a readable message for errnum to buffer (size bytes, terminator included).
 *
 * The system's own message where it has one and it fits; otherwise one of
 *
 *     "An unknown error (%i) occurred"                                         errnum
 *     "An error (%i) occurred, but its message was too large to display"       errnum
 *     "Error (%i:%i) occurred"                               errnum, strerror_r's result
 *
 * If one of these three does not leave a spare byte after its terminator, the process aborts with
 * `"Fatal error: error message buffer too small\n"`. 1024 bytes are always enough.
 * Compat: the spare byte is more than truncation needs; callers rely on it.
 */
VN_API void vn_strerror(char* buffer, size_t size, int errnum);

/** Aborts if pointer is null, with the line below on standard error. The out-of-memory callback is
 * not called: it belongs to vn_outOfMemory alone.
 *
 *     "Fatal error: malloc or similar returned null - this suggests the process has run out of
 *     memory\n"
 */
VN_API void vn_checkMemory(void* pointer);

/** malloc() with the check of vn_checkMemory: the result is never null. A size of 0 is passed on
 * unchanged; if the platform then returns null, the process ends as for any other null. */
VN_NODISCARD VN_API void* vn_malloc(size_t size) VN_MALLOC VN_RETURNS_NONNULL;

/** realloc() with the check of vn_checkMemory: the result is never null. A size of 0 is passed on
 * unchanged; if the platform then returns null, the process ends as for any other null. glibc:
 * realloc() of a block to 0 bytes frees it and returns null. */
VN_NODISCARD VN_API void* vn_realloc(void* pointer, size_t size) VN_RETURNS_NONNULL;

/** free(): releases a block of vn_malloc, vn_realloc or the platform's allocator. Null does
 * nothing. */
VN_API void vn_free(void* pointer);

/** A copy of text, released with vn_free. Null returns null and writes the line
 * `"Warning: NULL passed to strdup\n"` on standard error. */
VN_NODISCARD VN_API char* vn_strdup(const char* text) VN_MALLOC;

/** A copy of the first maximum bytes of text, or of all of it when it is shorter; always
 * terminated, exactly as large as needed, released with vn_free. text must be terminated (its
 * whole length is measured). Null as for vn_strdup.
 * Compat: the warning names strdup here too; callers match the text. */
VN_NODISCARD VN_API char* vn_strndup(const char* text, size_t maximum) VN_MALLOC;

/** Wall-clock time in milliseconds since 1970-01-01 UTC; 0 if the clock cannot be read. It follows
 * clock steps. vn_sys_time (process.h) is the same as a signed number. */
VN_API uint64_t vn_systime(void);

/** The platform's strcasecmp, unchanged: case is folded by the rules of the C locale in force. */
VN_API int vn_strcasecmp(const char* a, const char* b) VN_PURE;

/** Called when memory is exhausted, before the process ends. */
typedef void (*vn_OutOfMemoryCallBack)(void);

/** Installs the function that vn_outOfMemory calls, replacing the one before; null clears it.
 * It runs at most once: vn_outOfMemory clears it before the call, and only one of several threads
 * runs it. Keep it short: another thread that runs out of memory meanwhile does not wait for it
 * and ends the process. */
VN_API void vn_setOutOfMemoryCallBack(vn_OutOfMemoryCallBack callback);

/** Ends a process that has run out of memory; never returns. In this order:
 *  - writes `"This process is out of memory... exiting\n"` to descriptor 2 with one write();
 *  - calls the installed callback, if any;
 *  - with VN_ABORT_ON_OOM set, stops by a synchronous fault, which leaves a core dump; the signal
 *    depends on processor and compiler (SIGILL on x86-64, SIGTRAP or SIGFPE elsewhere);
 *  - writes `"memory used: vm=%f, rss=%f\n"` (bytes) to descriptor 2, once per process;
 *  - vn_immediateExit(1).
 * Called again from inside the callback, it repeats the first line and skips both the callback
 * and the memory line. That is: called by the thread that called the callback, deeper in its
 * stack, with no new callback installed. A callback may leave by longjmp; a later call then writes
 * the memory line unless it is deeper in that stack, too. When several threads call it at once, one
 * of them writes the complete line. It does not use the heap or a buffered stream before the exit.
 */
VN_API VN_NORETURN void vn_outOfMemory(void);

/** Flushes standard output, then standard error, and ends the process with _exit(status): no
 * exit handlers, no static destructors. */
VN_API VN_NORETURN void vn_immediateExit(int status);

/** Whether vn_immediateExit has been entered; lets other code skip its own cleanup. */
VN_API bool vn_inImmediateExit(void);

/** @name The memory counter
 * Callers report their own allocations and frees, the library reports none. Counting is on from
 * load until the first checkMemoryTrackingEnabled() and stays on after it only if VN_TRACKMEMORY is
 * set. Changes are atomic (sequentially consistent).
 * Compat: counts made before that decision are kept; callers rely on it.
 * @{ */

/** Decides, at its first call, whether counting stays on; 1 when it does, else 0. */
VN_API int checkMemoryTrackingEnabled(void);

/** Counts bytes as allocated, while counting is on. */
VN_API void countMemoryAllocated(size_t bytes);

/** Counts bytes as freed, while counting is on. */
VN_API void countMemoryFreed(size_t bytes);

/** The bytes counted as allocated minus those counted as freed. */
VN_API int64_t getMallocMemoryAllocated(void);
/** @} */

VN_END_DECLS

#ifdef __cplusplus
namespace memorycounter {

/** The memory counter's state, for C++ callers. */
struct VN_API MemoryDiagnostics {
    static bool _enabled;       /**< counting is active; true when the library is loaded */
    static bool checkEnabled(); /**< checkMemoryTrackingEnabled() as a bool */
};

}  // namespace memorycounter
#endif

#endif
