/** @file
 * Processors and memory that the process may really use.
 *
 * Inside a container these may be less than the machine's: the limits of the process's control
 * group count as well. Both versions of control groups are read, and the smaller limit wins.
 * Also the memory use of the process, as the kernel reports it.
 *
 * Errors: none are reported. A missing file, an unreadable value, failed parsing or missing memory
 * means "no limit" (limits), 0 (counts and sizes) or null (paths). Nothing here ends the process.
 *
 * No limit is DBL_MAX for processors and INT64_MAX for bytes.
 *
 * Thread safety: every function may be called from any thread, any number at once.
 *
 * Cost: all functions except vn_getPhysicalCPUs open and read their files on every call, so the
 * next call sees a changed limit. Callers that need speed should keep the result.
 *
 * Environment, read on every call except that vn_getPhysicalCPUs remembers its answer:
 *
 *     VN_ASSUME_CPUS     processor count to use instead of /proc/cpuinfo's
 *     VN_CGROUPS_ROOT    mount point of the control groups, by default /sys/fs/cgroup
 *     VN_CGROUPS_SELF    list of the process's control groups, by default /proc/self/cgroup
 */
#ifndef VNCOMMON_DISCOVERY_H
#define VNCOMMON_DISCOVERY_H

#include <vncommon/api.h>

VN_BEGIN_DECLS

/** @name Processors
 * @{ */

/** Processors of the machine: VN_ASSUME_CPUS, if it is a number that is positive as a 32-bit
 * integer (what follows the number is ignored), else the "processor" lines of /proc/cpuinfo.
 * The answer is kept for the life of the process, except the 0 for a /proc/cpuinfo that cannot
 * be opened: the next call tries again. */
VN_API int vn_getPhysicalCPUs(void);

/** Processors that the process may use, possibly a fraction: the smallest of vn_getPhysicalCPUs
 * and the two control-group quotas. There is no lower bound: half a processor is 0.5. */
VN_API double vn_availableCPUs(void);

/** vn_availableCPUs rounded up: 0.5 gives 1, 2.01 gives 3. 0 only when nothing is known. */
VN_API int vn_numberOfCPUs(void);

/** Quota divided by period, in processors, from the version 1 "cpu" controller directory dir (the
 * files cpu.cfs_quota_us and cpu.cfs_period_us). No limit unless both are numbers greater than 0. A
 * null dir means no limit. */
VN_API double vn_availableCPUsCGroupsV1(const char* dir);

/** Quota divided by period, in processors, from the version 2 group directory dir (the file
 * cpu.max). No limit unless both are numbers greater than 0. A null dir means no limit. */
VN_API double vn_availableCPUsCGroupsV2(const char* dir);
/** @} */

/** @name Memory
 * @{ */

/** Memory that the process may use, in MiB, not rounded: the smallest of
 * vn_actualPhysicalMemoryBytes and the two control-group limits. */
VN_API double vn_physicalMemory(void);

/** Physical memory of the machine in bytes; 0 if unknown. */
VN_API int64_t vn_actualPhysicalMemoryBytes(void);

/** The limit in bytes, from the version 1 "memory" controller directory dir (the file
 * memory.limit_in_bytes). A value of physicalBytes or more is no limit, and so is a null dir. Any
 * other value is accepted.
 * Compat: a first line that is not blank and has no number is a limit of 0 bytes; callers rely on
 * it. */
VN_API int64_t vn_physicalMemoryCGroupsV1(const char* dir, int64_t physicalBytes);

/** The limit in bytes, from the version 2 group directory dir (the file memory.max). Only values
 * greater than 0 are accepted. A value of physicalBytes or more is no limit, and so is a null
 * dir. */
VN_API int64_t vn_physicalMemoryCGroupsV2(const char* dir, int64_t physicalBytes);

/** Virtual size of this process in bytes; 0.0 if unknown. Does not use the heap, so it works in a
 * process that has run out of memory. */
VN_API double vn_vmSize(void);

/** Resident set of this process in bytes; 0.0 if unknown. Does not use the heap, so it works in a
 * process that has run out of memory. */
VN_API double vn_residentSetSize(void);
/** @} */

/** @name Control groups
 * @{ */

/** Directory of the process's group for a controller: "cpu", "memory", or "" for version 2.
 * root is the mount point, selfFile the list of the process's groups. The result is
 * root/controller followed by the path that the first fitting line of selfFile gives, or
 * root/controller alone where that directory cannot be seen (as in a container). With the empty
 * controller the path follows a double slash, which is kept.
 * Null if selfFile cannot be opened or lists no such controller. The caller frees the result. */
VN_NODISCARD VN_API char* vn_getCGroupProcessControllerDir(const char* root, const char* selfFile,
                                                           const char* controller) VN_MALLOC;

/** Offset of the path in one line "id:controllers:path" of such a list, if the comma-separated
 * controllers hold the given one (all of its name: "cpu" is not "cpuset"), else -1. An empty
 * controller requests the version 2 line, whose list is empty. Neither text needs a
 * terminator. */
VN_API int64_t vn_findProcCGroupPathOffset(const char* line, size_t length, const char* controller,
                                           size_t controllerLength) VN_PURE;

/** First line, its line feed included, of the file whose name is dir directly followed by name
 * (name begins with the slash). Null if there is no such file or nothing to read. The caller
 * frees the result. */
VN_NODISCARD VN_API char* readCGroupsFile(const char* dir, const char* name) VN_MALLOC;
/** @} */

VN_END_DECLS

#endif
