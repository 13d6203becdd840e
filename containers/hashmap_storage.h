// The storage of a HashMap: large blocks and buckets.
//
// Storage: a bucket is a Vector record that starts with eight slots. The slots of all buckets
// stand before the records in one block, so that making a map costs two allocations whatever its
// size, and a lookup knows where the slots are before it has read the record (two dependent cache
// misses instead of three). A bucket that outgrows its eight slots gets a block of its own.
//
// Behind the records stands a word of tags for each bucket, and a word of 0, so that two can be
// read at once.
#ifndef VN_CONTAINERS_HASHMAP_STORAGE_H
#define VN_CONTAINERS_HASHMAP_STORAGE_H

#include <vncommon/hashmap.h>

#include <sys/mman.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "containers/hashmap_tags.h"

namespace vncommon {

constexpr size_t cacheLine = 64;
static_assert(bucketSlots * sizeof(void*) == cacheLine);

// ---- Memory

constexpr size_t hugePage = 2 << 20;

constexpr size_t roundedUp(size_t size, size_t unit) {
    return (size + unit - 1) / unit * unit;
}

// Large blocks ask for huge pages: the entries are visited at random, and without them each visit
// of a large map misses the processor's table of pages as well. Null for a smaller block.
inline void* allocateLarge(size_t size) {
    if (size < hugePage) {
        return nullptr;
    }
    const size_t pages = roundedUp(size, hugePage);
    void* block = aligned_alloc(hugePage, pages);
    if (block != nullptr) {
        const int before = errno;
        madvise(block, pages, MADV_HUGEPAGE);
        errno = before;
    }
    return block;
}

// ---- Buckets

struct Buckets {
    Vector* records;
    uint32_t mask;  // number of records - 1
};

// The eight slots of a bucket fill a cache line. They stand in front of the records, those of the
// last bucket first, and the tags behind them: both places are found with few instructions.
inline HashMapEntry** firstSlotsOf(const Buckets& buckets, uint32_t index) {
    return reinterpret_cast<HashMapEntry**>(buckets.records) - (size_t{index} + 1) * bucketSlots;
}

inline Tags& tagsOf(const Buckets& buckets, uint32_t index) {
    return reinterpret_cast<Tags*>(buckets.records + (size_t{buckets.mask} + 1))[index];
}

inline bool hasFirstSlots(const Vector& bucket) {
    return bucket.capacity == bucketSlots;
}

// The entries of a bucket. The record's data field is not read while it has its first slots:
// the processor then fetches slots and record at the same time.
inline HashMapEntry** slotsOf(const Buckets& buckets, uint32_t index) {
    const Vector& bucket = buckets.records[index];
    return hasFirstSlots(bucket) ? firstSlotsOf(buckets, index)
                                 : reinterpret_cast<HashMapEntry**>(bucket.data);
}

inline Buckets bucketsOf(const HashMap* map) {
    return {map->buckets, map->mask};
}

inline size_t sizeOfSlots(uint32_t mask) {
    return (size_t{mask} + 1) * cacheLine;
}

inline Buckets makeBuckets(uint32_t mask, vn_HashMapCompare compare) {
    const size_t count = size_t{mask} + 1;
    const size_t tags = (count + 1) * sizeof(Tags);
    const size_t size = sizeOfSlots(mask) + count * sizeof(Vector) + tags;
    void* large = allocateLarge(size);
    void* block = large != nullptr ? large : aligned_alloc(cacheLine, roundedUp(size, cacheLine));
    auto* records = reinterpret_cast<Vector*>(static_cast<char*>(block) + sizeOfSlots(mask));
    const Buckets buckets{records, mask};
    for (uint32_t i = 0; i <= mask; ++i) {
        Vector& bucket = buckets.records[i];
        bucket.size = 0;
        bucket.capacity = bucketSlots;
        bucket.initialCapacity = bucketSlots;
        bucket.shrink = false;
        bucket.data = reinterpret_cast<void**>(firstSlotsOf(buckets, i));
        bucket.compare = compare;
        bucket.onAdd = nullptr;
        bucket.onRemove = nullptr;
    }
    memset(&tagsOf(buckets, 0), 0, tags);
    return buckets;
}

inline void freeBuckets(const Buckets& buckets) {
    for (uint32_t i = 0; i <= buckets.mask; ++i) {
        if (!hasFirstSlots(buckets.records[i])) {
            free(buckets.records[i].data);
        }
    }
    free(reinterpret_cast<char*>(buckets.records) - sizeOfSlots(buckets.mask));
}

// From the shared block into one of its own, which Vector can then grow by itself.
inline void leaveFirstSlots(const Buckets& buckets, uint32_t index) {
    Vector& bucket = buckets.records[index];
    auto** block = static_cast<void**>(calloc(size_t{2} * bucketSlots, sizeof(void*)));
    memcpy(block, bucket.data, bucketSlots * sizeof(void*));
    bucket.data = block;
    bucket.capacity = 2 * bucketSlots;
    tagsOf(buckets, index) = outgrown;
}

inline void append(const Buckets& buckets, uint32_t index, HashMapEntry* entry) {
    Vector& bucket = buckets.records[index];
    if (bucket.size == bucketSlots && hasFirstSlots(bucket)) [[unlikely]] {
        leaveFirstSlots(buckets, index);
    }
    if (bucket.size == bucket.capacity) [[unlikely]] {
        entry->bucketIndex = vn_Vector_add(&bucket, entry);
        return;
    }
    entry->bucketIndex = bucket.size++;
    slotsOf(buckets, index)[entry->bucketIndex] = entry;
    if (hasFirstSlots(bucket)) {
        setTag(tagsOf(buckets, index), entry->bucketIndex, tagOf(entry->hash));
    }
}

// Takes the entry out of its bucket; the bucket's last entry moves into its place. It may be the
// last itself, for which this changes nothing but the size: a branch would be guessed wrong.
inline void unlink(const Buckets& buckets, uint32_t index, const HashMapEntry* entry) {
    Vector& bucket = buckets.records[index];
    HashMapEntry** slots = slotsOf(buckets, index);
    HashMapEntry* last = slots[--bucket.size];
    slots[entry->bucketIndex] = last;
    if (hasFirstSlots(bucket)) {
        Tags& tags = tagsOf(buckets, index);
        setTag(tags, entry->bucketIndex, tags >> (8 * bucket.size) & 0xFF);
        setTag(tags, bucket.size, 0);
    }
    last->bucketIndex = entry->bucketIndex;
}

}  // namespace vncommon

#endif
