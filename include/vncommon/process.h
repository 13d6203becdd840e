/** @file
 * Operating-system helpers: the process, its files, dynamic libraries, the clock.
 *
 * Thin wrappers that use UTF-8. Every path or name is converted to the locale's code page for the
 * system call, and strings from the system, such as directories and environment entries, are
 * converted back (convention 3). Nothing is cached unless a comment says so.
 *
 * Errors are results: a newly allocated message, null, or an error number.
 * Every string and array that a function returns is a new block of the platform's allocator,
 * released with free (or vn_free), unless its comment says otherwise.
 *
 * Thread safety: that of the system call behind each function. vn_stackTrace and
 * vn_get_os_statistics share one process-wide record each without a lock: concurrent calls do
 * no harm, but may mix their contents.
 *
 * A null path makes the file functions fail with EFAULT, like any other bad address. If memory to
 * convert a path runs out, they fail with ENOMEM.
 */
#ifndef VNCOMMON_PROCESS_H
#define VNCOMMON_PROCESS_H

#include <stdio.h>

#include <vncommon/api.h>

struct stat;

VN_BEGIN_DECLS

/** @name The process
 * @{ */

/** The name of the effective user, new. Where the user database has no entry (or cannot be
 * read): the number of the user, as `"%d"` prints it; "unknown" where the system does not report
 * how large an entry may be; null if memory runs out.
 * Compat: converted with vn_UTF8ToCstr, not its inverse; callers rely on it. On a UTF-8 locale both
 * give the same text. */
VN_NODISCARD VN_API char* vn_getUTF8UserName(void) VN_MALLOC;

/** The current directory, new, in UTF-8 and of any length; null without memory, and when the system
 * does not report it (removed, unreadable), with its reason in errno. */
VN_NODISCARD VN_API char* vn_getUTF8CurrentDirectory(void) VN_MALLOC;

/** The number of the process, as getpid() reports it. */
VN_API int vn_getProcessId(void);

/** The environment, converted to UTF-8: a new array of new strings, terminated by null. Entries
 * without a "=" are copied too. An entry for whose conversion memory runs out becomes "Unknown".
 * Null only if memory for the array or for this word runs out. Not safe while another thread
 * changes the environment. */
VN_NODISCARD VN_API char** vn_getEnvironUTF8(void);

/** Releases such an array with its strings; null is allowed. */
VN_API void vn_freeEnvironUTF8(char** environment);
/** @} */

/** @name Files and the console
 * @{ */

/** Opens path with open(). On success stores the descriptor in *fd and returns null; on failure
 * stores -1 and returns the text of the error, as vn_strerror words it (released with vn_free).
 * Without memory for that text the process ends (vn_strdup, failure.h).
 * A mode (mode_t) follows the flags when they hold O_CREAT; without O_CREAT no further argument
 * is read and the mode is 0, also with O_TMPFILE. */
VN_NODISCARD VN_API char* vn_openFileUTF8(int* fd, const char* path, int flags, ...) VN_MALLOC;

/** fopen(), with its result and its errno. */
VN_NODISCARD VN_API FILE* vn_openStreamUTF8(const char* path, const char* mode);

/** stat(), with its result and its errno. */
VN_NODISCARD VN_API int vn_statUTF8(const char* path, struct stat* status);

/** Writes text, converted to the locale's code page, to fd with one write(). A failure or a
 * partial write is not reported. Null writes nothing. */
VN_API void vn_writeToConsoleUTF8(int fd, const char* text);
/** @} */

/** @name Dynamic libraries
 * The first three return null on success and otherwise a copy of the dlerror() message, in the
 * system's code page, or "Unknown error" when there is no message. If memory for the copy runs out,
 * a failure returns null too: then only the null handle or symbol shows it.
 * @{ */

/** Loads path (all symbols bound at once) and stores its handle; null when that fails. A null
 * path gives the handle of the program itself. */
VN_NODISCARD VN_API char* vn_loadLibraryUTF8(void** handle, const char* path) VN_MALLOC;

/** Closes one handle; a null handle gives "Unknown error". */
VN_NODISCARD VN_API char* vn_unloadLibrary(void* handle) VN_MALLOC;

/** Stores the address of a symbol of the library, null when there is no such symbol. A symbol whose
 * address is null looks like a missing one and gives "Unknown error". A null handle searches the
 * program and the libraries that it was started with. */
VN_NODISCARD VN_API char* vn_findLibrarySymbol(void** symbol, void* handle,
                                               const char* name) VN_MALLOC;

/** 1 when the library is not loaded (or memory runs out), 0 when it is.
 * Compat: a result of 0 leaves the library's reference count one higher, so that a library found
 * loaded is never unloaded; callers rely on it. */
VN_API int vn_assertUnloadedLibrary(const char* path);
/** @} */

/** @name Stack trace
 * @{ */

/** Whether vn_stackTrace can write a stack: true. */
VN_API bool vn_canStackTrace(void);

/** Writes the call stack to fd, one frame a line, the innermost (this function) first.
 *
 * At most 64 frames, collected in one process-wide record. The system ends a trace with an empty
 * entry if it can follow the stack to its end.
 * Compat: the record is never cleared, so a trace without that entry is followed by what remains of
 * an earlier, deeper trace; and the last frame before the entry is not printed. Callers count the
 * lines. */
VN_API void vn_stackTrace(int fd);
/** @} */

/** @name Memory pressure
 * @{ */

/** Pages per second swapped in and out since the previous reading, from "/proc/vmstat". Returns 0
 * and stores both rates, or returns an error number and stores nothing: the errno of opening the
 * file, or 9 when a line without a blank comes before both counters were found.
 *
 * The file is read at most once in 100 ms; calls in between return the rates of the last reading.
 * The first reading of a process divides the counters by the time since 1970, so its rates are
 * close to 0. */
VN_NODISCARD VN_API int vn_get_os_statistics(double* swapInRate, double* swapOutRate);
/** @} */

/** @name The clock
 * @{ */

/** Wall-clock time in milliseconds since 1970-01-01 UTC, rounded down. It follows clock steps.
 * vn_systime (failure.h) is the same as an unsigned number. */
VN_API int64_t vn_sys_time(void);

/** Caches the formatted local time for log lines: the date and time are formatted only when the
 * second has changed, the milliseconds on every call. Embedded by the caller and used by one thread
 * at a time. A program that changes its zone (TZ) must call tzset(); the next second shows it. */
typedef struct vn_TimeStampCache {
    int64_t lastSecond; /**< since 1970-01-01 UTC: the second that text shows */
    char text[24];      /**< "YYYY-MM-DD hh:mm:ss.mmm" and the terminator */
} vn_TimeStampCache;

/** Must be called before vn_timeStampGet. */
VN_API void vn_timeStampInit(vn_TimeStampCache* cache);

/** Does nothing: there is nothing to release. */
VN_API void vn_timeStampDestroy(vn_TimeStampCache* cache);

/** The time now, for example "2024-03-05 14:07:09.042". The text belongs to the cache and is valid
 * until the next call. Within the same second it costs little more than reading the clock. */
VN_API const char* vn_timeStampGet(vn_TimeStampCache* cache);

/** Does nothing. For callers that need one symbol of this library to be referenced. */
VN_API void VN_dummyFunction(void);
/** @} */

VN_END_DECLS

#endif
