/** @file
 * Log files: leveled, time-stamped lines to a file, standard error or standard output.
 *
 * A line reads
 *
 *     2024-03-05 14:07:09.042 WARN  [140245689214784] - the message
 *
 * local date and time with milliseconds, the level's name padded to five columns, the calling
 * thread (vn_getThreadID, as an unsigned long), the message, a newline. The line is built in a
 * buffer of the logger and written with one write(), whatever its length, so lines of several
 * threads never mix.
 *
 * Levels are numbers; a smaller one is more severe. A line is written when its level is less
 * than or equal to the logger's threshold:
 *
 *     0  "NULL"   no level; what an unknown word parses to
 *     1  "OFF"    as a threshold: no line of levels 2 to 9
 *     2  "#####"  forced lines, at every threshold from 2 up; no word parses to this level
 *     3  "CRIT"
 *     4  "FATAL"
 *     5  "ERROR"
 *     6  "WARN"
 *     7  "INFO"   the threshold of a new logger
 *     8  "DEBUG"
 *     9  "TRACE"
 *
 * A line at level 0 is written at every threshold. Callers pass levels 0 to 9 only; a higher
 * level is compared like any other and its name in the line is unspecified.
 *
 * Rotation: the first logger of a process installs a handler for SIGHUP. It reopens the file of
 * every logger as FileLogger_ReOpen does, then passes the signal on to the previous handler, if
 * there was one. A previous default action is not taken, so SIGHUP no longer ends the process. The
 * handler never waits for a lock. If another thread, or the interrupted code, is changing a
 * destination or reopening, it does the reopening right after that; otherwise every logger is on
 * its new file when the handler returns. The handler is safe at any moment, also during malloc,
 * fork or a call of this header. It loses no line: a line written meanwhile is in the old or the
 * new file. While a file takes long to open (a FIFO without a reader, a hung network file system),
 * lines of other loggers do not wait; new loggers, changes of destination and fork() do. The
 * handler is installed without SA_RESTART, so system calls that wait return EINTR. Threads of
 * vn_createThread block SIGHUP and are not affected. The library with the handler is never
 * unloaded. Only a forked child whose parent had no logger could unload it, and it must not.
 *
 * A reopening that fails moves the logger to standard error permanently (openFailure): later
 * SIGHUPs do not try the file again. Call FileLogger_SetFilename to return to it.
 *
 * Descriptors: programs that the process starts inherit the descriptor of the log and can write to
 * it. They do not inherit the second descriptor that exists briefly during a reopening.
 *
 * The calls that write lines are not async-signal-safe: they take a lock and use printf. A signal
 * handler of the program must not log, also not one that SIGHUP is passed on to.
 *
 * Thread safety: any number of threads may write lines and change the level. Choose the destination
 * (SetFilename, SetFD, ReOpen, SetMutex) in one thread at a time. Lines that other threads write
 * meanwhile go to the old or the new destination if both are files; one of them may be lost when
 * the logger moves between a file and another descriptor. Loggers may be created and destroyed by
 * any thread at any time. The time of a line is taken before the logger's lock, so lines of
 * different threads may be some milliseconds out of order.
 *
 * After fork() the child continues to log to the same descriptors. A logger's own lock is free in
 * it, even if another thread of the parent held it, and its first logger may be created in it. Any
 * thread may fork at any time, also in a signal handler; fork() does not change the signal mask.
 * Three limits: the caller must handle a lock given by FileLogger_SetMutex. A thread that holds
 * FileLogger_GetMutex must not fork. And if the program's own code calls localtime_r or a similar
 * function in one thread while another forks, the C library may leave its time zone lock locked in
 * the child, where the next line then waits forever; the library's own calls do not cause this.
 *
 * The result of write() is ignored. A line that the system does not accept (full disk, file size
 * limit, closed pipe, a signal that interrupts a wait on a pipe) is lost without a message, and
 * logging continues with the next line. If the system accepts only a part (a disk that becomes
 * full, a pipe that is nearly full), the line is cut there, and the next line follows without a
 * newline in between. SIGPIPE and SIGXFSZ are not blocked; their default action ends the process.
 * The calls that write lines do not change errno, and `"%m"` in a format is the caller's errno. A
 * thread is not cancelled in the middle of a line.
 *
 * Memory: a logger's memory comes from vn_malloc, so running out of it ends the process
 * (failure.h), except for a longer line buffer (see Lines). The list of all loggers is a Vector,
 * which does not check its memory: if memory for it runs out, the behaviour is undefined.
 *
 * A logger that writes to a terminal converts the whole line from UTF-8 to the locale's code
 * page first (vn_UTF8ToCstr, utf8.h); that allocates, other lines do not.
 */
