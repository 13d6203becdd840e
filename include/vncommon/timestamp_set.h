/** @file
 * Timestamp sets: the times at which one event passed each numbered stage of processing.
 *
 * Sets and their entries are created and destroyed for every event, so both come from object pools
 * instead of the heap: one pool per processor that the process may use (vn_numberOfCPUs,
 * discovery.h, read once at load; 4096 at most), each with room for 32 sets and 128 entries. A
 * thread always uses the pool selected by its counted id (vn_getCountedThreadId, threads.h). A
 * thread without one gets it at its first use of a set, also without pooling. The object that was
 * put into a pool last is taken first, for any set or thread. The heap is used only when the pool
 * is empty or full.
 *
 * Clients call a set's operations through the table that every set points to; the same operations
 * are exported under their own names. The order of the table is part of the interface.
 *
 * Times are seconds since 1970-01-01 UTC on the wall clock, with microseconds, as a double.
 * When the clock cannot be read, the warning
 * `"VN_TimestampSet_getRelativeTime(): gettimeofday() failed, errno = %ld"` is logged (log.h) and
 * the time is 0.0.
 *
 * Compat: replace and find match stages by their low 32 bits only, because compiled clients look
 * stages up by 32-bit numbers. The text shows all 64 bits.
 *
 * Thread safety: one thread at a time per set. A set may be destroyed by another thread than the
 * one that created it; its memory then goes to the pool of the destroying thread.
 *
 * Fork: the child can use sets at once, also those that the forking thread had. fork() does not
 * wait for the pools. A pool that another thread was using at that moment is empty in the child;
 * its contents are not freed. A signal handler that forks may interrupt any call here: the child
 * can return from the handler and continue. No call here is safe in the handler itself.
 *
 * Cost: creating and adding take constant time; destroying, finding, replacing and removing are
 * linear in the number of entries. In steady state none of them calls the heap, and creating,
 * adding and destroying take the pool's lock once.
 *
 * Memory: sets, entries and strings come from vn_malloc, so running out of it ends the process
 * (failure.h). The Vector in a set and the HashMap that printing needs do not check their memory:
 * if memory for these runs out, the behaviour is undefined. If memory for the pools runs out at
 * load, there is no pooling.
 *
 * Environment: VN_OBJECTPOOL_DISABLED (any value, read at load) turns pooling off: the pools stay
 * empty, and every set and entry is allocated on the heap and freed there, as leak checkers need.
 */
#ifndef VNCOMMON_TIMESTAMP_SET_H
#define VNCOMMON_TIMESTAMP_SET_H

#include <vncommon/api.h>
#include <vncommon/buffers.h>
#include <vncommon/hashmap.h>
#include <vncommon/vector.h>

VN_BEGIN_DECLS

/** The time at which an event passed a stage. */
typedef struct TimeStamp {
    uint64_t stage;
    double time;
} TimeStamp;

typedef struct VN_TimestampSet VN_TimestampSet;

/** The operations of a set, in the order that is part of the interface. */
typedef struct VN_TimestampSetFunctionTable {
    void (*addNow)(VN_TimestampSet* set, uint64_t stage);
    void (*addTime)(VN_TimestampSet* set, uint64_t stage, double time);
    TimeStamp* (*replace)(VN_TimestampSet* set, uint64_t stage, double time);
    TimeStamp* (*replaceWithNow)(VN_TimestampSet* set, uint64_t stage);
    double (*findTime)(VN_TimestampSet* set, uint64_t stage);
    double (*findTimeAndRemove)(VN_TimestampSet* set, uint64_t stage);
    bool (*getNextStampAndRemove)(VN_TimestampSet* set, uint64_t* stage, double* time);
    uint32_t (*getSize)(VN_TimestampSet* set);
    char* (*toString)(VN_TimestampSet* set);
} VN_TimestampSetFunctionTable;

/** A set. */
struct VN_TimestampSet {
    Vector* entries; /**< of TimeStamp*, in the order added */
    const VN_TimestampSetFunctionTable* functions;
};

/** The one table that every set points to. */
VN_API extern const VN_TimestampSetFunctionTable VN_TimestampSetFunctions;

/** An empty set; the caller destroys it with VN_TimestampSet_dtor. */
VN_NODISCARD VN_API VN_TimestampSet* VN_TimestampSet_ctor(void);

/** A new set with the same entries in the same order, duplicates included. */
VN_NODISCARD VN_API VN_TimestampSet* VN_TimestampSet_copy(VN_TimestampSet* set);

/** Destroys a set with all its entries; null is ignored. */
VN_API void VN_TimestampSet_dtor(VN_TimestampSet* set);

/** Appends an entry with the current time. Stages may repeat. */
VN_API void VN_TimestampSet_addNow(VN_TimestampSet* set, uint64_t stage);

/** Appends an entry with the given time. Stages may repeat. */
VN_API void VN_TimestampSet_addTime(VN_TimestampSet* set, uint64_t stage, double time);

/** Sets the time of the first entry of that stage to the given time. Returns the entry, which
 * belongs to the set, or null when there is none; then nothing is added. */
VN_API TimeStamp* VN_TimestampSet_replace(VN_TimestampSet* set, uint64_t stage, double time);

/** Sets the time of the first entry of that stage to the current time. Returns the entry, which
 * belongs to the set, or null when there is none; then nothing is added, and the clock is not
 * read. */
VN_API TimeStamp* VN_TimestampSet_replaceWithNow(VN_TimestampSet* set, uint64_t stage);

/** The time of the first entry of that stage; 0.0 when there is none. */
VN_API double VN_TimestampSet_findTime(VN_TimestampSet* set, uint64_t stage);

/** Removes the first entry of that stage and returns its time; 0.0 when there is none. The other
 * entries keep their order. */
VN_API double VN_TimestampSet_findTimeAndRemove(VN_TimestampSet* set, uint64_t stage);

/** Removes the earliest-added entry and stores it in *stage and *time; false if the set is empty.
 */
VN_API bool VN_TimestampSet_getNextStampAndRemove(VN_TimestampSet* set, uint64_t* stage,
                                                  double* time);

/** The number of entries. */
VN_API uint32_t VN_TimestampSet_getSize(VN_TimestampSet* set) VN_PURE;

/** "{1:1700000000.250000, 2:1700000000.500000}": each stage once, at its first entry, in the order
 * added; "{}" for an empty set, "{NULL}" for a null one. The caller frees it with vn_free. */
VN_NODISCARD VN_API char* VN_TimestampSet_toString(VN_TimestampSet* set) VN_MALLOC;

/** The current time, as the entries carry it. */
VN_API double VN_TimestampSet_getRelativeTime(void);

/** If the stage of entry is not yet a key of printed, appends entry as `"%lu:%f, "` (stage, time)
 * and adds the key. The map's hash and compare must take the stage itself as the key. */
VN_API void VectorElement_toString(TimeStamp* entry, CStringBuffer* text, HashMap* printed);

/** The JNI wall clock for Java callers: VN_TimestampSet_getRelativeTime(). Declared without jni.h:
 * a jdouble is a double, and the two pointers are not used.
 * Compat: the result is in seconds despite the name, which compiled classes call. */
VN_API double Java_com_vantrel_util_CommonNativeMethods_getMicroTime(void* environment,
                                                                     void* object);

VN_END_DECLS

#endif
