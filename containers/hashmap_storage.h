// The storage of a HashMap: large blocks, buckets and the tags of their slots.
//
// Storage: a bucket is a Vector record that starts with eight slots. The slots of all buckets
// stand before the records in one block, so that making a map costs two allocations whatever its
// size, and a lookup knows where the slots are before it has read the record (two dependent cache
// misses instead of three). A bucket that outgrows its eight slots gets a block of its own.
//
// Tags: behind the records stands a word for each bucket with a byte of the hash of each slot's
// entry, which tells a lookup what is worth a look before it touches an entry. Behind the last one
// stands a word of 0, so that two can be read at once.
#ifndef VN_CONTAINERS_HASHMAP_STORAGE_H
#define VN_CONTAINERS_HASHMAP_STORAGE_H

#include <vncommon/hashmap.h>

#include <sys/mman.h>

#include <bit>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace vncommon {

constexpr uint32_t bucketSlots = 8;
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

// ---- Tags

// The tags of a bucket, that of slot i in byte i. 0 where the slot is empty.
using Tags = uint64_t;
static_assert(sizeof(Tags) == bucketSlots);

constexpr Tags everyByte = 0x0101010101010101;
constexpr Tags outgrown = everyByte;  // the entries stand in a block of the bucket's own

// Above 127, and from every bit of a hash that may be a small number.
inline Tags tagOf(uint32_t hash) {
    return (hash * 0x9E3779B9) >> 25 | 0x80;
}

inline void setTag(Tags& tags, uint32_t slot, Tags tag) {
    const uint32_t shift = slot % bucketSlots * 8;
    tags = (tags & ~(Tags{0xFF} << shift)) | tag << shift;
}

// The top bit of the first byte that equals the tag, and of every later one: among these may be
// some that do not, which lookups compare in vain.
inline Tags matches(Tags tags, Tags tag) {
    const Tags difference = tags ^ (tag * everyByte);
    return (difference - everyByte) & ~difference & (everyByte * 0x80);
}

// The slot of the first match; the number of slots when there is none.
inline uint32_t firstOf(Tags matching) {
    return static_cast<uint32_t>(std::countr_zero(matching)) / 8;
}

// Entries fill the slots from the first up.
inline uint32_t usedSlots(Tags tags) {
    return bucketSlots - static_cast<uint32_t>(std::countl_zero(tags)) / 8;
}

// A bit for each used slot, that of slot i in bit i; none for an outgrown bucket.
inline uint32_t usedSlotBits(Tags tags) {
    return static_cast<uint32_t>((tags & (everyByte * 0x80)) * 0x0002040810204081 >> 56);
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

// Those of the bucket and, from bit 8, those of the one behind it.
inline uint32_t usedSlotBitsOfTwo(const Buckets& buckets, uint32_t index) {
    const Tags* tags = &tagsOf(buckets, index);
#if defined(__SSE2__)
    const __m128i both = _mm_loadu_si128(reinterpret_cast<const __m128i*>(tags));
    return static_cast<uint32_t>(_mm_movemask_epi8(both));
#else
    return usedSlotBits(tags[0]) | usedSlotBits(tags[1]) << bucketSlots;
#endif
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

// Takes the entry out of its bucket; the bucket's last entry moves into its place.
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
    if (last != entry) {
        last->bucketIndex = entry->bucketIndex;
    }
}

}  // namespace vncommon

#endif
