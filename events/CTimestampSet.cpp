// Timestamp sets and the pools that recycle them.
//
// Each pool is guarded by its own mutex; no two are held at the same time. Without pools (before
// load, after unload, or without memory for them) everything comes from the heap.
//
// Each stamp takes its entry from the pool under the lock. If a set kept its own spare entries, the
// other sets of the pool could not use them and would allocate from the heap, and it could not
// reuse the entry that another set freed last.
//
// Fork: see fork_safe_mutex.h. A pool that another thread had locked is empty in the child, because
// its stacks may be half changed; its contents leak there. glibc 2.36: fork() leaves malloc usable
// in the child.
#include <vncommon/timestamp_set.h>

#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include <vncommon/discovery.h>
#include <vncommon/failure.h>
#include <vncommon/log.h>

#include "platform/assertion.h"
#include "platform/float_environment.h"
#include "platform/fork_handlers.h"
#include "platform/fork_safe_mutex.h"

namespace vncommon {
namespace {

constexpr uint32_t TS_POOL_SIZE = 32;    // free sets that a pool keeps
constexpr uint32_t TSE_POOL_SIZE = 128;  // free entries that a pool keeps
constexpr int mostPools = 4096;          // bounds a wrong VN_ASSUME_CPUS: a pool has 1.3 KiB
constexpr uint32_t entriesAtFirst = 8;   // room in a new set

constexpr LockRole poolLock;

// Free objects, last in, first out. A pooled set's Vector is empty. No two pools share a cache
// line, because their threads change the start and the end of a pool often.
struct alignas(64) Pool {
    VN_TimestampSet* sets[TS_POOL_SIZE] VN_GUARDED_BY(poolLock);
    TimeStamp* entries[TSE_POOL_SIZE] VN_GUARDED_BY(poolLock);
    uint32_t setCount VN_GUARDED_BY(poolLock);
    uint32_t entryCount VN_GUARDED_BY(poolLock);
    ForkSafeMutex mutex;
};

int32_t integer_compare(const void* element, const void* key) {
    const auto stageOf = [](const void* entry) {
        return static_cast<uint32_t>(static_cast<const TimeStamp*>(entry)->stage);
    };
    return static_cast<int32_t>(stageOf(element) - stageOf(key));
}

VN_TimestampSet* newSet() {
    auto* set = static_cast<VN_TimestampSet*>(vn_malloc(sizeof(VN_TimestampSet)));
    set->entries = vn_Vector_ctor(integer_compare, nullptr, nullptr, entriesAtFirst, 0);
    set->functions = &VN_TimestampSetFunctions;
    return set;
}

// A set between operations. In builds with assertions, the Vector of a pooled set has no compare,
// so that a use after the destruction is recognised.
[[maybe_unused]] bool isInUse(const VN_TimestampSet* set) {
    return set->functions != nullptr && set->entries->compare != nullptr;
}

void markPooled([[maybe_unused]] const VN_TimestampSet* set) {
#if defined(VN_ASSERTIONS)
    set->entries->compare = nullptr;
#endif
}

VN_TimestampSet* reused(VN_TimestampSet* set) {
    VN_ASSERT(!isInUse(set) && vn_Vector_empty(set->entries));
#if defined(VN_ASSERTIONS)
    set->entries->compare = integer_compare;
#endif
    return set;
}

void freeSet(VN_TimestampSet* set) {
    vn_Vector_dtor(set->entries);
    free(set);
}

// The pool of the calling thread, counted from 1; 0 until the thread has its counted id, which
// never changes. Saves each stamp a call and a division. Static TLS, because access to any other
// needs a call and may allocate.
[[gnu::tls_model("initial-exec")]] thread_local uint32_t poolNumber = 0;

// All the pools of the process, from load to unload.
class TimestampPools {
  public:
    TimestampPools() {
        if (getenv("VN_OBJECTPOOL_DISABLED") == nullptr) {
            setCapacity_ = TS_POOL_SIZE;
            entryCapacity_ = TSE_POOL_SIZE;
        }
        count_ = static_cast<uint64_t>(std::clamp(vn_numberOfCPUs(), 1, mostPools));
        size_t space = count_ * sizeof(Pool) + alignof(Pool);
        block_ = malloc(space);
        if (block_ == nullptr) {
            return;
        }
        void* aligned = block_;
        std::align(alignof(Pool), count_ * sizeof(Pool), aligned, space);
        VN_ASSERT(space >= count_ * sizeof(Pool));
        auto* pools = static_cast<Pool*>(aligned);
        for (uint64_t i = 0; i < count_; ++i) {
            vn_Mutex_init(&(new (&pools[i]) Pool())->mutex.mutex);
        }
        pools_ = pools;
    }