#ifndef VNCOMMON_FILE_LOGGER_H
#define VNCOMMON_FILE_LOGGER_H

#include <signal.h>
#include <stdarg.h>

#include <vncommon/api.h>
#include <vncommon/threads.h>

VN_BEGIN_DECLS

/** Embedded by the caller (FileLogger_init) or allocated (FileLogger_ctor). The fields are for
 * reading only; those that a SIGHUP may change (fd, fileName, utf8FileName, console,
 * openFailure) are best read through the calls below. */
typedef struct FileLogger {
    uint32_t level;  /**< threshold */
    vn_Mutex* mutex; /**< held while a line is built and written */
    int ownsMutex;   /**< 1 while mutex is the logger's own allocation */
    int fd;          /**< the descriptor written to; 2 at first */
    char* buffer;    /**< the line; 1024 bytes at first, doubled as needed, never shrunk */
    int bufferSize;
    int prefixLength;   /**< the date and time kept at the start of the buffer */
    int64_t prefixTime; /**< the second (since 1970) they are for; 0 for none */
    char* fileName;     /**< the destination's name as the caller gave it; null for a bare fd */
    char* utf8FileName; /**< the same in UTF-8 */
    int console;        /**< the descriptor is a terminal; 0 before a destination is chosen */
    int openFailure;    /**< never cleared: 1 after an open that failed with a message, 2 without */
} FileLogger;

/** @name Creation and destruction
 * @{ */

/** A new logger on the heap, destroyed with FileLogger_dtor: threshold 7, its own mutex, descriptor
 * 2, no name. Choose a destination before the first line. A logger with a named destination is
 * reopened on SIGHUP. */
VN_NODISCARD VN_API FileLogger* FileLogger_ctor(void);

/** FileLogger_ctor for the caller's record, released with FileLogger_cleanup. */
VN_API void FileLogger_init(FileLogger* logger);

/** Releases the names, the mutex if it is the logger's own, and the descriptor, which is closed
 * unless it is 1 or 2, also if it was given by FileLogger_SetFD. No other thread may still use the
 * logger.
 * Compat: the line buffer is not freed; callers may vn_free `logger->buffer`. */
VN_API void FileLogger_cleanup(FileLogger* logger);

/** FileLogger_cleanup, then frees the record.
 * Compat: the line buffer is not freed; callers may save the address `logger->buffer` before this
 * call and vn_free it after. */
VN_API void FileLogger_dtor(FileLogger* logger);
/** @} */

/** @name Destination
 * @{ */

/** Moves the logger to the file of that name; returns whether it is a terminal (1 or 0).
 *
 * Exactly "stderr" and "stdout" mean descriptors 2 and 1. Any other file is opened for appending,
 * created with permissions 0644 if necessary, and emptied first if truncate is not 0. nameIsUTF8
 * is 0 for a name in the locale's code page, otherwise the name is UTF-8. The descriptor of a file
 * named before is closed or reused for the new file, so that it is never invalid in between; 1, 2
 * and a descriptor from FileLogger_SetFD stay open.
 *
 * When the file cannot be opened (a null name counts as such), the logger moves to standard
 * error under the name "stderr". For a UTF-8 name, `"Unable to open logfile \"%s\": %s\n"` (name,
 * vn_strerror) is written to standard error and openFailure becomes 1. For a name in the code page
 * nothing is written, and openFailure becomes 2 unless it was set already. */
VN_API int FileLogger_SetFilename(FileLogger* logger, const char* name, int truncate,
                                  int nameIsUTF8);

/** Moves the logger to an open descriptor, which has no name and is never reopened; returns whether
 * it is a terminal. Nothing is closed: the previous descriptor, also that of a file named here, now
 * belongs to the caller. Only FileLogger_cleanup closes the new one. */
VN_API int FileLogger_SetFD(FileLogger* logger, int descriptor);

/** FileLogger_SetFilename with the logger's own UTF-8 name, without truncating; afterwards
 * FileLogger_GetFileName also returns the UTF-8 name. Does nothing for a logger without a name. */
VN_API void FileLogger_ReOpen(FileLogger* logger);

/** The descriptor that lines are written to. */
VN_API int FileLogger_GetFD(const FileLogger* logger);

/** The destination's name as the caller gave it. The logger's own string, valid until its
 * destination is changed; null without a name. */
VN_API const char* FileLogger_GetFileName(const FileLogger* logger);

/** The destination's name in UTF-8. The logger's own string, valid until its destination is
 * changed; null without a name. */
VN_API const char* FileLogger_GetUTF8FileName(const FileLogger* logger);
/** @} */

