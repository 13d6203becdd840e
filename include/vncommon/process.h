/* Helpers over the operating system: the process, its files, dynamic libraries, the clock.
 *
 * Thin wrappers that speak UTF-8. Every path or name is converted to the locale's code page
 * before the system sees it, and every directory, environment entry and the like is converted
 * back (convention 3). One wrapper makes one system call; nothing is cached unless said so.
 *
 * Errors are results, never aborts: a newly allocated message text, null, or an error number.
 * Every text and array that a function returns is a new block of the platform's allocator,
 * released with free (or vn_free), unless its comment says otherwise.
 *
 * Thread-safety: that of the system call behind each function. vn_stackTrace and
 * vn_get_os_statistics share one process-wide record each without a lock: concurrent calls do
 * no harm, but may mix their contents.
 *
 * A null path makes the file functions fail with EFAULT, as any other bad address does; a path
 * that there is no memory to convert, with ENOMEM.
 */
#ifndef VNCOMMON_PROCESS_H
#define VNCOMMON_PROCESS_H

#include <stdio.h>

#include <vncommon/api.h>

struct stat;

VN_BEGIN_DECLS

/* ---- The process ---- */

/* The name of the effective user, new. Where the user database has no entry (or cannot be
 * read): the number of the user, as "%d" prints it; "unknown" where the system does not say how
 * large an entry may be; null without memory. The name passes through vn_UTF8ToCstr, not through
 * its inverse: on a UTF-8 locale there is no difference, and elsewhere callers rely on it. */
VN_NODISCARD VN_API char* vn_getUTF8UserName(void) VN_MALLOC;

/* The current directory, new and in UTF-8, however deep it is; null when the system cannot tell
 * (removed, unreadable), with the reason in errno. */
VN_NODISCARD VN_API char* vn_getUTF8CurrentDirectory(void) VN_MALLOC;

VN_API int vn_getProcessId(void);

/* The environment, converted to UTF-8: a new array of new texts, closed by null; an entry that
 * cannot be converted at all reads "Unknown". Entries are copied as they stand, also those
 * without a "=". Null only when there is no memory for all of it. Not safe against another
 * thread that changes the environment at the same time. */
VN_NODISCARD VN_API char** vn_getEnvironUTF8(void);

/* Releases such an array with its texts; null is allowed. */
VN_API void vn_freeEnvironUTF8(char** environment);

/* ---- Files and the console ---- */

/* Opens path with open(). On success stores the descriptor in *fd and returns null; on failure
 * stores -1 and returns the text of the error, as vn_strerror words it (released with vn_free).
 * A mode (mode_t) follows the flags when they hold O_CREAT; without O_CREAT no further argument
 * is read and the mode is 0, also with O_TMPFILE. */
VN_NODISCARD VN_API char* vn_openFileUTF8(int* fd, const char* path, int flags, ...) VN_MALLOC;

/* fopen() and stat(), with the results and the errno of these. */
VN_NODISCARD VN_API FILE* vn_openStreamUTF8(const char* path, const char* mode);
VN_NODISCARD VN_API int vn_statUTF8(const char* path, struct stat* status);

/* Writes text, converted to the locale's code page, to fd with one write(). A failure or a
 * partial write is not reported. Null writes nothing. */
VN_API void vn_writeToConsoleUTF8(int fd, const char* text);

/* ---- Dynamic libraries ----
 * The first three return null on success and otherwise a copy of what dlerror() says, in the
 * system's words and code page, or "Unknown error" where it says nothing. Without memory for the
 * copy a failure gives null too: then only the null handle or symbol tells. */

/* Loads path (all symbols bound at once) and stores its handle; null when that fails. A null
 * path gives the handle of the program itself. */
VN_NODISCARD VN_API char* vn_loadLibraryUTF8(void** handle, const char* path) VN_MALLOC;

/* Gives one handle back; a null handle is an "Unknown error". */
VN_NODISCARD VN_API char* vn_unloadLibrary(void* handle) VN_MALLOC;

/* Stores the address of a symbol of the library, null when it has none. A symbol whose address
 * is null cannot be told from a missing one: "Unknown error". A null handle searches the
 * program and the libraries it was started with. */
VN_NODISCARD VN_API char* vn_findLibrarySymbol(void** symbol, void* handle,
                                               const char* name) VN_MALLOC;

/* 1 when the library is not loaded (or memory runs out), 0 when it is. In the second case the
 * library's reference count has gone up by one and stays there, on purpose: a library found loaded
 * is never unloaded behind the back of its finder. */
VN_API int vn_assertUnloadedLibrary(const char* path);

/* ---- Stack trace ---- */

VN_API bool vn_canStackTrace(void); /* true */

/* Writes the call stack to fd, one frame a line, the innermost (this function) first.
 *
 * At most 64 frames, gathered in one process-wide record that is never cleared: where the system
 * does not close a trace with an empty entry (it does so for stacks that it can follow to their
 * end), what an earlier, deeper trace left is printed again after the new frames. The last frame
 * before the empty entry is left out. Both are deliberate; readers of the traces count on the
 * number of lines. */
VN_API void vn_stackTrace(int fd);

/* ---- Memory pressure ---- */

/* Pages per second swapped in and out since the reading before, from "/proc/vmstat". Returns 0
 * and stores both rates, or an error number and stores nothing: the errno of opening the file,
 * 9 when a line without a blank comes before both counters were met.
 *
 * The file is read at most once in 100 ms; calls in between give the rates of the last reading
 * again. The first reading of a process divides the counters by the time since 1970, so its
 * rates are close to 0. */
VN_NODISCARD VN_API int vn_get_os_statistics(double* swapInRate, double* swapOutRate);

/* ---- The clock ---- */

/* Wall-clock time in milliseconds since 1970-01-01 UTC, rounded down. It follows clock steps. */
VN_API int64_t vn_sys_time(void);

/* Formats the local time cheaply for log lines: the date and time are written only when the
 * second has changed, the milliseconds always. Embedded by the caller and used by one thread at
 * a time. A program that changes its zone (TZ) calls tzset(); the next second then shows it. */
typedef struct vn_TimeStampCache {
    int64_t lastSecond; /* since 1970-01-01 UTC: the second that text shows */
    char text[24];      /* "YYYY-MM-DD hh:mm:ss.mmm" and the terminator */
} vn_TimeStampCache;

VN_API void vn_timeStampInit(vn_TimeStampCache* cache);    /* must come first */
VN_API void vn_timeStampDestroy(vn_TimeStampCache* cache); /* nothing to release: does nothing */

/* The time now, for example "2024-03-05 14:07:09.042". The text belongs to the cache and holds
 * until the next call. Costs about one clock reading within the same second. */
VN_API const char* vn_timeStampGet(vn_TimeStampCache* cache);

/* Does nothing. For callers that need one symbol of this library to be referenced. */
VN_API void VN_dummyFunction(void);

VN_END_DECLS

#endif