    ~TimestampPools() {
        Pool* pools = pools_;
        pools_ = nullptr;
        if (pools == nullptr) {
            return;
        }
        for (uint64_t i = 0; i < count_; ++i) {
            std::for_each_n(pools[i].sets, pools[i].setCount, freeSet);
            std::for_each_n(pools[i].entries, pools[i].entryCount, free);
            vn_Mutex_destroy(&pools[i].mutex.mutex);
        }
        free(block_);
    }

    // The calling thread's pool; null when there are no pools.
    Pool* ofThisThread() const {
        if (pools_ == nullptr) {
            return nullptr;
        }
        if (poolNumber == 0) [[unlikely]] {
            poolNumber = static_cast<uint32_t>(vn_getCountedThreadId() % count_) + 1;
        }
        VN_ASSERT(poolNumber <= count_);
        return &pools_[poolNumber - 1];
    }

    // No lock is needed: the child has one thread.
    void freeInChild() VN_NO_THREAD_SAFETY_ANALYSIS {
        for (uint64_t i = 0; pools_ != nullptr && i < count_; ++i) {
            if (pools_[i].mutex.freeInChild()) {
                pools_[i].setCount = 0;
                pools_[i].entryCount = 0;
            }
        }
    }

    // How many objects a pool keeps: 0 with VN_OBJECTPOOL_DISABLED.
    uint32_t setCapacity() const { return setCapacity_; }
    uint32_t entryCapacity() const { return entryCapacity_; }

    bool isValid(const Pool& pool) const VN_REQUIRES(poolLock) {
        return pool.setCount <= setCapacity_ && pool.entryCount <= entryCapacity_;
    }