/** @name Level and lock
 * @{ */

/** Sets the threshold. Takes the logger's mutex; lines that start after it follow the new
 * threshold. */
VN_API void FileLogger_SetLogLevel(FileLogger* logger, uint32_t level);

/** The threshold. */
VN_API uint32_t FileLogger_GetLogLevel(const FileLogger* logger);

/** The lock that is held while a line is written. A caller that holds it blocks all lines of the
 * logger, and must not write one itself. */
VN_API vn_Mutex* FileLogger_GetMutex(const FileLogger* logger);

/** Makes the logger use the caller's mutex from now on, for a lock shared with the caller's own
 * output. The previous mutex is destroyed and freed with vn_free, also if it was the caller's; no
 * thread may hold it or wait for it. If the mutex is the one in use, it only passes to the
 * caller. */
VN_API void FileLogger_SetMutex(FileLogger* logger, vn_Mutex* mutex);

/** 9 to 3 for "TRACE", "DEBUG", "INFO", "WARN", "ERROR", "FATAL", "CRIT" and 1 for "OFF", in upper
 * or lower case (ASCII, in every locale); 0 for null and for anything else. A threshold of 0
 * suppresses all lines above level 0, so check the result for a word that comes from outside. */
VN_API uint32_t FileLogger_StringToLogLevel(const char* word) VN_PURE;

/** The name of a level as in the table above, "NULL" for any other number. Static text. */
VN_API const char* FileLogger_LogLevelToString(uint32_t level) VN_CONST VN_RETURNS_NONNULL;
/** @} */

/** @name Lines
 * Formats are the platform's printf formats; messages are UTF-8. A line above the threshold
 * costs one comparison: no lock is taken and nothing is formatted. If printf rejects the format
 * (invalid wide characters, a result of 2 GiB or more), the message is the format itself; a null
 * format gives "(null)". If memory for a longer buffer runs out, the message is truncated.
 * @{ */

/** Writes a line at level 9, TRACE. */
VN_API void FileLogger_LogTrace(FileLogger* logger, const char* format, ...) VN_PRINTF(2, 3);

/** Writes a line at level 8, DEBUG. */
VN_API void FileLogger_LogDebug(FileLogger* logger, const char* format, ...) VN_PRINTF(2, 3);

/** Writes a line at level 7, INFO. */
VN_API void FileLogger_LogInfo(FileLogger* logger, const char* format, ...) VN_PRINTF(2, 3);

/** Writes a line at level 6, WARN. */
VN_API void FileLogger_LogWarn(FileLogger* logger, const char* format, ...) VN_PRINTF(2, 3);

/** Writes a line at level 5, ERROR. */
VN_API void FileLogger_LogError(FileLogger* logger, const char* format, ...) VN_PRINTF(2, 3);

/** Writes a line at level 4, FATAL. */
VN_API void FileLogger_LogFatal(FileLogger* logger, const char* format, ...) VN_PRINTF(2, 3);

/** Writes a line at level 3, CRIT. */
VN_API void FileLogger_LogCrit(FileLogger* logger, const char* format, ...) VN_PRINTF(2, 3);

/** Writes a line at level 2, which every threshold from 2 up lets through. */
VN_API void FileLogger_LogForce(FileLogger* logger, const char* format, ...) VN_PRINTF(2, 3);

/** Writes a line at the given level from an argument list that the caller has started. */
VN_API void FileLogger_DoLog(FileLogger* logger, uint32_t level, const char* format,
                             va_list arguments) VN_PRINTF(3, 0);

/** FileLogger_DoLog with a threshold that the environment may replace for this line: if the
 * variable is set, its first letter decides. T, D, I, W, E, F, C and O in either case mean TRACE to
 * OFF, an upper-case A means CRIT (alert). Any other value, or a null environmentName, keeps the
 * logger's threshold.
 * Compat: a lower-case a has no meaning; callers rely on it. */
VN_API void FileLogger_DoLog_cat(FileLogger* logger, const char* environmentName, uint32_t level,
                                 const char* format, va_list arguments) VN_PRINTF(4, 0);
/** @} */

/** @name SIGHUP
 * @{ */

/** The disposition that the handler replaced and passes SIGHUP on to. */
VN_API extern struct sigaction prevsighup;

/** Installs the handler again after other code has installed its own for SIGHUP; the signal is then
 * passed on to that one. Does nothing while our handler is installed. The other handler may call
 * the one that it replaced: the signal is not passed on in a loop. Returns the result of
 * sigaction(), 0 on success. Must not be called in a signal handler. */
VN_API int FileLogger_reinstallSignalHandler(void);
/** @} */

VN_END_DECLS

#endif
