/* Log files: leveled, time-stamped lines to a file, standard error or standard output.
 *
 * A line reads
 *     2024-03-05 14:07:09.042 WARN  [140245689214784] - the message
 * local date and time with milliseconds, the level's name padded to five columns, the calling
 * thread (vn_getThreadID, as an unsigned long), the message, a newline. It is put together in a
 * buffer of the logger and handed to the system with one write() of the whole line, whatever its
 * length, so the lines of several threads never mix.
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
 * Rotation: the first logger of a process installs a handler for SIGHUP that reopens the file of
 * every logger as FileLogger_ReOpen does and then passes the signal on to the handler that was
 * there before, if there was one; a default or ignored disposition gets nothing, so SIGHUP no
 * longer ends the process. The handler never waits for a lock: if another thread, or the code that
 * the signal interrupted, is just changing a destination or reopening, the handler leaves the
 * reopening to it, and it is done as soon as that step is; otherwise every logger is on its new
 * file when the handler returns. The handler is safe at any moment, in the middle of malloc, fork
 * or a call of this header too, and no line is lost by it: a line written meanwhile is in the old
 * file or in the new one. No other logger's line waits while a file takes long to open (a FIFO
 * without a reader, a hung network file system); new loggers, changes of destination and fork() do.
 * The handler is installed without SA_RESTART, so system calls that wait return EINTR; threads of
 * vn_createThread block SIGHUP and do not notice. The library that holds the handler is never
 * unloaded, except by a forked child whose parent had no logger: a child must not unload it.
 *
 * A reopening that fails moves the logger to standard error for good (openFailure): later SIGHUPs
 * do not try the file again. Call FileLogger_SetFilename to return to it.
 *
 * Descriptors: programs that the process starts inherit the log's own descriptor, so that they can
 * write to it; they do not inherit the second one that exists for a moment during a reopening.
 *
 * The calls that write lines are not async-signal-safe: they take a lock and use printf. A handler
 * of the program, one that SIGHUP is passed on to included, must not log.
 *
 * Thread-safety: lines may be written and the level changed by any number of threads. Choose the
 * destination (SetFilename, SetFD, ReOpen, SetMutex) in one thread at a time; lines of other
 * threads meanwhile are written to the old or the new destination if both are files, and one of
 * them may be lost when the logger moves between a file and another descriptor. Loggers may be
 * created and destroyed by any thread at any time. The time of a line is taken before the
 * logger's lock, so lines of different threads may stand some milliseconds out of order.
 *
 * After fork() the child logs on with the same descriptors; a logger's own lock is free in it
 * even if another thread of the parent held it, and a first logger may be made in it. Any thread
 * may fork at any time, a signal handler included; fork() leaves the signal mask alone. (A lock
 * given by FileLogger_SetMutex is the caller's to look after, and a thread that holds
 * FileLogger_GetMutex must not fork. If the program's own code calls localtime_r or its like in one
 * thread while another forks, the C library may leave its time zone lock locked in the child, whose
 * next line then waits for ever; the library's own calls do not do that.)
 *
 * The result of write() is not looked at: a line that the system does not take (full disk, file
 * size limit, closed pipe, a signal that interrupts a wait on a pipe) is lost without a word, and
 * logging goes on with the next line. A line of which the system takes only a part (a disk that
 * becomes full, a pipe that is nearly full) is cut there, and the next line follows without a
 * newline in between. SIGPIPE and SIGXFSZ are not blocked: a process that lets
 * them kill it is killed. errno is left as it was by the calls that write lines, and "%m" in a
 * format names the caller's errno. A thread is not cancelled in the middle of a line.
 *
 * Memory: what a logger needs comes from vn_malloc, so running out of it ends the process
 * (failure.h), except for a longer line buffer (see Lines). The list of all loggers is a Vector,
 * which does not check its memory: without memory for it the behaviour is undefined.
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

/* Embedded by the caller (FileLogger_init) or allocated (FileLogger_ctor). The fields are for
 * reading only; those that a SIGHUP may change (fd, fileName, utf8FileName, console,
 * openFailure) are best read through the calls below. */