  private:
    void* block_ = nullptr;
    Pool* pools_ = nullptr;
    uint64_t count_ = 0;
    uint32_t setCapacity_ = 0;
    uint32_t entryCapacity_ = 0;
};

TimestampPools VN_TimestampSet_Global;
const ForkHandlers forkHandlers(nullptr, nullptr, [] { VN_TimestampSet_Global.freeInChild(); });

TimeStamp* takeEntry() {
    if (Pool* pool = VN_TimestampSet_Global.ofThisThread()) {
        const ForkSafeLock lock(pool->mutex, poolLock);
        VN_ASSERT(VN_TimestampSet_Global.isValid(*pool));
        if (pool->entryCount > 0) {
            return pool->entries[--pool->entryCount];
        }
    }
    return static_cast<TimeStamp*>(vn_malloc(sizeof(TimeStamp)));
}

void add(VN_TimestampSet* set, TimeStamp stamp) {
    VN_ASSERT(isInUse(set));
    TimeStamp* entry = takeEntry();
    *entry = stamp;
    vn_Vector_add(set->entries, entry);
}

TimeStamp** entriesOf(const VN_TimestampSet* set) {
    return reinterpret_cast<TimeStamp**>(set->entries->data);
}

void recycleInto(Pool& pool, TimeStamp** entries, uint32_t count) VN_REQUIRES(poolLock) {
    VN_ASSERT(VN_TimestampSet_Global.isValid(pool));
    const uint32_t room = VN_TimestampSet_Global.entryCapacity() - pool.entryCount;
    const uint32_t kept = std::min(count, room);
    std::copy_n(entries, kept, pool.entries + pool.entryCount);
    pool.entryCount += kept;
    std::for_each(entries + kept, entries + count, free);
    VN_ASSERT(VN_TimestampSet_Global.isValid(pool));
}

void recycle(TimeStamp* entry) {
    if (Pool* pool = VN_TimestampSet_Global.ofThisThread()) {
        const ForkSafeLock lock(pool->mutex, poolLock);
        recycleInto(*pool, &entry, 1);
    } else {
        free(entry);
    }
}

// False when the pool already holds all the sets it keeps.
bool recycleSet(VN_TimestampSet* set) {
    Pool* pool = VN_TimestampSet_Global.ofThisThread();
    if (pool == nullptr) {
        return false;
    }
    const ForkSafeLock lock(pool->mutex, poolLock);
    if (pool->setCount == VN_TimestampSet_Global.setCapacity()) {
        return false;
    }
    recycleInto(*pool, entriesOf(set), set->entries->size);
    vn_Vector_clear(set->entries);
    markPooled(set);
    pool->sets[pool->setCount++] = set;
    VN_ASSERT(VN_TimestampSet_Global.isValid(*pool));
    return true;
}

bool findStage(const VN_TimestampSet* set, uint64_t stage, uint32_t* index) {
    VN_ASSERT(isInUse(set));
    const TimeStamp key = {stage, 0.0};
    return vn_Vector_find(set->entries, &key, index);
}

// The first entry of the stage, or null.
TimeStamp* findEntry(const VN_TimestampSet* set, uint64_t stage) {
    uint32_t index;
    return findStage(set, stage, &index) ? entriesOf(set)[index] : nullptr;
}

// Unlike vn_Vector_remove, keeps the order: the entry at position 0 must be the earliest-added.
TimeStamp removeInOrder(VN_TimestampSet* set, uint32_t index) {
    Vector* entries = set->entries;
    VN_ASSERT(index < entries->size);
    TimeStamp* entry = entriesOf(set)[index];
    const TimeStamp removed = *entry;
    memmove(entries->data + index, entries->data + index + 1,
            (entries->size - index - 1) * sizeof(void*));
    --entries->size;
    recycle(entry);
    return removed;
}

[[gnu::noinline]] double roundedSeconds(timeval time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1000000.0;
}

double toSeconds(const timeval& time) {
    return inDefaultFloatMode<roundedSeconds>(time);
}

uint32_t hashStage(const void* stage) {
    const auto value = reinterpret_cast<uint64_t>(stage);
    return static_cast<uint32_t>(value >> 32) + static_cast<uint32_t>(value);
}

int32_t compareStages(const void* stored, const void* key) {
    return stored == key ? 0 : 1;
}

[[gnu::noinline]] void printEntry(TimeStamp* entry, CStringBuffer* text, HashMap* printed) {
    auto* stage = reinterpret_cast<void*>(entry->stage);
    if (vn_HashMap_exists(printed, stage)) {
        return;
    }
    vn_strbufAppendFormat(text, "%lu:%f, ", entry->stage, entry->time);
    vn_HashMap_addQuick(printed, stage, stage);
}

void printEntries(const VN_TimestampSet* set, CStringBuffer* text) {
    HashMap printed;
    vn_HashMap_init(&printed, hashStage, compareStages, nullptr, nullptr, 16, 0);
    for (uint32_t i = 0; i < set->entries->size; ++i) {
        VectorElement_toString(entriesOf(set)[i], text, &printed);
    }
    vn_HashMap_cleanup(&printed);
}

// Removes the separator at the end: ", " after an entry, the blank after "NULL".
void cutSeparator(CStringBuffer* text) {
    const char* comma = strrchr(text->data, ',');
    if (comma != nullptr) {
        vn_strbufTruncate(text, static_cast<uint64_t>(comma - text->data) + 1);
    }
    if (text->size >= 2) {
        vn_strbufTruncate(text, text->size - 1);
    }
}

}  // namespace
}  // namespace vncommon

using namespace vncommon;

const VN_TimestampSetFunctionTable VN_TimestampSetFunctions = {
    VN_TimestampSet_addNow,
    VN_TimestampSet_addTime,
    VN_TimestampSet_replace,
    VN_TimestampSet_replaceWithNow,
    VN_TimestampSet_findTime,
    VN_TimestampSet_findTimeAndRemove,
    VN_TimestampSet_getNextStampAndRemove,
    VN_TimestampSet_getSize,
    VN_TimestampSet_toString,
};

