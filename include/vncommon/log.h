/* The logger of the process, for code without its own logger.
 *
 * One FileLogger (file_logger.h), created by the first call here that needs it and never destroyed.
 * Unless that call sets something else, it writes to standard error at level 7 (INFO). Every call
 * forwards to the FileLogger_ operation of the same name, whose description applies: line format,
 * levels, formats, failures, reopening on SIGHUP.
 *
 * Thread-safety: as in file_logger.h. First calls from several threads at once make one logger.
 */
#ifndef VNCOMMON_LOG_H
#define VNCOMMON_LOG_H

#include <stdarg.h>

#include <vncommon/api.h>
#include <vncommon/threads.h>

VN_BEGIN_DECLS

/* ---- Set-up -------------------------------------------------------------------------------- */

/* Threshold, then destination, as FileLogger_SetLogLevel and FileLogger_SetFilename; returns
 * whether the destination is a terminal. If it is the first call, it creates the logger without
 * using standard error. */
VN_API int VN_LogSetup(uint32_t level, const char* name, int truncate, int nameIsUTF8);

VN_API int VN_LogSetFilename(const char* name, int truncate, int nameIsUTF8);
VN_API int VN_LogSetFD(int descriptor);
VN_API void VN_LogReOpen(void);
VN_API void VN_LogSetLevel(uint32_t level);
VN_API void VN_SetMutex(vn_Mutex* mutex);

VN_API uint32_t VN_GetLogLevel(void);
VN_API int VN_GetLogFD(void);
/* The logger's own strings, not copies; null after VN_LogSetFD. */
VN_API const char* VN_GetLogFileName(void);
VN_API const char* VN_GetUTF8LogFileName(void);

/* As in file_logger.h; these two do not create the logger. */
VN_API uint32_t VN_StringToLogLevel(const char* word) VN_PURE;
VN_API const char* VN_LogLevelToString(uint32_t level) VN_CONST VN_RETURNS_NONNULL;

/* ---- Lines --------------------------------------------------------------------------------- */

VN_API void VN_LogTrace(const char* format, ...) VN_PRINTF(1, 2);
VN_API void VN_LogDebug(const char* format, ...) VN_PRINTF(1, 2);
VN_API void VN_LogInfo(const char* format, ...) VN_PRINTF(1, 2);
VN_API void VN_LogWarn(const char* format, ...) VN_PRINTF(1, 2);
VN_API void VN_LogError(const char* format, ...) VN_PRINTF(1, 2);
VN_API void VN_LogFatal(const char* format, ...) VN_PRINTF(1, 2);
VN_API void VN_LogCrit(const char* format, ...) VN_PRINTF(1, 2);
VN_API void VN_LogForce(const char* format, ...) VN_PRINTF(1, 2);

/* VN_DoLog takes an argument list that the caller has started; VN_DoLogV takes the arguments
 * themselves.
 * Compat: the two names are swapped compared with the usual convention; compiled programs call
 * them so. */
VN_API void VN_DoLog(uint32_t level, const char* format, va_list arguments) VN_PRINTF(2, 0);
VN_API void VN_DoLogV(uint32_t level, const char* format, ...) VN_PRINTF(2, 3);

VN_END_DECLS

#endif