typedef struct FileLogger {
    uint32_t level;  /* threshold */
    vn_Mutex* mutex; /* held while a line is put together and written */
    int ownsMutex;   /* 1 while mutex is the logger's own allocation */
    int fd;          /* the descriptor written to; 2 at first */
    char* buffer;    /* the line; 1024 bytes at first, doubled as needed, never shrunk */
    int bufferSize;
    int prefixLength;   /* the date and time kept at the start of the buffer */
    int64_t prefixTime; /* the second (since 1970) they are for; 0 for none */
    char* fileName;     /* the destination's name as the caller gave it; null for a bare fd */
    char* utf8FileName; /* the same in UTF-8 */
    int console;        /* the descriptor is a terminal; 0 before a destination is chosen */
    int openFailure;    /* never cleared: 1 after an open that failed with a message, 2 without */
} FileLogger;

/* ---- Life --------------------------------------------------------------------------------- */

/* A new logger: threshold 7, its own mutex, descriptor 2, no name. It is reopened on SIGHUP from
 * now on, once it has a named destination. Choose one before the first line. */
VN_NODISCARD VN_API FileLogger* FileLogger_ctor(void);
VN_API void FileLogger_init(FileLogger* logger);

/* Releases the names, the mutex if it is the logger's own, and the descriptor: closed unless it
 * is 1 or 2, whether it was opened here or given. The line buffer is left to the caller, who may
 * vn_free logger->buffer; this is deliberate. _dtor frees the record too (take the buffer's
 * address before it). No other thread may use the logger any more. */
VN_API void FileLogger_cleanup(FileLogger* logger);
VN_API void FileLogger_dtor(FileLogger* logger);

/* ---- Destination -------------------------------------------------------------------------- */

/* Moves the logger to the file of that name; returns whether it is a terminal (1 or 0).
 *
 * Exactly "stderr" and "stdout" stand for descriptors 2 and 1. Any other file is opened for
 * appending, created with permissions 0644 if need be and emptied first if truncate is not 0.
 * nameIsUTF8 tells whether the name is UTF-8 or in the locale's code page. The descriptor of a
 * file named before is closed, or taken over by the new file, so that it is never invalid in
 * between; 1, 2 and a descriptor from FileLogger_SetFD stay open.
 *
 * When the file cannot be opened (a null name counts as such), the logger moves to standard
 * error under the name "stderr". A UTF-8 name is reported by "Unable to open logfile \"%s\":
 * %s\n" (name, vn_strerror) on standard error and sets openFailure to 1; a name in the code page
 * is not reported and sets it to 2 unless it was set already. */
VN_API int FileLogger_SetFilename(FileLogger* logger, const char* name, int truncate,
                                  int nameIsUTF8);

/* Moves the logger to an open descriptor, which has no name and is never reopened; returns
 * whether it is a terminal. Nothing is closed: the descriptor before, even of a file named here,
 * is the caller's from now on. Only FileLogger_cleanup closes the one given. */
VN_API int FileLogger_SetFD(FileLogger* logger, int descriptor);

/* FileLogger_SetFilename with the logger's own UTF-8 name, without truncating; from then on the
 * name as given is the UTF-8 one too. Does nothing for a logger without a name. */
VN_API void FileLogger_ReOpen(FileLogger* logger);

VN_API int FileLogger_GetFD(const FileLogger* logger);
/* The logger's own strings, valid until its destination is chosen anew; null without a name. */
VN_API const char* FileLogger_GetFileName(const FileLogger* logger);
VN_API const char* FileLogger_GetUTF8FileName(const FileLogger* logger);

/* ---- Level and lock ------------------------------------------------------------------------ */