VN_TimestampSet* VN_TimestampSet_ctor(void) {
    if (Pool* pool = VN_TimestampSet_Global.ofThisThread()) {
        const ForkSafeLock lock(pool->mutex, poolLock);
        VN_ASSERT(VN_TimestampSet_Global.isValid(*pool));
        if (pool->setCount > 0) {
            return reused(pool->sets[--pool->setCount]);
        }
    }
    return newSet();
}

VN_TimestampSet* VN_TimestampSet_copy(VN_TimestampSet* set) {
    VN_ASSERT(isInUse(set));
    VN_TimestampSet* copy = VN_TimestampSet_ctor();
    for (uint32_t i = 0; i < set->entries->size; ++i) {
        const TimeStamp* entry = entriesOf(set)[i];
        copy->functions->addTime(copy, entry->stage, entry->time);
    }
    return copy;
}

void VN_TimestampSet_dtor(VN_TimestampSet* set) {
    if (set == nullptr) {
        return;
    }
    VN_ASSERT(isInUse(set));
    if (recycleSet(set)) {
        return;
    }
    std::for_each_n(entriesOf(set), set->entries->size, recycle);
    freeSet(set);
}

void VN_TimestampSet_addNow(VN_TimestampSet* set, uint64_t stage) {
    add(set, {stage, VN_TimestampSet_getRelativeTime()});
}

void VN_TimestampSet_addTime(VN_TimestampSet* set, uint64_t stage, double time) {
    add(set, {stage, time});
}

TimeStamp* VN_TimestampSet_replace(VN_TimestampSet* set, uint64_t stage, double time) {
    TimeStamp* entry = findEntry(set, stage);
    if (entry != nullptr) {
        entry->time = time;
    }
    return entry;
}

TimeStamp* VN_TimestampSet_replaceWithNow(VN_TimestampSet* set, uint64_t stage) {
    TimeStamp* entry = findEntry(set, stage);
    if (entry != nullptr) {
        entry->time = VN_TimestampSet_getRelativeTime();
    }
    return entry;
}

double VN_TimestampSet_findTime(VN_TimestampSet* set, uint64_t stage) {
    const TimeStamp* entry = findEntry(set, stage);
    return entry != nullptr ? entry->time : 0.0;
}

double VN_TimestampSet_findTimeAndRemove(VN_TimestampSet* set, uint64_t stage) {
    uint32_t index;
    return findStage(set, stage, &index) ? removeInOrder(set, index).time : 0.0;
}

bool VN_TimestampSet_getNextStampAndRemove(VN_TimestampSet* set, uint64_t* stage, double* time) {
    VN_ASSERT(isInUse(set));
    if (vn_Vector_empty(set->entries)) {
        return false;
    }
    const TimeStamp earliest = removeInOrder(set, 0);
    *stage = earliest.stage;
    *time = earliest.time;
    return true;
}

uint32_t VN_TimestampSet_getSize(VN_TimestampSet* set) {
    VN_ASSERT(isInUse(set));
    return vn_Vector_size(set->entries);
}

char* VN_TimestampSet_toString(VN_TimestampSet* set) {
    CStringBuffer text;
    vn_strbufInit(&text, 256);
    vn_strbufAppendString(&text, "{");
    if (set == nullptr || set->entries == nullptr) {
        vn_strbufAppendString(&text, "NULL ");
    } else {
        VN_ASSERT(isInUse(set));
        printEntries(set, &text);
    }
    cutSeparator(&text);
    vn_strbufAppendString(&text, "}");
    return text.data;
}

double VN_TimestampSet_getRelativeTime(void) {
    timeval now;
    if (gettimeofday(&now, nullptr) != 0) {
        VN_LogWarn("VN_TimestampSet_getRelativeTime(): gettimeofday() failed, errno = %ld",
                   static_cast<long>(errno));
        return 0.0;
    }
    return toSeconds(now);
}

void VectorElement_toString(TimeStamp* entry, CStringBuffer* text, HashMap* printed) {
    inDefaultFloatMode<printEntry>(entry, text, printed);
}

double Java_com_vantrel_util_CommonNativeMethods_getMicroTime(void*, void*) {
    return VN_TimestampSet_getRelativeTime();
}
