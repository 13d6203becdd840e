/** @file
 * The logger of the process, for code without its own logger.
 *
 * One FileLogger (file_logger.h), created by the first call here that needs it and never destroyed.
 * Unless that call sets something else, it writes to standard error at level 7 (INFO). Every call
 * forwards to the FileLogger_ operation of the same name, whose description applies: line format,
 * levels, formats, failures, reopening on SIGHUP.
 *
 * Thread safety: as in file_logger.h. First calls from several threads at once make one logger.
 */
#ifndef VNCOMMON_LOG_H
#define VNCOMMON_LOG_H

#include <stdarg.h>

#include <vncommon/api.h>
#include <vncommon/threads.h>

VN_BEGIN_DECLS

/** @name Setup
 * @{ */

/** Threshold, then destination, as FileLogger_SetLogLevel and FileLogger_SetFilename; returns
 * whether the destination is a terminal. If it is the first call, it creates the logger without
 * using standard error. */
VN_API int VN_LogSetup(uint32_t level, const char* name, int truncate, int nameIsUTF8);

/** Moves the logger to the file of that name, as FileLogger_SetFilename; returns whether it is a
 * terminal. */
VN_API int VN_LogSetFilename(const char* name, int truncate, int nameIsUTF8);

/** Moves the logger to an open descriptor, as FileLogger_SetFD; returns whether it is a
 * terminal. */
VN_API int VN_LogSetFD(int descriptor);

/** Opens the logger's file again, as FileLogger_ReOpen. */
VN_API void VN_LogReOpen(void);

/** Sets the threshold, as FileLogger_SetLogLevel. */
VN_API void VN_LogSetLevel(uint32_t level);

/** Makes the logger use the caller's mutex, as FileLogger_SetMutex. */
VN_API void VN_SetMutex(vn_Mutex* mutex);

/** The threshold. */
VN_API uint32_t VN_GetLogLevel(void);

/** The descriptor that lines are written to. */
VN_API int VN_GetLogFD(void);

/** The destination's name as the caller gave it. The logger's own string, not a copy; null after
 * VN_LogSetFD. */
VN_API const char* VN_GetLogFileName(void);

/** The destination's name in UTF-8. The logger's own string, not a copy; null after VN_LogSetFD. */
VN_API const char* VN_GetUTF8LogFileName(void);

/** The level that a word names, as FileLogger_StringToLogLevel. Does not create the logger. */
VN_API uint32_t VN_StringToLogLevel(const char* word) VN_PURE;

/** The name of a level, as FileLogger_LogLevelToString. Does not create the logger. */
VN_API const char* VN_LogLevelToString(uint32_t level) VN_CONST VN_RETURNS_NONNULL;
/** @} */

/** @name Lines
 * @{ */

/** Writes a line at level 9, TRACE. */
VN_API void VN_LogTrace(const char* format, ...) VN_PRINTF(1, 2);

/** Writes a line at level 8, DEBUG. */
VN_API void VN_LogDebug(const char* format, ...) VN_PRINTF(1, 2);

/** Writes a line at level 7, INFO. */
VN_API void VN_LogInfo(const char* format, ...) VN_PRINTF(1, 2);

/** Writes a line at level 6, WARN. */
VN_API void VN_LogWarn(const char* format, ...) VN_PRINTF(1, 2);

/** Writes a line at level 5, ERROR. */
VN_API void VN_LogError(const char* format, ...) VN_PRINTF(1, 2);

/** Writes a line at level 4, FATAL. */
VN_API void VN_LogFatal(const char* format, ...) VN_PRINTF(1, 2);

/** Writes a line at level 3, CRIT. */
VN_API void VN_LogCrit(const char* format, ...) VN_PRINTF(1, 2);

/** Writes a line at level 2, which every threshold from 2 up lets through. */
VN_API void VN_LogForce(const char* format, ...) VN_PRINTF(1, 2);

/** Writes a line at the given level from an argument list that the caller has started.
 * Compat: VN_DoLog and VN_DoLogV are swapped compared with the usual convention; compiled programs
 * call them so. */
VN_API void VN_DoLog(uint32_t level, const char* format, va_list arguments) VN_PRINTF(2, 0);

/** Writes a line at the given level from the arguments themselves.
 * Compat: VN_DoLog and VN_DoLogV are swapped compared with the usual convention; compiled programs
 * call them so. */
VN_API void VN_DoLogV(uint32_t level, const char* format, ...) VN_PRINTF(2, 3);
/** @} */

VN_END_DECLS

#endif
