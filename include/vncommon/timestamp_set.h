/* Timestamp sets: when one event passed each numbered stage of processing.
 *
 * Sets and their entries are made and dropped at event rates, so both come from object pools
 * instead of the heap: one pool per processor that the process may use (vn_numberOfCPUs,
 * discovery.h, read once at load; 4096 at most), each with room for 32 sets and 128 entries. A
 * thread always uses the pool picked by its counted id (vn_getCountedThreadId, threads.h), which
 * the thread's first use of a set takes if it has none yet, with pooling or without. What was put
 * into a pool last is taken first, by whichever set or thread needs it; the heap is used only when
 * the pool is empty or full.
 *
 * Clients reach a set's operations through the table that every set points to; the same
 * operations are exported under their own names. The order of the table is an interface.
 *
 * Times are seconds since 1970-01-01 UTC on the wall clock, with microseconds, as a double.
 * When the clock cannot be read, the warning "VN_TimestampSet_getRelativeTime(): gettimeofday()
 * failed, errno = %ld" is logged (log.h) and the time is 0.0.
 *
 * Stages are matched by their low 32 bits only: two stages that differ above bit 31 match each
 * other in replace and find (though not in the text, which tells them apart). This narrowing is
 * deliberate; compiled clients look stages up by 32-bit numbers.
 *
 * Thread-safety: one thread at a time per set. A set may be destroyed on another thread than the
 * one that made it; its memory then joins the destroying thread's pool.
 *
 * Fork: the child can use sets at once, also those that the forking thread had. fork() does not
 * wait for the pools. A pool that another thread was using at that moment is empty in the child;
 * what was in it is not freed. A signal handler that forks may interrupt any call here: the child
 * can return from the handler and go on. Only in the handler itself no call here is safe.
 *
 * Cost: taking, adding and destroying are constant, without heap calls in steady state; each takes
 * the pool's lock once. find, replace and remove are linear in the number of entries.
 *
 * Memory: sets, entries and texts come from vn_malloc, so running out of it ends the process
 * (failure.h). The Vector in a set and the HashMap that printing needs do not check theirs:
 * without memory for these the behaviour is undefined. Without memory for the pools at load there
 * is no pooling.
 *
 * Environment: VN_OBJECTPOOL_DISABLED (any value, read at load) turns pooling off: the pools hold
 * nothing, and every set and entry goes straight to and from the heap, which is what a leak checker
 * wants.
 */
#ifndef VNCOMMON_TIMESTAMP_SET_H
#define VNCOMMON_TIMESTAMP_SET_H

#include <vncommon/api.h>
#include <vncommon/buffers.h>
#include <vncommon/hashmap.h>
#include <vncommon/vector.h>

VN_BEGIN_DECLS

typedef struct TimeStamp {
    uint64_t stage;
    double time;
} TimeStamp;

typedef struct VN_TimestampSet VN_TimestampSet;

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

struct VN_TimestampSet {
    Vector* entries; /* of TimeStamp*, in the order added */
    const VN_TimestampSetFunctionTable* functions;
};

/* The one table that every set points to. */
VN_API extern const VN_TimestampSetFunctionTable VN_TimestampSetFunctions;

/* An empty set; the caller ends it with VN_TimestampSet_dtor. */
VN_NODISCARD VN_API VN_TimestampSet* VN_TimestampSet_ctor(void);

/* A new set with the same entries in the same order, duplicates included. */
VN_NODISCARD VN_API VN_TimestampSet* VN_TimestampSet_copy(VN_TimestampSet* set);

/* Ends a set with all its entries; null is ignored. */
VN_API void VN_TimestampSet_dtor(VN_TimestampSet* set);

/* Appends an entry with the current, or the given, time. Stages may repeat. */
VN_API void VN_TimestampSet_addNow(VN_TimestampSet* set, uint64_t stage);
VN_API void VN_TimestampSet_addTime(VN_TimestampSet* set, uint64_t stage, double time);

/* Gives the first entry of that stage the given, or the current, time. Returns the entry, which
 * belongs to the set, or null when there is none: nothing is added, and the clock is not read. */
VN_API TimeStamp* VN_TimestampSet_replace(VN_TimestampSet* set, uint64_t stage, double time);
VN_API TimeStamp* VN_TimestampSet_replaceWithNow(VN_TimestampSet* set, uint64_t stage);

/* The time of the first entry of that stage, or 0.0; the second also takes the entry out. The
 * rest keeps its order. */
VN_API double VN_TimestampSet_findTime(VN_TimestampSet* set, uint64_t stage);
VN_API double VN_TimestampSet_findTimeAndRemove(VN_TimestampSet* set, uint64_t stage);

/* Takes the earliest-added entry out into *stage and *time; false when the set is empty. */
VN_API bool VN_TimestampSet_getNextStampAndRemove(VN_TimestampSet* set, uint64_t* stage,
                                                  double* time);

VN_API uint32_t VN_TimestampSet_getSize(VN_TimestampSet* set) VN_PURE;

/* "{1:1700000000.250000, 2:1700000000.500000}": each stage once, at its first entry, in the order
 * added; "{}" for an empty set, "{NULL}" for a null one. The caller frees it with vn_free. */
VN_NODISCARD VN_API char* VN_TimestampSet_toString(VN_TimestampSet* set) VN_MALLOC;

/* The current time, as the entries carry it. */
VN_API double VN_TimestampSet_getRelativeTime(void);

/* Appends entry as "%lu:%f, " (stage, time) unless its stage is a key of printed already; then
 * makes it one. The map's hash and compare must take the stage itself as the key. */
VN_API void VectorElement_toString(TimeStamp* entry, CStringBuffer* text, HashMap* printed);

/* The clock for Java: VN_TimestampSet_getRelativeTime(). In seconds, despite the name, which
 * compiled classes call. Declared without jni.h: a jdouble is a double, and neither of the two
 * pointers is looked at. */
VN_API double Java_com_vantrel_util_CommonNativeMethods_getMicroTime(void* environment,
                                                                     void* object);

VN_END_DECLS

#endif