/* Takes the logger's mutex; lines that start after it follow the new threshold. */
VN_API void FileLogger_SetLogLevel(FileLogger* logger, uint32_t level);
VN_API uint32_t FileLogger_GetLogLevel(const FileLogger* logger);

/* The lock that lines are written under. A caller that holds it keeps all lines of the logger
 * out, and must not write one itself. */
VN_API vn_Mutex* FileLogger_GetMutex(const FileLogger* logger);

/* Makes the logger use the caller's mutex from now on, for a lock shared with output of the
 * caller's own. The one before is destroyed and freed with vn_free, whoever it belonged to
 * (giving the mutex in use only hands it to the caller). Nobody may hold or wait for it. */
VN_API void FileLogger_SetMutex(FileLogger* logger, vn_Mutex* mutex);

/* 9 to 3 for "TRACE", "DEBUG", "INFO", "WARN", "ERROR", "FATAL", "CRIT" and 1 for "OFF", in upper
 * or lower case (ASCII, whatever the locale); 0 for null and for anything else. As a threshold 0
 * silences everything, so check the result of a word that comes from outside. */
VN_API uint32_t FileLogger_StringToLogLevel(const char* word) VN_PURE;

/* The name of a level as in the table above, "NULL" for any other number. Static text. */
VN_API const char* FileLogger_LogLevelToString(uint32_t level) VN_CONST VN_RETURNS_NONNULL;

/* ---- Lines --------------------------------------------------------------------------------
 *
 * Formats are the platform's printf formats; messages are UTF-8. A line above the threshold
 * costs one comparison: no lock is taken and nothing is formatted. A format that printf refuses
 * (invalid wide characters, a result of 2 GiB or more) is written itself as the message, a null
 * one as "(null)". Without memory for a longer buffer a message is cut to the room there is.
 */

VN_API void FileLogger_LogTrace(FileLogger* logger, const char* format, ...) VN_PRINTF(2, 3);
VN_API void FileLogger_LogDebug(FileLogger* logger, const char* format, ...) VN_PRINTF(2, 3);
VN_API void FileLogger_LogInfo(FileLogger* logger, const char* format, ...) VN_PRINTF(2, 3);
VN_API void FileLogger_LogWarn(FileLogger* logger, const char* format, ...) VN_PRINTF(2, 3);
VN_API void FileLogger_LogError(FileLogger* logger, const char* format, ...) VN_PRINTF(2, 3);
VN_API void FileLogger_LogFatal(FileLogger* logger, const char* format, ...) VN_PRINTF(2, 3);
VN_API void FileLogger_LogCrit(FileLogger* logger, const char* format, ...) VN_PRINTF(2, 3);
VN_API void FileLogger_LogForce(FileLogger* logger, const char* format, ...) VN_PRINTF(2, 3);

VN_API void FileLogger_DoLog(FileLogger* logger, uint32_t level, const char* format,
                             va_list arguments) VN_PRINTF(3, 0);

/* The same with a threshold that the environment may replace for this line: if the variable is
 * set, its first letter decides. T, D, I, W, E, F, C and O in either case stand for TRACE to OFF
 * and a capital A for CRIT (alert; the small letter deliberately means nothing); any other
 * value leaves the logger's threshold. A null environmentName asks for no variable. */
VN_API void FileLogger_DoLog_cat(FileLogger* logger, const char* environmentName, uint32_t level,
                                 const char* format, va_list arguments) VN_PRINTF(4, 0);

/* ---- SIGHUP -------------------------------------------------------------------------------- */

/* Where the handler passes SIGHUP on to: the disposition that it replaced. */
VN_API extern struct sigaction prevsighup;

/* Installs the handler again after other code has taken SIGHUP over, which then becomes the one
 * that the signal is passed on to. While the handler is in force nothing changes. Other code may
 * itself call the handler it replaced: the signal is not passed round in a circle. Returns what
 * sigaction() returned, 0 on success. Not in a signal handler. */
VN_API int FileLogger_reinstallSignalHandler(void);

VN_END_DECLS

#endif
